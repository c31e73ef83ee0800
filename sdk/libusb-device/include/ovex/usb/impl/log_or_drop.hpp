#pragma once

// Logging where no exception may leave: destructors, thread bodies, libusb's callbacks, and the
// steps that must run whatever happens (publishing a completion, freeing an endpoint). Forming a
// line allocates; without memory the line is dropped and the code goes on.

#include <exception>
#include <utility>

namespace ovex::usb::device::impl {

template <typename Log>
void LogOrDrop(Log&& log) noexcept {
    try {
        std::forward<Log>(log)();
    } catch (const std::exception&) {
        // The line is lost; nothing depends on it.
    }
}

}  // namespace ovex::usb::device::impl
