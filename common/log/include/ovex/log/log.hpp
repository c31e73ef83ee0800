#pragma once

// The library's log front end. Every line has a verbosity: -3 critical, -2 error, -1 warning,
// 0 information, 9 debug. A line is formed only if some sink admits its verbosity: the macros
// test the cutoff before they evaluate a single argument, so a debug line costs one atomic load
// when nobody listens at debug level.

#include <atomic>
#include <string_view>
#include <system_error>

namespace ovex::log {

enum Verbosity : int {
    kCritical = -3,
    kError = -2,
    kWarning = -1,
    kInfo = 0,
    kDebug = 9,
};

namespace detail {
extern std::atomic<int> g_cutoff;
}

// True when at least one sink takes lines of this verbosity.
inline bool Admits(int verbosity) noexcept {
    return verbosity <= detail::g_cutoff.load(std::memory_order_relaxed);
}

// The current cutoff: the highest verbosity that any sink takes.
inline int Cutoff() noexcept {
    return detail::g_cutoff.load(std::memory_order_relaxed);
}

// Formats printf-style and hands the line to every sink that admits it.
void Write(int verbosity, const char* file, unsigned line, const char* format, ...)
    __attribute__((format(printf, 4, 5)));

// Hands an already formed text to the sinks, with an optional prefix.
void WriteText(int verbosity, const char* file, unsigned line, std::string_view prefix,
               std::string_view text);

// Logs "CHECK FAILED:  <expression>  " as prefix of the message at critical severity, makes
// sure it reaches stderr, and ends the process.
[[noreturn]] void CheckFailed(const char* expression, const char* file, unsigned line,
                              const char* format, ...) __attribute__((format(printf, 4, 5)));

// Lines at or below this verbosity are also written to stderr. -1 (warnings and worse) until a
// context's logger takes over the delivery.
void SetStderrVerbosity(int verbosity);
int StderrVerbosity() noexcept;

// The name that the preamble shows for the calling thread.
void SetThreadName(std::string_view name);
std::string_view ThreadName();

// The severity name of a verbosity: "CRIT", "ERR", "WARN", "INFO", "DBG", or "UNKN".
std::string_view SeverityName(int verbosity) noexcept;

}  // namespace ovex::log

#define OVEX_LOG(verbosity, ...)                                              \
    do {                                                                      \
        if (::ovex::log::Admits(verbosity)) {                                 \
            ::ovex::log::Write((verbosity), __FILE__, __LINE__, __VA_ARGS__); \
        }                                                                     \
    } while (false)

#define OVEX_LOG_CRIT(...) OVEX_LOG(::ovex::log::kCritical, __VA_ARGS__)
#define OVEX_LOG_ERROR(...) OVEX_LOG(::ovex::log::kError, __VA_ARGS__)
#define OVEX_LOG_WARN(...) OVEX_LOG(::ovex::log::kWarning, __VA_ARGS__)
#define OVEX_LOG_INFO(...) OVEX_LOG(::ovex::log::kInfo, __VA_ARGS__)
#define OVEX_LOG_DEBUG(...) OVEX_LOG(::ovex::log::kDebug, __VA_ARGS__)

// Logs a format whose last two conversions are "%s: %s", filled with the category's name and
// the message of a std::error_code, as in "Failed to connect - %s: %s.".
#define OVEX_LOG_EC(verbosity, format, ec, ...)                                                 \
    do {                                                                                        \
        if (::ovex::log::Admits(verbosity)) {                                                   \
            const ::std::error_code& ovex_log_ec_ = (ec);                                       \
            ::ovex::log::Write((verbosity), __FILE__, __LINE__, format, ##__VA_ARGS__,          \
                               ovex_log_ec_.category().name(), ovex_log_ec_.message().c_str()); \
        }                                                                                       \
    } while (false)

// Guards a condition that the library's own logic excludes; a failure ends the process.
#define OVEX_CHECK(condition, ...)                                                 \
    do {                                                                           \
        if (!(condition)) [[unlikely]] {                                           \
            ::ovex::log::CheckFailed(#condition, __FILE__, __LINE__, __VA_ARGS__); \
        }                                                                          \
    } while (false)
