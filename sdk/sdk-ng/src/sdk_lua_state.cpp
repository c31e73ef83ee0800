#include "sdk_lua_state.hpp"

#include <lua.hpp>

#include <new>

namespace ovex::sdk {

namespace {

constexpr luaL_Reg kOpenLibraries[] = {
    {LUA_GNAME, luaopen_base},
    {LUA_LOADLIBNAME, luaopen_package},
    {LUA_STRLIBNAME, luaopen_string},
    {LUA_DBLIBNAME, luaopen_debug},
};

}  // namespace

LuaState::LuaState() : m_state(luaL_newstate()) {
    if (m_state == nullptr) {
        throw std::bad_alloc();
    }
    for (const auto& library : kOpenLibraries) {
        luaL_requiref(m_state, library.name, library.func, 1);
        lua_pop(m_state, 1);
    }
}

LuaState::~LuaState() {
    lua_close(m_state);
}

std::error_code LuaState::ReleaseDevice() {
    lua_pushnil(m_state);
    lua_setglobal(m_state, "device");
    return {};
}

}  // namespace ovex::sdk
