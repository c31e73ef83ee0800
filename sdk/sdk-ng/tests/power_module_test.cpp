// A power unit over a script: construction, the calls into the script, the post-power-up
// callback and the failures, with scripts that keep their own counters in Lua globals.

#include <gtest/gtest.h>

#include <lua.hpp>

#include <stdexcept>
#include <string>
#include <system_error>

#include "modules/power_module.hpp"
#include "sdk_lua_state.hpp"
#include "support/log_capture.hpp"

namespace ovex::sdk {
namespace {

// A unit whose power state is the global `on`; every call is counted in `calls`.
constexpr const char* kUnitScript = R"lua(
calls = { up = 0, down = 0, check = 0 }
on = initially_on
return {
    powerup_unit = function()
        calls.up = calls.up + 1
        if up_fails then return Std.make_error_code(Std.Errc.timed_out) end
        if up_raises then error("rail exploded") end
        on = true
        return Std.ErrorCode.new()
    end,
    powerdown_unit = function()
        calls.down = calls.down + 1
        on = false
        return Std.ErrorCode.new()
    end,
    is_unit_powered = function()
        calls.check = calls.check + 1
        if check_raises then error("monitor unreadable") end
        return on
    end,
}
)lua";

// The unit scripts run in the library's environment, so the tests set and read its globals.
class PowerModuleTest : public ::testing::Test {
protected:
    void Run(const std::string& text) {
        ASSERT_EQ(m_lua.LoadLibraryScript("setup", text), LUA_OK);
        ASSERT_EQ(LuaState::CallLibraryFunction(m_lua.Raw(), 0, 0), LUA_OK);
    }

    long long Global(const char* path) {
        lua_State* lua = m_lua.Raw();
        EXPECT_EQ(m_lua.LoadLibraryScript("read", std::string("return ") + path), LUA_OK);
        EXPECT_EQ(LuaState::CallLibraryFunction(lua, 0, 1), LUA_OK);
        const auto value = lua_tointeger(lua, -1);
        lua_pop(lua, 1);
        return value;
    }

    PowerModule::PostPowerUp Callback(std::error_code result = {}) {
        return [this, result] {
            ++m_callbacks;
            return result;
        };
    }

