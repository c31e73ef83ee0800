#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

#include "boards.hpp"
#include "ovex/lua_scripts/scripts.hpp"
#include "script_harness.hpp"

namespace ovex::lua_scripts::testing {
namespace {

constexpr const char* kRailsOn = R"(
    states.DC_1V0, states.DC_1V8, states.DC_2V5, states.DC_3V3 = 1, 1, 1, 1
)";

TEST(OvbdPowerTest, ColdBoardComesUpRailsFirstThenFpgaAndClocks) {
    ScriptHarness harness(kPowerOvbd);
    harness.Board(kOvbdBoard);

    EXPECT_EQ(harness.Code("powerup_unit"), 0);
    EXPECT_EQ(harness.Journal(),
              (Lines{"version FX3_FW",
                     "set BIAS 0",
                     "set PELTIER_EN 0",
                     "set DETECTOR_EN 0",
                     "set GPIF_EN 0",
                     "invoke TUSB322",
                     "get DC_1V0",
                     "invoke MAIN_PWR_RESET",
                     "set DC_1V0 1",
                     "set DC_1V8 1",
                     "set DC_2V5 1",
                     "set DC_3V3 1",
                     "set DDR_PWR_EN 1",
                     "invoke FPGA_CONF 40",
                     "set GPIF_EN 1",
                     "invoke_out MAIN_CLK_SETUP [60 00 1E 00 08 04 19 00 02 00 02 00]",
                     "invoke_out MAIN_CLK_SETUP [80 00 04 00]",
                     "set MAIN_CLK 1",
                     "invoke LOAD_EEPROM",
                     "invoke XSPI_INIT",
                     "invoke XADC_INIT",
                     "invoke DACX_INIT",
                     "version Ovexboard"}));
    EXPECT_EQ(
        harness.Log(),
        (Lines{"info: Component 'FX3_FW': 1.4.2", "info: USB cable mux initialization: OK",
               "info: DC/DC converter power rails enabled.", "info: DDR power rail enabled.",
               "info: FPGA configuration completed.", "info: XSPI initialization completed.",
               "info: Component 'Ovexboard': 2.0.7", "info: Backend successfully powered up."}));
}

TEST(OvbdPowerTest, PowerDownStopsClockAndGpifThenRailsInReverseOrder) {
    ScriptHarness harness(kPowerOvbd);
    harness.Board(kOvbdBoard);
    harness.Board(kOvbdOn);

    EXPECT_EQ(harness.Code("powerdown_unit"), 0);
    EXPECT_EQ(harness.Journal(), (Lines{"set MAIN_CLK 0", "set GPIF_EN 0", "set DC_3V3 0",
                                        "set DC_2V5 0", "set DC_1V8 0", "set DC_1V0 0"}));
    EXPECT_EQ(harness.Log(), Lines{});
}

// Only the last preparation write, GPIF_EN, adds a warning; none of them stops the sequence.
TEST(OvbdPowerTest, PreparationFailuresAreLoggedAndTheSequenceGoesOn) {
    const struct {
        const char* state;
        const char* debug_line;
        bool warned;
    } cases[] = {
        {"BIAS", "debug: Failed to disable bias voltage - board: fault 5", false},
        {"PELTIER_EN", "debug: Failed to disable peltier controller - board: fault 5", false},
        {"DETECTOR_EN", "debug: Failed to disable detector - board: fault 5", false},
        {"GPIF_EN", "debug: Failed to disable GPIF - board: fault 5", true},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.state);
        ScriptHarness harness(kPowerOvbd);
        harness.Board(kOvbdBoard);
        harness.Board(std::string("faults['set ") + c.state + "'] = {5}");

        EXPECT_EQ(harness.Code("powerup_unit"), 0);
        const auto log = harness.Log();
        EXPECT_TRUE(Contains(log, c.debug_line));
        EXPECT_EQ(Contains(log, "warn: Power up sequence preparation failed - board: fault 5"),
                  c.warned);
        EXPECT_EQ(Tail(log, 1), Lines{"info: Backend successfully powered up."});
    }
}

