// What a run shows of itself: a line on stderr, redrawn in place while it runs when stderr is a
// terminal, and one summary line on stdout at the end that scripts can parse.
#pragma once

#include <cstdint>
#include <string>

namespace ovex::cli {

struct RunFigures {
    double seconds = 0.0;
    std::uint64_t records = 0;
    std::uint64_t hits = 0;
    double buffer_fill = 0.0;  // the share of the tool's own queue in use
    std::uint64_t lost = 0;    // the library's loss reports
    std::uint64_t lost_bytes = 0;
};

class StatusLine {
public:
    // Draws only when stderr is a terminal.
    StatusLine();
    void Show(const RunFigures& figures);
    // Ends the drawn line, so that what follows starts on a line of its own.
    void End();

private:
    bool m_enabled;
    bool m_drawn = false;
};

// "records=N hits=N seconds=S hits_per_second=R lost=N lost_bytes=N"
std::string SummaryLine(const RunFigures& figures);

}  // namespace ovex::cli
