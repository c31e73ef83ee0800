#pragma once

// A host's session with one virtual board through the exported interface: a context on the
// board's serial number, the lines the host's log callback received, and the waits the scripts
// asked for, recorded instead of slept.

#include <gtest/gtest.h>

#include <chrono>
#include <string>
#include <vector>

#include "api_internal.hpp"
#include "host_log.hpp"
#include "log_capture.hpp"
#include "ovex/lua/core/lua_core.hpp"
#include "ovexsdk.h"
#include "virtual_board_test.hpp"

namespace ovex::sdk::testing {

class BoardSession : public vboard::VirtualBoardTest {
protected:
    void TearDown() override {
        if (m_live) {
            Release();
        }
        VirtualBoardTest::TearDown();
    }

    // A context on "usb:sn:OVX00001" whose scripts don't really wait.
    void Create() {
        ASSERT_EQ(ovexsdk_ctx_create(&m_ctx, "usb:sn:OVX00001"), OVEXSDK_OK);
        m_live = true;
        ASSERT_EQ(ovexsdk_log_set_cb(&m_ctx, &HostLog::Callback, &kMessageOnly, &m_host_log),
                  OVEXSDK_OK);
        void* state = nullptr;
        ASSERT_EQ(ovexsdk_get_script_state(&m_ctx, &state), OVEXSDK_OK);
        lua::core::SetSleeper(
            static_cast<lua_State*>(state),
            [this](std::chrono::duration<double> wait) { m_sleeps.push_back(wait.count()); });
    }

    // Adds the board, creates the context and opens it; answers the open's result.
    ovexsdk_err_code AddAndOpen(vboard::VirtualBoard::Settings settings = {}) {
        AddBoard(std::move(settings));
        Create();
        return ovexsdk_dev_open(&m_ctx);
    }

    // Delivers every queued line to the host log; the host log can be read safely afterwards.
    void Release() {
        m_live = false;
        ASSERT_EQ(ovexsdk_ctx_release(&m_ctx), OVEXSDK_OK);
    }

    ovexsdk_err_code Script(const std::string& text) {
        return ovexsdk_script_execute(&m_ctx, text.c_str());
    }

    // The lines of the host log that end the given texts, in the order they came; a missing text
    // shows as "<missing: text>" so that a failure names it.
    std::vector<std::string> InOrder(const std::vector<std::string>& texts) {
        std::vector<std::string> found;
        std::size_t from = 0;
        std::lock_guard lock(m_host_log.mutex);
        for (const auto& text : texts) {
            std::size_t i = from;
            while (i < m_host_log.lines.size() && m_host_log.lines[i].second != text + "\n") {
                ++i;
            }
            if (i == m_host_log.lines.size()) {
                found.push_back("<missing: " + text + ">");
                continue;
            }
            found.push_back(text);
            from = i + 1;
        }
        return found;
    }

    std::size_t HostLines(const std::string& text) {
        std::lock_guard lock(m_host_log.mutex);
        std::size_t count = 0;
        for (const auto& line : m_host_log.lines) {
            count += line.second == text + "\n";
        }
        return count;
    }

    bool Logged(const std::string& text) {
        for (const auto& line : m_log.Messages()) {
            if (line.message == text) {
                return true;
            }
        }
        return false;
    }

    ovexsdk_dev_ctx m_ctx{};
    bool m_live = false;
    HostLog m_host_log;
    LogCapture m_log;  // every verbosity, on the test's thread
    std::vector<double> m_sleeps;
};

}  // namespace ovex::sdk::testing
