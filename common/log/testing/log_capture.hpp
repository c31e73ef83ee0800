#pragma once

// Captures the lines logged in this process while it lives, each with the thread that logged
// it, so that tests can check exact messages, severities and order.

#include <algorithm>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "ovex/log/log.hpp"
#include "ovex/log/sink.hpp"

namespace ovex::testing {

struct CapturedLine {
    int verbosity;
    std::string message;
    bool operator==(const CapturedLine&) const = default;
};

class LogCapture {
public:
    using Entry = CapturedLine;

    // Takes every line up to `verbosity`.
    explicit LogCapture(int verbosity = log::kDebug) : m_sink(std::make_shared<Sink>()) {
        log::AddSink(m_sink, verbosity);
    }
    ~LogCapture() { log::RemoveSink(m_sink); }
    LogCapture(const LogCapture&) = delete;
    LogCapture& operator=(const LogCapture&) = delete;

    // The lines of all threads, in the order they came.
    std::vector<Entry> Lines() const {
        std::lock_guard lock(m_sink->mutex);
        return m_sink->lines;
    }

    // The lines logged by the calling thread, in order; other threads' lines are left out.
    std::vector<Entry> Messages() const {
        std::lock_guard lock(m_sink->mutex);
        std::vector<Entry> result;
        for (std::size_t i = 0; i < m_sink->lines.size(); ++i) {
            if (m_sink->threads[i] == std::this_thread::get_id()) {
                result.push_back(m_sink->lines[i]);
            }
        }
        return result;
    }

    int Count(int verbosity, const std::string& message) const {
        const auto lines = Lines();
        return static_cast<int>(std::count(lines.begin(), lines.end(), Entry{verbosity, message}));
    }
    bool Contains(int verbosity, const std::string& message) const {
        return Count(verbosity, message) > 0;
    }

    // Lines whose message begins with the given text.
    std::vector<Entry> StartingWith(const std::string& start) const {
        std::vector<Entry> found;
        for (const Entry& entry : Lines()) {
            if (entry.message.starts_with(start)) {
                found.push_back(entry);
            }
        }
        return found;
    }

    void Clear() {
        std::lock_guard lock(m_sink->mutex);
        m_sink->lines.clear();
        m_sink->threads.clear();
    }

private:
    struct Sink final : log::Sink {
        void Receive(const log::Line& line) override {
            std::lock_guard lock(mutex);
            lines.push_back({line.verbosity, std::string(line.message)});
            threads.push_back(std::this_thread::get_id());
        }
        mutable std::mutex mutex;
        std::vector<Entry> lines;
        std::vector<std::thread::id> threads;
    };
    std::shared_ptr<Sink> m_sink;
};

}  // namespace ovex::testing
