#include "ovex/lua/bind/convert.hpp"

namespace ovex::lua::bind::detail {

IntegerRead ReadInteger(lua_State* L, int index, lua_Integer min, lua_Integer max,
                        lua_Integer& value) {
    // Only numbers: a numeric string is not taken for a number.
    if (lua_type(L, index) != LUA_TNUMBER) {
        return IntegerRead::kNotANumber;
    }
    int is_integer = 0;
    value = lua_tointegerx(L, index, &is_integer);
    if (is_integer == 0) {
        return IntegerRead::kNotAnInteger;
    }
    return value < min || value > max ? IntegerRead::kOutOfRange : IntegerRead::kOk;
}

void RaiseIntegerError(lua_State* L, int index, IntegerRead result, lua_Integer min,
                       lua_Integer max) {
    switch (result) {
        case IntegerRead::kNotANumber:
            luaL_argerror(L, index, message::kNotANumber);
            break;
        case IntegerRead::kNotAnInteger:
            luaL_argerror(L, index, message::kNotAnInteger);
            break;
        default:
            luaL_argerror(L, index, lua_pushfstring(L, "integer out of range %I..%I", min, max));
            break;
    }
    __builtin_unreachable();  // luaL_argerror raises
}

lua_Number CheckNumber(lua_State* L, int index) {
    if (lua_type(L, index) != LUA_TNUMBER) {
        luaL_argerror(L, index, message::kNotANumber);
    }
    return lua_tonumber(L, index);
}

std::string_view CheckString(lua_State* L, int index) {
    if (lua_type(L, index) != LUA_TSTRING) {
        luaL_typeerror(L, index, "string");
    }
    std::size_t length = 0;
    const char* text = lua_tolstring(L, index, &length);
    return {text, length};
}

bool CheckBoolean(lua_State* L, int index) {
    if (lua_type(L, index) != LUA_TBOOLEAN) {
        luaL_typeerror(L, index, "boolean");
    }
    return lua_toboolean(L, index) != 0;
}

void RaiseNotShared(lua_State* L, int index) {
    luaL_argerror(L, index, "the object is not held by a shared owner");
    __builtin_unreachable();
}

}  // namespace ovex::lua::bind::detail
