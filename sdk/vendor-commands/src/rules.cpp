#include "ovex/vendor_cmd/rules.hpp"

#include <algorithm>
#include <vector>

#include "ovex/usb/usb_device.hpp"
#include "ovex/vendor_cmd/device_error.hpp"

namespace ovex::usb::vendor_cmd::impl {
namespace {

device::ControlSetup Setup(std::uint8_t type, VendorCommand command) {
    return {type, command.bRequest, command.wValue, command.wIndex, 0};
}

// A stall is how the board refuses; it ends up as an I/O error and the board keeps the reason.
// Timeouts, disconnects and cancellations are the transport's own and are handed up as they are.
bool BoardMayKnowWhy(std::error_code transfer) {
    return !transfer || transfer == std::errc::io_error;
}

std::error_code AskBoard(device::UsbDevice& device, double timeout) {
    const auto last = error::GetLastError(device, timeout);
    return last.query ? last.query : last.device;
}

}  // namespace

std::error_code RecvViaCmd(device::UsbDevice& device, VendorCommand command,
                           std::span<std::uint8_t> field, const Decoder& decode, double timeout) {
    std::fill(field.begin(), field.end(), std::uint8_t{0});
    const auto transfer =
        device.GetControlEndpoint().ControlIn(Setup(kRequestTypeIn, command), field, timeout);
    if (!BoardMayKnowWhy(transfer)) {
        return transfer;
    }
    const bool decoded = decode(field);
    if (!transfer && decoded) {
        return {};
    }
    return AskBoard(device, timeout);
}

std::error_code SendOut(device::UsbDevice& device, VendorCommand command,
                        std::span<const std::uint8_t> data, double timeout) {
    const auto transfer =
        device.GetControlEndpoint().ControlOut(Setup(kRequestTypeOut, command), data, timeout);
    if (!BoardMayKnowWhy(transfer)) {
        return transfer;
    }
    return AskBoard(device, timeout);
}

std::error_code SendIn(device::UsbDevice& device, VendorCommand command,
                       std::span<std::uint8_t> data, double timeout, std::size_t* transferred) {
    const auto transfer = device.GetControlEndpoint().ControlIn(Setup(kRequestTypeIn, command),
                                                                data, timeout, transferred);
    if (!BoardMayKnowWhy(transfer)) {
        return transfer;
    }
    return AskBoard(device, timeout);
}

std::error_code SendViaCmd(device::UsbDevice& device, VendorCommand command, std::size_t size,
                           const Encoder& encode, double timeout) {
    std::vector<std::uint8_t> payload(size);
    encode(payload);
    return SendOut(device, command, payload, timeout);
}

}  // namespace ovex::usb::vendor_cmd::impl
