#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <vector>

#include "lua_fixture.hpp"
#include "ovex/lua/bind/enum_table.hpp"
#include "ovex/lua/bind/function.hpp"
#include "ovex/lua/bind/messages.hpp"
#include "ovex/lua/bind/user_type.hpp"

namespace ovex::lua::bind {
namespace {

using ::testing::HasSubstr;
using testing::LuaFixture;

// Counts its live instances, so that tests see every destructor run.
struct Tracked {
    static inline int alive = 0;
    explicit Tracked(std::int32_t v) : value(v) { ++alive; }
    Tracked(const Tracked& other) : value(other.value) { ++alive; }
    ~Tracked() { --alive; }
    std::int32_t Get() const { return value; }
    void Add(std::int32_t amount) { value += amount; }
    std::int32_t value;
};

struct Point {
    std::int32_t x = 0;
    std::int32_t y = 0;
};

Tracked MakeTracked(std::int32_t value) {
    return Tracked(value);
}
Point MakeOrigin() {
    return {};
}
Point MakePoint(std::int32_t x, std::int32_t y) {
    return {x, y};
}
std::string PointText(const Point& point) {
    return std::to_string(point.x) + "," + std::to_string(point.y);
}
std::int32_t SumOfX(const Point& a, Point& b) {
    return a.x + b.x;
}
std::int32_t UseCount(lua_State* L) {
    return static_cast<std::int32_t>(Share<Tracked>(L, 1).use_count());
}
std::int32_t ValueOfShared(std::shared_ptr<Tracked> tracked) {
    return tracked->value;
}

class UserTypeTest : public testing::LuaFixture {
protected:
    UserTypeTest() {
        Tracked::alive = 0;
        lua_newtable(L);
        UserType<Tracked>(L, "Tracked")
            .Constructor(Fn<&MakeTracked>)
            .Method("get", Fn<&Tracked::Get>)
            .Method("add", Fn<&Tracked::Add>)
            .Getter("value", Field<&Tracked::value>)
            .SetIn(-1);
        UserType<Point>(L, "Point")
            .Constructor(Overloads<&MakeOrigin, &MakePoint>)
            .Getter("x", Field<&Point::x>)
            .Getter("y", Field<&Point::y>)
            .Meta("__tostring", Fn<&PointText>)
            .SetIn(-1);
        lua_setglobal(L, "T");
        SetGlobal("sum_x", Fn<&SumOfX>);
        SetGlobal("use_count", Fn<&UseCount>);
        SetGlobal("value_of_shared", Fn<&ValueOfShared>);
    }
};

TEST_F(UserTypeTest, ConstructorsMethodsAndFields) {
    EXPECT_EQ(Run("p = T.Point.new(3, 4); q = T.Point.new()"), "");
    EXPECT_EQ(Eval<std::string>("tostring(p) .. ' ' .. tostring(q)"), "3,4 0,0");
    EXPECT_EQ(Eval<int>("p.x * 10 + p.y"), 34);
    EXPECT_EQ(Eval<int>("sum_x(p, T.Point.new(5, 0))"), 8);
    EXPECT_THAT(Run("T.Point.new(1)"), HasSubstr(message::kNoMatchingOverload));
    EXPECT_THAT(Run("T.Point.new(1, 2.5)"), HasSubstr(message::kNotAnInteger));

    EXPECT_EQ(Run("t = T.Tracked.new(5); t:add(2)"), "");
    EXPECT_EQ(Eval<int>("t:get() + t.value"), 14);
    EXPECT_EQ(Eval<std::string>("tostring(t):match('^Tracked: ')"), "Tracked: ");
    EXPECT_FALSE(Eval<bool>("getmetatable(t)")) << "methods are out of the script's reach";
}

TEST_F(UserTypeTest, WrongTypesAndAssignmentsAreRefused) {
    EXPECT_THAT(Run("sum_x(T.Point.new(), T.Tracked.new(1))"),
                HasSubstr("bad argument #2 to 'sum_x' (Point expected, got Tracked)"));
    EXPECT_THAT(Run("local get = T.Tracked.new(1).get; get(T.Point.new())"),
                HasSubstr("bad argument #1 to 'get' (Tracked expected, got Point)"));
    EXPECT_THAT(Run("T.Point.new().x = 1"), HasSubstr("cannot assign to 'x' of 'Point'"));
    EXPECT_THAT(Run("T.Point.new().z = 1"), HasSubstr("cannot assign to 'z' of 'Point'"));
    EXPECT_THAT(Run("T.Point.new():nothing()"), HasSubstr("attempt to call a nil value"));
    EXPECT_THAT(Run("UserType = T.Point.new(); setmetatable(UserType, {})"),
                HasSubstr("bad argument #1 to 'setmetatable' (table expected"));
}

TEST_F(UserTypeTest, SwappedMetatableDoesNotPassForAnotherType) {
    // The debug library can put any metatable on a userdata; the object keeps its own type.
    EXPECT_EQ(Run("t = T.Tracked.new(1); p = T.Point.new(); "
                  "debug.setmetatable(t, debug.getmetatable(p))"),
              "");
    EXPECT_THAT(Run("return t.x"), HasSubstr("Point expected"));
    EXPECT_THAT(Run("debug.getmetatable(p).__gc(p); return sum_x(p, p)"),
                HasSubstr("the object was already destroyed"));
}

TEST_F(UserTypeTest, ObjectsAreDestroyedOnceWhenCollected) {
    EXPECT_EQ(Run("a = T.Tracked.new(1); b = T.Tracked.new(2); c = a"), "");
    EXPECT_EQ(Tracked::alive, 2);
    EXPECT_EQ(Run("a = nil; collectgarbage(); collectgarbage()"), "");
    EXPECT_EQ(Tracked::alive, 2) << "still referenced by c";
    EXPECT_EQ(Run("c = nil; collectgarbage(); collectgarbage()"), "");
    EXPECT_EQ(Tracked::alive, 1);
    lua_close(L);
    L = luaL_newstate();
    EXPECT_EQ(Tracked::alive, 0) << "closing the state destroys the rest";
}

TEST_F(UserTypeTest, SharedOwnerKeepsTheObjectAliveAsLongAsLuaHoldsIt) {
    auto owner = std::make_shared<Tracked>(9);
    PushShared(L, owner);
    lua_setglobal(L, "shared");
    PushObject(L, Tracked(3));
    lua_setglobal(L, "owned");
    EXPECT_EQ(owner.use_count(), 2);
    EXPECT_EQ(Eval<int>("use_count(shared)"), 3) << "the owner, the userdata, and the copy";
    EXPECT_EQ(Eval<int>("value_of_shared(shared)"), 9);
    EXPECT_THAT(Run("value_of_shared(owned)"),
                HasSubstr("the object is not held by a shared owner"));

    std::weak_ptr<Tracked> watch = owner;
    owner.reset();
    EXPECT_EQ(Eval<int>("shared:get()"), 9);
    EXPECT_EQ(Run("shared = nil; collectgarbage(); collectgarbage()"), "");
    EXPECT_TRUE(watch.expired());

    PushShared(L, std::shared_ptr<Tracked>());
    EXPECT_TRUE(lua_isnil(L, -1)) << "an empty owner is nil";
    lua_pop(L, 1);
}

TEST_F(UserTypeTest, TypesAreRegisteredOncePerState) {
    lua_pushcfunction(L, [](lua_State* state) {
        UserType<Point>(state, "Point");
        return 0;
    });
    EXPECT_NE(lua_pcall(L, 0, 0, 0), LUA_OK);
    EXPECT_THAT(lua_tostring(L, -1), HasSubstr("'Point' is already registered"));
    lua_pop(L, 1);

    struct Unregistered {};
    EXPECT_EQ(TryGet<Unregistered>(L, 1), nullptr);
    EXPECT_THROW(PushObject(L, Unregistered{}), Error);
}

struct Block {
    std::vector<std::uint8_t> bytes;
};
std::span<std::uint8_t> BytesOf(Block& block) {
    return block.bytes;
}
Block MakeBlock() {
    return Block{{10, 20, 30, 20}};
}

// A view of another object's bytes, which it keeps alive.
int ViewOf(lua_State* L) {
    PushObject(L, BytesOf(Check<Block>(L, 1)));
    KeepAlive(L, -1, 1);
    return 1;
}
std::span<std::uint8_t> SpanBytes(std::span<std::uint8_t>& span) {
    return span;
}

class ContainerTest : public testing::LuaFixture {
protected:
    ContainerTest() {
        lua_newtable(L);
        UserType<Block>(L, "Block")
            .Constructor(Fn<&MakeBlock>)
            .Method("view", Raw<&ViewOf>)
            .ByteContainer<&BytesOf>()
            .SetIn(-1);
        UserType<std::span<std::uint8_t>>(L, "View").ByteContainer<&SpanBytes>().SetIn(-1);
        lua_setglobal(L, "T");
        EXPECT_EQ(Run("b = T.Block.new()"), "");
    }
};

TEST_F(ContainerTest, PositionsAreOneBasedAndOutsideReadsAreNil) {
    EXPECT_EQ(Eval<int>("#b"), 4);
    EXPECT_EQ(Eval<int>("b[1] * 1000 + b[4]"), 10020);
    EXPECT_TRUE(Eval<bool>("b[0] == nil and b[5] == nil and b[-1] == nil and b[1.5] == nil"));
    EXPECT_EQ(Eval<int>("b:find(20)"), 2);
    EXPECT_TRUE(Eval<bool>("b:find(99) == nil and b:find(276) == nil and b:find('10') == nil"));
    EXPECT_EQ(Eval<std::string>("local s = '' for i, v in ipairs(b) do s = s .. v .. ' ' end "
                                "return s"),
              "10 20 30 20 ");
}

TEST_F(ContainerTest, WritesStayInsideAndNeverGrow) {
    EXPECT_EQ(Run("b[4] = 255"), "");
    EXPECT_EQ(Eval<int>("b[4]"), 255);
    EXPECT_THAT(Run("b[5] = 1"),
                HasSubstr("position 5 is outside the 4 bytes of 'Block', which does not grow"));
    EXPECT_THAT(Run("b[0] = 1"), HasSubstr("outside"));
    EXPECT_THAT(Run("b[1] = 256"), HasSubstr("integer out of range 0..255"));
    EXPECT_THAT(Run("b[1] = 1.5"), HasSubstr(message::kNotAnInteger));
    EXPECT_THAT(Run("b:clear()"), HasSubstr("sol: cannot call clear on 'Block'"));
    EXPECT_THAT(Run("b:insert(1, 2)"), HasSubstr("sol: cannot call insert on 'Block'"));
    EXPECT_THAT(Run("b:add(1)"), HasSubstr("sol: cannot call add on 'Block'"));
    EXPECT_EQ(Eval<int>("#b"), 4);
}

TEST_F(ContainerTest, ViewKeepsItsOwnerAliveAndSharesItsBytes) {
    EXPECT_EQ(Run("v = b:view(); b = nil; collectgarbage(); collectgarbage()"), "");
    EXPECT_EQ(Run("v[1] = 7"), "");
    EXPECT_EQ(Eval<int>("v[1] + #v"), 11);
    EXPECT_THAT(Run("v:add(1)"), HasSubstr("sol: cannot call add on 'View'"));
}

TEST_F(LuaFixture, EnumerationTablesAreReadOnly) {
    const EnumEntry entries[] = {{"Integer", 1}, {"Float", 2}};
    PushEnumTable(L, entries);
    lua_setglobal(L, "E");
    EXPECT_EQ(Eval<int>("E.Integer * 10 + E.Float"), 12);
    EXPECT_THAT(Run("E.Integer = 5"), HasSubstr(message::kEnumerationReadOnly));
    EXPECT_THAT(Run("E.Other = 5"), HasSubstr(message::kEnumerationReadOnly));
    EXPECT_EQ(Eval<int>("E.Integer"), 1);
    EXPECT_EQ(Eval<int>("local n = 0 for k, v in pairs(E) do n = n + v end return n"), 3);
}

}  // namespace
}  // namespace ovex::lua::bind
