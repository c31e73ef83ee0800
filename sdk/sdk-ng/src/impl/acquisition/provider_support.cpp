#include "impl/acquisition/provider_support.hpp"

#include <future>
#include <type_traits>
#include <variant>

#include "ovex/log/log.hpp"
#include "ovex/usb/usb_endpoint.hpp"

namespace ovex::sdk::acquisition::detail {

std::error_code FindDataEndpoint(usb::device::UsbDevice& device, std::uint8_t address,
                                 usb::device::UsbBulkEp*& bulk) {
    bulk = nullptr;
    bool found = false;
    for (usb::device::AnyEndpoint& any : device.GetEndpoints()) {
        std::visit(
            [&](auto& endpoint) {
                if (endpoint.GetAddress() == address) {
                    found = true;
                    if constexpr (std::is_same_v<std::decay_t<decltype(endpoint)>,
                                                 usb::device::UsbBulkEp>) {
                        bulk = &endpoint;
                    }
                }
            },
            any);
    }
    if (!found) {
        OVEX_LOG_ERROR("There is no bulk IN endpoint 0x%02X on the device.", address);
        return std::make_error_code(std::errc::not_supported);
    }
    if (bulk == nullptr) {
        OVEX_LOG_ERROR("BUG: The acquisition data endpoint is not bulk endpoint.");
        return std::make_error_code(std::errc::not_supported);
    }
    return {};
}

std::error_code StopTransfers(usb::device::AsyncState& state, std::size_t queued,
                              const StopTexts& texts) {
    OVEX_LOG_INFO("USB data provider stopping...");
    if (queued != 0) {
        OVEX_LOG_WARN("Unconsumed buffers remaining: %zu.", queued);
    }
    if (const std::error_code failed = state.Abort()) {
        OVEX_LOG_EC(log::kError, "Failed to abort USB transfer - %s: %s.", failed);
        return failed;
    }
    std::future<usb::device::UsbResult> future = state.Future();
    OVEX_CHECK(future.valid(), "%s", texts.invalid_future);
    OVEX_LOG_DEBUG("Awaiting async USB transfer transfer completion...");
    const usb::device::UsbResult transferred = future.get();
    OVEX_LOG_INFO("%s: %zu.", texts.received, static_cast<std::size_t>(transferred.bytes));
    return transferred.error;
}

}  // namespace ovex::sdk::acquisition::detail
