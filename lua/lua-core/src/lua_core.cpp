#include "ovex/lua/core/lua_core.hpp"

#include <string>

#include "bindings.hpp"
#include "ovex/log/log.hpp"
#include "ovex/lua/bind/state.hpp"

namespace ovex::lua::core {

namespace {

int AddLog(lua_State* L) {
    detail::PushLogTable(L);
    lua_setglobal(L, "Log");
    return 0;
}

int AddStd(lua_State* L) {
    lua_newtable(L);
    const int std_table = lua_gettop(L);
    detail::AddSleep(L, std_table);
    detail::AddFilePath(L, std_table);
    detail::AddErrorCodes(L, std_table);
    detail::AddMemSlab(L, std_table);
    detail::AddByteSpan(L, std_table);
    detail::AddBitmanip(L, std_table);
    // Only a complete table becomes visible.
    lua_setglobal(L, "Std");
    return 0;
}

}  // namespace

std::error_code AddTable(lua_State* L, lua_CFunction body, const char* table) {
    std::string error;
    const std::error_code result = bind::RunProtected(L, body, &error);
    if (result) {
        OVEX_LOG_DEBUG("Lua error while adding the table %s: %s", table, error.c_str());
    }
    return result;
}

std::error_code AddLogBindings(lua_State* L) {
    return AddTable(L, &AddLog, "Log");
}

std::error_code AddStdBindings(lua_State* L) {
    return AddTable(L, &AddStd, "Std");
}

}  // namespace ovex::lua::core
