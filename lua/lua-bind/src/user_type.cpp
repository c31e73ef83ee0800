#include "ovex/lua/bind/user_type.hpp"

#include <algorithm>

#include "internal.hpp"
#include "ovex/lua/bind/messages.hpp"

namespace ovex::lua::bind::detail {

namespace {

// Keys of the metatable that Lua code can't spell.
const char kMethodsKey = 0;
const char kGettersKey = 0;
const char kElementReadKey = 0;
const char kElementWriteKey = 0;
const char kTypeTableKey = 0;

// __index: element positions of containers, then methods, then getters.
int IndexUserdata(lua_State* L) {
    if (!lua_getmetatable(L, 1)) {
        return 0;
    }
    const int metatable = lua_gettop(L);
    if (lua_type(L, 2) == LUA_TNUMBER &&
        lua_rawgetp(L, metatable, &kElementReadKey) == LUA_TFUNCTION) {
        lua_pushvalue(L, 1);
        lua_pushvalue(L, 2);
        lua_call(L, 2, 1);
        return 1;
    }
    lua_settop(L, metatable);
    lua_rawgetp(L, metatable, &kMethodsKey);
    lua_pushvalue(L, 2);
    if (lua_rawget(L, -2) != LUA_TNIL) {
        return 1;
    }
    lua_settop(L, metatable);
    lua_rawgetp(L, metatable, &kGettersKey);
    lua_pushvalue(L, 2);
    if (lua_rawget(L, -2) != LUA_TFUNCTION) {
        return 0;
    }
    lua_pushvalue(L, 1);
    lua_call(L, 1, 1);
    return 1;
}

// __newindex: element positions of containers; any name is refused.
int NewIndexUserdata(lua_State* L) {
    if (lua_getmetatable(L, 1) && lua_type(L, 2) == LUA_TNUMBER &&
        lua_rawgetp(L, -1, &kElementWriteKey) == LUA_TFUNCTION) {
        lua_pushvalue(L, 1);
        lua_pushvalue(L, 2);
        lua_pushvalue(L, 3);
        lua_call(L, 3, 0);
        return 0;
    }
    const char* key = luaL_tolstring(L, 2, nullptr);
    return luaL_error(L, "cannot assign to '%s' of '%s'", key, TypeName(L, 1));
}

int RefuseGrowth(lua_State* L, const char* operation) {
    return luaL_error(L, message::kCannotCallOn, operation, TypeName(L, 1));
}

// The 1-based position at argument 2, or 0 if it is no position inside `size`.
lua_Integer PositionIn(lua_State* L, std::size_t size) {
    int is_integer = 0;
    const lua_Integer position = lua_tointegerx(L, 2, &is_integer);
    if (is_integer == 0 || position < 1 || position > static_cast<lua_Integer>(size)) {
        return 0;
    }
    return position;
}

}  // namespace

void RegisterType(lua_State* L, const void* type_key, const char* name) {
    if (lua_rawgetp(L, LUA_REGISTRYINDEX, type_key) != LUA_TNIL) {
        luaL_error(L, "'%s' is already registered in this Lua state", name);
    }
    lua_pop(L, 1);
    lua_createtable(L, 0, 12);
    lua_pushstring(L, name);
    lua_setfield(L, -2, "__name");
    // getmetatable() gives false and setmetatable() refuses: scripts can't swap methods.
    lua_pushboolean(L, 0);
    lua_setfield(L, -2, "__metatable");
    lua_pushcfunction(L, &Finalize);
    lua_setfield(L, -2, "__gc");
    lua_pushcfunction(L, &IndexUserdata);
    lua_setfield(L, -2, "__index");
    lua_pushcfunction(L, &NewIndexUserdata);
    lua_setfield(L, -2, "__newindex");
    for (const char* key : {&kMethodsKey, &kGettersKey, &kTypeTableKey}) {
        lua_newtable(L);
        lua_rawsetp(L, -2, key);
    }
    lua_rawsetp(L, LUA_REGISTRYINDEX, type_key);
}

void AddMember(lua_State* L, const void* type_key, MemberKind kind, const char* name,
               lua_CFunction function) {
    PushMetatable(L, type_key);
    switch (kind) {
        case MemberKind::kMethod:
        case MemberKind::kGetter:
            lua_rawgetp(L, -1, kind == MemberKind::kMethod ? &kMethodsKey : &kGettersKey);
            lua_pushcfunction(L, function);
            lua_setfield(L, -2, name);
            lua_pop(L, 1);
            break;
        case MemberKind::kMeta:
            lua_pushcfunction(L, function);
            lua_setfield(L, -2, name);
            break;
        case MemberKind::kElementRead:
        case MemberKind::kElementWrite:
            lua_pushcfunction(L, function);
            lua_rawsetp(L, -2,
                        kind == MemberKind::kElementRead ? &kElementReadKey : &kElementWriteKey);
            break;
    }
    lua_pop(L, 1);
}

void PushTypeTable(lua_State* L, const void* type_key) {
    PushMetatable(L, type_key);
    lua_rawgetp(L, -1, &kTypeTableKey);
    lua_remove(L, -2);
}

int ReadElement(lua_State* L, std::span<const std::uint8_t> bytes) {
    const lua_Integer position = PositionIn(L, bytes.size());
    if (position == 0) {
        lua_pushnil(L);
    } else {
        lua_pushinteger(L, bytes[static_cast<std::size_t>(position - 1)]);
    }
    return 1;
}

int WriteElement(lua_State* L, std::span<std::uint8_t> bytes) {
    const lua_Integer position = PositionIn(L, bytes.size());
    if (position == 0) {
        return luaL_error(L, "position %s is outside the %I bytes of '%s', which does not grow",
                          luaL_tolstring(L, 2, nullptr), static_cast<lua_Integer>(bytes.size()),
                          TypeName(L, 1));
    }
    bytes[static_cast<std::size_t>(position - 1)] = GetInteger<std::uint8_t>(L, 3);
    return 0;
}

int FindElement(lua_State* L, std::span<const std::uint8_t> bytes) {
    int is_integer = 0;
    const lua_Integer value = lua_type(L, 2) == LUA_TNUMBER ? lua_tointegerx(L, 2, &is_integer) : 0;
    const auto found = std::find(bytes.begin(), bytes.end(), value);
    if (is_integer == 0 || found == bytes.end()) {
        lua_pushnil(L);
    } else {
        lua_pushinteger(L, found - bytes.begin() + 1);
    }
    return 1;
}

int RefuseClear(lua_State* L) {
    return RefuseGrowth(L, "clear");
}

int RefuseInsert(lua_State* L) {
    return RefuseGrowth(L, "insert");
}

int RefuseAdd(lua_State* L) {
    return RefuseGrowth(L, "add");
}

}  // namespace ovex::lua::bind::detail
