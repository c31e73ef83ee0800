#include "modules/eeprom_24CS512.hpp"

#include <algorithm>
#include <chrono>
#include <thread>

#include "ovex/log/log.hpp"
#include "ovex/vendor_cmd/board_io.hpp"

namespace ovex::sdk {

namespace {

constexpr std::size_t kPageSize = 128;
constexpr std::uint64_t kAddressSpace = 0x10000;
constexpr double kTransferTimeout = 10.0;
// The chip's write cycle; reads wait the same, so that a read never catches a write in progress.
constexpr std::chrono::milliseconds kWriteCycle{5};

}  // namespace

Eeprom24CS512::Eeprom24CS512(std::shared_ptr<usb::device::UsbDevice> device,
                             std::uint8_t i2c_address, std::string id)
    : Eeprom24CS512(std::move(device), i2c_address, std::move(id),
                    {{EepromRegion::kReadWrite, 512, 128, 0x0000, 0xFFFF}}) {}

Eeprom24CS512::Eeprom24CS512(std::shared_ptr<usb::device::UsbDevice> device,
                             std::uint8_t i2c_address, std::string id,
                             std::vector<EepromRegion> regions)
    : m_device(std::move(device)),
      m_i2c_address(i2c_address),
      m_id(std::move(id)),
      m_regions(std::move(regions)) {}

Eeprom24CS512Secure::Eeprom24CS512Secure(std::shared_ptr<usb::device::UsbDevice> device,
                                         std::uint8_t i2c_address, std::string id)
    : Eeprom24CS512(std::move(device), i2c_address, std::move(id),
                    {{EepromRegion::kReadOnly, 1, 128, 0x0800, 0x087F},
                     {EepromRegion::kReadWrite, 1, 128, 0x0880, 0x08FF}}) {}

std::error_code Eeprom24CS512::GetInfo(EepromInfo& info) {
    info = {m_id, "24CS512", m_regions};
    return {};
}

const EepromRegion* Eeprom24CS512::RegionOf(std::uint32_t address, std::size_t length) const {
    // An empty range is taken as its first byte.
    const std::uint64_t last = address + std::max<std::uint64_t>(length, 1) - 1;
    const auto region =
        std::find_if(m_regions.begin(), m_regions.end(), [&](const EepromRegion& candidate) {
            return candidate.first <= address && last <= candidate.last;
        });
    return region != m_regions.end() ? &*region : nullptr;
}

std::error_code Eeprom24CS512::Read(std::uint16_t address, std::span<std::uint8_t> data,
                                    std::uint64_t& count) {
    if (RegionOf(address, data.size()) == nullptr) {
        OVEX_LOG_ERROR("Read exceeds EEPROM address range.");
        return std::make_error_code(std::errc::invalid_argument);
    }
    const auto bus_byte = static_cast<std::uint16_t>((m_i2c_address & 127) << 1 | 1);
    return Transfer(bus_byte, address, data, count);
}

std::error_code Eeprom24CS512::Write(std::uint16_t address, std::span<const std::uint8_t> data,
                                     std::uint64_t& count) {
    const EepromRegion* region = RegionOf(address, data.size());
    if (region == nullptr) {
        OVEX_LOG_ERROR("Write exceeds the valid EEPROM address range.");
        return std::make_error_code(std::errc::invalid_argument);
    }
    if (region->kind == EepromRegion::kReadOnly) {
        OVEX_LOG_ERROR("The region containing the address range is read-only.");
        return std::make_error_code(std::errc::invalid_argument);
    }
    const auto bus_byte = static_cast<std::uint16_t>((m_i2c_address & 127) << 1);
    // The transfer takes one span for both directions.
    std::vector<std::uint8_t> bytes(data.begin(), data.end());
    return Transfer(bus_byte, address, bytes, count);
}

std::error_code Eeprom24CS512::Erase(std::uint16_t address, std::uint64_t length,
                                     std::uint64_t& count) {
    // No region is longer than the address space: a longer range is cut to one byte past it,
    // which the write's range test refuses as it would the whole.
    const auto size = static_cast<std::size_t>(std::min<std::uint64_t>(length, kAddressSpace + 1));
    const std::vector<std::uint8_t> erased(size, 0xFF);
    return Write(address, erased, count);
}

std::error_code Eeprom24CS512::Transfer(std::uint16_t bus_byte, std::uint16_t address,
                                        std::span<std::uint8_t> data, std::uint64_t& count) {
    while (count < data.size()) {
        // A chunk ends at a page end: the chip would wrap a longer write to the page's start.
        const std::size_t position = address + count;
        const std::size_t chunk =
            std::min<std::size_t>(kPageSize - position % kPageSize, data.size() - count);
        const auto ec = usb::vendor_cmd::i2c_transfer_16(
            *m_device, bus_byte, static_cast<std::uint16_t>(position), data.subspan(count, chunk),
            kTransferTimeout);
        if (ec) {
            OVEX_LOG_EC(log::kError, "I2C transfer failed - %s: %s", ec);
            return ec;
        }
        std::this_thread::sleep_for(kWriteCycle);
        count += chunk;
    }
    return {};
}

}  // namespace ovex::sdk
