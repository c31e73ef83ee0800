#pragma once

// The observer of last resort: logs what the stream reports, at warning level for values that
// carry the warning flag and at error level for those that carry the error flag.

#include "ovex/vendor_cmd/monitor_stream.hpp"

namespace ovex::usb::vendor_cmd::impl {

class LoggingObserver final : public monitor::IValueObserver {
public:
    void OnAvailabilityChange(std::string_view name, monitor::Flags flags,
                              std::uint32_t timestamp) override;
    void OnIntUpdate(std::string_view name, monitor::Flags flags, std::int32_t value,
                     std::uint32_t timestamp) override;
    void OnFloatUpdate(std::string_view name, monitor::Flags flags, float value,
                       std::uint32_t timestamp) override;
};

}  // namespace ovex::usb::vendor_cmd::impl
