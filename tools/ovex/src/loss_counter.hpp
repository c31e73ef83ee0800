// The library's reports of data it had to drop, counted from its log: the exported interface
// gives no statistics of its buffers, but every loss is logged as a line that says "dropped"
// ("Consumer queue full, dropped a span of N bytes.", "Dropped N bytes of ...").
#pragma once

#include <atomic>
#include <cstdint>

#include "session.hpp"

namespace ovex::cli {

class LossCounter : public LogWatcher {
public:
    void OnLine(std::string_view text, ovexsdk_log_severity severity) override;

    std::uint64_t Reports() const { return m_reports.load(std::memory_order_relaxed); }
    // The bytes the reports name.
    std::uint64_t Bytes() const { return m_bytes.load(std::memory_order_relaxed); }

private:
    std::atomic<std::uint64_t> m_reports{0};
    std::atomic<std::uint64_t> m_bytes{0};
};

}  // namespace ovex::cli
