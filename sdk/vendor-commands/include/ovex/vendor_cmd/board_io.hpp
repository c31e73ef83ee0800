#pragma once

// The board's own peripherals behind the protocol: general-purpose pins, its I2C bus, the FPGA's
// AXI register space, and bare requests for what a board-specific module needs of its own.

#include <cstdint>
#include <span>
#include <system_error>

#include "ovex/vendor_cmd/vendor_command.hpp"

namespace ovex::usb::device {
class UsbDevice;
}

namespace ovex::usb::vendor_cmd {

// Any non-zero answer reads as high. Only the transfer's result counts.
std::error_code gpio_get(device::UsbDevice& device, std::uint16_t pin, bool& value,
                         double timeout = kDefaultTimeout);
std::error_code gpio_set(device::UsbDevice& device, std::uint16_t pin, bool value,
                         double timeout = kDefaultTimeout);

// `address` is the first byte on the bus, read bit included: bit 0, or bit 8 for a 10-bit
// address (bits 11 to 15 equal to 0b11110). The read bit chooses the direction: `data` is filled
// from the register on, or written to it.
std::error_code i2c_transfer_8(device::UsbDevice& device, std::uint16_t address, std::uint8_t reg,
                               std::span<std::uint8_t> data, double timeout = kDefaultTimeout);
std::error_code i2c_transfer_16(device::UsbDevice& device, std::uint16_t address, std::uint16_t reg,
                                std::span<std::uint8_t> data, double timeout = kDefaultTimeout);

std::error_code axi_read(device::UsbDevice& device, std::uint32_t address, unsigned int& value,
                         double timeout = kDefaultTimeout);
std::error_code axi_write(device::UsbDevice& device, std::uint32_t address, unsigned int value,
                          double timeout = kDefaultTimeout);
std::error_code axi_stream_start(device::UsbDevice& device, double timeout = kDefaultTimeout);

// A bare vendor request with no check beyond the transfer's own result.
std::error_code VendorOut(device::UsbDevice& device, VendorCommand command,
                          std::span<const std::uint8_t> data, double timeout = kDefaultTimeout);
std::error_code VendorIn(device::UsbDevice& device, VendorCommand command,
                         std::span<std::uint8_t> data, double timeout = kDefaultTimeout,
                         std::size_t* transferred = nullptr);

namespace impl {
// wIndex of an I2C request, and whether it reads.
struct I2cAddressing {
    std::uint16_t wIndex;
    bool read;
};
I2cAddressing I2cAddress(std::uint16_t address, bool register_16bit);
}  // namespace impl

}  // namespace ovex::usb::vendor_cmd