TEST(NobePowerTest, ColdBoardComesUpThenItsPeltierElements) {
    ScriptHarness harness(kPowerNobe);
    harness.Board(kNobeBoard);

    EXPECT_EQ(harness.Code("powerup_unit"), 0);
    EXPECT_EQ(harness.Journal(),
              (Lines{"version FX3_FW",      "set PELT1 0",           "set PELT2 0",
                     "set DETECTOR_EN 0",   "set GPIF_EN 0",         "set MAIN_CLK 0",
                     "get DC_1V0",          "invoke MAIN_PWR_RESET", "set DC_1V0 1",
                     "set DC_1V8 1",        "set DC_2V5 1",          "set DC_3V3 1",
                     "set DDR_PWR_EN 1",    "monitor PG_DDR_PWR",    "invoke BIAS_DAC_RESET",
                     "invoke FPGA_CONF 40", "set GPIF_EN 1",         "set MAIN_CLK 1",
                     "invoke XSPI0_INIT",   "invoke XADC0_INIT",     "version NOBE",
                     "set PELT1 370",       "set PELT2 40"}));
    EXPECT_EQ(harness.Log(),
              (Lines{"info: NoBE power up sequence started.", "info: Component 'FX3_FW': 1.4.2",
                     "info: Main power reset: OK", "info: DDR power rail: OK",
                     "info: Component 'NOBE': 3.1.0", "info: Backend successfully powered up.",
                     "info: Peltier configuration: OK"}));
}

TEST(NobePowerTest, XspiGetsSixTriesASecondApart) {
    ScriptHarness recovers(kPowerNobe);
    recovers.Board(kNobeBoard);
    recovers.Board("faults['invoke XSPI0_INIT'] = {11, 12, 13, 14, 15}");
    EXPECT_EQ(recovers.Code("powerup_unit"), 0);
    EXPECT_EQ(recovers.Sleeps(), 5);
    EXPECT_TRUE(Contains(recovers.Log(), "warn: Unable to initialize XSPI0 - board: fault 15"));

    ScriptHarness gives_up(kPowerNobe);
    gives_up.Board(kNobeBoard);
    gives_up.Board("faults['invoke XSPI0_INIT'] = {11, 12, 13, 14, 15, 16}");
    EXPECT_EQ(gives_up.Code("powerup_unit"), 16);
    EXPECT_EQ(gives_up.Sleeps(), 6);
    const auto log = gives_up.Log();
    EXPECT_EQ(std::count_if(log.begin(), log.end(),
                            [](const std::string& line) {
                                return line.starts_with("warn: Unable to initialize XSPI0 - ");
                            }),
              6);
    EXPECT_EQ(Tail(log, 2), (Lines{"error: Failed to initialize XSPI0 - board: fault 16",
                                   "error: Backend power up sequence failed."}));
    EXPECT_EQ(Tail(gives_up.Journal(), 1), Lines{"sleep 1"});
}

TEST(NobePowerTest, PowerDownGoesOnPastPeltierFailuresAndStopsAtTheClock) {
    ScriptHarness harness(kPowerNobe);
    harness.Board(kNobeBoard);
    harness.Board(kNobeOn);
    EXPECT_EQ(harness.Code("powerdown_unit"), 0);
    EXPECT_EQ(harness.Journal(), (Lines{"set PELT1 0", "set PELT2 0", "set MAIN_CLK 0",
                                        "set GPIF_EN 0", "invoke_out FPGA_RECONF [00 00 00 00]"}));
    EXPECT_EQ(harness.Log(), (Lines{"info: NoBE BE power down sequence started.",
                                    "info: NoBE power down sequence successful."}));

    ScriptHarness failing(kPowerNobe);
    failing.Board(kNobeBoard);
    failing.Board(kNobeOn);
    failing.Board(
        "faults['set PELT1'] = {5} faults['set PELT2'] = {6} faults['set MAIN_CLK'] = {7}");
    EXPECT_EQ(failing.Code("powerdown_unit"), 7);
    EXPECT_EQ(failing.Journal(), (Lines{"set PELT1 0", "set PELT2 0", "set MAIN_CLK 0"}));
    EXPECT_EQ(failing.Log(),
              (Lines{"info: NoBE BE power down sequence started.",
                     "warn: Failed to disable peltier 1 - board: fault 5",
                     "warn: Failed to disable peltier 2 - board: fault 6",
                     "error: Set value 0 to state MAIN_CLK failed with: board: fault 7"}));
}

// The steps that both backend scripts hold, each in its own copy.
struct Backend {
    std::string_view script;
    const char* board;
};

