#include "ovex/vendor_cmd/board_io.hpp"

#include <array>

#include "ovex/usb/usb_device.hpp"
#include "ovex/vendor_cmd/rules.hpp"

namespace ovex::usb::vendor_cmd {
namespace {

constexpr std::uint16_t kTenBitMarker = 0b11110;
constexpr std::uint16_t kRegister8 = 0x100;
constexpr std::uint16_t kRegister16 = 0x300;

VendorCommand AxiAddress(std::uint8_t bRequest, std::uint32_t address) {
    return {bRequest, static_cast<std::uint16_t>(address),
            static_cast<std::uint16_t>(address >> 16)};
}

std::error_code I2cTransfer(device::UsbDevice& device, std::uint16_t address, std::uint16_t reg,
                            bool register_16bit, std::span<std::uint8_t> data, double timeout) {
    const auto addressing = impl::I2cAddress(address, register_16bit);
    const VendorCommand command{request::kI2c, reg, addressing.wIndex};
    return addressing.read ? impl::SendIn(device, command, data, timeout)
                           : impl::SendOut(device, command, data, timeout);
}

}  // namespace

namespace impl {

I2cAddressing I2cAddress(std::uint16_t address, bool register_16bit) {
    const bool ten_bit = (address >> 11) == kTenBitMarker;
    const bool read = ten_bit ? (address & 0x100) != 0 : (address & 0x001) != 0;
    return {static_cast<std::uint16_t>(address | (register_16bit ? kRegister16 : kRegister8)),
            read};
}

}  // namespace impl

std::error_code gpio_get(device::UsbDevice& device, std::uint16_t pin, bool& value,
                         double timeout) {
    std::array<std::uint8_t, 4> field{};
    const auto result = VendorIn(device, {request::kGpio, 0, pin}, field, timeout);
    unsigned int word = 0;
    impl::Decode(field, word);
    value = word != 0;
    return result;
}

std::error_code gpio_set(device::UsbDevice& device, std::uint16_t pin, bool value, double timeout) {
    return VendorOut(device, {request::kGpio, static_cast<std::uint16_t>(value ? 1 : 0), pin}, {},
                     timeout);
}

std::error_code i2c_transfer_8(device::UsbDevice& device, std::uint16_t address, std::uint8_t reg,
                               std::span<std::uint8_t> data, double timeout) {
    return I2cTransfer(device, address, reg, false, data, timeout);
}

std::error_code i2c_transfer_16(device::UsbDevice& device, std::uint16_t address, std::uint16_t reg,
                                std::span<std::uint8_t> data, double timeout) {
    return I2cTransfer(device, address, reg, true, data, timeout);
}

std::error_code axi_read(device::UsbDevice& device, std::uint32_t address, unsigned int& value,
                         double timeout) {
    return impl::RecvViaCmd(device, AxiAddress(request::kAxi, address), value, timeout);
}

std::error_code axi_write(device::UsbDevice& device, std::uint32_t address, unsigned int value,
                          double timeout) {
    return impl::SendViaCmd(device, AxiAddress(request::kAxi, address), value, timeout);
}

std::error_code axi_stream_start(device::UsbDevice& device, double timeout) {
    return impl::SendOut(device, {request::kAxiStreamStart, 0, 0}, {}, timeout);
}

std::error_code VendorOut(device::UsbDevice& device, VendorCommand command,
                          std::span<const std::uint8_t> data, double timeout) {
    return device.GetControlEndpoint().ControlOut(
        {kRequestTypeOut, command.bRequest, command.wValue, command.wIndex, 0}, data, timeout);
}

std::error_code VendorIn(device::UsbDevice& device, VendorCommand command,
                         std::span<std::uint8_t> data, double timeout, std::size_t* transferred) {
    return device.GetControlEndpoint().ControlIn(
        {kRequestTypeIn, command.bRequest, command.wValue, command.wIndex, 0}, data, timeout,
        transferred);
}

}  // namespace ovex::usb::vendor_cmd
