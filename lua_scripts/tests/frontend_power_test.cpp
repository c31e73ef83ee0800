#include <gtest/gtest.h>

#include <algorithm>
#include <string>

#include "boards.hpp"
#include "ovex/lua_scripts/scripts.hpp"
#include "script_harness.hpp"

namespace ovex::lua_scripts::testing {
namespace {

TEST(Tpx3EfePowerTest, PeltierThenFrontendRailAndPeripheralsThenChipRails) {
    ScriptHarness harness(kPowerTpx3efe);
    harness.Board(kTpx3EfeBoard);

    EXPECT_EQ(harness.Code("powerup_unit"), 0);
    EXPECT_EQ(harness.Journal(),
              (Lines{"set PELTIER_EN 1", "set FRONTEND_EN 1", "monitor PG_FE_5V",
                     "invoke IO_EXP_INIT", "invoke ADC_INIT", "invoke TSENS_RESET",
                     "set DETECTOR_EN 1", "monitor PG_1V8", "monitor PG_VDD", "monitor PG_VDDA"}));
    EXPECT_EQ(harness.Log(), (Lines{"info: Peltier configuration: OK",
                                    "info: Frontend power rail: OK", "info: Chip power rail: OK"}));

    harness.ClearRecords();
    EXPECT_TRUE(harness.Powered());
    EXPECT_EQ(harness.Journal(),
              (Lines{"get FRONTEND_EN", "get DETECTOR_EN", "monitor MONITOR_5V", "monitor PG_1V8",
                     "monitor PG_VDD", "monitor PG_VDDA", "monitor PG_FE_5V"}));

    harness.ClearRecords();
    EXPECT_EQ(harness.Code("powerdown_unit"), 0);
    EXPECT_EQ(harness.Journal(),
              (Lines{"set BIAS 0", "set PELTIER 0", "set DETECTOR_EN 0", "set FRONTEND_EN 0"}));
}

TEST(Tpx2CbPowerTest, PeltierAdcAndSensorThenDetectorWithBothRails) {
    ScriptHarness harness(kPowerTpx2cb);
    harness.Board(kTpx2CbBoard);

    EXPECT_EQ(harness.Code("powerup_unit"), 0);
    EXPECT_EQ(harness.Journal(),
              (Lines{"set PELTIER_EN 1", "invoke ADC_INIT", "invoke TSENS_RESET",
                     "set DETECTOR_EN 1", "monitor PG_1V2_A", "monitor PG_1V2_D"}));
    EXPECT_EQ(harness.Log(),
              (Lines{"info: Peltier configuration: OK", "info: Frontend 1V2 rails: OK"}));

    harness.ClearRecords();
    EXPECT_TRUE(harness.Powered());
    EXPECT_EQ(harness.Journal(), (Lines{"sleep 1", "get DETECTOR_EN", "monitor MONITOR_5V"}));

    harness.ClearRecords();
    EXPECT_EQ(harness.Code("powerdown_unit"), 0);
    EXPECT_EQ(harness.Journal(), (Lines{"set BIAS 0", "set PELTIER 0", "set DETECTOR_EN 0"}));
}

// Each pass reads both rails, even when the first of them can't be read.
TEST(Tpx2CbPowerTest, RailWaitEndsAtTheFirstPassWithBothRailsGood) {
    ScriptHarness harness(kPowerTpx2cb);
    harness.Board(kTpx2CbBoard);
    harness.Board("faults['monitor PG_1V2_A'] = {5} monitors.PG_1V2_D = {0, 0, 1}");

    EXPECT_EQ(harness.Code("powerup_unit"), 0);
    EXPECT_EQ(Tail(harness.Journal(), 8),
              (Lines{"monitor PG_1V2_A", "monitor PG_1V2_D", "sleep 1", "monitor PG_1V2_A",
                     "monitor PG_1V2_D", "sleep 1", "monitor PG_1V2_A", "monitor PG_1V2_D"}));
    EXPECT_EQ(Tail(harness.Log(), 2),
              (Lines{"warn: Unable to read PG_1V2_A rail power good monitor - board: fault 5",
                     "info: Frontend 1V2 rails: OK"}));
}

TEST(Tpx4CbPowerTest, ChipRailsComeUpThroughDetectorEnableAndGoDownThroughThePowerModule) {
    ScriptHarness harness(kPowerTpx4cb);
    harness.Board(kTpx4CbBoard);

    EXPECT_EQ(harness.Code("powerup_unit"), 0);
    EXPECT_EQ(harness.Journal(),
              (Lines{"set PELTIER 350", "invoke ADC_INIT_OVBD", "invoke ADC_INIT_CB",
                     "invoke PWR_CTRL_INIT", "invoke TSENS_RESET", "set DETECTOR_EN 1",
                     "monitor PG_VDD", "monitor PG_VDDA", "monitor PG_PLL", "monitor PG_PST",
                     "monitor PG_GWT", "monitor PG_1V8A", "monitor PG_1V8D"}));
    EXPECT_EQ(harness.Log(), (Lines{"info: Peltier configuration: OK", "info: Chip power rail: OK",
                                    "info: TPX4 chipboard successfully powered up."}));

    harness.ClearRecords();
    EXPECT_TRUE(harness.Powered());
    EXPECT_EQ(harness.Journal(),
              (Lines{"sleep 1", "get DETECTOR_EN", "monitor PG_VDD", "sleep 1", "monitor PG_VDDA",
                     "sleep 1", "monitor PG_PLL", "sleep 1", "monitor PG_PST", "sleep 1",
                     "monitor PG_GWT", "sleep 1", "monitor PG_1V8A", "sleep 1", "monitor PG_1V8D",
                     "sleep 1"}));

    harness.ClearRecords();
    EXPECT_EQ(harness.Code("powerdown_unit"), 0);
    EXPECT_EQ(harness.Journal(),
              (Lines{"set BIAS 0", "set PELTIER 0", "invoke_out TPX4_POWER_UP [00]"}));
}

TEST(Tp2FePowerTest, FrontendRailSensorChipRailsThenXspiXadcAndVersions) {
    ScriptHarness harness(kPowerTp2fe);
    harness.Board(kTp2FeBoard);

    EXPECT_EQ(harness.Code("powerup_unit"), 0);
    EXPECT_EQ(harness.Journal(),
              (Lines{"set DETECTOR_EN 1", "monitor PG_DETECTOR", "invoke TSENS_RESET",
                     "set CHIP_EN 1", "monitor PG_1V2", "set TPX_1V2 1", "monitor PG_TPX_1V2_D",
                     "invoke XSPI1_INIT", "invoke XADC1_INIT", "version TP2FE", "version TPX2"}));
    EXPECT_EQ(harness.Log(),
              (Lines{"info: Frontend power rail: OK", "info: Chip enable rail: OK",
                     "info: Timepix 1V2 power rail: OK", "info: Frontend XSPI init: OK",
                     "info: Frontend XADC init: OK", "info: Component 'TP2FE': 1.0.3",
                     "info: Component 'TPX2': 0x2A", "info: TP2FE successfully powered up."}));

    harness.ClearRecords();
    EXPECT_TRUE(harness.Powered());
    EXPECT_EQ(harness.Journal(),
              (Lines{"get DETECTOR_EN", "get CHIP_EN", "get TPX_1V2", "monitor PG_DETECTOR",
                     "monitor PG_1V2", "monitor PG_TPX_1V2_D", "monitor PG_TPX_1V2_A"}));
}

TEST(Tp2FePowerTest, PowerDownIgnoresBiasAndPeltierFailures) {
    ScriptHarness harness(kPowerTp2fe);
    harness.Board(kTp2FeBoard);
    harness.Board(kTp2FeOn);
    harness.Board("faults['set BIAS'] = {5} faults['set PELT1'] = {6}");

    EXPECT_EQ(harness.Code("powerdown_unit"), 0);
    EXPECT_EQ(harness.Journal(), (Lines{"set BIAS 0", "set PELT1 0", "set DETECTOR_EN 0"}));
    EXPECT_EQ(harness.Log(), (Lines{"info: TP2FE power down sequence started.",
                                    "info: TP2FE successfully powered down."}));
}

// A power-good monitor held at 0: six readings a second apart, a second after each of them, then
// the sequence goes on; only the Timepix2 chip board makes that a failure.
struct LowRail {
    std::string_view script;
    const char* board;
    const char* monitor;
    int code;
    const char* status_line;  // a rail line tells the state of the last monitor it watched
    const char* next_call;    // after the last wait; empty when the function ends there
};

void PrintTo(const LowRail& rail, std::ostream* os) {
    *os << rail.script << " " << rail.monitor;
}

class LowRailTest : public ::testing::TestWithParam<LowRail> {};

TEST_P(LowRailTest, CostsSixSecondsOfWaiting) {
    const auto& rail = GetParam();
    ScriptHarness harness(rail.script);
    harness.Board(rail.board);
    harness.Board(std::string("monitors.") + rail.monitor + " = 0");

    EXPECT_EQ(harness.Code("powerup_unit"), rail.code);
    const auto journal = harness.Journal();
    EXPECT_EQ(std::count(journal.begin(), journal.end(), std::string("monitor ") + rail.monitor),
              6);
    EXPECT_EQ(harness.Sleeps(), 6);
    EXPECT_TRUE(Contains(harness.Log(), rail.status_line));

    const auto after_wait = std::find(journal.rbegin(), journal.rend(), "sleep 1").base();
    EXPECT_EQ(after_wait == journal.end() ? "" : *after_wait, rail.next_call);
}

INSTANTIATE_TEST_SUITE_P(
    Frontends, LowRailTest,
    ::testing::Values(
        LowRail{kPowerTpx3efe, kTpx3EfeBoard, "PG_FE_5V", 0, "error: Frontend power rail: FAIL",
                "invoke IO_EXP_INIT"},
        LowRail{kPowerTpx3efe, kTpx3EfeBoard, "PG_VDDA", 0, "error: Chip power rail: FAIL", ""},
        LowRail{kPowerTpx4cb, kTpx4CbBoard, "PG_PLL", 0, "info: Chip power rail: OK",
                "monitor PG_PST"},
        LowRail{kPowerTpx4cb, kTpx4CbBoard, "PG_1V8D", 0, "error: Chip power rail: FAIL", ""},
        LowRail{kPowerNobe, kNobeBoard, "PG_DDR_PWR", 0, "error: DDR power rail: FAIL",
                "invoke BIAS_DAC_RESET"},
        LowRail{kPowerTp2fe, kTp2FeBoard, "PG_1V2", 0, "error: Chip enable rail: FAIL",
                "set TPX_1V2 1"},
        LowRail{kPowerTpx2cb, kTpx2CbBoard, "PG_1V2_D", 110, "error: Frontend 1V2 rails: FAIL",
                ""}));

// The rail line reports OK as soon as a reading reaches 1, FAIL when readings stayed low and
// UNKNOWN when none succeeded; a failed reading leaves an earlier low one standing.
TEST(PowerGoodCheckTest, RailLineTellsWhatTheReadingsShowed) {
    const struct {
        const char* board_change;
        int sleeps;
        const char* status_line;
        bool read_failed;
    } cases[] = {
        {"monitors.PG_FE_5V = {0, 0.5, 1}", 2, "info: Frontend power rail: OK", false},
        {"monitors.PG_FE_5V = {0} faults['monitor PG_FE_5V'] = {0, 5, 5, 5, 5, 5}", 6,
         "error: Frontend power rail: FAIL", true},
        {"faults['monitor PG_FE_5V'] = {5, 5, 5, 5, 5, 5}", 6, "warn: Frontend power rail: UNKNOWN",
         true},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.board_change);
        ScriptHarness harness(kPowerTpx3efe);
        harness.Board(kTpx3EfeBoard);
        harness.Board(c.board_change);

        EXPECT_EQ(harness.Code("powerup_unit"), 0);
        EXPECT_EQ(harness.Sleeps(), c.sleeps);
        const auto log = harness.Log();
        EXPECT_TRUE(Contains(log, c.status_line));
        EXPECT_EQ(Contains(log,
                           "warn: Unable to read PG_FE_5V rail power good monitor - "
                           "board: fault 5"),
                  c.read_failed);
    }
}

}  // namespace
}  // namespace ovex::lua_scripts::testing
