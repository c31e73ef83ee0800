#pragma once

// The boot loader's memory transfers, cut into pieces of the control endpoint's packet size.

#include <cstdint>
#include <span>
#include <system_error>

namespace ovex::usb::device {
class UsbDevice;
}

namespace ovex::fx3::impl {

inline constexpr double kRequestTimeout = 10.0;

// Chunked transfers from `address` on; the first failing chunk ends them. A RAM write chunk is
// retried with growing pauses for about 0.1 s before it fails; reads and EEPROM writes aren't.
std::error_code WriteRamChunked(usb::device::UsbDevice& device, std::uint32_t address,
                                std::span<const std::uint8_t> data);
std::error_code ReadRamChunked(usb::device::UsbDevice& device, std::uint32_t address,
                               std::span<std::uint8_t> data);
std::error_code WriteEepromChunked(usb::device::UsbDevice& device, std::uint16_t address,
                                   std::span<const std::uint8_t> data);
std::error_code ReadEepromChunked(usb::device::UsbDevice& device, std::uint16_t address,
                                  std::span<std::uint8_t> data);

}  // namespace ovex::fx3::impl
