#pragma once

// Requests answered by the board's USB controller itself: its RAM (only in the boot loader), its
// identity and version, its I2C boot EEPROMs, and a reset.

#include <cstdint>
#include <span>
#include <string>
#include <system_error>

#include "ovex/vendor_cmd/vendor_command.hpp"

namespace ovex::usb::device {
class UsbDevice;
}

namespace ovex::usb::vendor_cmd::cypress {

struct Version {
    std::uint8_t major = 0;
    std::uint8_t minor = 0;
    std::uint8_t patch = 0;
    std::uint8_t build = 0;
};

// The I2C device select of an EEPROM.
enum class EepromDevice : std::uint8_t {
    Device0,
    Device1,
    Device2,
    Device3,
    Device4,
    Device5,
    Device6,
    Device7,
};

// Bare transfers at a 32-bit address; at most one control transfer's payload at a time. A read
// of zero bytes starts the image at that address.
std::error_code ReadRam(device::UsbDevice& device, std::uint32_t address,
                        std::span<std::uint8_t> data, double timeout = kDefaultTimeout);
std::error_code WriteRam(device::UsbDevice& device, std::uint32_t address,
                         std::span<const std::uint8_t> data, double timeout = kDefaultTimeout);

// The board id in application mode; in the boot loader the id followed by " BL".
std::error_code GetId(device::UsbDevice& device, std::string& id, double timeout = kDefaultTimeout);
std::error_code GetVersion(device::UsbDevice& device, Version& version,
                           double timeout = kDefaultTimeout);

std::error_code WriteEeprom(device::UsbDevice& device, EepromDevice eeprom, std::uint16_t address,
                            std::span<const std::uint8_t> data, double timeout = kDefaultTimeout);
std::error_code ReadEeprom(device::UsbDevice& device, EepromDevice eeprom, std::uint16_t address,
                           std::span<std::uint8_t> data, double timeout = kDefaultTimeout);

std::error_code Reset(device::UsbDevice& device, double timeout = kDefaultTimeout);

}  // namespace ovex::usb::vendor_cmd::cypress
