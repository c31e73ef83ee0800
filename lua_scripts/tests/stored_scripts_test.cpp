#include <gtest/gtest.h>

#include <cstddef>
#include <string_view>

#include "ovex/lua_scripts/scripts.hpp"

namespace ovex::lua_scripts {
namespace {

class StoredScriptTest : public ::testing::TestWithParam<std::string_view> {};

TEST_P(StoredScriptTest, TextHasCrLfLineEndsOnly) {
    const auto text = Find(GetParam());
    ASSERT_TRUE(text.has_value());
    int line_ends = 0;
    int lone_line_feeds = 0;
    int lone_returns = 0;
    for (std::size_t i = 0; i < text->size(); ++i) {
        const bool after_return = i > 0 && (*text)[i - 1] == '\r';
        const bool before_feed = i + 1 < text->size() && (*text)[i + 1] == '\n';
        if ((*text)[i] == '\n') {
            ++(after_return ? line_ends : lone_line_feeds);
        } else if ((*text)[i] == '\r' && !before_feed) {
            ++lone_returns;
        }
    }
    EXPECT_GT(line_ends, 20);
    EXPECT_EQ(lone_line_feeds, 0);
    EXPECT_EQ(lone_returns, 0);
    EXPECT_TRUE(text->ends_with("\r\n"));
}

INSTANTIATE_TEST_SUITE_P(Scripts, StoredScriptTest,
                         ::testing::Values(kPowerOvbd, kPowerTpx3efe, kPowerTpx2cb, kPowerTpx4cb,
                                           kPowerNobe, kPowerTp2fe));

TEST(StoredScriptsTest, OnlyFullNamesAreFound) {
    EXPECT_FALSE(Find("lua_scripts/power_ovbd").has_value());
    EXPECT_FALSE(Find("power_ovbd.lua").has_value());
    EXPECT_FALSE(Find("lua_scripts/POWER_OVBD.LUA").has_value());
    EXPECT_FALSE(Find("").has_value());
}

}  // namespace
}  // namespace ovex::lua_scripts
