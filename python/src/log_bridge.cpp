#include "log_bridge.hpp"

#include <algorithm>
#include <cstring>
#include <stdexcept>

namespace py = pybind11;

namespace ovex::python {
namespace {

int PythonLevel(ovexsdk_log_severity severity) {
    switch (severity) {
        case OVEXSDK_LOG_CRITICAL:
            return 50;
        case OVEXSDK_LOG_ERROR:
            return 40;
        case OVEXSDK_LOG_WARNING:
            return 30;
        case OVEXSDK_LOG_INFO:
            return 20;
        default:
            return 10;
    }
}

// The bridge's context names a board it never opens: it lives for the log alone.
constexpr char kLogLocator[] = "usb:ix:0";
// The warning and error lines kept for a failed call or an acquisition to tell.
constexpr std::size_t kKeptProblems = 64;
// A flush normally comes through at once; this long means the logger is stuck.
constexpr std::chrono::seconds kFlushWait{2};

}  // namespace

LogBridge& LogBridge::Instance() {
    // Never destroyed: the library's threads may still deliver a line while the process ends.
    static LogBridge* bridge = new LogBridge();
    return *bridge;
}

void LogBridge::Start() {
    if (m_context) {
        return;
    }
    auto context = std::make_unique<ovexsdk_dev_ctx>();
    std::memset(context.get(), 0, sizeof *context);
    if (ovexsdk_ctx_create(context.get(), kLogLocator) != OVEXSDK_OK) {
        throw std::runtime_error("the library could not create a context for its log");
    }
    // Python's logging adds its own time and place: the message alone.
    const ovexsdk_log_fmt format{false, false, true, true};
    ovexsdk_log_set_cb(context.get(), &LogBridge::OnLine, &format, this);
    m_context = std::move(context);
}

void LogBridge::Stop() {
    SetSink(py::none());
    if (!m_context) {
        return;
    }
    py::gil_scoped_release no_gil;
    std::lock_guard lock(m_script_mutex);
    ovexsdk_ctx_release(m_context.get());
    m_context.reset();
}

void LogBridge::SetSink(py::object sink) {
    m_sink.Set(std::move(sink));
}

std::uint64_t LogBridge::ProblemCount() const {
    std::lock_guard lock(m_mutex);
    return m_problems;
}

std::vector<std::string> LogBridge::ProblemsSince(std::uint64_t count) {
    Flush();
    std::lock_guard lock(m_mutex);
    const std::uint64_t fresh =
        std::min<std::uint64_t>(m_problems - count, m_recent_problems.size());
    return {m_recent_problems.end() - static_cast<std::ptrdiff_t>(fresh), m_recent_problems.end()};
}

void LogBridge::Flush() {
    const std::string token = NewReplyToken();
    const std::string script = "Log.info('" + std::string(kReplyMark) + token + "')";
    {
        std::lock_guard lock(m_script_mutex);
        if (!m_context || ovexsdk_script_execute(m_context.get(), script.c_str()) != OVEXSDK_OK) {
            AwaitReply(token, std::chrono::milliseconds(0));
            return;
        }
    }
    AwaitReply(token, kFlushWait);
}

std::string LogBridge::NewReplyToken() {
    std::lock_guard lock(m_mutex);
    std::string token = "r" + std::to_string(++m_next_token);
    m_replies.emplace(token, std::nullopt);
    return token;
}

std::optional<std::string> LogBridge::AwaitReply(const std::string& token,
                                                 std::chrono::milliseconds wait) {
    std::unique_lock lock(m_mutex);
    m_changed.wait_for(lock, wait, [&] {
        const auto found = m_replies.find(token);
        return found == m_replies.end() || found->second.has_value();
    });
    const auto found = m_replies.find(token);
    if (found == m_replies.end()) {
        return std::nullopt;
    }
    std::optional<std::string> reply = std::move(found->second);
    m_replies.erase(found);
    return reply;
}

bool LogBridge::TakeReply(const std::string& line) {
    constexpr std::size_t kMarkLength = sizeof kReplyMark - 1;
    const std::size_t mark = line.find(kReplyMark);
    if (mark == std::string::npos) {
        return false;
    }
    const std::size_t token_start = mark + kMarkLength;
    const std::size_t space = line.find(' ', token_start);
    const std::string token = line.substr(token_start, space - token_start);
    std::lock_guard lock(m_mutex);
    const auto found = m_replies.find(token);
    if (found != m_replies.end()) {
        found->second = space == std::string::npos ? std::string() : line.substr(space + 1);
        m_changed.notify_all();
    }
    return true;
}

void LogBridge::OnLine(const char* text, ovexsdk_log_severity severity, void* self) {
    auto& bridge = *static_cast<LogBridge*>(self);
    std::string line(text);
    while (!line.empty() && (line.back() == '\n' || line.back() == '\r')) {
        line.pop_back();
    }
    if (bridge.TakeReply(line)) {
        return;
    }
    if (severity <= OVEXSDK_LOG_WARNING) {
        std::lock_guard lock(bridge.m_mutex);
        ++bridge.m_problems;
        if (bridge.m_recent_problems.size() == kKeptProblems) {
            bridge.m_recent_problems.erase(bridge.m_recent_problems.begin());
        }
        bridge.m_recent_problems.push_back(line);
        bridge.m_changed.notify_all();
    }
    bridge.m_sink.Invoke("ovexsdk log sink",
                         [&](const py::object& sink) { sink(PythonLevel(severity), line); });
}

}  // namespace ovex::python
