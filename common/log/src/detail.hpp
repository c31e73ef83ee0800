#pragma once

#include <string>
#include <string_view>

#include <spdlog/details/log_msg.h>

namespace ovex::log::detail {

// What the front end knows of the line being dispatched on this thread and spdlog's record
// can't carry: the exact verbosity and the prefix.
struct PendingLine {
    int verbosity;
    std::string_view prefix;
};

const PendingLine* CurrentLine() noexcept;

// "2026-11-23 09:34:49.123 (   0.012s) [Logger         ]       log.cpp:42      INFO| "
std::string FormatPreamble(const spdlog::details::log_msg& msg, int verbosity);

int VerbosityOfLevel(spdlog::level::level_enum level) noexcept;

}  // namespace ovex::log::detail
