#pragma once

// The FPGA's SPI buses: bring-up, statistics, and transfers to one slave at a time.

#include <cstdint>
#include <span>
#include <system_error>

#include "ovex/vendor_cmd/vendor_command.hpp"

namespace ovex::usb::device {
class UsbDevice;
}

namespace ovex::usb::vendor_cmd::spi {

// Also the order on the wire.
struct Stats {
    std::uint32_t mode_faults = 0;
    std::uint32_t tx_underruns = 0;
    std::uint32_t rx_overruns = 0;
    std::uint32_t slave_mode_faults = 0;
    std::uint32_t transferred = 0;
    std::uint32_t interrupts = 0;
};

std::error_code Init(device::UsbDevice& device, SpiBusId bus, double timeout = kDefaultTimeout);
std::error_code Reset(device::UsbDevice& device, SpiBusId bus, double timeout = kDefaultTimeout);
std::error_code SelfTest(device::UsbDevice& device, SpiBusId bus, double timeout = kDefaultTimeout);
std::error_code Start(device::UsbDevice& device, SpiBusId bus, double timeout = kDefaultTimeout);
std::error_code Stop(device::UsbDevice& device, SpiBusId bus, double timeout = kDefaultTimeout);
std::error_code ClearStats(device::UsbDevice& device, SpiBusId bus,
                           double timeout = kDefaultTimeout);
std::error_code GetStats(device::UsbDevice& device, SpiBusId bus, Stats& stats,
                         double timeout = kDefaultTimeout);
std::error_code Transmit(device::UsbDevice& device, SpiBusId bus, std::uint16_t slave,
                         std::span<const std::uint8_t> data, double timeout = kDefaultTimeout);
std::error_code Receive(device::UsbDevice& device, SpiBusId bus, std::uint16_t slave,
                        std::span<std::uint8_t> data, double timeout = kDefaultTimeout);

}  // namespace ovex::usb::vendor_cmd::spi
