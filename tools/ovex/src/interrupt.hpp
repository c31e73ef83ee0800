// Ctrl-C (SIGINT) and SIGTERM as a request that a running command end cleanly. The first signal
// only sets the request; the handler then steps aside, so a second Ctrl-C ends a stuck process.
#pragma once

#include <chrono>

namespace ovex::cli {

class InterruptWatch {
public:
    // Installs the handlers for the watch's lifetime.
    InterruptWatch();
    ~InterruptWatch();
    InterruptWatch(const InterruptWatch&) = delete;
    InterruptWatch& operator=(const InterruptWatch&) = delete;

    bool Requested() const;
    // Waits until a request comes or the time is up; true when a request came.
    bool WaitFor(std::chrono::milliseconds timeout) const;
};

}  // namespace ovex::cli
