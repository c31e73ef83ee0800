#pragma once

// Receivers of log lines. A sink is registered process-wide and sees the lines of every thread.
// It is called on the thread that logs, with no lock held by the dispatch: a sink that keeps
// state serialises its own callers.

#include <atomic>
#include <memory>
#include <string_view>

#include <spdlog/sinks/sink.h>

namespace ovex::log {

// One log line in its parts; each view is valid only during Sink::Receive.
struct Line {
    int verbosity;
    std::string_view preamble;     // date, time, thread, source place, severity name
    std::string_view indentation;  // scope nesting; the library opens no scopes
    std::string_view prefix;       // "CHECK FAILED:  <expression>  " on a failed check
    std::string_view message;
};

class Sink : public spdlog::sinks::sink {
public:
    virtual void Receive(const Line& line) = 0;

    // The highest verbosity this sink takes; set when it is registered.
    int Verbosity() const noexcept { return m_verbosity.load(std::memory_order_relaxed); }
    void SetVerbosity(int verbosity) noexcept {
        m_verbosity.store(verbosity, std::memory_order_relaxed);
    }

    void log(const spdlog::details::log_msg& msg) final;
    void flush() override {}
    void set_pattern(const std::string&) final {}
    void set_formatter(std::unique_ptr<spdlog::formatter>) final {}

private:
    std::atomic<int> m_verbosity{9};
};

// Registers a sink for every line up to `verbosity`; the cutoff rises to match.
void AddSink(std::shared_ptr<Sink> sink, int verbosity);
// Unregisters a sink; the cutoff falls back to what the remaining sinks and stderr need.
void RemoveSink(const std::shared_ptr<Sink>& sink);

}  // namespace ovex::log
