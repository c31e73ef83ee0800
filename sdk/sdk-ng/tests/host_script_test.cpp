// Host scripts through the exported interface beside the library's own power sequences, against
// a virtual board: what a host script does to its surroundings stays its own, and a host can
// stop its script from another thread.

#include <gtest/gtest.h>

#include <lua.hpp>

#include <semaphore>
#include <string>
#include <thread>
#include <vector>

#include "support/board_session.hpp"

namespace ovex::sdk {
namespace {

// started(): releases the semaphore in upvalue 1, so the test knows the script runs.
int Started(lua_State* L) {
    static_cast<std::binary_semaphore*>(lua_touserdata(L, lua_upvalueindex(1)))->release();
    return 0;
}

class HostScriptTest : public testing::BoardSession {
protected:
    lua_State* State() {
        void* state = nullptr;
        EXPECT_EQ(ovexsdk_get_script_state(&m_ctx, &state), OVEXSDK_OK);
        return static_cast<lua_State*>(state);
    }
};

TEST_F(HostScriptTest, PowerSequencesRunAsEverWhateverHostScriptsDidToTheirSurroundings) {
    ASSERT_EQ(AddAndOpen(), OVEXSDK_OK);
    struct Case {
        const char* script;
        const char* still_so;  // the host's change stays for later host scripts
    };
    // One after the other: each comes on top of those before it.
    const Case cases[] = {
        {"device = nil", "device == nil"},
        {"Usb = nil", "Usb == nil"},
        {"Std = nil", "Std == nil"},
        {"string.format, string.sub = nil, nil\n"
         "debug.setmetatable('', {__index = function() error('no methods') end})",
         "not pcall(function() return ('x'):upper() end)"},
        {"debug.sethook(function() error('hook left behind') end, 'c')", nullptr},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.script);
        ASSERT_EQ(Script(c.script), OVEXSDK_OK);
        EXPECT_EQ(ovexsdk_dev_power_up(&m_ctx), OVEXSDK_OK);
        EXPECT_EQ(ovexsdk_dev_power_down(&m_ctx), OVEXSDK_OK);
        if (c.still_so != nullptr) {
            EXPECT_EQ(Script(std::string("assert(") + c.still_so + ")"), OVEXSDK_OK);
        }
    }
    EXPECT_NE(lua_gethook(State()), nullptr) << "the host's hook stays for its scripts";
    ASSERT_EQ(ovexsdk_dev_close(&m_ctx), OVEXSDK_OK);
    Release();

    const std::vector<std::string> cycle{
        "Component 'FX3_FW': 0.24.3-TPX3",
        "USB cable mux initialization: OK",
        "DC/DC converter power rails enabled.",
        "FPGA configuration completed.",
        "Backend successfully powered up.",
        "Peltier configuration: OK",
        "Frontend power rail: OK",
        "Chip power rail: OK",
        "Device successfully powered up.",
        "Unit 1 ('frontend') successfully powered down.",
        "Unit 0 ('backend') successfully powered down.",
        "Device successfully powered down.",
    };
    std::vector<std::string> expected;
    for (std::size_t i = 0; i < std::size(cases); ++i) {
        expected.insert(expected.end(), cycle.begin(), cycle.end());
    }
    EXPECT_EQ(InOrder(expected), expected);
}

TEST_F(HostScriptTest, StopEndsTheRunningScriptFromAnotherThreadAndNothingElse) {
    Create();
    lua_State* L = State();
    lua::core::SetSleeper(L, {});  // really wait
    std::binary_semaphore started(0);
    lua_pushlightuserdata(L, &started);
    lua_pushcclosure(L, &Started, 1);
    lua_setglobal(L, "started");

    EXPECT_EQ(ovexsdk_script_stop(&m_ctx), OVEXSDK_OK) << "no script runs: nothing happens";
    ovexsdk_err_code result = OVEXSDK_OK;
    std::thread host([&] { result = Script("started() Std.sleep(86400)"); });
    started.acquire();
    EXPECT_EQ(ovexsdk_script_stop(&m_ctx), OVEXSDK_OK);
    host.join();
    EXPECT_EQ(result, OVEXSDK_ERR_INVALID);
    EXPECT_EQ(Script("Std.sleep(0) done = true"), OVEXSDK_OK);
    EXPECT_EQ(ovexsdk_script_stop(nullptr), OVEXSDK_ERR_INVALID);
    Release();
    EXPECT_EQ(HostLines("Script stopped at the host's request: forced exit detected while in "
                        "function 'main chunk' at line 1."),
              1u);
}

}  // namespace
}  // namespace ovex::sdk
