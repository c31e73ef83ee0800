// The power scripts on a virtual board that refuses a step, whose rails stay low or whose
// monitors can't be read: what each sequence does then, what it logs and what the host gets.

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <ostream>
#include <string>
#include <vector>

#include "support/power_session.hpp"

namespace ovex::sdk {
namespace {

using testing::Lines;
using testing::Tail;
using vboard::BoardKind;

using testing::kReason;
const std::string kNoAnswer = "i2c: slave NACK-ed the zeroth byte of the preamble";

std::string Refused(const std::string& text) {
    return text + " - " + kReason;
}

long Count(const Lines& lines, const std::string& entry) {
    return std::count(lines.begin(), lines.end(), entry);
}

class PowerFaultTest : public testing::PowerSession {
protected:
    // Opens a board of `kind` and switches on the units before `unit`; with `down`, `unit` too.
    void Prepare(BoardKind kind, int unit, bool down = false) {
        ASSERT_EQ(OpenKind(kind), OVEXSDK_OK);
        for (int on = 0; on < unit + (down ? 1 : 0); ++on) {
            ASSERT_EQ(ovexsdk_dev_power_up_unit(&m_ctx, static_cast<std::uint8_t>(on)), OVEXSDK_OK);
        }
        ClearJournal();
        m_log.Clear();
    }

    ovexsdk_err_code Switch(int unit, bool up) {
        const auto id = static_cast<std::uint8_t>(unit);
        return up ? ovexsdk_dev_power_up_unit(&m_ctx, id) : ovexsdk_dev_power_down_unit(&m_ctx, id);
    }

