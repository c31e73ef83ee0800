#pragma once

// The parts of the Log and Std tables, each in its own source.

#include <lua.hpp>

namespace ovex::lua::core {
class StopRequest;
}

namespace ovex::lua::core::detail {

// Pushes the Log table; installs the exception handler that logs.
void PushLogTable(lua_State* L);

// Each adds its entries to the Std table at stack index std_table.
void AddSleep(lua_State* L, int std_table);
void AddFilePath(lua_State* L, int std_table);
void AddErrorCodes(lua_State* L, int std_table);  // Errc, make_error_code, ErrorCode
void AddMemSlab(lua_State* L, int std_table);
void AddByteSpan(lua_State* L, int std_table);
void AddBitmanip(lua_State* L, int std_table);

// The request that SetStopRequest gave the state, or null.
StopRequest* StopRequestOf(lua_State* L);
// Raises the Lua error of a stop, naming the function at stack `level` (0 is the running one).
int RaiseForcedExit(lua_State* L, int level);

}  // namespace ovex::lua::core::detail
