#include "sdk_logger.hpp"

#include <atomic>
#include <chrono>
#include <deque>
#include <mutex>
#include <string>
#include <system_error>
#include <variant>

#include <fmt/format.h>
#include <readerwriterqueue/readerwritercircularbuffer.h>

#include "ovex/log/log.hpp"
#include "ovex/log/sink.hpp"

namespace ovex::sdk {

namespace logger_detail {

// One queue element; the alternative's index is the element's kind.
// The parts of a line are joined on the logger thread, in the format of the callback that
// receives it: a registration changes both the receiver and the format at the same point.
struct LogLine {
    std::string preamble;
    std::string indentation;
    std::string prefix;
    std::string message;
    int severity;

    std::string Compose(const ovexsdk_log_fmt& format) const {
        std::string text;
        text.reserve(preamble.size() + prefix.size() + message.size() + 1);
        if (format.preamble) {
            text.append(preamble);
        }
        if (format.indentation) {
            text.append(indentation);
        }
        if (format.prefix) {
            text.append(prefix);
        }
        if (format.message) {
            text.append(message);
        }
        text.push_back('\n');
        return text;
    }
};
struct Terminate {};
using LoggerMsg = std::variant<LogLine, Terminate, UserLogParams>;

// While any context's logger runs, the host sees the lines through its callback, and stderr
// keeps only what ends the process.
class StderrQuieting {
public:
    static void Enter() {
        std::lock_guard lock(Mutex());
        if (Count()++ == 0) {
            ovex::log::SetStderrVerbosity(ovex::log::kCritical);
        }
    }
    static void Leave() {
        std::lock_guard lock(Mutex());
        if (--Count() == 0) {
            ovex::log::SetStderrVerbosity(ovex::log::kWarning);
        }
    }

private:
    static std::mutex& Mutex() {
        static std::mutex mutex;
        return mutex;
    }
    static int& Count() {
        static int count = 0;
        return count;
    }
};

struct SharedState {
    explicit SharedState(std::size_t capacity) : queue(capacity) {}

    // Single consumer (the Logger thread); the producers take `push_mutex` in turn.
    moodycamel::BlockingReaderWriterCircularBuffer<LoggerMsg> queue;
    std::mutex push_mutex;
    // Set when the thread has left its loop: later pushes are dropped instead of waiting for
    // space that nobody will make.
    std::atomic<bool> closed{false};

    // Lines that the Logger thread logs itself (its own messages, or whatever the host's
    // callback logs) go here: waiting on its own full queue would never end.
    std::deque<LoggerMsg> own_lines;
    std::atomic<std::thread::id> consumer{};

    // Read and replaced on the logger thread only.
    UserLogParams params;

    void Push(LoggerMsg msg) {
        if (std::this_thread::get_id() == consumer.load(std::memory_order_relaxed)) {
            own_lines.push_back(std::move(msg));
            return;
        }
        std::lock_guard lock(push_mutex);
        while (!closed.load(std::memory_order_acquire)) {
            if (queue.wait_enqueue_timed(std::move(msg), std::chrono::milliseconds(50))) {
                return;
            }
        }
    }
};

class LoggerSink final : public ovex::log::Sink {
public:
    explicit LoggerSink(std::shared_ptr<SharedState> state) : m_state(std::move(state)) {}

    void Receive(const ovex::log::Line& line) override {
        m_state->Push(LogLine{std::string(line.preamble), std::string(line.indentation),
                              std::string(line.prefix), std::string(line.message), line.verbosity});
    }

private:
    std::shared_ptr<SharedState> m_state;
};

namespace {

ovexsdk_log_severity HostSeverity(int verbosity) {
    switch (verbosity) {
        case ovex::log::kCritical:
        case ovex::log::kError:
        case ovex::log::kWarning:
        case ovex::log::kInfo:
            return static_cast<ovexsdk_log_severity>(verbosity);
        default:
            return OVEXSDK_LOG_DEBUG;
    }
}

std::string Describe(const UserLogParams& p) {
    return fmt::format(
        "function: {}, param: {}, format: {{.preamble = {}, .indentation = {}, .prefix = {}, "
        ".message = {}}}",
        fmt::ptr(reinterpret_cast<const void*>(p.function)), fmt::ptr(p.param), p.format.preamble,
        p.format.indentation, p.format.prefix, p.format.message);
}

// Handles one element; answers false when the thread is to end.
bool Process(SharedState& state, LoggerMsg& msg) {
    if (auto* line = std::get_if<LogLine>(&msg)) {
        const UserLogParams& params = state.params;
        if (params.function != nullptr) {
            const std::string text = line->Compose(params.format);
            params.function(text.c_str(), HostSeverity(line->severity), params.param);
        }
        return true;
    }
    if (auto* registration = std::get_if<UserLogParams>(&msg)) {
        state.params = *registration;
        if (ovex::log::Admits(ovex::log::kDebug)) {
            OVEX_LOG_DEBUG("User registered callback - %s", Describe(*registration).c_str());
        }
        return true;
    }
    return false;
}

void DeliverOwnLines(SharedState& state) {
    while (!state.own_lines.empty()) {
        LoggerMsg msg = std::move(state.own_lines.front());
        state.own_lines.pop_front();
        Process(state, msg);
    }
}

void ThreadBody(std::stop_token, std::shared_ptr<SharedState> state) {
    OVEX_CHECK(state != nullptr, "BUG: The queue for logger thread is null pointer.");
    state->consumer.store(std::this_thread::get_id());
    OVEX_LOG_INFO("Logger started.");

    for (bool running = true; running;) {
        DeliverOwnLines(*state);
        LoggerMsg msg;
        state->queue.wait_dequeue(msg);
        running = Process(*state, msg);
    }

    OVEX_LOG_INFO("Logger terminated.");
    DeliverOwnLines(*state);
}

}  // namespace
}  // namespace logger_detail

// The sink is registered before the thread starts, so that no line logged after the
// constructor returns can miss this logger; until the thread runs, lines wait in the queue.
Logger::Logger(std::size_t capacity)
    : m_state(std::make_shared<logger_detail::SharedState>(capacity)),
      m_sink(std::make_shared<logger_detail::LoggerSink>(m_state)) {
    ovex::log::AddSink(m_sink, ovex::log::kDebug);
    logger_detail::StderrQuieting::Enter();
    try {
        ovex::thread::ThreadParams params;
        params.name = "Logger";
        m_thread = ovex::thread::WrappedThread<>(params, logger_detail::ThreadBody, m_state);
    } catch (...) {
        Unregister();
        throw;
    }
}

Logger::~Logger() {
    m_state->Push(logger_detail::Terminate{});
    m_thread.Join();
    Unregister();
}

void Logger::Unregister() {
    ovex::log::RemoveSink(m_sink);
    logger_detail::StderrQuieting::Leave();
    // A thread that took the sink before its removal may still be waiting for space.
    m_state->closed.store(true, std::memory_order_release);
    logger_detail::LoggerMsg discarded;
    while (m_state->queue.try_dequeue(discarded)) {
    }
}

void Logger::SetCallback(ovexsdk_log_cb function, void* param, ovexsdk_log_fmt format) {
    m_state->Push(UserLogParams{function, param, format});
}

}  // namespace ovex::sdk
