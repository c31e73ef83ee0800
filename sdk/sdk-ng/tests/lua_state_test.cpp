#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <lua.hpp>

#include <semaphore>
#include <string>
#include <system_error>
#include <thread>

#include "ovex/lua/bind/messages.hpp"
#include "sdk_lua_state.hpp"
#include "support/log_capture.hpp"

namespace ovex::sdk {
namespace {

using testing::CapturedLine;
using ::testing::HasSubstr;
using testing::LogCapture;
using ::testing::StartsWith;

constexpr char kFailed[] = "Execution of script failed, stack trace as follows:";

// started(): releases the semaphore in upvalue 1, so the test knows the script runs.
int Started(lua_State* L) {
    static_cast<std::binary_semaphore*>(lua_touserdata(L, lua_upvalueindex(1)))->release();
    return 0;
}

class LuaStateTest : public ::testing::Test {
protected:
    // The traceback that a failed script logged after the failure line.
    std::string FailureTrace() {
        const auto lines = m_log.Messages();
        EXPECT_EQ(lines.size(), 2u);
        if (lines.size() != 2) {
            return {};
        }
        EXPECT_EQ(lines[0], (CapturedLine{log::kError, kFailed}));
        EXPECT_EQ(lines[1].verbosity, log::kError);
        return lines[1].message;
    }

    LogCapture m_log;
    LuaState m_lua;
};

TEST_F(LuaStateTest, EmptyScriptIsRefused) {
    m_log.Clear();
    EXPECT_EQ(m_lua.ExecuteScript(""), std::errc::invalid_argument);
    EXPECT_EQ(m_lua.ExecuteScript(nullptr), std::errc::invalid_argument);
    EXPECT_THAT(m_log.Messages(),
                ::testing::ElementsAre(CapturedLine{log::kError, "Empty script."},
                                       CapturedLine{log::kError, "Empty script."}));
}

TEST_F(LuaStateTest, FailedScriptLogsItsTracebackAndTheStateGoesOn) {
    m_log.Clear();
    EXPECT_EQ(m_lua.ExecuteScript("kept = 1\nerror('x')"), std::errc::invalid_argument);
    const std::string trace = FailureTrace();
    EXPECT_THAT(trace, StartsWith("[string \"kept = 1...\"]:2: x\nstack traceback:"));
    EXPECT_EQ(lua_gettop(m_lua.Raw()), 0);

    m_log.Clear();
    EXPECT_FALSE(m_lua.ExecuteScript("assert(kept == 1)")) << "globals set before the error stay";
    EXPECT_EQ(m_log.Messages().size(), 0u);

    m_log.Clear();
    EXPECT_EQ(m_lua.ExecuteScript("if then"), std::errc::invalid_argument);
    EXPECT_THAT(FailureTrace(), HasSubstr("unexpected symbol near 'then'"));
}

TEST_F(LuaStateTest, BindingCalledWronglyFailsTheScript) {
    m_log.Clear();
    EXPECT_EQ(m_lua.ExecuteScript("Std.MemSlab.new()"), std::errc::invalid_argument);
    EXPECT_THAT(FailureTrace(), HasSubstr(lua::bind::message::kNoMatchingOverload));
    m_log.Clear();
    EXPECT_EQ(m_lua.ExecuteScript("Std.make_error_code(Std.Errc.timed_out + 0.5)"),
              std::errc::invalid_argument);
    EXPECT_THAT(FailureTrace(), HasSubstr(lua::bind::message::kNotAnInteger));
}

TEST_F(LuaStateTest, OnlyTheFourLibrariesAndOurTablesAreThere) {
    EXPECT_FALSE(m_lua.ExecuteScript(
        "assert(os == nil and io == nil and math == nil and table == nil and coroutine == nil "
        "and utf8 == nil)\n"
        "assert(type(string.format) == 'function' and type(debug.traceback) == 'function' "
        "and type(require) == 'function')\n"
        "assert(type(Log.info) == 'function' and type(Std.sleep) == 'function')"));
    m_log.Clear();
    EXPECT_EQ(m_lua.ExecuteScript("os.execute('true')"), std::errc::invalid_argument);
    EXPECT_THAT(FailureTrace(), HasSubstr("attempt to index a nil value (global 'os')"));
    m_log.Clear();
    EXPECT_EQ(m_lua.ExecuteScript("io.open('/etc/hostname')"), std::errc::invalid_argument);
    EXPECT_THAT(FailureTrace(), HasSubstr("(global 'io')"));
}

TEST_F(LuaStateTest, NativeLibrariesCannotBeLoadedToReachTheClosedOnes) {
    EXPECT_FALSE(m_lua.ExecuteScript("assert(package.loadlib == nil and package.cpath == '')"));
    // Lua's own shared library holds the opener of `os`.
    EXPECT_EQ(m_lua.ExecuteScript("local os = require('os')"), std::errc::invalid_argument);
    EXPECT_THAT(FailureTrace(), HasSubstr("module 'os' not found"));
}

TEST_F(LuaStateTest, StopEndsTheRunningScriptWhereverItIsAndOnlyThatScript) {
    std::binary_semaphore started(0);
    lua_pushlightuserdata(m_lua.Raw(), &started);
    lua_pushcclosure(m_lua.Raw(), &Started, 1);
    lua_setglobal(m_lua.Raw(), "started");
    EXPECT_FALSE(m_lua.RequestStop()) << "no script runs";

    for (const char* script : {
             "started() while true do end",
             // Catching the stop's error doesn't help: the next instruction raises it again.
             "started() while true do pcall(function() while true do end end) end",
             "started() Std.sleep(86400)",
         }) {
        SCOPED_TRACE(script);
        m_log.Clear();
        std::error_code result;
        std::thread runner([&] { result = m_lua.ExecuteScript(script); });
        started.acquire();
        EXPECT_TRUE(m_lua.RequestStop());
        runner.join();
        EXPECT_EQ(result, std::errc::operation_canceled);
        EXPECT_THAT(m_log.Lines(),
                    ::testing::ElementsAre(CapturedLine{
                        log::kWarning,
                        "Script stopped at the host's request: forced exit detected while in "
                        "function 'main chunk' at line 1."}));
    }
    EXPECT_EQ(lua_gethook(m_lua.Raw()), nullptr);
    EXPECT_FALSE(m_lua.ExecuteScript("local x = 0 for i = 1, 100000 do x = x + i end Std.sleep(0)"))
        << "the next script runs to its end";
}

TEST_F(LuaStateTest, ResultsAreDroppedAndDeviceIsReleased) {
    EXPECT_FALSE(m_lua.ExecuteScript("device = 5\nreturn 1, 2, 3"));
    EXPECT_EQ(lua_gettop(m_lua.Raw()), 0);
    EXPECT_FALSE(m_lua.ReleaseDevice());
    EXPECT_FALSE(m_lua.ExecuteScript("assert(device == nil)"));
}

}  // namespace
}  // namespace ovex::sdk
