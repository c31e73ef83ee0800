#include "ovex/vendor_cmd/spi.hpp"

#include <array>

#include "ovex/vendor_cmd/rules.hpp"

namespace ovex::usb::vendor_cmd::spi {
namespace {

constexpr std::uint16_t kStop = 0;
constexpr std::uint16_t kStart = 1;

std::error_code BusCommand(device::UsbDevice& device, std::uint8_t bRequest, std::uint16_t wValue,
                           SpiBusId bus, double timeout) {
    return impl::SendOut(device, {bRequest, wValue, bus.get()}, {}, timeout);
}

}  // namespace

std::error_code Init(device::UsbDevice& device, SpiBusId bus, double timeout) {
    return BusCommand(device, request::kSpiInit, 0, bus, timeout);
}

std::error_code Reset(device::UsbDevice& device, SpiBusId bus, double timeout) {
    return BusCommand(device, request::kSpiReset, 0, bus, timeout);
}

std::error_code SelfTest(device::UsbDevice& device, SpiBusId bus, double timeout) {
    return BusCommand(device, request::kSpiSelfTest, 0, bus, timeout);
}

std::error_code Start(device::UsbDevice& device, SpiBusId bus, double timeout) {
    return BusCommand(device, request::kSpiStartStop, kStart, bus, timeout);
}

std::error_code Stop(device::UsbDevice& device, SpiBusId bus, double timeout) {
    return BusCommand(device, request::kSpiStartStop, kStop, bus, timeout);
}

std::error_code ClearStats(device::UsbDevice& device, SpiBusId bus, double timeout) {
    return BusCommand(device, request::kSpiStats, 0, bus, timeout);
}

std::error_code GetStats(device::UsbDevice& device, SpiBusId bus, Stats& stats, double timeout) {
    std::array<std::uint8_t, 24> field{};
    return impl::RecvViaCmd(
        device, {request::kSpiStats, 0, bus.get()}, field,
        [&stats](std::span<std::uint8_t> f) {
            std::array<unsigned int, 6> words{};
            for (std::size_t i = 0; i < words.size(); ++i) {
                impl::Decode(f.subspan(4 * i, 4), words[i]);
            }
            stats = {words[0], words[1], words[2], words[3], words[4], words[5]};
            return true;
        },
        timeout);
}

std::error_code Transmit(device::UsbDevice& device, SpiBusId bus, std::uint16_t slave,
                         std::span<const std::uint8_t> data, double timeout) {
    return impl::SendOut(device, {request::kSpiData, slave, bus.get()}, data, timeout);
}

std::error_code Receive(device::UsbDevice& device, SpiBusId bus, std::uint16_t slave,
                        std::span<std::uint8_t> data, double timeout) {
    return impl::SendIn(device, {request::kSpiData, slave, bus.get()}, data, timeout);
}

}  // namespace ovex::usb::vendor_cmd::spi
