#pragma once

// How long a script may make its thread wait: in Std.sleep, and for the answer to a request. A
// request's timeout of 0 would wait for ever in libusb, and neither NaN nor infinity is a time;
// the longest wait is a day.

#include <optional>
#include <system_error>

namespace ovex::lua::core {

inline constexpr double kLongestWait = 86400.0;

// The timeout that a script gave a request, in seconds; absent is fine, as the request's default
// applies. Anything but a number above 0 and at most kLongestWait is refused: invalid_argument
// and a log line, and the binding makes no request.
std::error_code CheckTimeout(std::optional<double> seconds);

}  // namespace ovex::lua::core
