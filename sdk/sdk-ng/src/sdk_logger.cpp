#include "sdk_logger.hpp"

#include <mutex>
#include <string>
#include <system_error>
#include <variant>

#include <fmt/format.h>

#include "ovex/log/log.hpp"
#include "ovex/log/sink.hpp"
#include "sdk_logger_queue.hpp"

namespace ovex::sdk {

namespace logger_detail {

std::string LogLine::Compose(const ovexsdk_log_fmt& format) const {
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

class LoggerSink final : public ovex::log::Sink {
public:
    explicit LoggerSink(std::shared_ptr<LogQueue> queue) : m_queue(std::move(queue)) {}

    void Receive(const ovex::log::Line& line) override {
        m_queue->Push(LogLine{std::string(line.preamble), std::string(line.indentation),
                              std::string(line.prefix), std::string(line.message), line.verbosity});
    }

private:
    std::shared_ptr<LogQueue> m_queue;
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

// Handles a line or a registration; `params` is the registration in force, read and replaced on
// the logger thread only.
void Process(UserLogParams& params, LoggerMsg& msg) {
    if (auto* line = std::get_if<LogLine>(&msg)) {
        if (params.function != nullptr) {
            const std::string text = line->Compose(params.format);
            params.function(text.c_str(), HostSeverity(line->severity), params.param);
        }
    } else if (auto* registration = std::get_if<UserLogParams>(&msg)) {
        params = *registration;
        if (ovex::log::Admits(ovex::log::kDebug)) {
            OVEX_LOG_DEBUG("User registered callback - %s", Describe(*registration).c_str());
        }
    }
}

void ThreadBody(std::stop_token, std::shared_ptr<LogQueue> queue) {
    OVEX_CHECK(queue != nullptr, "BUG: The queue for logger thread is null pointer.");
    queue->BecomeConsumer();
    UserLogParams params;
    OVEX_LOG_INFO("Logger started.");

    for (LoggerMsg msg = queue->Pop(); !std::holds_alternative<Terminate>(msg);
         msg = queue->Pop()) {
        Process(params, msg);
    }

    queue->End();
    OVEX_LOG_INFO("Logger terminated.");
    while (auto msg = queue->TryPop()) {
        Process(params, *msg);
    }
}

}  // namespace
}  // namespace logger_detail

// The sink is registered before the thread starts, so that no line logged after the
// constructor returns can miss this logger; until the thread runs, lines wait in the queue.
Logger::Logger(std::size_t capacity)
    : m_queue(std::make_shared<logger_detail::LogQueue>(capacity)),
      m_sink(std::make_shared<logger_detail::LoggerSink>(m_queue)) {
    ovex::log::AddSink(m_sink, ovex::log::kDebug);
    logger_detail::StderrQuieting::Enter();
    try {
        ovex::thread::ThreadParams params;
        params.name = "Logger";
        m_thread = ovex::thread::WrappedThread<>(params, logger_detail::ThreadBody, m_queue);
    } catch (...) {
        Unregister();
        throw;
    }
}

Logger::~Logger() {
    Stop();
}

void Logger::Stop() {
    if (!m_thread.Joinable()) {
        return;
    }
    m_queue->Push(logger_detail::Terminate{});
    m_thread.Join();
    Unregister();
}

void Logger::Unregister() {
    ovex::log::RemoveSink(m_sink);
    logger_detail::StderrQuieting::Leave();
    // A thread that took the sink before its removal may still push, or wait for room.
    m_queue->End();
}

void Logger::SetCallback(ovexsdk_log_cb function, void* param, ovexsdk_log_fmt format) {
    m_queue->Push(UserLogParams{function, param, format});
}

bool Logger::OnLoggerThread() noexcept {
    return logger_detail::LogQueue::OfThisThread() != nullptr;
}

Logger::CallbackCall::CallbackCall() : m_queue(logger_detail::LogQueue::OfThisThread()) {
    if (m_queue != nullptr) {
        m_queue->EnterCall();
    }
}

Logger::CallbackCall::~CallbackCall() {
    if (m_queue != nullptr) {
        m_queue->LeaveCall();
    }
}

}  // namespace ovex::sdk