void PrintTo(const Backend& backend, std::ostream* os) {
    *os << backend.script;
}

class BackendPowerTest : public ::testing::TestWithParam<Backend> {
protected:
    ScriptHarness& Harness(const char* board_change = "") {
        harness_.Board(GetParam().board);
        harness_.Board(board_change);
        return harness_;
    }

private:
    ScriptHarness harness_{GetParam().script};
};

TEST_P(BackendPowerTest, WarmBoardReinitialisesTheFpgaInsteadOfConfiguringIt) {
    auto& harness = Harness(kRailsOn);
    EXPECT_EQ(harness.Code("powerup_unit"), 0);
    const auto journal = harness.Journal();
    const auto last_rail = std::find(journal.begin(), journal.end(), "get DC_3V3");
    ASSERT_NE(last_rail, journal.end());
    EXPECT_EQ(*(last_rail + 1), "invoke_out FPGA_RECONF [01 00 00 00] 40");
    EXPECT_FALSE(Contains(journal, "invoke MAIN_PWR_RESET"));
    EXPECT_FALSE(Contains(journal, "invoke FPGA_CONF 40"));
    EXPECT_FALSE(Contains(journal, "set DDR_PWR_EN 1"));
    EXPECT_TRUE(std::none_of(journal.begin(), journal.end(), [](const std::string& entry) {
        return entry.starts_with("set DC_");
    }));
}

TEST_P(BackendPowerTest, RailWriteIsRetriedOnceAndTheSecondFailureEndsTheSequence) {
    auto& recovers = Harness("faults['set DC_1V8'] = {5}");
    EXPECT_EQ(recovers.Code("powerup_unit"), 0);
    const auto journal = recovers.Journal();
    const auto first = std::find(journal.begin(), journal.end(), "set DC_1V8 1");
    ASSERT_GE(std::distance(first, journal.end()), 3);
    EXPECT_EQ(Lines(first, first + 3), (Lines{"set DC_1V8 1", "set DC_1V8 1", "set DC_2V5 1"}));

    ScriptHarness gives_up(GetParam().script);
    gives_up.Board(GetParam().board);
    gives_up.Board("faults['set DC_1V8'] = {5, 6}");
    EXPECT_EQ(gives_up.Code("powerup_unit"), 6);
    const auto log = gives_up.Log();
    EXPECT_EQ(Tail(log, 3), (Lines{"error: Failed to set state 'DC_1V8' - board: fault 6 ",
                                   "error: Failed to power up the DC/DC converter - board: fault 6",
                                   "error: Backend power up sequence failed."}));
    EXPECT_EQ(Tail(gives_up.Journal(), 2), (Lines{"set DC_1V8 1", "set DC_1V8 1"}));
}

TEST_P(BackendPowerTest, UnreadableRailRaisesAnErrorBeforeAnythingIsPowered) {
    auto& harness = Harness("states.DC_1V0 = 1 faults['get DC_1V8'] = {5}");
    const auto outcome = harness.Call("powerup_unit");
    EXPECT_EQ(outcome.kind, "raised");
    EXPECT_NE(outcome.value.find("Failed to read state 'DC_1V8' - board: fault 5 "),
              std::string::npos)
        << outcome.value;
    EXPECT_EQ(Tail(harness.Log(), 1),
              Lines{"error: Failed to read state 'DC_1V8' - board: fault 5 "});
    EXPECT_EQ(Tail(harness.Journal(), 1), Lines{"get DC_1V8"});
}

TEST_P(BackendPowerTest, UnreadableFirmwareVersionEndsThePowerUpBeforeAnythingIsSwitched) {
    auto& harness = Harness("faults['version FX3_FW'] = {5}");
    EXPECT_EQ(harness.Code("powerup_unit"), 5);
    EXPECT_EQ(harness.Journal(), Lines{"version FX3_FW"});
    EXPECT_EQ(Tail(harness.Log(), 1),
              Lines{"error: Failed to read version of 'FX3_FW' - board: fault 5"});
}

INSTANTIATE_TEST_SUITE_P(Backends, BackendPowerTest,
                         ::testing::Values(Backend{kPowerOvbd, kOvbdBoard},
                                           Backend{kPowerNobe, kNobeBoard}));

}  // namespace
}  // namespace ovex::lua_scripts::testing
