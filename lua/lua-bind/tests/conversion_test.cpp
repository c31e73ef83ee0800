#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <optional>
#include <stdexcept>
#include <string>
#include <variant>
#include <vector>

#include "lua_fixture.hpp"
#include "ovex/lua/bind/function.hpp"
#include "ovex/lua/bind/messages.hpp"

namespace ovex::lua::bind {
namespace {

using ::testing::HasSubstr;
using testing::LuaFixture;

std::uint8_t EchoU8(std::uint8_t value) {
    return value;
}
std::int32_t EchoI32(std::int32_t value) {
    return value;
}
std::uint64_t EchoU64(std::uint64_t value) {
    return value;
}
enum class Mode : std::uint8_t { kOff = 0, kOn = 1 };
Mode Toggle(Mode mode) {
    return mode == Mode::kOn ? Mode::kOff : Mode::kOn;
}
double Half(double value) {
    return value / 2;
}
std::string Join(const std::string& a, std::string_view b, const char* c) {
    return a + "|" + std::string(b) + "|" + c;
}
bool Not(bool value) {
    return !value;
}
double WithTimeout(std::int32_t value, std::optional<double> timeout) {
    return value + timeout.value_or(10.0);
}

TEST_F(LuaFixture, IntegersMustBeIntegralAndInRange) {
    SetGlobal("u8", Fn<&EchoU8>);
    SetGlobal("i32", Fn<&EchoI32>);
    SetGlobal("u64", Fn<&EchoU64>);
    EXPECT_EQ(Eval<int>("u8(0) + u8(255)"), 255);
    EXPECT_EQ(Eval<int>("u8(7.0)"), 7) << "a float with an integral value fits exactly";
    EXPECT_EQ(Eval<std::int64_t>("i32(-2147483648)"), -2147483648LL);
    EXPECT_EQ(Eval<std::int64_t>("u64(math.maxinteger)"), LUA_MAXINTEGER);

    EXPECT_THAT(Run("u8(1.5)"), HasSubstr(message::kNotAnInteger));
    EXPECT_THAT(Run("u8('1')"), HasSubstr("(not a numeric type)"));
    EXPECT_THAT(Run("u8()"), HasSubstr("(not a numeric type)"));
    EXPECT_THAT(Run("u8(256)"), HasSubstr("integer out of range 0..255"));
    EXPECT_THAT(Run("u8(-1)"), HasSubstr("integer out of range 0..255"));
    EXPECT_THAT(Run("i32(2147483648)"), HasSubstr("out of range"));
    EXPECT_THAT(Run("u64(-1)"), HasSubstr("out of range"));
    EXPECT_THAT(Run("u8(1.5)"), HasSubstr("bad argument #1 to 'u8'"));

    SetGlobal("toggle", Fn<&Toggle>);
    EXPECT_EQ(Eval<int>("toggle(0)"), 1) << "enumerations travel as their numbers";
    EXPECT_THAT(Run("toggle(256)"), HasSubstr("integer out of range 0..255"));
}

TEST_F(LuaFixture, NumbersStringsAndBooleansAreCheckedByType) {
    SetGlobal("half", Fn<&Half>);
    SetGlobal("join", Fn<&Join>);
    SetGlobal("negate", Fn<&Not>);
    EXPECT_DOUBLE_EQ(Eval<double>("half(3)"), 1.5);
    EXPECT_THAT(Run("half('3')"), HasSubstr("(not a numeric type)"));
    EXPECT_EQ(Eval<std::string>("join('a', 'b\\0c', 'd')"), std::string("a|b\0c|d", 7));
    EXPECT_THAT(Run("join('a', 2, 'c')"), HasSubstr("bad argument #2 to 'join' (string expected"));
    EXPECT_TRUE(Eval<bool>("negate(false)"));
    EXPECT_THAT(Run("negate(0)"), HasSubstr("boolean expected, got number"));
}

TEST_F(LuaFixture, TrailingOptionalArgumentMayBeAbsentOrNil) {
    SetGlobal("f", Fn<&WithTimeout>);
    EXPECT_DOUBLE_EQ(Eval<double>("f(1)"), 11.0);
    EXPECT_DOUBLE_EQ(Eval<double>("f(1, nil)"), 11.0);
    EXPECT_DOUBLE_EQ(Eval<double>("f(1, 0.5)"), 1.5);
    EXPECT_THAT(Run("f(1, 'x')"), HasSubstr("bad argument #2"));
    EXPECT_THAT(Run("f(1.5)"), HasSubstr(message::kNotAnInteger));
}

std::string OverloadNone() {
    return "none";
}
std::string OverloadInteger(std::int32_t) {
    return "integer";
}
std::string OverloadText(std::string_view) {
    return "text";
}
std::string OverloadPair(std::int32_t, std::optional<bool>) {
    return "pair";
}

TEST_F(LuaFixture, OverloadsChooseByCountThenType) {
    SetGlobal("f", Overloads<&OverloadNone, &OverloadInteger, &OverloadText, &OverloadPair>);
    EXPECT_EQ(Eval<std::string>("f()"), "none");
    EXPECT_EQ(Eval<std::string>("f(3)"), "integer");
    EXPECT_EQ(Eval<std::string>("f('3')"), "text");
    EXPECT_EQ(Eval<std::string>("f(3, true)"), "pair");
    EXPECT_EQ(Eval<std::string>("f(3, nil)"), "pair");
    EXPECT_THAT(Run("f(1.5)"), HasSubstr(message::kNoMatchingOverload));
    EXPECT_THAT(Run("f(1, 2, 3)"), HasSubstr(message::kNoMatchingOverload));
    // The only candidate for two arguments reports its own argument error.
    EXPECT_THAT(Run("f(1, 2)"), HasSubstr("bad argument #2 to 'f' (boolean expected"));
}

std::variant<std::uint32_t, std::string> ValueOrText(bool value) {
    if (value) {
        return std::uint32_t{42};
    }
    return std::string("failed");
}
std::vector<std::string> Names() {
    return {"A", "B", "C"};
}
std::optional<std::int32_t> Maybe(bool present) {
    return present ? std::optional<std::int32_t>(5) : std::nullopt;
}

TEST_F(LuaFixture, ResultsOfSeveralKinds) {
    SetGlobal("value_or_text", Fn<&ValueOrText>);
    SetGlobal("names", Fn<&Names>);
    SetGlobal("maybe", Fn<&Maybe>);
    EXPECT_EQ(Eval<std::string>("math.type(value_or_text(true))"), "integer");
    EXPECT_EQ(Eval<std::string>("value_or_text(false)"), "failed");
    EXPECT_EQ(Eval<std::string>("table.concat(names(), ',') .. #names()"), "A,B,C3");
    EXPECT_TRUE(Eval<bool>("maybe(false) == nil and maybe(true) == 5"));
}

int g_reported = 0;
std::string g_report;
void RecordException(lua_State*, const char* what) {
    ++g_reported;
    g_report = what;
}

void Throws(std::string text) {
    throw std::runtime_error("failed on " + text);
}
int ThrowsRaw(lua_State*) {
    throw std::out_of_range("raw");
}

TEST_F(LuaFixture, ExceptionsBecomeLuaErrorsWithTheirText) {
    SetGlobal("throws", Fn<&Throws>);
    SetGlobal("throws_raw", Raw<&ThrowsRaw>);
    g_reported = 0;
    EXPECT_EQ(Eval<std::string>("select(2, pcall(throws, 'x'))"), "failed on x");

    SetExceptionHandler(L, &RecordException);
    EXPECT_EQ(Run("throws_raw()"), "raw");
    EXPECT_EQ(g_reported, 1);
    EXPECT_EQ(g_report, "raw");
    // A Lua error raised inside a binding is no C++ exception and is not reported.
    EXPECT_THAT(Run("throws(1)"), HasSubstr("string expected"));
    EXPECT_EQ(g_reported, 1);
    // The state goes on working after both kinds of error.
    EXPECT_EQ(Run("throws('y')"), "failed on y");
    EXPECT_EQ(g_reported, 2);

    SetExceptionHandler(L, nullptr);
    EXPECT_EQ(Run("throws('z')"), "failed on z");
    EXPECT_EQ(g_reported, 2);
}

}  // namespace
}  // namespace ovex::lua::bind