    LuaState m_lua;
    int m_callbacks = 0;
    testing::LogCapture m_log;
};

TEST_F(PowerModuleTest, UnitAlreadyOnRunsTheCallbackOnceWithoutPoweringUp) {
    Run("initially_on = true");
    PowerModule unit("unit.lua", kUnitScript, m_lua, "frontend", Callback());
    EXPECT_STREQ(unit.GetName(), "frontend");
    EXPECT_EQ(m_callbacks, 1);
    EXPECT_EQ(Global("calls.up"), 0);
    EXPECT_EQ(Global("calls.check"), 1);
}

TEST_F(PowerModuleTest, ColdUnitGetsTheCallbackOnlyBehindAGoodPowerUp) {
    Run("initially_on = false");
    PowerModule unit("unit.lua", kUnitScript, m_lua, "backend", Callback());
    EXPECT_EQ(m_callbacks, 0);
    ASSERT_FALSE(unit.PowerUp());
    EXPECT_EQ(m_callbacks, 1);
    bool powered = false;
    ASSERT_FALSE(unit.IsPowered(powered));
    EXPECT_TRUE(powered);

    ASSERT_FALSE(unit.PowerDown());
    EXPECT_EQ(m_callbacks, 1);  // power-down never calls it
    ASSERT_FALSE(unit.IsPowered(powered));
    EXPECT_FALSE(powered);
}

TEST_F(PowerModuleTest, ScriptFailureComesBackUnchangedAndSkipsTheCallback) {
    Run("initially_on = false; up_fails = true");
    PowerModule unit("unit.lua", kUnitScript, m_lua, "backend", Callback());
    EXPECT_EQ(unit.PowerUp(), std::errc::timed_out);
    EXPECT_EQ(m_callbacks, 0);
}

TEST_F(PowerModuleTest, FailingCallbackBehindAGoodScriptGivesTheCallbacksCode) {
    Run("initially_on = false");
    const auto failure = std::make_error_code(std::errc::not_supported);
    PowerModule unit("unit.lua", kUnitScript, m_lua, "frontend", Callback(failure));
    EXPECT_EQ(unit.PowerUp(), failure);
    bool powered = false;
    ASSERT_FALSE(unit.IsPowered(powered));
    EXPECT_TRUE(powered);  // the unit stays on
}

TEST_F(PowerModuleTest, RaisingScriptFunctionIsInvalidArgumentWithItsText) {
    Run("initially_on = false; up_raises = true");
    PowerModule unit("unit.lua", kUnitScript, m_lua, "backend", nullptr);
    EXPECT_EQ(unit.PowerUp(), std::errc::invalid_argument);
    const auto lines = m_log.Messages();
    ASSERT_FALSE(lines.empty());
    EXPECT_EQ(lines.back().verbosity, log::kError);
    EXPECT_EQ(lines.back().message.rfind("BUG: The script function 'powerup_unit' failed: ", 0),
              0u);
    EXPECT_NE(lines.back().message.find("rail exploded"), std::string::npos);
}

TEST_F(PowerModuleTest, FailingPowerCheckIsBadAddressAndLeavesTheFlag) {
    Run("initially_on = false");
    PowerModule unit("unit.lua", kUnitScript, m_lua, "frontend", nullptr);
    Run("check_raises = true");
    bool powered = true;
    EXPECT_EQ(unit.IsPowered(powered), std::errc::bad_address);
    EXPECT_TRUE(powered);
    const auto lines = m_log.Messages();
    ASSERT_FALSE(lines.empty());
    EXPECT_EQ(lines.back().message,
              "BUG: The power state check function failed to execute for power module "
              "'frontend'.");
}

TEST_F(PowerModuleTest, ConstructionFailuresThrowBeforeOrAtTheFirstCheck) {
    Run("initially_on = true; check_raises = true");
    try {
        PowerModule unit("unit.lua", kUnitScript, m_lua, "frontend", Callback());
        FAIL() << "construction succeeded";
    } catch (const std::system_error& e) {
        EXPECT_EQ(e.code(), std::errc::bad_address);
        EXPECT_NE(std::string(e.what()).find("Initial power check failed"), std::string::npos);
    }
    EXPECT_EQ(m_callbacks, 0);

    Run("check_raises = false");
    try {
        PowerModule unit("unit.lua", kUnitScript, m_lua, "frontend",
                         Callback(std::make_error_code(std::errc::io_error)));
        FAIL() << "construction succeeded";
    } catch (const std::system_error& e) {
        EXPECT_EQ(e.code(), std::errc::io_error);
        EXPECT_NE(std::string(e.what()).find("Post power-up callback failed"), std::string::npos);
    }
}

TEST_F(PowerModuleTest, MissingFunctionIsNamedBeforeAnyCallIntoTheScript) {
    Run("touched = 0");
    const std::string script = R"lua(
        return {
            powerup_unit = function() touched = touched + 1; return Std.ErrorCode.new() end,
            powerdown_unit = function() touched = touched + 1; return Std.ErrorCode.new() end,
        })lua";
    try {
        PowerModule unit("unit.lua", script, m_lua, "frontend", Callback());
        FAIL() << "construction succeeded";
    } catch (const std::runtime_error& e) {
        EXPECT_STREQ(e.what(), "BUG: Invalid function: 'is_unit_powered' in lua script.");
    }
    EXPECT_EQ(Global("touched"), 0);
    EXPECT_EQ(m_callbacks, 0);

    try {
        PowerModule unit("unit.lua", "return { powerup_unit = 1 }", m_lua, "frontend", nullptr);
        FAIL() << "construction succeeded";
    } catch (const std::runtime_error& e) {
        EXPECT_STREQ(e.what(), "BUG: Invalid function: 'powerup_unit' in lua script.");
    }
}

TEST_F(PowerModuleTest, ScriptThatFailsToRunIsThrown) {
    EXPECT_THROW(PowerModule("broken.lua", "return {", m_lua, "backend", nullptr),
                 std::runtime_error);
    EXPECT_THROW(PowerModule("raising.lua", "error('no')", m_lua, "backend", nullptr),
                 std::runtime_error);
    // The state still answers.
    Run("x = 1");
}

}  // namespace
}  // namespace ovex::sdk
