#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>

#include "lua_fixture.hpp"
#include "ovex/lua/bind/state.hpp"
#include "ovex/lua/bind/userdata.hpp"

namespace ovex::lua::bind {
namespace {

using ::testing::HasSubstr;
using testing::LuaFixture;
using ::testing::StartsWith;

TEST_F(LuaFixture, UnprotectedErrorPanicsIntoAnException) {
    lua_pushstring(L, "boom");
    try {
        lua_error(L);
        FAIL() << "lua_error returned";
    } catch (const Error& error) {
        EXPECT_STREQ(error.what(), "lua: error: boom");
    }
    lua_pushboolean(L, 1);
    EXPECT_THROW(lua_error(L), Error) << "a non-string error value panics as well";
    EXPECT_EQ(Run("x = 1 + 1"), "") << "the state is still usable";
}

TEST_F(LuaFixture, ChunksRunWithATracebackOnError) {
    const char* script = "local function inner() error('deep') end\ninner()";
    ASSERT_EQ(LoadChunk(L, script), LUA_OK);
    ASSERT_NE(ProtectedCall(L, 0, 0), LUA_OK);
    const std::string trace = lua_tostring(L, -1);
    lua_pop(L, 1);
    EXPECT_THAT(trace,
                StartsWith("[string \"local function inner() error('deep') end...\"]:1: deep"));
    EXPECT_THAT(trace, HasSubstr("stack traceback:"));
    EXPECT_THAT(trace, HasSubstr("in local 'inner'"));
    EXPECT_EQ(lua_gettop(L), 0) << "the handler is removed again";

    ASSERT_EQ(LoadChunk(L, "error(setmetatable({}, {__tostring = function() return 'obj' end}))"),
              LUA_OK);
    ASSERT_NE(ProtectedCall(L, 0, 0), LUA_OK);
    EXPECT_THAT(lua_tostring(L, -1), StartsWith("obj\nstack traceback:"));
    lua_pop(L, 1);

    ASSERT_EQ(LoadChunk(L, "return ..."), LUA_OK);
    lua_pushinteger(L, 7);
    ASSERT_EQ(ProtectedCall(L, 1, 1), LUA_OK);
    EXPECT_EQ(lua_tointeger(L, -1), 7);
    lua_pop(L, 1);

    EXPECT_EQ(LoadChunk(L, "if"), LUA_ERRSYNTAX);
    lua_pop(L, 1);
}

TEST_F(LuaFixture, RunProtectedReportsFailuresAsCodes) {
    std::string error;
    EXPECT_FALSE(RunProtected(L, [](lua_State* state) {
        lua_pushinteger(state, 1);
        return 0;
    }));
    EXPECT_EQ(lua_gettop(L), 0);
    EXPECT_EQ(RunProtected(
                  L, [](lua_State* state) { return luaL_error(state, "bad"); }, &error),
              std::errc::invalid_argument);
    EXPECT_EQ(error, "bad");
    EXPECT_EQ(RunProtected(
                  L, [](lua_State*) -> int { throw std::runtime_error("thrown"); }, &error),
              std::errc::invalid_argument);
    EXPECT_EQ(error, "thrown");
    EXPECT_EQ(lua_gettop(L), 0);
}

struct Counted {
    static inline int alive = 0;
    explicit Counted(int v) : value(v) { ++alive; }
    Counted(Counted&& other) noexcept : value(other.value) { ++alive; }
    ~Counted() { --alive; }
    int value;
};

TEST_F(LuaFixture, StashHoldsOneValuePerKeyUntilTheStateCloses) {
    static const char key = 0;
    static const char other_key = 0;
    Counted::alive = 0;
    EXPECT_EQ(Stashed<Counted>(L, &key), nullptr);
    Stash(L, &key, Counted(1));
    Stash(L, &key, Counted(2));
    EXPECT_EQ(Stashed<Counted>(L, &key)->value, 2);
    EXPECT_EQ(Stashed<Counted>(L, &other_key), nullptr);
    EXPECT_EQ(lua_gettop(L), 0);
    lua_gc(L, LUA_GCCOLLECT);
    EXPECT_EQ(Counted::alive, 1) << "the replaced value is destroyed";
    lua_close(L);
    L = luaL_newstate();
    EXPECT_EQ(Counted::alive, 0);
}

}  // namespace
}  // namespace ovex::lua::bind
