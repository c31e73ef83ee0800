#include "modules/power_module.hpp"

#include <lua.hpp>

#include <stdexcept>
#include <string>

#include "ovex/log/log.hpp"
#include "ovex/lua/bind/state.hpp"
#include "ovex/lua/core/values.hpp"
#include "sdk_lua_state.hpp"

namespace ovex::sdk {

namespace {

// Restores the stack height on every way out of a call into the script.
class StackGuard {
public:
    explicit StackGuard(lua_State* lua) : m_lua(lua), m_top(lua_gettop(lua)) {}
    ~StackGuard() { lua_settop(m_lua, m_top); }
    StackGuard(const StackGuard&) = delete;
    StackGuard& operator=(const StackGuard&) = delete;

private:
    lua_State* m_lua;
    int m_top;
};

std::string ErrorText(lua_State* lua) {
    const char* text = lua_tostring(lua, -1);
    return text != nullptr ? text : "(error object is not a string)";
}

// Takes the field of the table on top of the stack as a registry reference to a function.
int TakeFunction(lua_State* lua, const char* field) {
    lua_getfield(lua, -1, field);
    if (!lua_isfunction(lua, -1)) {
        lua_pop(lua, 1);
        throw std::runtime_error(std::string("BUG: Invalid function: '") + field +
                                 "' in lua script.");
    }
    return luaL_ref(lua, LUA_REGISTRYINDEX);
}

}  // namespace

PowerModule::PowerModule(std::string_view script_name, std::string_view script_text, LuaState& lua,
                         std::string unit_name, PostPowerUp post_power_up,
                         IDeviceConnection* connection)
    : m_lua(lua.Raw()),
      m_powerup_unit(LUA_NOREF),
      m_powerdown_unit(LUA_NOREF),
      m_is_unit_powered(LUA_NOREF),
      m_name(std::move(unit_name)),
      m_connection(connection) {
    {
        StackGuard guard(m_lua);
        if (lua.LoadLibraryScript(script_name, script_text) != LUA_OK ||
            LuaState::CallLibraryFunction(m_lua, 0, 1) != LUA_OK) {
            throw lua::bind::Error(ErrorText(m_lua));
        }
        OVEX_CHECK(lua_istable(m_lua, -1), "BUG: Lua script did not return a valid table.");
        // A constructor that throws runs no destructor: what was taken is released here.
        try {
            m_powerup_unit = TakeFunction(m_lua, "powerup_unit");
            m_powerdown_unit = TakeFunction(m_lua, "powerdown_unit");
            m_is_unit_powered = TakeFunction(m_lua, "is_unit_powered");
        } catch (...) {
            luaL_unref(m_lua, LUA_REGISTRYINDEX, m_powerup_unit);
            luaL_unref(m_lua, LUA_REGISTRYINDEX, m_powerdown_unit);
            throw;
        }
    }
    m_post_power_up = std::move(post_power_up);

    bool powered = false;
    if (const auto ec = IsPowered(powered)) {
        throw std::system_error(ec, "Initial power check failed");
    }
    if (powered && m_post_power_up) {
        if (const auto ec = m_post_power_up()) {
            throw std::system_error(ec, "Post power-up callback failed");
        }
    }
}

PowerModule::~PowerModule() {
    m_post_power_up = nullptr;
    luaL_unref(m_lua, LUA_REGISTRYINDEX, m_powerup_unit);
    luaL_unref(m_lua, LUA_REGISTRYINDEX, m_powerdown_unit);
    luaL_unref(m_lua, LUA_REGISTRYINDEX, m_is_unit_powered);
}

std::error_code PowerModule::CallScriptFunction(int function, const char* function_name) {
    StackGuard guard(m_lua);
    if (function == LUA_NOREF || function == LUA_REFNIL) {
        OVEX_LOG_ERROR("BUG: %s function was not found in script.", function_name);
        return std::make_error_code(std::errc::invalid_argument);
    }
    lua_rawgeti(m_lua, LUA_REGISTRYINDEX, function);
    if (LuaState::CallLibraryFunction(m_lua, 0, 1) != LUA_OK) {
        const std::string error = ErrorText(m_lua);
        if (Disconnected()) {
            OVEX_LOG_ERROR(
                "Power module '%s': the device is disconnected; the script function '%s' "
                "failed: %s",
                m_name.c_str(), function_name, error.c_str());
            return std::make_error_code(std::errc::no_such_device);
        }
        OVEX_LOG_ERROR("BUG: The script function '%s' failed: %s", function_name, error.c_str());
        return std::make_error_code(std::errc::invalid_argument);
    }
    const auto result = lua::core::ToErrorCode(m_lua, -1);
    if (!result) {
        OVEX_LOG_ERROR("BUG: The script function '%s' failed: %s", function_name,
                       "the result is not an ErrorCode");
        return std::make_error_code(std::errc::invalid_argument);
    }
    return *result;
}

std::error_code PowerModule::PowerUp() {
    if (const auto ec = CallScriptFunction(m_powerup_unit, "powerup_unit")) {
        return ec;
    }
    if (!m_post_power_up) {
        return {};
    }
    OVEX_LOG_DEBUG("Executing post-powerup callback for '%s'.", m_name.c_str());
    return m_post_power_up();
}

std::error_code PowerModule::PowerDown() {
    return CallScriptFunction(m_powerdown_unit, "powerdown_unit");
}

std::error_code PowerModule::IsPowered(bool& is_powered) {
    StackGuard guard(m_lua);
    lua_rawgeti(m_lua, LUA_REGISTRYINDEX, m_is_unit_powered);
    if (LuaState::CallLibraryFunction(m_lua, 0, 1) != LUA_OK) {
        if (Disconnected()) {
            OVEX_LOG_ERROR(
                "Power module '%s': the device is disconnected; the power state check failed: %s",
                m_name.c_str(), ErrorText(m_lua).c_str());
            return std::make_error_code(std::errc::no_such_device);
        }
        OVEX_LOG_ERROR(
            "BUG: The power state check function failed to execute for power module '%s'.",
            m_name.c_str());
        return std::make_error_code(std::errc::bad_address);
    }
    is_powered = lua_toboolean(m_lua, -1) != 0;
    return {};
}

// A request to the board that fails inside a script raises a Lua error. When the board has left
// the bus, that is what the host must hear, not a fault of the script.
bool PowerModule::Disconnected() {
    bool open = true;
    return m_connection != nullptr && !m_connection->IsOpen(open) && !open;
}

}  // namespace ovex::sdk
