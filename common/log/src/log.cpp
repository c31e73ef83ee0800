#include "ovex/log/log.hpp"

#include <pthread.h>

#include <algorithm>
#include <array>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

#include <spdlog/logger.h>

#include "detail.hpp"
#include "ovex/log/sink.hpp"

namespace ovex::log {

namespace detail {
std::atomic<int> g_cutoff{kWarning};
}

namespace {

// Writes what passes the stderr verbosity; the only output the library makes by itself.
class StderrSink final : public Sink {
public:
    void Receive(const Line& line) override {
        std::lock_guard lock(m_mutex);
        std::fprintf(stderr, "%.*s%.*s%.*s\n", static_cast<int>(line.preamble.size()),
                     line.preamble.data(), static_cast<int>(line.prefix.size()), line.prefix.data(),
                     static_cast<int>(line.message.size()), line.message.data());
    }

private:
    std::mutex m_mutex;
};

// The set of sinks. Dispatch takes a snapshot of the logger and logs without holding the lock,
// so a sink that blocks (a full queue) never stalls registration or other sinks' threads.
class Registry {
public:
    Registry() : m_stderr(std::make_shared<StderrSink>()) {
        m_stderr->SetVerbosity(kWarning);
        Rebuild();
    }

    std::shared_ptr<spdlog::logger> Logger() {
        std::lock_guard lock(m_mutex);
        return m_logger;
    }

    void Add(std::shared_ptr<Sink> sink, int verbosity) {
        std::lock_guard lock(m_mutex);
        sink->SetVerbosity(verbosity);
        m_sinks.push_back(std::move(sink));
        Rebuild();
    }

    void Remove(const std::shared_ptr<Sink>& sink) {
        std::lock_guard lock(m_mutex);
        std::erase(m_sinks, sink);
        Rebuild();
    }

    void SetStderrVerbosity(int verbosity) {
        std::lock_guard lock(m_mutex);
        m_stderr->SetVerbosity(verbosity);
        Rebuild();
    }

    int StderrVerbosity() const noexcept { return m_stderr->Verbosity(); }

    StderrSink& Stderr() noexcept { return *m_stderr; }

private:
    void Rebuild() {
        std::vector<spdlog::sink_ptr> sinks{m_stderr};
        int cutoff = m_stderr->Verbosity();
        for (const auto& sink : m_sinks) {
            sinks.push_back(sink);
            cutoff = std::max(cutoff, sink->Verbosity());
        }
        auto logger = std::make_shared<spdlog::logger>("ovex", sinks.begin(), sinks.end());
        logger->set_level(spdlog::level::trace);
        m_logger = std::move(logger);
        detail::g_cutoff.store(cutoff, std::memory_order_relaxed);
    }

    std::mutex m_mutex;
    std::shared_ptr<StderrSink> m_stderr;
    std::vector<std::shared_ptr<Sink>> m_sinks;
    std::shared_ptr<spdlog::logger> m_logger;
};

// Never destroyed, so that threads still running while the process exits can log.
Registry& GetRegistry() {
    static auto* registry = new Registry;
    return *registry;
}

thread_local const detail::PendingLine* t_pending = nullptr;
thread_local std::string t_thread_name;

spdlog::level::level_enum LevelOf(int verbosity) noexcept {
    switch (verbosity) {
        case kCritical:
            return spdlog::level::critical;
        case kError:
            return spdlog::level::err;
        case kWarning:
            return spdlog::level::warn;
        case kInfo:
            return spdlog::level::info;
        default:
            return verbosity < kCritical ? spdlog::level::critical : spdlog::level::debug;
    }
}

std::string FormatV(const char* format, va_list args) {
    std::array<char, 512> buffer;
    va_list copy;
    va_copy(copy, args);
    const int length = std::vsnprintf(buffer.data(), buffer.size(), format, copy);
    va_end(copy);
    if (length < 0) {
        return format;
    }
    if (static_cast<std::size_t>(length) < buffer.size()) {
        return std::string(buffer.data(), static_cast<std::size_t>(length));
    }
    std::string text(static_cast<std::size_t>(length), '\0');
    std::vsnprintf(text.data(), text.size() + 1, format, args);
    return text;
}

}  // namespace

namespace detail {

const PendingLine* CurrentLine() noexcept {
    return t_pending;
}

int VerbosityOfLevel(spdlog::level::level_enum level) noexcept {
    switch (level) {
        case spdlog::level::critical:
            return kCritical;
        case spdlog::level::err:
            return kError;
        case spdlog::level::warn:
            return kWarning;
        case spdlog::level::info:
            return kInfo;
        default:
            return kDebug;
    }
}

}  // namespace detail

void WriteText(int verbosity, const char* file, unsigned line, std::string_view prefix,
               std::string_view text) {
    const detail::PendingLine pending{verbosity, prefix};
    t_pending = &pending;
    GetRegistry().Logger()->log(spdlog::source_loc{file, static_cast<int>(line), ""},
                                LevelOf(verbosity),
                                spdlog::string_view_t(text.data(), text.size()));
    t_pending = nullptr;
}

void Write(int verbosity, const char* file, unsigned line, const char* format, ...) {
    va_list args;
    va_start(args, format);
    const std::string text = FormatV(format, args);
    va_end(args);
    WriteText(verbosity, file, line, {}, text);
}

void CheckFailed(const char* expression, const char* file, unsigned line, const char* format, ...) {
    va_list args;
    va_start(args, format);
    const std::string text = FormatV(format, args);
    va_end(args);
    const std::string prefix = std::string("CHECK FAILED:  ") + expression + "  ";
    // The registered sinks may deliver on other threads that won't run again: make sure the
    // line reaches stderr before the process ends.
    if (GetRegistry().StderrVerbosity() < kCritical) {
        SetStderrVerbosity(kCritical);
    }
    WriteText(kCritical, file, line, prefix, text);
    std::fflush(stderr);
    std::abort();
}

void SetStderrVerbosity(int verbosity) {
    GetRegistry().SetStderrVerbosity(verbosity);
}

int StderrVerbosity() noexcept {
    return GetRegistry().StderrVerbosity();
}

void AddSink(std::shared_ptr<Sink> sink, int verbosity) {
    GetRegistry().Add(std::move(sink), verbosity);
}

void RemoveSink(const std::shared_ptr<Sink>& sink) {
    GetRegistry().Remove(sink);
}

void SetThreadName(std::string_view name) {
    t_thread_name.assign(name);
}

std::string_view ThreadName() {
    if (t_thread_name.empty()) {
        std::array<char, 16> name{};
        if (pthread_getname_np(pthread_self(), name.data(), name.size()) == 0) {
            t_thread_name = name.data();
        }
    }
    return t_thread_name;
}

std::string_view SeverityName(int verbosity) noexcept {
    switch (verbosity) {
        case kCritical:
            return "CRIT";
        case kError:
            return "ERR";
        case kWarning:
            return "WARN";
        case kInfo:
            return "INFO";
        case kDebug:
            return "DBG";
        default:
            return "UNKN";
    }
}

}  // namespace ovex::log
