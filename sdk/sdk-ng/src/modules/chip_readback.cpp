#include "modules/chip_readback.hpp"

#include <variant>

#include "ovex/log/log.hpp"

namespace ovex::sdk {

namespace {

// A read-back fits one transfer, and the board sends it within this time.
constexpr std::uint32_t kQueueSize = 1;
constexpr std::uint32_t kTransferSize = 32768;
constexpr double kTransferTimeout = 1.0;
constexpr std::chrono::milliseconds kWait{1000};

}  // namespace

usb::device::UsbBulkEp* FindBulkEndpoint(usb::device::UsbDevice* device, std::uint8_t address) {
    auto* endpoint =
        device != nullptr ? device->FindEndpoint<usb::device::UsbBulkEp>(address) : nullptr;
    if (endpoint == nullptr) {
        OVEX_LOG_ERROR("BUG: Device doesn't have endpoint 0x%02X.", address);
    }
    return endpoint;
}

std::error_code ReadBackChip(const ChipReadback& readback) {
    if (const auto ec = readback.endpoint.ClearHalt()) {
        OVEX_LOG_EC(log::kWarning, "Failed to reset the data ingress endpoint - %s: %s.", ec);
    }
    auto started = readback.endpoint.ReadPerpetual(kQueueSize, kTransferSize, readback.producer,
                                                   kTransferTimeout);
    if (const auto* ec = std::get_if<std::error_code>(&started)) {
        OVEX_LOG_EC(log::kError, "Failed to start async transfer - %s: %s.", *ec);
        OVEX_LOG_EC(log::kError, "%s - %s: %s.", *ec, readback.start_failure.c_str());
        return *ec;
    }
    // Leaving early drops the state, which aborts and collects the transfer.
    auto& transfer = std::get<usb::device::AsyncState>(started);
    if (const auto ec = readback.trigger()) {
        return ec;
    }
    if (!readback.wait(std::chrono::steady_clock::now() + kWait)) {
        OVEX_LOG_ERROR("Waiting for configuration matrix data timed-out.");
        if (const auto ec = transfer.Abort()) {
            OVEX_LOG_EC(log::kError, "Failed to abort the transfer - %s: %s", ec);
        }
    }
    const usb::device::UsbResult result = transfer.Future().get();
    if (result.error) {
        OVEX_LOG_EC(log::kError, "Readout of configuration matrix data failed - %s: %s.",
                    result.error);
        return result.error;
    }
    return {};
}

}  // namespace ovex::sdk
