#include "ovex/lua/bind/userdata.hpp"

#include "internal.hpp"

namespace ovex::lua::bind::detail {

namespace {

const char kStashMetatableKey = 0;

}  // namespace

int Finalize(lua_State* L) {
    // Also reachable from scripts through the debug library, with anything as argument.
    if (lua_type(L, 1) != LUA_TUSERDATA) {
        return 0;
    }
    auto* header = static_cast<Header*>(lua_touserdata(L, 1));
    if (header->object != nullptr) {
        header->object = nullptr;
        header->destroy(header);
    }
    return 0;
}

const char* TypeName(lua_State* L, int index) {
    if (luaL_getmetafield(L, index, "__name") == LUA_TSTRING) {
        return lua_tostring(L, -1);
    }
    return luaL_typename(L, index);
}

void PushMetatable(lua_State* L, const void* type_key) {
    if (lua_rawgetp(L, LUA_REGISTRYINDEX, type_key) != LUA_TTABLE) {
        luaL_error(L, "this C++ type is not registered in the Lua state");
    }
}

void RequireRegistered(lua_State* L, const void* type_key) {
    PushMetatable(L, type_key);
    lua_pop(L, 1);
}

void AttachMetatable(lua_State* L, const void* type_key) {
    lua_rawgetp(L, LUA_REGISTRYINDEX, type_key);
    lua_setmetatable(L, -2);
}

Header* FindHeader(lua_State* L, int index, const void* type_key) {
    if (lua_type(L, index) != LUA_TUSERDATA || !lua_getmetatable(L, index)) {
        return nullptr;
    }
    lua_rawgetp(L, LUA_REGISTRYINDEX, type_key);
    const bool registered_metatable = lua_rawequal(L, -1, -2) != 0;
    lua_pop(L, 2);
    auto* header = static_cast<Header*>(lua_touserdata(L, index));
    return registered_metatable && header->type == type_key ? header : nullptr;
}

void* CheckObject(lua_State* L, int index, const void* type_key) {
    index = lua_absindex(L, index);
    Header* header = FindHeader(L, index, type_key);
    if (header == nullptr) {
        const char* expected = "unregistered type";
        if (lua_rawgetp(L, LUA_REGISTRYINDEX, type_key) == LUA_TTABLE &&
            lua_getfield(L, -1, "__name") == LUA_TSTRING) {
            expected = lua_tostring(L, -1);
        }
        luaL_typeerror(L, index, expected);
    }
    if (header->object == nullptr) {
        luaL_argerror(L, index, "the object was already destroyed");
    }
    return header->object;
}

void PushStashMetatable(lua_State* L) {
    if (lua_rawgetp(L, LUA_REGISTRYINDEX, &kStashMetatableKey) == LUA_TTABLE) {
        return;
    }
    lua_pop(L, 1);
    lua_createtable(L, 0, 1);
    lua_pushcfunction(L, &Finalize);
    lua_setfield(L, -2, "__gc");
    lua_pushvalue(L, -1);
    lua_rawsetp(L, LUA_REGISTRYINDEX, &kStashMetatableKey);
}

void StoreStash(lua_State* L, const void* key) {
    lua_insert(L, -2);
    lua_setmetatable(L, -2);
    lua_rawsetp(L, LUA_REGISTRYINDEX, key);
}

void* StashedObject(lua_State* L, const void* key) {
    lua_rawgetp(L, LUA_REGISTRYINDEX, key);
    auto* header =
        lua_type(L, -1) == LUA_TUSERDATA ? static_cast<Header*>(lua_touserdata(L, -1)) : nullptr;
    lua_pop(L, 1);
    return header != nullptr && header->type == key ? header->object : nullptr;
}

}  // namespace ovex::lua::bind::detail
