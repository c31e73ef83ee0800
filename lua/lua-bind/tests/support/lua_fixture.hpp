#pragma once

// A fresh state with all standard libraries, and helpers to run snippets in it.

#include <gtest/gtest.h>

#include <lua.hpp>

#include <string>

#include "ovex/lua/bind/convert.hpp"
#include "ovex/lua/bind/state.hpp"

namespace ovex::lua::bind::testing {

class LuaFixture : public ::testing::Test {
protected:
    LuaFixture() : L(luaL_newstate()) {
        lua_atpanic(L, &Panic);
        luaL_openlibs(L);
    }
    ~LuaFixture() override { lua_close(L); }

    // Runs the code protected: "" on success, else the error value as text.
    std::string Run(const char* code) {
        const int top = lua_gettop(L);
        std::string error;
        if (luaL_loadstring(L, code) != LUA_OK || lua_pcall(L, 0, 0, 0) != LUA_OK) {
            error = luaL_tolstring(L, -1, nullptr);
        }
        lua_settop(L, top);
        return error;
    }

    // The value of an expression, or of a chunk that returns one, converted to T.
    template <typename T>
    T Eval(const std::string& code) {
        const int top = lua_gettop(L);
        const std::string expression = "return " + code;
        const bool loaded = luaL_loadstring(L, expression.c_str()) == LUA_OK ||
                            (lua_pop(L, 1), luaL_loadstring(L, code.c_str()) == LUA_OK);
        if (!loaded || lua_pcall(L, 0, 1, 0) != LUA_OK) {
            ADD_FAILURE() << code << ": " << lua_tostring(L, -1);
            lua_settop(L, top);
            return T{};
        }
        T value = Convert<T>::Get(L, -1);
        lua_settop(L, top);
        return value;
    }

    void SetGlobal(const char* name, lua_CFunction function) {
        lua_pushcfunction(L, function);
        lua_setglobal(L, name);
    }

    lua_State* L;
};

}  // namespace ovex::lua::bind::testing
