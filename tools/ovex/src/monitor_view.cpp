#include "monitor_view.hpp"

#include <algorithm>

namespace ovex::cli {

MonitorView::MonitorView(std::vector<MonitorDescription> monitors, Options options, std::FILE* out)
    : m_monitors(std::move(monitors)), m_options(options), m_out(out), m_rows(m_monitors.size()) {}

bool MonitorView::Admit(Row& row, bool news) {
    if (m_options.limit != 0 && m_shown >= m_options.limit) {
        return false;
    }
    const auto now = std::chrono::steady_clock::now();
    if (!news && row.shown_once && now - row.last_shown < m_options.min_interval) {
        return false;
    }
    row.last_shown = now;
    row.shown_once = true;
    ++m_shown;
    m_changed = true;
    if (m_shown == m_options.limit) {
        m_limit_reached.notify_all();
    }
    return true;
}

void MonitorView::Show(std::size_t monitor, const Row& row) {
    if (m_options.style != Style::kLines) {
        return;
    }
    // Printed under the lock, so that lines from different tasks never mix.
    std::fprintf(m_out, "%s %s %u%s\n", m_monitors[monitor].name.c_str(), row.value.c_str(),
                 row.timestamp, row.flags.empty() ? "" : (" " + row.flags).c_str());
    std::fflush(m_out);
}

void MonitorView::OnValue(std::size_t monitor, ovexsdk_mon_value value, bool warning, bool error,
                          std::uint32_t timestamp) {
    std::lock_guard lock(m_mutex);
    Row& row = m_rows[monitor];
    if (!Admit(row, false)) {
        return;
    }
    row.value = MonitorValueText(m_monitors[monitor].type, value);
    row.flags = std::string(warning ? "warning" : "") + (warning && error ? " " : "") +
                (error ? "error" : "");
    row.timestamp = timestamp;
    Show(monitor, row);
}

void MonitorView::OnAvailability(std::size_t monitor, bool available, std::uint32_t timestamp) {
    if (available) {
        return;
    }
    std::lock_guard lock(m_mutex);
    Row& row = m_rows[monitor];
    // A monitor going away is news however soon it comes.
    if (!Admit(row, true)) {
        return;
    }
    row.value.assign(1, '-');  // operator=("-") trips a false -Wrestrict of GCC 12 at -O3
    row.flags.clear();
    row.timestamp = timestamp;
    Show(monitor, row);
}

bool MonitorView::WaitForLimit(std::chrono::milliseconds timeout) {
    std::unique_lock lock(m_mutex);
    return m_limit_reached.wait_for(
        lock, timeout, [this] { return m_options.limit != 0 && m_shown >= m_options.limit; });
}

void MonitorView::Draw() {
    std::lock_guard lock(m_mutex);
    if (m_options.style != Style::kTable || !m_changed) {
        return;
    }
    m_changed = false;
    std::size_t width = 7;
    for (const MonitorDescription& monitor : m_monitors) {
        width = std::max(width, monitor.name.size());
    }
    const int name_width = static_cast<int>(width);
    // Home and clear, then the whole table: a terminal shows it in place.
    std::fprintf(m_out, "\033[H\033[J%-*s  %-12s %-21s %-10s %s\n", name_width, "MONITOR", "VALUE",
                 "RANGE", "TIME", "FLAGS");
    for (std::size_t i = 0; i < m_monitors.size(); ++i) {
        const MonitorDescription& monitor = m_monitors[i];
        const Row& row = m_rows[i];
        const std::string range = MonitorValueText(monitor.type, monitor.minimum) + " .. " +
                                  MonitorValueText(monitor.type, monitor.maximum);
        const std::string time = row.shown_once ? std::to_string(row.timestamp) : "-";
        std::fprintf(m_out, "%-*s  %-12s %-21s %-10s %s\n", name_width, monitor.name.c_str(),
                     row.value.c_str(), range.c_str(), time.c_str(), row.flags.c_str());
    }
    std::fprintf(m_out, "\nreadings: %llu; Ctrl-C ends\n",
                 static_cast<unsigned long long>(m_shown));
    std::fflush(m_out);
}

}  // namespace ovex::cli
