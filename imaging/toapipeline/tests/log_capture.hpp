#pragma once

#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "ovex/log/log.hpp"
#include "ovex/log/sink.hpp"

namespace tpx3_test {

// Collects the log lines of a test's scope.
class LogCapture {
    class Collector final : public ovex::log::Sink {
    public:
        void Receive(const ovex::log::Line& line) override {
            std::lock_guard lock(m_mutex);
            m_lines.push_back({line.verbosity, std::string(line.message)});
        }
        std::mutex m_mutex;
        std::vector<std::pair<int, std::string>> m_lines;
    };

public:
    LogCapture() : m_sink(std::make_shared<Collector>()) { ovex::log::AddSink(m_sink, 9); }
    ~LogCapture() { ovex::log::RemoveSink(m_sink); }

    std::vector<std::pair<int, std::string>> Lines() {
        std::lock_guard lock(m_sink->m_mutex);
        return m_sink->m_lines;
    }
    int Count(int verbosity, const std::string& message) {
        int count = 0;
        for (const auto& [v, text] : Lines()) {
            count += v == verbosity && text == message;
        }
        return count;
    }

private:
    std::shared_ptr<Collector> m_sink;
};

}  // namespace tpx3_test
