#include "ovex/fx3img/image_builder.hpp"

#include <algorithm>
#include <array>
#include <stdexcept>
#include <string>
#include <string_view>

#include "bitmanip/bitmanip.hpp"
#include "ovex/fx3/app_descriptor.hpp"

namespace ovex::fx3img {
namespace {

using Layout = AppDescriptorLayout;

constexpr std::size_t kMaxImageSize = 524288;
constexpr std::size_t kMaxSectionBytes = 65536;
constexpr std::size_t kHeaderBytes = 4;
constexpr std::size_t kSectionHeaderBytes = 8;
constexpr std::size_t kTerminatorBytes = 8;
constexpr std::size_t kChecksumBytes = 4;
// Everything of an image but the body and its section headers.
constexpr std::size_t kFixedBytes =
    kHeaderBytes + kSectionHeaderBytes + Layout::kSize + kTerminatorBytes + kChecksumBytes;

// Appends little-endian words and keeps the wrapping sum of the section data among them.
class ImageWriter {
public:
    explicit ImageWriter(std::size_t size) { m_bytes.reserve(size); }

    void Byte(std::uint8_t value) { m_bytes.push_back(value); }
    void Word(std::uint32_t value) {
        for (std::uint32_t i = 0; i < 4; ++i) {
            m_bytes.push_back(bitmanip::get_byte_u32(value, i));
        }
    }
    void SectionHeader(std::size_t data_bytes, std::uint32_t address) {
        Word(static_cast<std::uint32_t>(data_bytes / 4));
        Word(address);
    }
    void DataWord(std::uint32_t value) {
        Word(value);
        m_sum += value;
    }
    void Data(std::span<const std::uint8_t> bytes) {
        for (std::size_t i = 0; i < bytes.size(); i += 4) {
            DataWord(bitmanip::u32_from_span_le(bytes.subspan(i, 4)));
        }
    }

    std::uint32_t Sum() const { return m_sum; }
    std::vector<std::uint8_t> Take() { return std::move(m_bytes); }

private:
    std::vector<std::uint8_t> m_bytes;
    std::uint32_t m_sum = 0;
};

// splitmix64: a fixed, portable sequence, so an image rebuilt anywhere has the same bytes.
class Filler {
public:
    explicit Filler(std::uint64_t seed) : m_state(seed) {}
    std::uint32_t Next() {
        std::uint64_t z = (m_state += 0x9E3779B97F4A7C15ull);
        z = (z ^ (z >> 30)) * 0xBF58476D1CE4E5B9ull;
        z = (z ^ (z >> 27)) * 0x94D049BB133111EBull;
        return static_cast<std::uint32_t>((z ^ (z >> 31)) >> 32);
    }

private:
    std::uint64_t m_state;
};

// FNV-1a over the three texts, each with its terminating zero so that fields can't run together.
std::uint64_t Seed(const AppIdentity& identity) {
    std::uint64_t hash = 0xCBF29CE484222325ull;
    for (const std::string* text :
         {&identity.board_id, &identity.pcb_version, &identity.firmware_version}) {
        for (const char c : *text) {
            hash = (hash ^ static_cast<std::uint8_t>(c)) * 0x100000001B3ull;
        }
        hash *= 0x100000001B3ull;
    }
    return hash;
}

void PutText(std::span<std::uint8_t> descriptor, std::size_t offset, std::size_t field_size,
             std::string_view text, const char* what) {
    // One zero byte at least stays behind the text.
    if (text.size() >= field_size) {
        throw std::invalid_argument(std::string(what) + " too long for the image descriptor");
    }
    std::copy(text.begin(), text.end(), descriptor.begin() + static_cast<std::ptrdiff_t>(offset));
}

}  // namespace

std::vector<std::uint8_t> BuildApplicationImage(const AppIdentity& identity,
                                                std::size_t total_size) {
    if (total_size % 4 != 0 || total_size > kMaxImageSize ||
        total_size < kFixedBytes + kSectionHeaderBytes + 4) {
        throw std::invalid_argument("image size " + std::to_string(total_size) +
                                    ": must be a multiple of 4 from " +
                                    std::to_string(kFixedBytes + kSectionHeaderBytes + 4) + " to " +
                                    std::to_string(kMaxImageSize));
    }
    // The fewest body sections that hold what is left once their own headers are paid for; the
    // body then spreads evenly over them, so none is empty and none exceeds the section limit.
    const std::size_t body_room = total_size - kFixedBytes;
    const std::size_t sections = (body_room + kMaxSectionBytes + kSectionHeaderBytes - 1) /
                                 (kMaxSectionBytes + kSectionHeaderBytes);
    const std::size_t body_words = (body_room - sections * kSectionHeaderBytes) / 4;

    std::vector<std::uint32_t> body(body_words);
    Filler filler(Seed(identity));
    std::generate(body.begin(), body.end(), [&filler] { return filler.Next(); });
    std::uint32_t body_sum = 0;
    for (const std::uint32_t word : body) {
        body_sum += word;
    }

    std::array<std::uint8_t, Layout::kSize> descriptor{};
    std::copy(Layout::kMagic.begin(), Layout::kMagic.end(),
              descriptor.begin() + Layout::kMagicOffset);
    PutText(descriptor, Layout::kBoardIdOffset, Layout::kBoardIdSize, identity.board_id,
            "board id");
    PutText(descriptor, Layout::kPcbVersionOffset, Layout::kPcbVersionSize, identity.pcb_version,
            "PCB version");
    PutText(descriptor, Layout::kFirmwareVersionOffset, Layout::kFirmwareVersionSize,
            identity.firmware_version, "firmware version");
    bitmanip::u32_to_span_le(Layout::kBodyAddress,
                             std::span(descriptor).subspan(Layout::kBodyAddressOffset));
    bitmanip::u32_to_span_le(static_cast<std::uint32_t>(body_words * 4),
                             std::span(descriptor).subspan(Layout::kBodyBytesOffset));
    bitmanip::u32_to_span_le(body_sum, std::span(descriptor).subspan(Layout::kBodySumOffset));

    ImageWriter image(total_size);
    for (const char c : {'C', 'Y'}) {
        image.Byte(static_cast<std::uint8_t>(c));
    }
    image.Byte(0x00);  // executable code
    image.Byte(0xB0);  // normal image with checksum
    image.SectionHeader(descriptor.size(), Layout::kEntryPoint);
    image.Data(descriptor);

    std::size_t done = 0;
    for (std::size_t n = 0; n < sections; ++n) {
        // The first (body_words % sections) sections carry one word more.
        const std::size_t words = body_words / sections + (n < body_words % sections ? 1 : 0);
        image.SectionHeader(words * 4, static_cast<std::uint32_t>(Layout::kBodyAddress + done * 4));
        for (std::size_t i = 0; i < words; ++i) {
            image.DataWord(body[done + i]);
        }
        done += words;
    }
    image.SectionHeader(0, Layout::kEntryPoint);
    image.Word(image.Sum());
    return image.Take();
}

}  // namespace ovex::fx3img
