#pragma once

// The tables that every script has: `Log` (lines in the library's log) and `Std` (sleep, error
// codes, paths, byte blocks and the bit helpers).

#include <lua.hpp>

#include <chrono>
#include <functional>
#include <system_error>

namespace ovex::lua::core {

// Runs `body`, which builds a table and makes it visible, in protected mode; its Lua error, if
// any, is logged at debug level with the table's name and comes back as the result. Every table
// of the scripts' surface is added through it.
std::error_code AddTable(lua_State* L, lua_CFunction body, const char* table);

// Sets the global `Log`, and makes every bound function log the C++ exceptions that leave it:
// "An exception occurred while running a Lua script: <what>.".
std::error_code AddLogBindings(lua_State* L);

// Sets the global `Std`. Its user types are registered once per state: a second call fails.
std::error_code AddStdBindings(lua_State* L);

// What Std.sleep does in this state instead of blocking the thread, for tests that must not
// wait; an empty function restores the real wait.
using Sleeper = std::function<void(std::chrono::duration<double>)>;
void SetSleeper(lua_State* L, Sleeper sleeper);

}  // namespace ovex::lua::core
