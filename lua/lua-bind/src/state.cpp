#include "ovex/lua/bind/state.hpp"

#include <cstdio>
#include <cstring>
#include <exception>

#include "ovex/lua/bind/function.hpp"
#include "ovex/lua/bind/userdata.hpp"

namespace ovex::lua::bind {

namespace {

const char kExceptionHandlerKey = 0;

void ReportException(lua_State* L, const char* what) {
    auto* handler = Stashed<ExceptionHandler>(L, &kExceptionHandlerKey);
    if (handler != nullptr && *handler != nullptr) {
        try {
            (*handler)(L, what);
        } catch (const std::exception&) {
            // The report is secondary: the error itself still reaches the script.
        }
    }
    lua_pushstring(L, what);
}

// The C function in upvalue 1, inside the guard.
int CallGuardedUpvalue(lua_State* L) {
    return detail::Guard(L, lua_tocfunction(L, lua_upvalueindex(1)));
}

}  // namespace

namespace detail {

int Guard(lua_State* L, lua_CFunction body) {
    try {
        return body(L);
    } catch (const std::exception& error) {
        ReportException(L, error.what());
    }
    // Raised outside the handler, so the C++ exception is gone when Lua unwinds.
    return lua_error(L);
}

}  // namespace detail

int Panic(lua_State* L) {
    const char* message = lua_isstring(L, -1) ? lua_tostring(L, -1) : nullptr;
    std::fprintf(stderr, "[sol2] An error occurred and panic has been invoked: %s\n",
                 message != nullptr ? message : "");
    throw Error(message != nullptr ? message
                                   : "An unexpected error occurred and panic has been invoked");
}

int Traceback(lua_State* L) {
    const char* message = lua_tostring(L, 1);
    if (message == nullptr) {
        if (luaL_callmeta(L, 1, "__tostring") && lua_type(L, -1) == LUA_TSTRING) {
            message = lua_tostring(L, -1);
        } else {
            message = lua_pushfstring(L, "(error object is a %s value)", luaL_typename(L, 1));
        }
    }
    luaL_traceback(L, L, message, 1);
    return 1;
}

int LoadChunk(lua_State* L, const char* text) {
    // Named after the text itself: Lua shows it as [string "<first line>..."].
    return luaL_loadbufferx(L, text, std::strlen(text), text, "bt");
}

int ProtectedCall(lua_State* L, int nargs, int nresults) {
    const int handler = lua_gettop(L) - nargs;
    lua_pushcfunction(L, &Traceback);
    lua_insert(L, handler);
    const int status = lua_pcall(L, nargs, nresults, handler);
    lua_remove(L, handler);
    return status;
}

std::error_code RunProtected(lua_State* L, lua_CFunction body, std::string* error) {
    const int top = lua_gettop(L);
    lua_pushcfunction(L, body);
    lua_pushcclosure(L, &CallGuardedUpvalue, 1);
    const int status = lua_pcall(L, 0, 0, 0);
    if (status != LUA_OK && error != nullptr) {
        const char* text = lua_tostring(L, -1);
        *error = text != nullptr ? text : "(error object is not a string)";
    }
    lua_settop(L, top);
    if (status == LUA_OK) {
        return {};
    }
    return std::make_error_code(status == LUA_ERRMEM ? std::errc::not_enough_memory
                                                     : std::errc::invalid_argument);
}

void SetExceptionHandler(lua_State* L, ExceptionHandler handler) {
    Stash(L, &kExceptionHandlerKey, handler);
}

}  // namespace ovex::lua::bind
