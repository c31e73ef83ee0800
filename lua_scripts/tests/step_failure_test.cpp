#include <gtest/gtest.h>

#include <string>

#include "boards.hpp"
#include "ovex/lua_scripts/scripts.hpp"
#include "script_harness.hpp"

namespace ovex::lua_scripts::testing {
namespace {

// A step that fails on an otherwise healthy board ends the sequence with its code, fault 5: its
// messages close the log and its call closes the journal.
struct FailedStep {
    std::string_view script;
    const char* board;
    std::string board_change;
    const char* function;
    Lines log_tail;
    const char* last_call;
};

void PrintTo(const FailedStep& step, std::ostream* os) {
    *os << step.script << " " << step.function << " after \"" << step.board_change << "\"";
}

class StepFailureTest : public ::testing::TestWithParam<FailedStep> {};

TEST_P(StepFailureTest, EndsTheSequenceWithItsCode) {
    const auto& step = GetParam();
    ScriptHarness harness(step.script);
    harness.Board(step.board);
    harness.Board(step.board_change);

    EXPECT_EQ(harness.Code(step.function), 5);
    EXPECT_EQ(Tail(harness.Log(), step.log_tail.size()), step.log_tail);
    EXPECT_EQ(Tail(harness.Journal(), 1), Lines{step.last_call});
}

constexpr const char* kUp = "powerup_unit";
constexpr const char* kDown = "powerdown_unit";
constexpr const char* kBackendFailed = "error: Backend power up sequence failed.";
constexpr const char* kTp2feFailed = "error: TP2FE power up sequence failed.";

std::string Fault(const char* call, const char* outcomes = "{5}") {
    return std::string("faults['") + call + "'] = " + outcomes;
}

std::string WarmFault(const char* call) {
    return "states.DC_1V0, states.DC_1V8, states.DC_2V5, states.DC_3V3 = 1, 1, 1, 1 " + Fault(call);
}

// Between the cable mux and the DACs a failure also fails the backend's sequence as a whole; a
// failing board version at the end does not.
INSTANTIATE_TEST_SUITE_P(
    Ovbd, StepFailureTest,
    ::testing::Values(
        FailedStep{kPowerOvbd,
                   kOvbdBoard,
                   Fault("invoke TUSB322"),
                   kUp,
                   {"error: USB cable mux initialization failed - board: fault 5", kBackendFailed},
                   "invoke TUSB322"},
        FailedStep{kPowerOvbd,
                   kOvbdBoard,
                   WarmFault("invoke_out FPGA_RECONF"),
                   kUp,
                   {"error: Failed to reconfigure FPGA - board: fault 5", kBackendFailed},
                   "invoke_out FPGA_RECONF [01 00 00 00] 40"},
        FailedStep{kPowerOvbd,
                   kOvbdBoard,
                   Fault("invoke_out MAIN_CLK_SETUP", "{0, 5}"),
                   kUp,
                   {"error: Failed to configure main clock - board: fault 5", kBackendFailed},
                   "invoke_out MAIN_CLK_SETUP [80 00 04 00]"},
        FailedStep{kPowerOvbd,
                   kOvbdBoard,
                   Fault("invoke DACX_INIT"),
                   kUp,
                   {"error: Failed to initialise DACX0502 - board: fault 5.", kBackendFailed},
                   "invoke DACX_INIT"},
        FailedStep{kPowerOvbd,
                   kOvbdBoard,
                   Fault("version Ovexboard"),
                   kUp,
                   {"info: XSPI initialization completed.",
                    "error: Failed to read version of 'Ovexboard' - board: fault 5"},
                   "version Ovexboard"},
        FailedStep{kPowerOvbd,
                   kOvbdBoard,
                   Fault("set GPIF_EN"),
                   kDown,
                   {"error: Failed to disable GPIF - board: fault 5"},
                   "set GPIF_EN 0"},
        FailedStep{kPowerOvbd,
                   kOvbdBoard,
                   Fault("set DC_2V5", "{6, 5}"),
                   kDown,
                   {"error: Failed to set state 'DC_2V5' - board: fault 5 ",
                    "error: Failed to power down the DC/DC converter - board: fault 5"},
                   "set DC_2V5 0"}));

// The DDR rail check has logged its own failure; the Peltier elements come after the backend's
// own sequence.
INSTANTIATE_TEST_SUITE_P(
    Nobe, StepFailureTest,
    ::testing::Values(
        FailedStep{kPowerNobe,
                   kNobeBoard,
                   Fault("set DDR_PWR_EN"),
                   kUp,
                   {"error: Failed to enable the DDR power - board: fault 5", kBackendFailed},
                   "set DDR_PWR_EN 1"},
        FailedStep{kPowerNobe,
                   kNobeBoard,
                   Fault("set MAIN_CLK", "{0, 5}"),
                   kUp,
                   {"error: Failed to enable main clock - board: fault 5", kBackendFailed},
                   "set MAIN_CLK 1"},
        FailedStep{kPowerNobe,
                   kNobeBoard,
                   Fault("set PELT1", "{0, 5}"),
                   kUp,
                   {"info: Backend successfully powered up.",
                    "error: Failed to configure peltier 1 temperature - board: fault 5"},
                   "set PELT1 370"},
        FailedStep{kPowerNobe,
                   kNobeBoard,
                   Fault("invoke_out FPGA_RECONF"),
                   kDown,
                   {"error: FPGA_RECONF disable failed with: board: fault 5"},
                   "invoke_out FPGA_RECONF [00 00 00 00]"}));

INSTANTIATE_TEST_SUITE_P(
    Frontends, StepFailureTest,
    ::testing::Values(
        FailedStep{kPowerTpx3efe,
                   kTpx3EfeBoard,
                   Fault("set FRONTEND_EN"),
                   kUp,
                   {"info: Peltier configuration: OK",
                    "error: Failed to enable the frontend power - board: fault 5"},
                   "set FRONTEND_EN 1"},
        FailedStep{kPowerTpx3efe,
                   kTpx3EfeBoard,
                   Fault("invoke IO_EXP_INIT"),
                   kUp,
                   {"error: Failed initialize frontend I/O expander - board: fault 5."},
                   "invoke IO_EXP_INIT"},
        FailedStep{kPowerTpx3efe,
                   kTpx3EfeBoard,
                   Fault("set DETECTOR_EN"),
                   kDown,
                   {"error: Failed to disable chip power rail - board: fault 5"},
                   "set DETECTOR_EN 0"},
        FailedStep{kPowerTpx2cb,
                   kTpx2CbBoard,
                   Fault("set DETECTOR_EN"),
                   kUp,
                   {"error: Failed to enable the detector - board: fault 5."},
                   "set DETECTOR_EN 1"},
        FailedStep{kPowerTpx2cb,
                   kTpx2CbBoard,
                   Fault("set DETECTOR_EN"),
                   kDown,
                   {"error: Failed to disable frontend +5V power rail - board: fault 5"},
                   "set DETECTOR_EN 0"},
        FailedStep{kPowerTpx4cb,
                   kTpx4CbBoard,
                   Fault("invoke PWR_CTRL_INIT"),
                   kUp,
                   {"error: Failed to initialize TPX4 power control module - board: fault 5"},
                   "invoke PWR_CTRL_INIT"},
        // The closing line is written even then; the code is still the failure's.
        FailedStep{kPowerTpx4cb,
                   kTpx4CbBoard,
                   Fault("set DETECTOR_EN"),
                   kUp,
                   {"error: Failed to enable the chip power - board: fault 5",
                    "info: TPX4 chipboard successfully powered up."},
                   "set DETECTOR_EN 1"},
        FailedStep{kPowerTpx4cb,
                   kTpx4CbBoard,
                   Fault("invoke_out TPX4_POWER_UP"),
                   kDown,
                   {"error: Failed to initialize TPX4 power control module - board: fault 5"},
                   "invoke_out TPX4_POWER_UP [00]"},
        FailedStep{kPowerTp2fe,
                   kTp2FeBoard,
                   Fault("set CHIP_EN"),
                   kUp,
                   {"error: Failed to enable the chip enable - board: fault 5", kTp2feFailed},
                   "set CHIP_EN 1"},
        FailedStep{kPowerTp2fe,
                   kTp2FeBoard,
                   Fault("invoke XADC1_INIT"),
                   kUp,
                   {"error: Failed to initialize frontend XADC - board: fault 5", kTp2feFailed},
                   "invoke XADC1_INIT"},
        FailedStep{kPowerTp2fe,
                   kTp2FeBoard,
                   Fault("version TPX2"),
                   kUp,
                   {"info: Component 'TP2FE': 1.0.3",
                    "error: Failed to read version of 'TPX2' - board: fault 5"},
                   "version TPX2"},
        FailedStep{kPowerTp2fe,
                   kTp2FeBoard,
                   Fault("set DETECTOR_EN"),
                   kDown,
                   {"error: Failed to disable TP2FE power: board: fault 5"},
                   "set DETECTOR_EN 0"}));

}  // namespace
}  // namespace ovex::lua_scripts::testing
