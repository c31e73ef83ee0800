#include "spi_flash.hpp"

#include <algorithm>
#include <string_view>

namespace ovex::vboard {
namespace {

enum Instruction : std::uint8_t {
    kWriteRegisters = 0x01,
    kWriteDisable = 0x04,
    kReadStatus = 0x05,
    kWriteEnable = 0x06,
    kFastRead = 0x0C,
    kPageProgram = 0x12,
    kQuadPageProgram = 0x34,
    kReadConfiguration = 0x35,
    kBulkErase = 0x60,
    kReadId = 0x9F,
    kBulkEraseAlternate = 0xC7,
    kSectorErase = 0xDC,
};

constexpr std::uint8_t kWip = 0x01;
constexpr std::uint8_t kWel = 0x02;
constexpr std::uint8_t kQuad = 0x02;
constexpr std::uint8_t kTbparm = 0x04;
constexpr std::uint32_t kPage = 256;
constexpr std::uint32_t kSector = 64 * 1024;
constexpr std::size_t kAddressEnd = 5;  // instruction and four address bytes

std::uint32_t Address(std::span<const std::uint8_t> bytes) {
    return static_cast<std::uint32_t>(bytes[1]) << 24 | static_cast<std::uint32_t>(bytes[2]) << 16 |
           static_cast<std::uint32_t>(bytes[3]) << 8 | bytes[4];
}

}  // namespace

// Manufacturer and device id, then the CFI query: primary and alternate command sets, the
// geometry with its two erase regions, and the vendor's alternate table with the part number.
std::vector<std::uint8_t> SpiFlash::IdCfi() {
    std::vector<std::uint8_t> space(0x80, 0xFF);
    const auto put = [&](std::size_t at, std::initializer_list<std::uint8_t> bytes) {
        std::copy(bytes.begin(), bytes.end(), space.begin() + static_cast<std::ptrdiff_t>(at));
    };
    put(0x00, {0x01, 0x20, 0x18, 0x4D, 0x00, 0x80});
    put(0x10, {'Q', 'R', 'Y', 0x02, 0x00, 0x40, 0x00, 0x53, 0x46, 0x51, 0x00});
    put(0x27, {0x18, 0x02, 0x01, 0x08, 0x00, 0x02});
    // 32 sectors of 4 KiB and 254 of 64 KiB, in this order whatever TBPARM says: the reader
    // turns them round for parameter sectors at the top.
    put(0x2D, {0x1F, 0x00, 0x10, 0x00});
    put(0x31, {0xFD, 0x00, 0x00, 0x01});
    put(0x51, {'A', 'L', 'T', '2', '0', 0x00, 0x10});
    constexpr std::string_view kPart = "S25FL128S";
    std::copy(kPart.begin(), kPart.end(), space.begin() + 0x58);
    put(0x61, {0x00});
    return space;
}

std::uint8_t SpiFlash::Status() {
    std::uint8_t status = m_write_enabled ? kWel : 0;
    if (m_busy_left > 0) {
        status |= kWip;
        if (m_busy_left != SIZE_MAX) {
            --m_busy_left;
        }
    }
    return status;
}

void SpiFlash::Finished() {
    m_write_enabled = false;
    m_busy_left = m_busy_reads;
}

void SpiFlash::Program(std::uint32_t address, std::span<const std::uint8_t> data) {
    const std::uint32_t page = address - address % kPage;
    for (std::size_t i = 0; i < data.size(); ++i) {
        m_cells.Program(page + (address - page + static_cast<std::uint32_t>(i)) % kPage, data[i]);
    }
}

void SpiFlash::Transmit(std::span<const std::uint8_t> bytes) {
    m_driven.assign(bytes.size(), 0xFF);
    m_received = 0;
    if (bytes.empty()) {
        return;
    }
    // A busy chip answers only status reads.
    if (m_busy_left > 0 && bytes[0] != kReadStatus) {
        return;
    }
    switch (bytes[0]) {
        case kReadId: {
            const auto space = IdCfi();
            std::copy_n(space.begin(), std::min(space.size(), m_driven.size()), m_driven.begin());
            break;
        }
        case kReadStatus:
        case kReadConfiguration: {
            const std::uint8_t value = bytes[0] == kReadStatus ? Status() : m_cr1;
            std::fill(m_driven.begin() + 1, m_driven.end(), value);
            break;
        }
        case kWriteEnable:
            m_write_enabled = true;
            break;
        case kWriteDisable:
            m_write_enabled = false;
            break;
        case kWriteRegisters:
            if (m_write_enabled && bytes.size() >= 3) {
                m_cr1 = static_cast<std::uint8_t>(bytes[2] | (m_cr1 & kTbparm));
                Finished();
            }
            break;
        case kPageProgram:
        case kQuadPageProgram:
            if (bytes[0] == kQuadPageProgram && (m_cr1 & kQuad) == 0) {
                break;
            }
            if (m_write_enabled && bytes.size() > kAddressEnd) {
                Program(Address(bytes) % kSize, bytes.subspan(kAddressEnd));
                Finished();
            }
            break;
        case kSectorErase:
            if (m_write_enabled && bytes.size() >= kAddressEnd) {
                const std::uint32_t address = Address(bytes) % kSize;
                m_cells.Erase(address - address % kSector, kSector);
                Finished();
            }
            break;
        case kBulkErase:
        case kBulkEraseAlternate:
            if (m_write_enabled) {
                m_cells.Erase(0, kSize);
                Finished();
            }
            break;
        case kFastRead: {
            const std::size_t header = kAddressEnd + ((m_cr1 >> 6) == 3 ? 0 : 1);
            if (bytes.size() <= header) {
                break;
            }
            const std::uint32_t address = Address(bytes);
            for (std::size_t i = header; i < bytes.size(); ++i) {
                m_driven[i] =
                    m_cells.Read(static_cast<std::uint32_t>((address + i - header) % kSize));
            }
            break;
        }
        default:
            break;
    }
}

std::vector<std::uint8_t> SpiFlash::Receive(std::size_t count) {
    std::vector<std::uint8_t> bytes(count, 0xFF);
    for (std::uint8_t& byte : bytes) {
        if (m_received < m_driven.size()) {
            byte = m_driven[m_received++];
        }
    }
    return bytes;
}

}  // namespace ovex::vboard
