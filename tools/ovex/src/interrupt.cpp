#include "interrupt.hpp"

#include <poll.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <csignal>
#include <stdexcept>

namespace ovex::cli {
namespace {

std::atomic<bool> g_requested{false};
// The handler writes a byte here so that a waiter wakes at once rather than at its next poll.
int g_pipe[2] = {-1, -1};
struct sigaction g_previous_int;
struct sigaction g_previous_term;

void OnSignal(int) {
    g_requested.store(true);
    const char byte = 1;
    [[maybe_unused]] const auto written = ::write(g_pipe[1], &byte, 1);
}

}  // namespace

InterruptWatch::InterruptWatch() {
    if (::pipe(g_pipe) != 0) {
        throw std::runtime_error("cannot create the interrupt pipe");
    }
    g_requested.store(false);
    struct sigaction action = {};
    action.sa_handler = OnSignal;
    sigemptyset(&action.sa_mask);
    action.sa_flags = SA_RESETHAND;
    ::sigaction(SIGINT, &action, &g_previous_int);
    ::sigaction(SIGTERM, &action, &g_previous_term);
}

InterruptWatch::~InterruptWatch() {
    ::sigaction(SIGINT, &g_previous_int, nullptr);
    ::sigaction(SIGTERM, &g_previous_term, nullptr);
    ::close(g_pipe[0]);
    ::close(g_pipe[1]);
    g_pipe[0] = g_pipe[1] = -1;
}

bool InterruptWatch::Requested() const {
    return g_requested.load();
}

bool InterruptWatch::WaitFor(std::chrono::milliseconds timeout) const {
    if (Requested()) {
        return true;
    }
    pollfd wake = {g_pipe[0], POLLIN, 0};
    while (::poll(&wake, 1, static_cast<int>(timeout.count())) < 0 && errno == EINTR) {
    }
    return Requested();
}

}  // namespace ovex::cli
