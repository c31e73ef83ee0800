#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <limits>
#include <type_traits>

#include "ovex/named_type.hpp"
#include "ovex/range/range.hpp"

namespace {

using ovex::range::Range;

TEST(Range, MaximumBelowMinimumCollapsesToMinimum) {
    const Range<int> r(5, 3);
    EXPECT_EQ(r.min(), 5);
    EXPECT_EQ(r.max(), 5);
    EXPECT_TRUE(r.Contains(5));
    EXPECT_FALSE(r.Contains(4));
}

TEST(Range, ClosedOnBothEndsAndNeverHoldsNaN) {
    const Range<float> r(-1.0f, 2.5f);
    EXPECT_TRUE(r.Contains(-1.0f));
    EXPECT_TRUE(r.Contains(2.5f));
    EXPECT_FALSE(r.Contains(2.5001f));
    EXPECT_FALSE(r.Contains(std::numeric_limits<float>::quiet_NaN()));
    const Range<float> nan_max(1.0f, std::numeric_limits<float>::quiet_NaN());
    EXPECT_EQ(nan_max.max(), 1.0f);
}

struct TagA {};
struct TagB {};

TEST(NamedType, KeepsKindsApart) {
    using IdA = ovex::NamedType<std::uint16_t, TagA>;
    using IdB = ovex::NamedType<std::uint16_t, TagB>;
    static_assert(!std::is_convertible_v<IdA, IdB>);
    static_assert(!std::is_convertible_v<std::uint16_t, IdA>);
    EXPECT_EQ(IdA().get(), 0);
    EXPECT_EQ(IdA(42).get(), 42);
    EXPECT_EQ(IdA(42), IdA(42));
}

}  // namespace
