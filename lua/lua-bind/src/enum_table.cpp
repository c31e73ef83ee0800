#include "ovex/lua/bind/enum_table.hpp"

#include "ovex/lua/bind/messages.hpp"

namespace ovex::lua::bind {

namespace {

int RefuseWrite(lua_State* L) {
    return luaL_error(L, "%s", message::kEnumerationReadOnly);
}

// next() over the entries, which pairs() can't see on the empty front table.
int NextEntry(lua_State* L) {
    luaL_checktype(L, 1, LUA_TTABLE);
    lua_settop(L, 2);
    if (lua_next(L, 1) != 0) {
        return 2;
    }
    lua_pushnil(L);
    return 1;
}

int Pairs(lua_State* L) {
    if (!lua_getmetatable(L, 1)) {
        return luaL_argerror(L, 1, "not an enumeration table");
    }
    lua_pushcfunction(L, &NextEntry);
    lua_getfield(L, -2, "__index");
    lua_pushnil(L);
    return 3;
}

}  // namespace

void PushEnumTable(lua_State* L, std::span<const EnumEntry> entries) {
    // The entries live in the metatable's __index; the table itself stays empty so that every
    // assignment reaches __newindex.
    lua_newtable(L);
    lua_createtable(L, 0, 4);
    lua_createtable(L, 0, static_cast<int>(entries.size()));
    for (const EnumEntry& entry : entries) {
        lua_pushinteger(L, entry.value);
        lua_setfield(L, -2, entry.name);
    }
    lua_setfield(L, -2, "__index");
    lua_pushcfunction(L, &RefuseWrite);
    lua_setfield(L, -2, "__newindex");
    lua_pushcfunction(L, &Pairs);
    lua_setfield(L, -2, "__pairs");
    lua_pushboolean(L, 0);
    lua_setfield(L, -2, "__metatable");
    lua_setmetatable(L, -2);
}

}  // namespace ovex::lua::bind
