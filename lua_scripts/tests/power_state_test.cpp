#include <gtest/gtest.h>

#include <string>

#include "boards.hpp"
#include "ovex/lua_scripts/scripts.hpp"
#include "script_harness.hpp"

namespace ovex::lua_scripts::testing {
namespace {

// is_unit_powered on a unit that is on, after one change to the board.
struct PowerState {
    std::string_view script;
    const char* board;
    const char* on;
    const char* board_change;
    bool powered;
    const char* log_line;  // the only log line; empty for none
};

void PrintTo(const PowerState& state, std::ostream* os) {
    *os << state.script << " after '" << state.board_change << "'";
}

class PowerStateTest : public ::testing::TestWithParam<PowerState> {};

TEST_P(PowerStateTest, AnswersFromTheBoard) {
    const auto& state = GetParam();
    ScriptHarness harness(state.script);
    harness.Board(state.board);
    harness.Board(state.on);
    harness.Board(state.board_change);

    EXPECT_EQ(harness.Powered(), state.powered);
    EXPECT_EQ(harness.Log(), *state.log_line ? Lines{state.log_line} : Lines{});
}

PowerState Ovbd(const char* change, bool powered, const char* log_line = "") {
    return {kPowerOvbd, kOvbdBoard, kOvbdOn, change, powered, log_line};
}
PowerState Nobe(const char* change, bool powered, const char* log_line = "") {
    return {kPowerNobe, kNobeBoard, kNobeOn, change, powered, log_line};
}
PowerState Tpx3Efe(const char* change, bool powered, const char* log_line = "") {
    return {kPowerTpx3efe, kTpx3EfeBoard, kTpx3EfeOn, change, powered, log_line};
}
PowerState Tpx2Cb(const char* change, bool powered, const char* log_line = "") {
    return {kPowerTpx2cb, kTpx2CbBoard, kTpx2CbOn, change, powered, log_line};
}
PowerState Tpx4Cb(const char* change, bool powered, const char* log_line = "") {
    return {kPowerTpx4cb, kTpx4CbBoard, kTpx4CbOn, change, powered, log_line};
}
PowerState Tp2Fe(const char* change, bool powered, const char* log_line = "") {
    return {kPowerTp2fe, kTp2FeBoard, kTp2FeOn, change, powered, log_line};
}

INSTANTIATE_TEST_SUITE_P(
    Scripts, PowerStateTest,
    ::testing::Values(
        Ovbd("", true), Ovbd("states.DDR_PWR_EN = 0", false), Ovbd("states.DC_3V3 = 0", false),
        Ovbd("faults['get GPIF_EN'] = {5}", false,
             "error: Failed to read state 'GPIF_EN' - board: fault 5 "),
        Nobe("", true), Nobe("states.GPIF_EN = 0", false), Nobe("states.DC_2V5 = 0", false),
        Nobe("faults['get MAIN_CLK'] = {5}", false,
             "error: Failed to read state 'MAIN_CLK' - board: fault 5 "),
        Tpx3Efe("", true), Tpx3Efe("states.FRONTEND_EN = 0", false),
        Tpx3Efe("monitors.PG_VDDA = 0", false), Tpx3Efe("monitors.MONITOR_5V = -0.5", false),
        Tpx3Efe("faults['get DETECTOR_EN'] = {5}", false,
                "warn: Failed to read state 'DETECTOR_EN' - board: fault 5 "),
        Tpx3Efe("faults['monitor PG_FE_5V'] = {5}", false,
                "warn: Failed to read monitor 'PG_FE_5V' - board: fault 5 "),
        Tpx2Cb("", true), Tpx2Cb("monitors.MONITOR_5V = 0", false),
        Tpx2Cb("faults['get DETECTOR_EN'] = {5}", false,
               "warn: Failed to read state 'DETECTOR_EN' - board: fault 5 "),
        Tpx4Cb("", true), Tpx4Cb("states.DETECTOR_EN = 0", false),
        Tpx4Cb("monitors.PG_1V8D = 0", false),
        Tpx4Cb("faults['monitor PG_GWT'] = {5}", false,
               "warn: Failed to read monitor 'PG_GWT' - board: fault 5 "),
        // Nonzero is enough for these power-good monitors.
        Tp2Fe("", true), Tp2Fe("monitors.PG_TPX_1V2_A = -1", true),
        Tp2Fe("monitors.PG_TPX_1V2_A = 0", false), Tp2Fe("states.CHIP_EN = 0", false),
        Tp2Fe("faults['get TPX_1V2'] = {5}", false,
              "warn: Failed to read state 'TPX_1V2' - board: fault 5 ")));

// A DC/DC rail that can't be read leaves the answer open: the check raises instead of guessing.
TEST(NobePowerStateTest, UnreadableRailRaises) {
    ScriptHarness harness(kPowerNobe);
    harness.Board(kNobeBoard);
    harness.Board(kNobeOn);
    harness.Board("faults['get DC_1V8'] = {5}");

    const auto outcome = harness.Call("is_unit_powered");
    EXPECT_EQ(outcome.kind, "raised");
    EXPECT_EQ(harness.Log(), Lines{"error: Failed to read state 'DC_1V8' - board: fault 5 "});
}

}  // namespace
}  // namespace ovex::lua_scripts::testing
