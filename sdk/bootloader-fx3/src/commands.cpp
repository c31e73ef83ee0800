#include "commands.hpp"

#include <algorithm>
#include <chrono>
#include <thread>

#include "ovex/log/log.hpp"
#include "ovex/usb/usb_device.hpp"
#include "ovex/vendor_cmd/cypress.hpp"

namespace ovex::fx3::impl {
namespace {

namespace cypress = usb::vendor_cmd::cypress;

constexpr double kFirstRetryDelay = 0.0001;
constexpr double kRetryBudget = 0.1;
// The second-stage loader lives on the first boot EEPROM.
constexpr auto kBootEeprom = cypress::EepromDevice::Device0;

// Calls `transfer(offset, chunk)` for consecutive chunks of the control endpoint's packet size,
// the last one as long as what is left, until one fails.
template <typename Byte, typename Transfer>
std::error_code ForEachChunk(usb::device::UsbDevice& device, std::span<Byte> data,
                             Transfer transfer) {
    const std::size_t chunk_size = device.GetControlEndpoint().GetMaxPacketSize();
    if (chunk_size == 0) {
        OVEX_LOG_ERROR("Control endpoint of device %s reports a packet size of 0.",
                       device.GetPath().c_str());
        return std::make_error_code(std::errc::invalid_argument);
    }
    for (std::size_t offset = 0; offset < data.size(); offset += chunk_size) {
        const std::size_t length = std::min(chunk_size, data.size() - offset);
        if (const auto error = transfer(offset, data.subspan(offset, length))) {
            return error;
        }
    }
    return {};
}

std::error_code WriteRamRetrying(usb::device::UsbDevice& device, std::uint32_t address,
                                 std::span<const std::uint8_t> data) {
    double delay = kFirstRetryDelay;
    double total = 0.0;
    std::error_code error;
    do {
        error = cypress::WriteRam(device, address, data, kRequestTimeout);
        if (!error) {
            return {};
        }
        OVEX_LOG_INFO("Write to RAM at address 0x%08X failed: %s, will retry in %.1e seconds.",
                      address, error.message().c_str(), total < kRetryBudget ? delay : 0.0);
        if (total < kRetryBudget) {
            std::this_thread::sleep_for(std::chrono::duration<double>(delay));
            total += delay;
            delay *= 2;
        }
    } while (total < kRetryBudget);
    OVEX_LOG_ERROR("Failed to write RAM at address 0x%08X: %s, retries exhausted.", address,
                   error.message().c_str());
    return error;
}

}  // namespace

std::error_code WriteRamChunked(usb::device::UsbDevice& device, std::uint32_t address,
                                std::span<const std::uint8_t> data) {
    return ForEachChunk(device, data, [&](std::size_t offset, std::span<const std::uint8_t> chunk) {
        return WriteRamRetrying(device, address + static_cast<std::uint32_t>(offset), chunk);
    });
}

std::error_code ReadRamChunked(usb::device::UsbDevice& device, std::uint32_t address,
                               std::span<std::uint8_t> data) {
    return ForEachChunk(device, data, [&](std::size_t offset, std::span<std::uint8_t> chunk) {
        return cypress::ReadRam(device, address + static_cast<std::uint32_t>(offset), chunk,
                                kRequestTimeout);
    });
}

std::error_code WriteEepromChunked(usb::device::UsbDevice& device, std::uint16_t address,
                                   std::span<const std::uint8_t> data) {
    return ForEachChunk(device, data, [&](std::size_t offset, std::span<const std::uint8_t> chunk) {
        return cypress::WriteEeprom(device, kBootEeprom,
                                    static_cast<std::uint16_t>(address + offset), chunk,
                                    kRequestTimeout);
    });
}

std::error_code ReadEepromChunked(usb::device::UsbDevice& device, std::uint16_t address,
                                  std::span<std::uint8_t> data) {
    return ForEachChunk(device, data, [&](std::size_t offset, std::span<std::uint8_t> chunk) {
        return cypress::ReadEeprom(device, kBootEeprom,
                                   static_cast<std::uint16_t>(address + offset), chunk,
                                   kRequestTimeout);
    });
}

}  // namespace ovex::fx3::impl
