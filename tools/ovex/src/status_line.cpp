#include "status_line.hpp"

#include <unistd.h>

#include <cinttypes>
#include <cstdio>

namespace ovex::cli {
namespace {

double RateOf(const RunFigures& figures) {
    return figures.seconds > 0.0 ? static_cast<double>(figures.hits) / figures.seconds : 0.0;
}

}  // namespace

StatusLine::StatusLine() : m_enabled(::isatty(STDERR_FILENO) == 1) {}

void StatusLine::Show(const RunFigures& figures) {
    if (!m_enabled) {
        return;
    }
    // Back to the line's start, and the rest of the old line erased.
    std::fprintf(stderr,
                 "\r%8.1f s  %12" PRIu64 " records  %12" PRIu64
                 " hits  %10.0f hits/s  "
                 "buffer %3.0f%%  lost %" PRIu64 "\x1b[K",
                 figures.seconds, figures.records, figures.hits, RateOf(figures),
                 figures.buffer_fill * 100.0, figures.lost);
    std::fflush(stderr);
    m_drawn = true;
}

void StatusLine::End() {
    if (m_drawn) {
        std::fputc('\n', stderr);
        m_drawn = false;
    }
}

std::string SummaryLine(const RunFigures& figures) {
    char line[256];
    std::snprintf(line, sizeof line,
                  "records=%" PRIu64 " hits=%" PRIu64
                  " seconds=%.3f hits_per_second=%.0f "
                  "lost=%" PRIu64 " lost_bytes=%" PRIu64,
                  figures.records, figures.hits, figures.seconds, RateOf(figures), figures.lost,
                  figures.lost_bytes);
    return line;
}

}  // namespace ovex::cli
