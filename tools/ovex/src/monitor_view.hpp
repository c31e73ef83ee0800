// What `ovex monitor` shows of the readings that the library's notification tasks deliver,
// several at a time: a line per reading for scripts, or a table that a terminal redraws.
#pragma once

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <cstdio>
#include <mutex>
#include <string>
#include <vector>

#include "monitor_values.hpp"

namespace ovex::cli {

class MonitorView {
public:
    enum class Style { kLines, kTable };
    struct Options {
        Style style = Style::kLines;
        std::uint64_t limit = 0;                    // readings to show before the end; 0: no end
        std::chrono::milliseconds min_interval{0};  // between two readings of one monitor
    };

    MonitorView(std::vector<MonitorDescription> monitors, Options options, std::FILE* out);

    // From any thread. A reading past the limit, or sooner than the interval after the last one
    // shown of its monitor, is dropped. Lines: "NAME VALUE TIMESTAMP[ warning][ error]".
    void OnValue(std::size_t monitor, ovexsdk_mon_value value, bool warning, bool error,
                 std::uint32_t timestamp);
    // A monitor that goes unavailable shows "-" ("NAME - TIMESTAMP"); one that comes back shows
    // its next value.
    void OnAvailability(std::size_t monitor, bool available, std::uint32_t timestamp);

    // True once the limit is reached; waits for it at most `timeout`.
    bool WaitForLimit(std::chrono::milliseconds timeout);
    // The table, when something changed since it was last drawn; lines need no drawing.
    void Draw();

private:
    struct Row {
        std::string value = "-";
        std::string flags;
        std::uint32_t timestamp = 0;
        std::chrono::steady_clock::time_point last_shown{};
        bool shown_once = false;
    };

    // Under the lock: whether the reading is shown, counting it if so. News skips the interval.
    bool Admit(Row& row, bool news);
    void Show(std::size_t monitor, const Row& row);

    const std::vector<MonitorDescription> m_monitors;
    const Options m_options;
    std::FILE* const m_out;
    std::mutex m_mutex;
    std::condition_variable m_limit_reached;
    std::vector<Row> m_rows;
    std::uint64_t m_shown = 0;
    bool m_changed = true;
};

}  // namespace ovex::cli
