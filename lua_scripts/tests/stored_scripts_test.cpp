#include <gtest/gtest.h>

#include <string_view>

#include "boards.hpp"
#include "ovex/lua_scripts/scripts.hpp"
#include "script_harness.hpp"

namespace ovex::lua_scripts::testing {
namespace {

struct Unit {
    std::string_view script;
    const char* board;
};

void PrintTo(const Unit& unit, std::ostream* os) {
    *os << unit.script;
}

class StoredScriptTest : public ::testing::TestWithParam<Unit> {};

TEST_P(StoredScriptTest, TextHasCrLfLineEndsOnly) {
    const auto text = Find(GetParam().script);
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

// A full cycle on a healthy board, with the device object replaced before every call: a script
// that kept an object from an earlier call, or set a global, fails here.
TEST_P(StoredScriptTest, ReturnsItsThreeFunctionsAndKeepsNothingBetweenCalls) {
    ScriptHarness harness(GetParam().script);
    harness.Board(GetParam().board);

    EXPECT_FALSE(harness.Powered());
    harness.ReplaceDevice();
    EXPECT_EQ(harness.Code("powerup_unit"), 0);
    harness.ReplaceDevice();
    EXPECT_TRUE(harness.Powered());
    harness.ReplaceDevice();
    EXPECT_EQ(harness.Code("powerdown_unit"), 0);
    for (const auto& line : harness.Log()) {
        EXPECT_TRUE(line.starts_with("info: ")) << line;
    }
}

INSTANTIATE_TEST_SUITE_P(
    Scripts, StoredScriptTest,
    ::testing::Values(Unit{kPowerOvbd, kOvbdBoard}, Unit{kPowerTpx3efe, kTpx3EfeBoard},
                      Unit{kPowerTpx2cb, kTpx2CbBoard}, Unit{kPowerTpx4cb, kTpx4CbBoard},
                      Unit{kPowerNobe, kNobeBoard}, Unit{kPowerTp2fe, kTp2FeBoard}));

TEST(StoredScriptsTest, OnlyFullNamesAreFound) {
    EXPECT_FALSE(Find("lua_scripts/power_ovbd").has_value());
    EXPECT_FALSE(Find("power_ovbd.lua").has_value());
    EXPECT_FALSE(Find("lua_scripts/POWER_OVBD.LUA").has_value());
    EXPECT_FALSE(Find("").has_value());
}

}  // namespace
}  // namespace ovex::lua_scripts::testing
