#pragma once

#include <system_error>

struct lua_State;

namespace ovex::sdk {

// The context's Lua interpreter. Only the libraries base, package, string and debug are open:
// scripts can reach neither files nor processes.
class LuaState {
public:
    LuaState();
    ~LuaState();

    LuaState(const LuaState&) = delete;
    LuaState& operator=(const LuaState&) = delete;

    // Sets the global `device` to nil; always succeeds.
    std::error_code ReleaseDevice();

    lua_State* Raw() const noexcept { return m_state; }

private:
    lua_State* m_state;
};

}  // namespace ovex::sdk
