// One board as a command uses it: the library's context for a locator, the library's log on
// stderr, and the board opened; everything is closed and released when the session ends.
#pragma once

#include <memory>
#include <string>
#include <string_view>

#include "cli.hpp"

namespace ovex::cli {

// Sees every line of the library's log, whatever the verbosity, on the context's logger thread.
class LogWatcher {
public:
    virtual void OnLine(std::string_view text, ovexsdk_log_severity severity) = 0;

protected:
    ~LogWatcher() = default;
};

class Session {
public:
    // Creates the context; the library's lines at or above the verbosity go to stderr, and every
    // line to the watcher, which has to outlive the session.
    Session(const std::string& locator, int verbosity, LogWatcher* watcher = nullptr);
    ~Session();
    Session(const Session&) = delete;
    Session& operator=(const Session&) = delete;

    // Opens the board; a missing board ends the command with kExitNoDevice.
    void Open();
    ovexsdk_dev_ctx* Ctx() { return m_ctx.get(); }
    const std::string& Locator() const { return m_locator; }

    // Where the log callback sends a line.
    struct LogRoute {
        int threshold;
        LogWatcher* watcher;
    };

private:
    std::string m_locator;
    std::unique_ptr<ovexsdk_dev_ctx> m_ctx;
    LogRoute m_route;
    bool m_created = false;
    bool m_opened = false;
};

}  // namespace ovex::cli
