#include <chrono>
#include <string>

#include <fmt/chrono.h>
#include <fmt/format.h>

#include "detail.hpp"
#include "ovex/log/log.hpp"

namespace ovex::log::detail {

namespace {

const auto g_start = std::chrono::steady_clock::now();

std::string_view BaseName(const char* path) {
    if (path == nullptr) {
        return "unknown";
    }
    std::string_view text(path);
    const auto slash = text.find_last_of('/');
    return slash == std::string_view::npos ? text : text.substr(slash + 1);
}

}  // namespace

std::string FormatPreamble(const spdlog::details::log_msg& msg, int verbosity) {
    using namespace std::chrono;
    const auto since_epoch = msg.time.time_since_epoch();
    const auto millis = duration_cast<milliseconds>(since_epoch).count() % 1000;
    const double uptime = duration<double>(steady_clock::now() - g_start).count();
    const std::time_t seconds = system_clock::to_time_t(msg.time);
    return fmt::format("{:%Y-%m-%d %H:%M:%S}.{:03} ({:8.3f}s) [{:<15.15}] {:>24.24}:{:<5} {:>4}| ",
                       fmt::localtime(seconds), millis, uptime, ThreadName(),
                       BaseName(msg.source.filename), msg.source.line, SeverityName(verbosity));
}

}  // namespace ovex::log::detail
