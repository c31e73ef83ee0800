// The library's log for the Python package. Every line logged in the process reaches each
// context's log callback, so one context of the bridge's own, which never opens a board, takes
// them all once: it keeps the last warning or error line for the exceptions, hands replies of
// the package's scripts to whoever waits for them, and passes each line to Python's logging.
#pragma once

#include <pybind11/pybind11.h>

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "ovexsdk.h"
#include "python_callable.hpp"

namespace ovex::python {

class LogBridge {
public:
    static LogBridge& Instance();

    // Creates the bridge's context and registers its callback; once.
    void Start();
    // Stops passing lines to Python and releases the context; lines logged afterwards are
    // lost to Python. Call at the interpreter's exit, with the GIL.
    void Stop();

    // `sink(level, text)` receives each line with Python's logging level; None stops it. With
    // the GIL.
    void SetSink(pybind11::object sink);

    std::uint64_t ProblemCount() const;
    // The warning and error lines after the first `count` of them, once every line logged
    // before this call has come through the logger. Without the GIL.
    std::vector<std::string> ProblemsSince(std::uint64_t count);

    // Scripts of the package answer with a line "<kReplyMark><token> <payload>", which the
    // bridge keeps for the token instead of passing it on.
    static constexpr char kReplyMark[] = "ovexsdk-python-reply ";
    std::string NewReplyToken();
    // The payload of the token's reply, waiting up to `wait`; none when it didn't come. Without
    // the GIL.
    std::optional<std::string> AwaitReply(const std::string& token, std::chrono::milliseconds wait);

private:
    LogBridge() = default;
    static void OnLine(const char* text, ovexsdk_log_severity severity, void* self);
    bool TakeReply(const std::string& line);
    // Waits until the lines logged so far have reached the callback: a line that a script of
    // the bridge's context logs now comes after them.
    void Flush();

    std::unique_ptr<ovexsdk_dev_ctx> m_context;
    std::mutex m_script_mutex;  // calls on the bridge's context come one at a time

    mutable std::mutex m_mutex;
    std::condition_variable m_changed;
    std::uint64_t m_problems = 0;
    std::vector<std::string> m_recent_problems;  // the last kKeptProblems lines
    std::uint64_t m_next_token = 0;
    std::map<std::string, std::optional<std::string>> m_replies;  // awaited, and what came

    PythonCallable m_sink;
};

}  // namespace ovex::python
