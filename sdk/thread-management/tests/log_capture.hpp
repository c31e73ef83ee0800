#pragma once

// Collects the log lines of a test scope, so tests can check exact messages and severities.

#include <algorithm>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "ovex/log/log.hpp"
#include "ovex/log/sink.hpp"

namespace ovex::testing {

class LogCapture {
public:
    struct Entry {
        int verbosity;
        std::string message;
    };

    explicit LogCapture(int verbosity = log::kDebug) : m_sink(std::make_shared<Sink>()) {
        log::AddSink(m_sink, verbosity);
    }
    ~LogCapture() { log::RemoveSink(m_sink); }
    LogCapture(const LogCapture&) = delete;
    LogCapture& operator=(const LogCapture&) = delete;

    std::vector<Entry> Lines() const { return m_sink->Lines(); }

    bool Contains(int verbosity, const std::string& message) const {
        const auto lines = Lines();
        return std::any_of(lines.begin(), lines.end(), [&](const Entry& entry) {
            return entry.verbosity == verbosity && entry.message == message;
        });
    }

    // Lines whose message begins with the given text.
    std::vector<Entry> StartingWith(const std::string& start) const {
        std::vector<Entry> found;
        for (const Entry& entry : Lines()) {
            if (entry.message.rfind(start, 0) == 0) {
                found.push_back(entry);
            }
        }
        return found;
    }

private:
    class Sink final : public log::Sink {
    public:
        void Receive(const log::Line& line) override {
            std::lock_guard lock(m_mutex);
            m_lines.push_back({line.verbosity, std::string(line.message)});
        }
        std::vector<Entry> Lines() const {
            std::lock_guard lock(m_mutex);
            return m_lines;
        }

    private:
        mutable std::mutex m_mutex;
        std::vector<Entry> m_lines;
    };

    std::shared_ptr<Sink> m_sink;
};

}  // namespace ovex::testing
