#include "impl/acquisition/provider_support.hpp"

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

}  // namespace ovex::sdk::acquisition::detail
