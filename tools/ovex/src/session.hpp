// One board as a command uses it: the library's context for a locator, the library's log on
// stderr, and the board opened; everything is closed and released when the session ends.
#pragma once

#include <memory>
#include <string>

#include "cli.hpp"

namespace ovex::cli {

class Session {
public:
    // Creates the context; the library's lines at or above the verbosity go to stderr.
    Session(const std::string& locator, int verbosity);
    ~Session();
    Session(const Session&) = delete;
    Session& operator=(const Session&) = delete;

    // Opens the board; a missing board ends the command with kExitNoDevice.
    void Open();
    ovexsdk_dev_ctx* Ctx() { return m_ctx.get(); }
    const std::string& Locator() const { return m_locator; }

private:
    std::string m_locator;
    std::unique_ptr<ovexsdk_dev_ctx> m_ctx;
    int m_verbosity;
    bool m_created = false;
    bool m_opened = false;
};

}  // namespace ovex::cli
