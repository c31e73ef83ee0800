#include "ovex/vendor_cmd/impl/logging_observer.hpp"

#include <string>

#include "ovex/log/log.hpp"

namespace ovex::usb::vendor_cmd::impl {
namespace {

// A warning outranks an error here: the flags of a value say how loud its line is.
int VerbosityOf(monitor::Flags flags) {
    if (flags.is_warning()) {
        return log::kWarning;
    }
    if (flags.is_error()) {
        return log::kError;
    }
    return log::kInfo;
}

}  // namespace

void LoggingObserver::OnAvailabilityChange(std::string_view name, monitor::Flags flags,
                                           std::uint32_t timestamp) {
    OVEX_LOG_INFO("Availability of '%s' changed to '%s' at %d.", std::string(name).c_str(),
                  flags.is_available() ? "+available+" : "-unavailable-", timestamp);
}

void LoggingObserver::OnIntUpdate(std::string_view name, monitor::Flags flags, std::int32_t value,
                                  std::uint32_t timestamp) {
    OVEX_LOG(VerbosityOf(flags), "Value of '%s' changed to %d at %d.", std::string(name).c_str(),
             value, timestamp);
}

void LoggingObserver::OnFloatUpdate(std::string_view name, monitor::Flags flags, float value,
                                    std::uint32_t timestamp) {
    OVEX_LOG(VerbosityOf(flags), "Value of '%s' changed to %.03f at %d.", std::string(name).c_str(),
             static_cast<double>(value), timestamp);
}

}  // namespace ovex::usb::vendor_cmd::impl
