#include "shared_func.hpp"

#include <fstream>

#include "bitmanip/bitmanip.hpp"
#include "ovex/fx3/errors.hpp"
#include "ovex/fx3/fw_image.hpp"
#include "ovex/log/log.hpp"

namespace ovex::fx3 {
namespace {

constexpr std::uint8_t kImageType = 0xB0;  // normal image with checksum

// A word of which fewer than 4 bytes are left reads as 0.
std::uint32_t WordAt(std::span<const std::uint8_t> bytes, std::size_t pos) {
    return pos < bytes.size() ? bitmanip::u32_from_span_le(bytes.subspan(pos)) : 0;
}

}  // namespace

std::error_code FwImage::FromMemory(std::span<const std::uint8_t> bytes, FwImage& image) {
    FwImage parsed;
    parsed.m_bytes.assign(bytes.begin(), bytes.end());
    const std::error_code error = parsed.Parse();
    image = error ? FwImage{} : std::move(parsed);
    return error;
}

std::error_code FwImage::FromFile(const std::string& file_name, FwImage& image) {
    image = FwImage{};
    std::ifstream in(file_name, std::ios::binary);
    if (!in) {
        return std::make_error_code(std::errc::no_such_file_or_directory);
    }
    // One byte more than an image may have is enough to refuse a file that is too long.
    std::vector<std::uint8_t> bytes(kMaxSize + 1);
    in.read(reinterpret_cast<char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
    if (in.bad()) {
        return std::make_error_code(std::errc::io_error);
    }
    bytes.resize(static_cast<std::size_t>(in.gcount()));
    return FromMemory(bytes, image);
}

std::error_code FwImage::Parse() {
    const std::span<const std::uint8_t> data = m_bytes;
    const std::size_t size = data.size();
    if (size % 4 != 0 || size > kMaxSize || size == 0) {
        return FwImgError::kSize;
    }
    if (data[0] != 'C' || data[1] != 'Y') {
        return FwImgError::kSignature;
    }
    if ((data[2] & 0x01) != 0) {
        return FwImgError::kNotExecutable;
    }
    if (data[3] != kImageType) {
        return FwImgError::kImageType;
    }

    std::size_t pos = 4;
    std::uint32_t sum = 0;
    while (pos < size) {
        const std::size_t words = WordAt(data, pos);
        const std::uint32_t address = WordAt(data, pos + 4);
        pos += 8;
        if (words == 0) {
            m_entry_point = address;
            break;
        }
        const std::size_t length = words * 4;
        if (pos > size || length > size - pos) {
            return FwImgError::kSize;
        }
        const auto section = data.subspan(pos, length);
        for (std::size_t i = 0; i < length; i += 4) {
            sum += bitmanip::u32_from_span_le(section.subspan(i, 4));
        }
        m_sections.push_back({address, section});
        pos += length;
    }
    if (pos != size - 4) {
        return FwImgError::kSize;
    }
    if (WordAt(data, pos) != sum) {
        return FwImgError::kChecksum;
    }
    return {};
}

namespace impl {

std::error_code CompareContent(std::span<const std::uint8_t> written,
                               std::span<const std::uint8_t> read) {
    if (written.size() != read.size()) {
        OVEX_LOG_ERROR("Data length mismatch (%zu != %zu).", written.size(), read.size());
        return BootloaderError::kDataMismatch;
    }
    for (std::size_t offset = 0; offset < written.size(); ++offset) {
        if (written[offset] != read[offset]) {
            OVEX_LOG_ERROR("Data mismatch (0x%02x != 0x%02x) at offset %zu.", written[offset],
                           read[offset], offset);
            return BootloaderError::kDataMismatch;
        }
    }
    return {};
}

}  // namespace impl
}  // namespace ovex::fx3
