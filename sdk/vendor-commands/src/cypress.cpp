#include "ovex/vendor_cmd/cypress.hpp"

#include <array>

#include "ovex/vendor_cmd/board_io.hpp"
#include "ovex/vendor_cmd/rules.hpp"

namespace ovex::usb::vendor_cmd::cypress {
namespace {

VendorCommand RamAddress(std::uint32_t address) {
    return {request::kRam, static_cast<std::uint16_t>(address),
            static_cast<std::uint16_t>(address >> 16)};
}

VendorCommand EepromAddress(std::uint8_t bRequest, EepromDevice eeprom, std::uint16_t address) {
    return {bRequest, static_cast<std::uint16_t>(eeprom), address};
}

}  // namespace

std::error_code ReadRam(device::UsbDevice& device, std::uint32_t address,
                        std::span<std::uint8_t> data, double timeout) {
    return VendorIn(device, RamAddress(address), data, timeout);
}

std::error_code WriteRam(device::UsbDevice& device, std::uint32_t address,
                         std::span<const std::uint8_t> data, double timeout) {
    return VendorOut(device, RamAddress(address), data, timeout);
}

std::error_code GetId(device::UsbDevice& device, std::string& id, double timeout) {
    std::array<std::uint8_t, kIdFieldSize> field{};
    return impl::RecvViaCmd(
        device, {request::kGetId, 0, 0}, field,
        [&id](std::span<std::uint8_t> f) { return impl::Decode(f, id); }, timeout);
}

// The version bytes stand at every other place of the 8-byte answer.
std::error_code GetVersion(device::UsbDevice& device, Version& version, double timeout) {
    std::array<std::uint8_t, 8> field{};
    return impl::RecvViaCmd(
        device, {request::kGetVersion, 0, 0}, field,
        [&version](std::span<std::uint8_t> f) {
            version = {f[0], f[2], f[4], f[6]};
            return true;
        },
        timeout);
}

std::error_code WriteEeprom(device::UsbDevice& device, EepromDevice eeprom, std::uint16_t address,
                            std::span<const std::uint8_t> data, double timeout) {
    return VendorOut(device, EepromAddress(request::kWriteEeprom, eeprom, address), data, timeout);
}

std::error_code ReadEeprom(device::UsbDevice& device, EepromDevice eeprom, std::uint16_t address,
                           std::span<std::uint8_t> data, double timeout) {
    return VendorIn(device, EepromAddress(request::kReadEeprom, eeprom, address), data, timeout);
}

std::error_code Reset(device::UsbDevice& device, double timeout) {
    return VendorIn(device, {request::kReset, 0, 0}, {}, timeout);
}

}  // namespace ovex::usb::vendor_cmd::cypress
