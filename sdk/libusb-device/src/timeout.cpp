#include "ovex/usb/timeout.hpp"

#include <cstdint>

#include "ovex/log/log.hpp"

namespace ovex::usb::device {

unsigned int ToLibusbTimeout(double seconds) {
    constexpr double kLargest = 0xFFFFFFFF;
    const double milliseconds = seconds * 1000.0;
    if (!(milliseconds > 0.0)) {
        return 0;
    }
    if (milliseconds > kLargest) {
        const long long asked =
            milliseconds >= 9.2e18 ? INT64_MAX : static_cast<long long>(milliseconds);
        OVEX_LOG_WARN(
            "Timeout %lld is larger then maximum libusb timeout value, truncating to %dms.", asked,
            static_cast<int>(0xFFFFFFFFu));
        return 0xFFFFFFFFu;
    }
    return static_cast<unsigned int>(milliseconds);
}

}  // namespace ovex::usb::device
