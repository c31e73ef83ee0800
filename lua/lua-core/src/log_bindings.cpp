// Log.debug, Log.info, Log.warn, Log.error: lines in the library's log, placed at the script's
// own file and line.

#include "bindings.hpp"
#include "ovex/log/log.hpp"
#include "ovex/lua/bind/function.hpp"
#include "ovex/lua/bind/state.hpp"

namespace ovex::lua::core::detail {

namespace {

void LogFromScript(lua_State* L, int verbosity, const char* message) {
    if (!log::Admits(verbosity)) {
        return;
    }
    // Level 1 is the Lua function that called the Log function.
    lua_Debug caller{};
    const bool found = lua_getstack(L, 1, &caller) != 0 && lua_getinfo(L, "Sl", &caller) != 0;
    const char* file = found ? caller.short_src : "unknown";
    const unsigned line =
        found && caller.currentline > 0 ? static_cast<unsigned>(caller.currentline) : 0;
    log::Write(verbosity, file, line, "%s", message);
}

void LogDebug(lua_State* L, const char* message) {
    LogFromScript(L, log::kDebug, message);
}
void LogInfo(lua_State* L, const char* message) {
    LogFromScript(L, log::kInfo, message);
}
void LogWarn(lua_State* L, const char* message) {
    LogFromScript(L, log::kWarning, message);
}
void LogError(lua_State* L, const char* message) {
    LogFromScript(L, log::kError, message);
}

void LogException(lua_State*, const char* what) {
    OVEX_LOG_ERROR("An exception occurred while running a Lua script: %s.", what);
}

constexpr luaL_Reg kLogFunctions[] = {
    {"debug", bind::Fn<&LogDebug>}, {"info", bind::Fn<&LogInfo>}, {"warn", bind::Fn<&LogWarn>},
    {"error", bind::Fn<&LogError>}, {nullptr, nullptr},
};

}  // namespace

void PushLogTable(lua_State* L) {
    bind::SetExceptionHandler(L, &LogException);
    luaL_newlib(L, kLogFunctions);
}

}  // namespace ovex::lua::core::detail
