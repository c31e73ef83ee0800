#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <string>
#include <system_error>

#include "core_fixture.hpp"
#include "ovex/lua/bind/messages.hpp"
#include "ovex/lua/core/values.hpp"

namespace ovex::lua::core {
namespace {

using testing::CoreFixture;
using ::testing::ElementsAre;
using ::testing::HasSubstr;

TEST_F(CoreFixture, ErrorCodesCarryValueAndText) {
    EXPECT_EQ(Eval<int>("Std.ErrorCode.new():value()"), 0);
    EXPECT_EQ(Eval<int>("Std.make_error_code(Std.Errc.timed_out):value()"), ETIMEDOUT);
    EXPECT_EQ(Eval<std::string>("tostring(Std.make_error_code(Std.Errc.timed_out))"),
              "generic: " + std::make_error_code(std::errc::timed_out).message());
    EXPECT_EQ(Eval<int>("Std.Errc.invalid_argument"), EINVAL);
    EXPECT_EQ(Eval<int>("local n = 0 for _ in pairs(Std.Errc) do n = n + 1 end return n"), 78);
    EXPECT_THAT(Run("Std.Errc.timed_out = 0"), HasSubstr(bind::message::kEnumerationReadOnly));
    EXPECT_THAT(Run("Std.make_error_code(1.5)"), HasSubstr(bind::message::kNotAnInteger));

    ASSERT_EQ(luaL_dostring(L, "return Std.make_error_code(Std.Errc.no_such_device), 5"), LUA_OK);
    EXPECT_EQ(ToErrorCode(L, -2), std::make_error_code(std::errc::no_such_device));
    EXPECT_EQ(ToErrorCode(L, -1), std::nullopt) << "a number is no ErrorCode";
    lua_pop(L, 2);
    PushErrorCode(L, std::make_error_code(std::errc::io_error));
    lua_setglobal(L, "pushed");
    EXPECT_EQ(Eval<int>("pushed:value()"), EIO);
}

TEST_F(CoreFixture, FilePathsFromTextJoinAndCompare) {
    EXPECT_EQ(Eval<std::string>("tostring(Std.FilePath.new())"), "");
    EXPECT_EQ(Eval<std::string>("tostring(Std.FilePath.new('a/b') / 'c' / Std.FilePath.new('d'))"),
              "a/b/c/d");
    EXPECT_TRUE(Eval<bool>("Std.FilePath.new('x') == Std.FilePath.new('x')"));
    EXPECT_FALSE(Eval<bool>("Std.FilePath.new('x') == Std.FilePath.new('y')"));
    EXPECT_FALSE(Eval<bool>("Std.FilePath.new('x') == Std.ErrorCode.new()"));
    EXPECT_THAT(Run("Std.FilePath.new(5)"), HasSubstr("string expected, got number"));
}

TEST_F(CoreFixture, MemSlabHoldsBytesAsGiven) {
    EXPECT_EQ(Run("s = Std.MemSlab.new(string.char(0, 1, 0, 255))"), "");
    EXPECT_EQ(Eval<int>("Std.MemSlab.new(string.char(0, 1)):size()"), 2);
    EXPECT_EQ(Eval<std::string>("tostring(s)"), std::string("\0\1\0\xff", 4));
    EXPECT_EQ(Eval<std::string>("local t = {} for b in s:as_iter() do t[#t + 1] = b end "
                                "return table.concat(t, ',')"),
              "0,1,0,255");
    EXPECT_EQ(Eval<std::string>("tostring(Std.MemSlab.new(3))"), std::string(3, '\0'));
    EXPECT_EQ(Eval<int>("Std.MemSlab.new(0):size()"), 0);
    EXPECT_THAT(Run("Std.MemSlab.new()"), HasSubstr(bind::message::kNoMatchingOverload));
    EXPECT_THAT(Run("Std.MemSlab.new(-1)"), HasSubstr(bind::message::kNoMatchingOverload));
    EXPECT_THAT(Run("s:clear()"), HasSubstr("sol: cannot call clear on 'MemSlab'"));
}

TEST_F(CoreFixture, ByteSpanViewsItsSlab) {
    EXPECT_EQ(Run("span = Std.MemSlab.new(string.char(5, 6, 7)):as_span(); "
                  "collectgarbage(); collectgarbage()"),
              "")
        << "the span keeps its slab alive";
    EXPECT_EQ(Eval<int>("span:size() * 100 + #span"), 303);
    EXPECT_TRUE(Eval<bool>("span[0] == nil and span[4] == nil"));
    EXPECT_EQ(Eval<int>("span[1] * 100 + span[3]"), 507);
    EXPECT_EQ(Eval<int>("span:find(7)"), 3);
    EXPECT_TRUE(Eval<bool>("span:find(8) == nil"));

    EXPECT_EQ(Run("slab = Std.MemSlab.new(2); view = slab:as_span(); view[2] = 9"), "");
    EXPECT_EQ(Eval<int>("slab[2]"), 9) << "writes through the span reach the slab";
    EXPECT_EQ(Eval<std::string>("tostring(view)"), std::string("\0\x09", 2));
    EXPECT_EQ(CheckByteSpan(L, (lua_getglobal(L, "view"), -1)).size(), 2u);
    lua_pop(L, 1);

    EXPECT_TRUE(Eval<bool>("Std.ByteSpan.new == nil")) << "scripts can't make spans";
    EXPECT_THAT(Run("span:insert(1)"), HasSubstr("sol: cannot call insert on 'ByteSpan'"));
}

// The helpers themselves are tested with the bitmanip package; here: names, argument order,
// the span arguments and the argument checks.
TEST_F(CoreFixture, BitmanipOverSpansAndIntegers) {
    EXPECT_EQ(Eval<int>("Std.Bitmanip.get_bit_slice(0xF0, 7, 4)"), 15);
    EXPECT_EQ(Eval<int>("Std.Bitmanip.set_bit_slice(0, 3, 1, 0)"), 3);
    EXPECT_EQ(Eval<int>("Std.Bitmanip.bit_reverse_u8(1)"), 128);
    EXPECT_EQ(Eval<int>("Std.Bitmanip.bytes_to_u16(0x12, 0x34)"), 0x1234);
    EXPECT_EQ(Eval<std::int64_t>("Std.Bitmanip.write_bit(0, 31, true)"), 0x80000000LL);

    EXPECT_EQ(Run("b = Std.MemSlab.new(4); s = b:as_span()"), "");
    EXPECT_EQ(Run("Std.Bitmanip.u32_to_span_le(0x01020304, s)"), "");
    EXPECT_EQ(Eval<std::string>("tostring(b)"), "\x04\x03\x02\x01");
    EXPECT_EQ(Eval<int>("Std.Bitmanip.u32_from_span_be(s)"), 0x04030201);

    EXPECT_EQ(Run("short = Std.MemSlab.new(string.char(0xAA, 0xBB)):as_span()"), "");
    EXPECT_TRUE(Eval<bool>("local f = Std.Bitmanip.float_from_span_be(short) return f ~= f"));
    EXPECT_EQ(Run("Std.Bitmanip.u32_to_span_le(0xFFFFFFFF, short)"), "");
    EXPECT_EQ(Eval<std::string>("tostring(short)"), "\xAA\xBB") << "too short: unchanged";

    EXPECT_EQ(Run("src = Std.MemSlab.new(string.char(0x01, 0x80)):as_span(); "
                  "dst = Std.MemSlab.new(2):as_span(); Std.Bitmanip.bit_reverse_span(src, dst)"),
              "");
    EXPECT_EQ(Eval<std::string>("tostring(dst)"), "\x01\x80");

    EXPECT_THAT(Run("Std.Bitmanip.u32_from_span_le(b)"),
                HasSubstr("ByteSpan expected, got MemSlab"));
    EXPECT_THAT(Run("Std.Bitmanip.get_bit_slice(0x100000000, 1, 0)"), HasSubstr("out of range"));
    EXPECT_THAT(Run("Std.Bitmanip.get_bit(1, 0.5)"), HasSubstr(bind::message::kNotAnInteger));
}

TEST_F(CoreFixture, SleepGoesToTheSleeperInOrder) {
    EXPECT_EQ(Run("Std.sleep(1); Std.sleep(0.25); Std.sleep(0)"), "");
    EXPECT_THAT(sleeps, ElementsAre(1.0, 0.25, 0.0));
    EXPECT_THAT(Run("Std.sleep(-1)"), HasSubstr("not a number of seconds from 0 to 86400"));
    EXPECT_THAT(Run("Std.sleep(0/0)"), HasSubstr("not a number of seconds"));
    EXPECT_THAT(Run("Std.sleep(1/0)"), HasSubstr("not a number of seconds"));
    EXPECT_THAT(Run("Std.sleep('1')"), HasSubstr(bind::message::kNotANumber));
    EXPECT_EQ(sleeps.size(), 3u) << "refused waits don't reach the sleeper";

    SetSleeper(L, {});
    EXPECT_EQ(Run("Std.sleep(0)"), "") << "the real wait, for no time";
    EXPECT_EQ(sleeps.size(), 3u);
}

TEST_F(CoreFixture, StdIsAddedOncePerState) {
    EXPECT_EQ(AddStdBindings(L), std::errc::invalid_argument);
    EXPECT_EQ(Eval<int>("Std.MemSlab.new(2):size()"), 2) << "the first table still works";
    EXPECT_FALSE(AddLogBindings(L)) << "Log holds no types and may be added again";
}

}  // namespace
}  // namespace ovex::lua::core