    void At(const std::string& entry, int occurrence, std::function<void()> action) {
        m_journal->At(entry, occurrence,
                      [action = std::move(action)](const vboard::RequestMatch&) { action(); });
    }
};

struct Refusal {
    std::string entry;
    int occurrence = 1;
    int count = 1;
};

// A step that the board refuses ends its sequence: its lines close the log ahead of the host's
// line, which names the board's reason too, and its request closes the journal.
struct FailedStep {
    const char* name;
    BoardKind kind;
    int unit;
    bool up;
    std::vector<Refusal> refusals;
    Lines lines;
    Lines journal_tail;
};

void PrintTo(const FailedStep& step, std::ostream* out) {
    *out << step.name;
}

class StepFailureTest : public PowerFaultTest, public ::testing::WithParamInterface<FailedStep> {};

TEST_P(StepFailureTest, EndsTheSequenceWithTheBoardsReason) {
    const FailedStep& step = GetParam();
    Prepare(step.kind, step.unit, !step.up);
    for (const Refusal& refusal : step.refusals) {
        RefuseAt(refusal.entry, refusal.occurrence, refusal.count);
    }
    EXPECT_EQ(Switch(step.unit, step.up), OVEXSDK_ERR_FAILED);

    const bool nobe = step.kind == BoardKind::kNobe;
    const char* name = step.unit == 0 ? (nobe ? "NoBE" : "backend") : (nobe ? "TP2FE" : "frontend");
    Lines expected = step.lines;
    expected.push_back(std::string("Failed to power ") + (step.up ? "up" : "down") + " unit: " +
                       std::to_string(step.unit) + " ('" + name + "'): - " + kReason + ".");
    EXPECT_EQ(Tail(ScriptLines(), expected.size()), expected);
    EXPECT_EQ(Tail(Journal(), step.journal_tail.size()), step.journal_tail);
}

const std::string kBackendFailed = "Backend power up sequence failed.";
const std::string kTp2feFailed = "TP2FE power up sequence failed.";

INSTANTIATE_TEST_SUITE_P(
    Scripts, StepFailureTest,
    ::testing::Values(
        // Nothing is switched before the controller's version has been read.
        FailedStep{"FirmwareVersion",
                   BoardKind::kTimepix3,
                   0,
                   true,
                   {{"version FX3_FW"}},
                   {"Failed to read version of 'FX3_FW' - " + kReason},
                   {"get MAIN_CLK", "version FX3_FW"}},
        FailedStep{"CableMux",
                   BoardKind::kTimepix3,
                   0,
                   true,
                   {{"invoke TUSB322"}},
                   {Refused("USB cable mux initialization failed"), kBackendFailed},
                   {"invoke TUSB322"}},
        // A refused rail is tried once more; the second refusal ends the sequence.
        FailedStep{"DcDcRail",
                   BoardKind::kTimepix3,
                   0,
                   true,
                   {{"set DC_1V8", 1, 2}},
                   {"Failed to set state 'DC_1V8' - " + kReason + " ",
                    Refused("Failed to power up the DC/DC converter"), kBackendFailed},
                   {"set DC_1V8", "set DC_1V8"}},
        FailedStep{"SecondClockSetup",
                   BoardKind::kTimepix3,
                   0,
                   true,
                   {{"invoke MAIN_CLK_SETUP", 2}},
                   {Refused("Failed to configure main clock"), kBackendFailed},
                   {"invoke MAIN_CLK_SETUP", "invoke MAIN_CLK_SETUP"}},
        FailedStep{"Dacs",
                   BoardKind::kTimepix3,
                   0,
                   true,
                   {{"invoke DACX_INIT"}},
                   {Refused("Failed to initialise DACX0502") + ".", kBackendFailed},
                   {"invoke DACX_INIT"}},
        FailedStep{"BoardVersion",
                   BoardKind::kTimepix3,
                   0,
                   true,
                   {{"version Ovexboard"}},
                   {"XSPI initialization completed.",
                    "Failed to read version of 'Ovexboard' - " + kReason},
                   {"version Ovexboard"}},
        FailedStep{"BackendDownGpif",
                   BoardKind::kTimepix3,
                   0,
                   false,
                   {{"set GPIF_EN"}},
                   {Refused("Failed to disable GPIF")},
                   {"set MAIN_CLK", "set GPIF_EN"}},
        FailedStep{"BackendDownDcDcRail",
                   BoardKind::kTimepix3,
                   0,
                   false,
                   {{"set DC_2V5", 1, 2}},
                   {"Failed to set state 'DC_2V5' - " + kReason + " ",
                    Refused("Failed to power down the DC/DC converter")},
                   {"set DC_3V3", "set DC_2V5", "set DC_2V5"}},
        FailedStep{
            "NobeFirmwareVersion",
            BoardKind::kNobe,
            0,
            true,
            {{"version FX3_FW"}},
            {"NoBE power up sequence started.", "Failed to read version of 'FX3_FW' - " + kReason},
            {"get MAIN_CLK", "version FX3_FW"}},
        FailedStep{"NobeDcDcRail",
                   BoardKind::kNobe,
                   0,
                   true,
                   {{"set DC_1V0", 1, 2}},
                   {"Failed to set state 'DC_1V0' - " + kReason + " ",
                    Refused("Failed to power up the DC/DC converter"), kBackendFailed},
                   {"invoke MAIN_PWR_RESET", "set DC_1V0", "set DC_1V0"}},
        FailedStep{"NobeDdr",
                   BoardKind::kNobe,
                   0,
                   true,
                   {{"set DDR_PWR_EN"}},
                   {Refused("Failed to enable the DDR power"), kBackendFailed},
                   {"set DDR_PWR_EN"}},
        FailedStep{"NobeClock",
                   BoardKind::kNobe,
                   0,
                   true,
                   {{"set MAIN_CLK", 2}},
                   {Refused("Failed to enable main clock"), kBackendFailed},
                   {"set GPIF_EN", "set MAIN_CLK"}},
        // The Peltier elements come after the backend's own sequence.
        FailedStep{"NobePeltier",
                   BoardKind::kNobe,
                   0,
                   true,
                   {{"set PELT1", 2}},
                   {"Backend successfully powered up.",
                    Refused("Failed to configure peltier 1 temperature")},
                   {"set PELT1"}},
        FailedStep{"NobeDownFpga",
                   BoardKind::kNobe,
                   0,
                   false,
                   {{"invoke FPGA_RECONF"}},
                   {"FPGA_RECONF disable failed with: " + kReason},
                   {"invoke FPGA_RECONF"}},
        // The Peltier elements' failures are only warnings; the clock's ends the sequence.
        FailedStep{"NobeDownClock",
                   BoardKind::kNobe,
                   0,
                   false,
                   {{"set PELT1"}, {"set PELT2"}, {"set MAIN_CLK"}},
                   {"NoBE BE power down sequence started.", Refused("Failed to disable peltier 1"),
                    Refused("Failed to disable peltier 2"),
                    "Set value 0 to state MAIN_CLK failed with: " + kReason},
                   {"set PELT1", "set PELT2", "set MAIN_CLK"}},
        FailedStep{"Timepix3FrontendRail",
                   BoardKind::kTimepix3,
                   1,
                   true,
                   {{"set FRONTEND_EN"}},
                   {"Peltier configuration: OK", Refused("Failed to enable the frontend power")},
                   {"set FRONTEND_EN"}},
        FailedStep{"Timepix3Expander",
                   BoardKind::kTimepix3,
                   1,
                   true,
                   {{"invoke IO_EXP_INIT"}},
                   {Refused("Failed initialize frontend I/O expander") + "."},
                   {"invoke IO_EXP_INIT"}},
        FailedStep{"Timepix3DownChip",
                   BoardKind::kTimepix3,
                   1,
                   false,
                   {{"set DETECTOR_EN"}},
                   {Refused("Failed to disable chip power rail")},
                   {"set BIAS", "set PELTIER", "set DETECTOR_EN"}},
        FailedStep{"Timepix2Detector",
                   BoardKind::kTimepix2Cb,
                   1,
                   true,
                   {{"set DETECTOR_EN"}},
                   {Refused("Failed to enable the detector") + "."},
                   {"set DETECTOR_EN"}},
        FailedStep{"Timepix2DownDetector",
                   BoardKind::kTimepix2Cb,
                   1,
                   false,
                   {{"set DETECTOR_EN"}},
                   {Refused("Failed to disable frontend +5V power rail")},
                   {"set DETECTOR_EN"}},
        FailedStep{"Timepix4PowerControl",
                   BoardKind::kTimepix4Cb,
                   1,
                   true,
                   {{"invoke PWR_CTRL_INIT"}},
                   {Refused("Failed to initialize TPX4 power control module")},
                   {"invoke PWR_CTRL_INIT"}},
        // The closing line is written even then; the result is still the failure's.
        FailedStep{
            "Timepix4Chip",
            BoardKind::kTimepix4Cb,
            1,
            true,
            {{"set DETECTOR_EN"}},
            {Refused("Failed to enable the chip power"), "TPX4 chipboard successfully powered up."},
            {"set DETECTOR_EN"}},
        FailedStep{"Timepix4DownChip",
                   BoardKind::kTimepix4Cb,
                   1,
                   false,
                   {{"invoke TPX4_POWER_UP"}},
                   {Refused("Failed to initialize TPX4 power control module")},
                   {"set BIAS", "set PELTIER", "invoke TPX4_POWER_UP"}},
        FailedStep{"Tp2feChipEnable",
                   BoardKind::kNobe,
                   1,
                   true,
                   {{"set CHIP_EN"}},
                   {Refused("Failed to enable the chip enable"), kTp2feFailed},
                   {"set CHIP_EN"}},
        FailedStep{"Tp2feXadc",
                   BoardKind::kNobe,
                   1,
                   true,
                   {{"invoke XADC1_INIT"}},
                   {Refused("Failed to initialize frontend XADC"), kTp2feFailed},
                   {"invoke XADC1_INIT"}},
        FailedStep{"Tp2feChipVersion",
                   BoardKind::kNobe,
                   1,
                   true,
                   {{"version TPX2"}},
                   {"Component 'TP2FE': 1.4.2", "Failed to read version of 'TPX2' - " + kReason},
                   {"version TP2FE", "version TPX2"}},
        FailedStep{"Tp2feDown",
                   BoardKind::kNobe,
                   1,
                   false,
                   {{"set DETECTOR_EN"}},
                   {"Failed to disable TP2FE power: " + kReason},
                   {"set DETECTOR_EN"}}),
    [](const ::testing::TestParamInfo<FailedStep>& info) { return info.param.name; });

// Of the writes that switch the consumers off ahead of the rails, only the last one, GPIF_EN,
// adds a warning; none of them stops the sequence.
TEST_F(PowerFaultTest, PreparationFailuresAreLoggedAndTheSequenceGoesOn) {
    Prepare(BoardKind::kTimepix3, 0);
    RefuseAt("set BIAS");
    RefuseAt("set PELTIER_EN");
    RefuseAt("set DETECTOR_EN");
    ASSERT_EQ(Switch(0, true), OVEXSDK_OK);
    EXPECT_TRUE(m_log.Contains(log::kDebug, Refused("Failed to disable bias voltage")));
    EXPECT_TRUE(m_log.Contains(log::kDebug, Refused("Failed to disable peltier controller")));
    EXPECT_TRUE(m_log.Contains(log::kDebug, Refused("Failed to disable detector")));
    EXPECT_FALSE(m_log.Contains(log::kWarning, Refused("Power up sequence preparation failed")));

    ASSERT_EQ(Switch(0, false), OVEXSDK_OK);
    ClearJournal();
    RefuseAt("set GPIF_EN");
    ASSERT_EQ(Switch(0, true), OVEXSDK_OK);
    EXPECT_TRUE(m_log.Contains(log::kDebug, Refused("Failed to disable GPIF")));
    EXPECT_TRUE(m_log.Contains(log::kWarning, Refused("Power up sequence preparation failed")));
    EXPECT_EQ(Tail(ScriptLines(), 1), Lines{"Unit 0 ('backend') successfully powered up."});
}

class BackendFaultTest : public PowerFaultTest, public ::testing::WithParamInterface<BoardKind> {};

TEST_P(BackendFaultTest, RefusedRailIsTriedOnceMore) {
    Prepare(GetParam(), 0);
    RefuseAt("set DC_1V8");
    ASSERT_EQ(Switch(0, true), OVEXSDK_OK);
    const auto journal = Journal();
    const auto first = std::find(journal.begin(), journal.end(), "set DC_1V8");
    ASSERT_GE(journal.end() - first, 3);
    EXPECT_EQ(Lines(first, first + 3), (Lines{"set DC_1V8", "set DC_1V8", "set DC_2V5"}));
    EXPECT_EQ(Engine().StateValue("DC_1V8"), 1);
}

// A rail that can't be read leaves the board's state open: the script raises rather than guess.
TEST_P(BackendFaultTest, UnreadableRailRaisesBeforeAnythingIsPowered) {
    Prepare(GetParam(), 0);
    RefuseAt("get DC_1V0");
    EXPECT_EQ(Switch(0, true), OVEXSDK_ERR_FAILED);
    EXPECT_EQ(Tail(Journal(), 1), Lines{"get DC_1V0"});
    const auto lines = Tail(ScriptLines(), 3);
    ASSERT_EQ(lines.size(), 3u);
    EXPECT_EQ(lines[0], "Failed to read state 'DC_1V0' - " + kReason + " ");
    EXPECT_TRUE(lines[1].starts_with("BUG: The script function 'powerup_unit' failed: "))
        << lines[1];
    EXPECT_TRUE(lines[2].starts_with("Failed to power up unit: 0 ")) << lines[2];
    EXPECT_TRUE(lines[2].ends_with("generic: Invalid argument.")) << lines[2];
    EXPECT_EQ(Engine().StateValue("DC_1V0"), 0);
}

INSTANTIATE_TEST_SUITE_P(Backends, BackendFaultTest,
                         ::testing::Values(BoardKind::kTimepix3, BoardKind::kNobe));

TEST_F(PowerFaultTest, NobeXspiGetsSixTriesASecondApart) {
    Prepare(BoardKind::kNobe, 0);
    RefuseAt("invoke XSPI0_INIT", 1, 5);
    ASSERT_EQ(Switch(0, true), OVEXSDK_OK);
    auto journal = Journal();
    EXPECT_EQ(Count(journal, "invoke XSPI0_INIT"), 6);
    EXPECT_EQ(Count(journal, "sleep 1"), 5);
    EXPECT_EQ(Count(ScriptLines(), Refused("Unable to initialize XSPI0")), 5);

    ASSERT_EQ(Switch(0, false), OVEXSDK_OK);
    ClearJournal();
    m_log.Clear();
    RefuseAt("invoke XSPI0_INIT", 1, 6);
    EXPECT_EQ(Switch(0, true), OVEXSDK_ERR_FAILED);
    journal = Journal();
    EXPECT_EQ(Count(journal, "invoke XSPI0_INIT"), 6);
    EXPECT_EQ(Count(journal, "sleep 1"), 6);
    EXPECT_EQ(Tail(journal, 1), Lines{"sleep 1"});
    const auto lines = ScriptLines();
    EXPECT_EQ(Count(lines, Refused("Unable to initialize XSPI0")), 6);
    EXPECT_EQ(Tail(lines, 3), (Lines{Refused("Failed to initialize XSPI0"), kBackendFailed,
                                     "Failed to power up unit: 0 ('NoBE'): - " + kReason + "."}));
}

TEST_F(PowerFaultTest, Tp2fePowerDownGoesOnPastBiasAndPeltierFailures) {
    Prepare(BoardKind::kNobe, 1, true);
    RefuseAt("set BIAS");
    RefuseAt("set PELT1");
    ASSERT_EQ(Switch(1, false), OVEXSDK_OK);
    EXPECT_EQ(Tail(Journal(), 3), (Lines{"set BIAS", "set PELT1", "set DETECTOR_EN"}));
    EXPECT_EQ(Tail(ScriptLines(), 3),
              (Lines{"TP2FE power down sequence started.", "TP2FE successfully powered down.",
                     "Unit 1 ('TP2FE') successfully powered down."}));
    EXPECT_EQ(Engine().StateValue("DETECTOR_EN"), 0);
}

// A power-good monitor that stays low: six readings a second apart and a second after each;
// the sequence goes on, except on the Timepix2 chip board, where it ends timed out.
struct LowRail {
    const char* name;
    BoardKind kind;
    int unit;
    const char* monitor;
    int sleeps;               // the host's power check ahead of the sequence may wait too
    const char* status_line;  // a rail line tells the state of the last monitor it watched
    const char* next;         // the request after the last wait; empty when none
    ovexsdk_err_code result;
};

void PrintTo(const LowRail& rail, std::ostream* out) {
    *out << rail.name;
}

class LowRailTest : public PowerFaultTest, public ::testing::WithParamInterface<LowRail> {};

TEST_P(LowRailTest, CostsSixSecondsOfWaiting) {
    const LowRail& rail = GetParam();
    Prepare(rail.kind, rail.unit);
    Engine().FailRail(rail.monitor);
    EXPECT_EQ(Switch(rail.unit, true), rail.result);

    const auto journal = Journal();
    EXPECT_EQ(Count(journal, std::string("monitor ") + rail.monitor), 6);
    EXPECT_EQ(Count(journal, "sleep 1"), rail.sleeps);
    const auto after = std::find(journal.rbegin(), journal.rend(), "sleep 1").base();
    EXPECT_EQ(after == journal.end() ? "" : *after, rail.next);
    const auto lines = ScriptLines();
    EXPECT_EQ(Count(lines, rail.status_line), 1);
    if (rail.result != OVEXSDK_OK) {
        EXPECT_EQ(
            Tail(lines, 1),
            Lines{"Failed to power up unit: 1 ('frontend'): - generic: Connection timed out."});
    }
}

INSTANTIATE_TEST_SUITE_P(
    Rails, LowRailTest,
    ::testing::Values(LowRail{"Timepix3Frontend", BoardKind::kTimepix3, 1, "PG_FE_5V", 6,
                              "Frontend power rail: FAIL", "invoke IO_EXP_INIT", OVEXSDK_OK},
                      LowRail{"Timepix3Chip", BoardKind::kTimepix3, 1, "PG_VDDA", 6,
                              "Chip power rail: FAIL", "invoke TPX_CHIP_INFO", OVEXSDK_OK},
                      LowRail{"Timepix4Pll", BoardKind::kTimepix4Cb, 1, "PG_PLL", 7,
                              "Chip power rail: OK", "monitor PG_PST", OVEXSDK_OK},
                      LowRail{"Timepix4Last", BoardKind::kTimepix4Cb, 1, "PG_1V8D", 7,
                              "Chip power rail: FAIL", "invoke TPX_CHIP_INFO", OVEXSDK_OK},
                      LowRail{"NobeDdr", BoardKind::kNobe, 0, "PG_DDR_PWR", 6,
                              "DDR power rail: FAIL", "invoke BIAS_DAC_RESET", OVEXSDK_OK},
                      LowRail{"Tp2feChipEnable", BoardKind::kNobe, 1, "PG_1V2", 6,
                              "Chip enable rail: FAIL", "set TPX_1V2", OVEXSDK_OK},
                      LowRail{"Timepix2", BoardKind::kTimepix2Cb, 1, "PG_1V2_D", 7,
                              "Frontend 1V2 rails: FAIL", "", OVEXSDK_ERR_FAILED}),
    [](const ::testing::TestParamInfo<LowRail>& info) { return info.param.name; });

// The rail line reports OK as soon as a reading reaches 1, FAIL when the readings stayed low and
// UNKNOWN when none succeeded; a failed reading leaves an earlier low one standing.
TEST_F(PowerFaultTest, RailLineTellsWhatTheReadingsShowed) {
    Prepare(BoardKind::kTimepix3, 1);
    Engine().FailRail("PG_FE_5V");
    At("monitor PG_FE_5V", 2, [this] {
        Engine().ClearPowerFaults();
        Engine().SetMonitorValue("PG_FE_5V", 0.5F);
    });
    At("monitor PG_FE_5V", 3, [this] { Engine().SetMonitorValue("PG_FE_5V", 1.0F); });
    ASSERT_EQ(Switch(1, true), OVEXSDK_OK);
    EXPECT_EQ(Count(Journal(), "sleep 1"), 2);
    EXPECT_EQ(Count(ScriptLines(), "Frontend power rail: OK"), 1);

    const std::string unreadable = "Unable to read PG_FE_5V rail power good monitor - " + kNoAnswer;
    ASSERT_EQ(Switch(1, false), OVEXSDK_OK);
    ClearJournal();
    m_log.Clear();
    Engine().FailRail("PG_FE_5V");
    At("monitor PG_FE_5V", 2, [this] { Engine().BreakMonitor("PG_FE_5V"); });
    ASSERT_EQ(Switch(1, true), OVEXSDK_OK);
    EXPECT_EQ(Count(Journal(), "sleep 1"), 6);
    EXPECT_EQ(Count(ScriptLines(), unreadable), 5);
    EXPECT_TRUE(m_log.Contains(log::kError, "Frontend power rail: FAIL"));

    // The unit counts as off with its rail down, so it is switched on again as it is.
    ClearJournal();
    m_log.Clear();
    ASSERT_EQ(Switch(1, true), OVEXSDK_OK);
    EXPECT_EQ(Count(ScriptLines(), unreadable), 6);
    EXPECT_TRUE(m_log.Contains(log::kWarning, "Frontend power rail: UNKNOWN"));
}

// Each pass reads both rails, even when the first of them can't be read.
TEST_F(PowerFaultTest, Timepix2RailWaitEndsAtTheFirstPassWithBothRailsGood) {
    Prepare(BoardKind::kTimepix2Cb, 1);
    Engine().BreakMonitor("PG_1V2_A");
    Engine().FailRail("PG_1V2_D");
    At("monitor PG_1V2_A", 2, [this] {
        Engine().ClearPowerFaults();
        Engine().FailRail("PG_1V2_D");
    });
    At("monitor PG_1V2_A", 3, [this] { Engine().ClearPowerFaults(); });
    ASSERT_EQ(Switch(1, true), OVEXSDK_OK);
    // Then the chip board's chip is looked at.
    EXPECT_EQ(Tail(Journal(), 9),
              (Lines{"monitor PG_1V2_A", "monitor PG_1V2_D", "sleep 1", "monitor PG_1V2_A",
                     "monitor PG_1V2_D", "sleep 1", "monitor PG_1V2_A", "monitor PG_1V2_D",
                     "invoke TPX_CHIP_INFO"}));
    EXPECT_EQ(
        Tail(ScriptLines(), 6),
        (Lines{"Unable to read PG_1V2_A rail power good monitor - " + kNoAnswer,
               "Frontend 1V2 rails: OK", "On frontend powered up", "Command TPX_CHIP_INFO invoked.",
               "Module 'Timepix2 chip board' added to the device (index 0).",
               "Unit 1 ('frontend') successfully powered up."}));
}

// is_unit_powered on units that are on, after one change to the board each: the answer and the
// lines it logs.
struct Probe {
    enum class Change { kNone, kRefuse, kFailRail, kMonitor, kState };
    Change change;
    const char* name;  // the entry to refuse, the rail's monitor, the monitor or the state
    float value;       // the monitor's measurement or the state's value
    int unit;
    bool powered;
    Lines lines;
};

struct BoardProbes {
    const char* name;
    BoardKind kind;
    std::vector<Probe> probes;  // a change of state comes last: it isn't undone
};

void PrintTo(const BoardProbes& board, std::ostream* out) {
    *out << board.name;
}

class PowerStateTest : public PowerFaultTest, public ::testing::WithParamInterface<BoardProbes> {};

TEST_P(PowerStateTest, AnswersFromTheBoard) {
    Prepare(GetParam().kind, 2);
    for (const Probe& probe : GetParam().probes) {
        SCOPED_TRACE(probe.name);
        ClearJournal();
        m_log.Clear();
        float measured = 0.0F;
        switch (probe.change) {
            case Probe::Change::kNone:
                break;
            case Probe::Change::kRefuse:
                RefuseAt(probe.name);
                break;
            case Probe::Change::kFailRail:
                Engine().FailRail(probe.name);
                break;
            case Probe::Change::kMonitor: {
                const auto& monitors = vboard::TablesOf(GetParam().kind).monitors;
                measured = monitors[*vboard::FindItem(monitors, probe.name)].value;
                Engine().SetMonitorValue(probe.name, probe.value);
                break;
            }
            case Probe::Change::kState:
                ASSERT_EQ(Script(std::string("Usb.VendorCmd.States.new(device):set_value('") +
                                 probe.name + "', " + std::to_string(int(probe.value)) + ")"),
                          OVEXSDK_OK);
                break;
        }
        EXPECT_EQ(UnitPowered(static_cast<std::uint8_t>(probe.unit)), probe.powered);
        EXPECT_EQ(ScriptLines(), probe.lines);
        Engine().ClearPowerFaults();
        if (probe.change == Probe::Change::kMonitor) {
            Engine().SetMonitorValue(probe.name, measured);
        }
    }
}

using Change = Probe::Change;

Probe Healthy(int unit) {
    return {Change::kNone, "", 0.0F, unit, true, {}};
}
Probe Refuse(const char* entry, int unit, const std::string& line) {
    return {Change::kRefuse, entry, 0.0F, unit, false, {line}};
}

INSTANTIATE_TEST_SUITE_P(
    Kinds, PowerStateTest,
    ::testing::Values(
        BoardProbes{
            "Timepix3",
            BoardKind::kTimepix3,
            {Healthy(0),
             Healthy(1),
             Refuse("get GPIF_EN", 0, "Failed to read state 'GPIF_EN' - " + kReason + " "),
             Refuse("get DETECTOR_EN", 1, "Failed to read state 'DETECTOR_EN' - " + kReason + " "),
             Refuse("monitor PG_FE_5V", 1, "Failed to read monitor 'PG_FE_5V' - " + kReason + " "),
             {Change::kFailRail, "PG_VDDA", 0.0F, 1, false, {}},
             // Above 0 counts, not a reading that is merely not 0.
             {Change::kMonitor, "MONITOR_5V", -0.5F, 1, false, {}},
             {Change::kState, "DDR_PWR_EN", 0.0F, 0, false, {}}}},
        BoardProbes{
            "Timepix2ChipBoard",
            BoardKind::kTimepix2Cb,
            {Healthy(1),
             Refuse("get DETECTOR_EN", 1, "Failed to read state 'DETECTOR_EN' - " + kReason + " "),
             {Change::kMonitor, "MONITOR_5V", 0.0F, 1, false, {}},
             {Change::kState, "DC_3V3", 0.0F, 0, false, {}}}},
        BoardProbes{
            "Timepix4ChipBoard",
            BoardKind::kTimepix4Cb,
            {Healthy(1),
             Refuse("monitor PG_GWT", 1, "Failed to read monitor 'PG_GWT' - " + kReason + " "),
             {Change::kFailRail, "PG_1V8D", 0.0F, 1, false, {}},
             {Change::kState, "DETECTOR_EN", 0.0F, 1, false, {}}}},
        BoardProbes{
            "Nobe",
            BoardKind::kNobe,
            {Healthy(0),
             Healthy(1),
             Refuse("get MAIN_CLK", 0, "Failed to read state 'MAIN_CLK' - " + kReason + " "),
             Refuse("get TPX_1V2", 1, "Failed to read state 'TPX_1V2' - " + kReason + " "),
             // Nonzero is enough for these power-good monitors.
             {Change::kMonitor, "PG_TPX_1V2_A", -1.0F, 1, true, {}},
             {Change::kMonitor, "PG_TPX_1V2_A", 0.0F, 1, false, {}},
             {Change::kState, "CHIP_EN", 0.0F, 1, false, {}},
             {Change::kState, "GPIF_EN", 0.0F, 0, false, {}}}}),
    [](const ::testing::TestParamInfo<BoardProbes>& info) { return info.param.name; });

// A DC/DC rail that can't be read leaves the NoBE's answer open: the check fails.
TEST_F(PowerFaultTest, NobePowerCheckFailsOnAnUnreadableRail) {
    Prepare(BoardKind::kNobe, 1);
    RefuseAt("get DC_1V8");
    bool powered = true;
    EXPECT_EQ(ovexsdk_dev_is_unit_powered(&m_ctx, 0, &powered), OVEXSDK_ERR_FAILED);
    EXPECT_FALSE(powered);
    EXPECT_EQ(ScriptLines(),
              (Lines{"Failed to read state 'DC_1V8' - " + kReason + " ",
                     "BUG: The power state check function failed to execute for power module "
                     "'NoBE'.",
                     "Failed to read status of unit 0 ('NoBE'): - generic: Bad address."}));
}

}  // namespace
}  // namespace ovex::sdk
