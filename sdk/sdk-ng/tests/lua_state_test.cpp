#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <lua.hpp>

#include <string>
#include <system_error>

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

TEST_F(LuaStateTest, ResultsAreDroppedAndDeviceIsReleased) {
    EXPECT_FALSE(m_lua.ExecuteScript("device = 5\nreturn 1, 2, 3"));
    EXPECT_EQ(lua_gettop(m_lua.Raw()), 0);
    EXPECT_FALSE(m_lua.ReleaseDevice());
    EXPECT_FALSE(m_lua.ExecuteScript("assert(device == nil)"));
}

}  // namespace
}  // namespace ovex::sdk
