#pragma once

// Captures the lines logged in this process, on the thread that logs them.

#include <algorithm>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "ovex/log/log.hpp"
#include "ovex/log/sink.hpp"

namespace ovex::sdk::testing {

struct CapturedLine {
    int verbosity;
    std::string message;
    bool operator==(const CapturedLine&) const = default;
};

class LogCapture {
public:
    LogCapture() : m_sink(std::make_shared<Sink>()) {
        ovex::log::AddSink(m_sink, ovex::log::kDebug);
    }
    ~LogCapture() { ovex::log::RemoveSink(m_sink); }
    LogCapture(const LogCapture&) = delete;
    LogCapture& operator=(const LogCapture&) = delete;

    std::vector<CapturedLine> Lines() const {
        std::lock_guard lock(m_sink->mutex);
        return m_sink->lines;
    }

    // The lines logged by the calling thread, in order; the logger thread's own lines are left out.
    std::vector<CapturedLine> Messages() const {
        std::lock_guard lock(m_sink->mutex);
        std::vector<CapturedLine> result;
        for (std::size_t i = 0; i < m_sink->lines.size(); ++i) {
            if (m_sink->threads[i] == std::this_thread::get_id()) {
                result.push_back(m_sink->lines[i]);
            }
        }
        return result;
    }

    bool Contains(int verbosity, const std::string& message) const {
        const auto lines = Lines();
        return std::find(lines.begin(), lines.end(), CapturedLine{verbosity, message}) !=
               lines.end();
    }

    void Clear() {
        std::lock_guard lock(m_sink->mutex);
        m_sink->lines.clear();
        m_sink->threads.clear();
    }

private:
    struct Sink final : ovex::log::Sink {
        void Receive(const ovex::log::Line& line) override {
            std::lock_guard lock(mutex);
            lines.push_back({line.verbosity, std::string(line.message)});
            threads.push_back(std::this_thread::get_id());
        }
        mutable std::mutex mutex;
        std::vector<CapturedLine> lines;
        std::vector<std::thread::id> threads;
    };
    std::shared_ptr<Sink> m_sink;
};

}  // namespace ovex::sdk::testing
