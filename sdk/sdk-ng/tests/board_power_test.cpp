// The power units of each board kind through the exported interface: the library's scripts on a
// virtual board, step by step, with the lines they log and the states they leave; host scripts
// in the context's interpreter.

#include <gtest/gtest.h>

#include <cstdint>
#include <initializer_list>
#include <ostream>
#include <string>
#include <utility>
#include <vector>

#include "support/power_session.hpp"

namespace ovex::sdk {
namespace {

using testing::Lines;
using Bytes = std::vector<std::uint8_t>;
using States = std::vector<std::pair<const char*, int>>;

Lines Join(std::initializer_list<Lines> parts) {
    Lines all;
    for (const Lines& part : parts) {
        all.insert(all.end(), part.begin(), part.end());
    }
    return all;
}

// The OvexBoard backend: the power check of the cold unit and the steps ahead of its rails, the
// cold path, and the steps behind the FPGA.
const Lines kOvbdPrepare = {"get MAIN_CLK",    "version FX3_FW", "set BIAS",       "set PELTIER_EN",
                            "set DETECTOR_EN", "set GPIF_EN",    "invoke TUSB322", "get DC_1V0"};
const Lines kOvbdCold = {
    "invoke MAIN_PWR_RESET", "set DC_1V0",         "set DC_1V8", "set DC_2V5", "set DC_3V3",
    "set DDR_PWR_EN",        "invoke FPGA_CONF 40"};
const Lines kOvbdFinish = {"set GPIF_EN",      "invoke MAIN_CLK_SETUP", "invoke MAIN_CLK_SETUP",
                           "set MAIN_CLK",     "invoke LOAD_EEPROM",    "invoke XSPI_INIT",
                           "invoke XADC_INIT", "invoke DACX_INIT",      "version Ovexboard"};
const Lines kOvbdUp = Join({kOvbdPrepare, kOvbdCold, kOvbdFinish});
const Lines kOvbdCheck = {"get MAIN_CLK", "get GPIF_EN", "get DDR_PWR_EN", "get DC_1V0",
                          "get DC_1V8",   "get DC_2V5",  "get DC_3V3"};
const Lines kOvbdDown =
    Join({kOvbdCheck,
          {"set MAIN_CLK", "set GPIF_EN", "set DC_3V3", "set DC_2V5", "set DC_1V8", "set DC_1V0"}});
const Lines kOvbdLines = {"Component 'FX3_FW': {}",
                          "USB cable mux initialization: OK",
                          "DC/DC converter power rails enabled.",
                          "DDR power rail enabled.",
                          "FPGA configuration completed.",
                          "XSPI initialization completed.",
                          "Component 'Ovexboard': {}",
                          "Backend successfully powered up.",
                          "Unit 0 ('backend') successfully powered up."};
const States kOvbdOn = {{"MAIN_CLK", 1}, {"GPIF_EN", 1}, {"DDR_PWR_EN", 1}, {"DC_1V0", 1},
                        {"DC_1V8", 1},   {"DC_2V5", 1},  {"DC_3V3", 1}};
const States kOvbdOff = {{"MAIN_CLK", 0}, {"GPIF_EN", 0}, {"DC_1V0", 0},
                         {"DC_1V8", 0},   {"DC_2V5", 0},  {"DC_3V3", 0}};

const Lines kTpx3Check = {"get FRONTEND_EN", "get DETECTOR_EN", "monitor MONITOR_5V",
                          "monitor PG_1V8",  "monitor PG_VDD",  "monitor PG_VDDA",
                          "monitor PG_FE_5V"};
const Lines kTpx2Check = {"sleep 1", "get DETECTOR_EN", "monitor MONITOR_5V"};
const Lines kTpx4Check = {"sleep 1",         "get DETECTOR_EN", "monitor PG_VDD",  "sleep 1",
                          "monitor PG_VDDA", "sleep 1",         "monitor PG_PLL",  "sleep 1",
                          "monitor PG_PST",  "sleep 1",         "monitor PG_GWT",  "sleep 1",
                          "monitor PG_1V8A", "sleep 1",         "monitor PG_1V8D", "sleep 1"};
const Lines kNobeCheck = {"get MAIN_CLK", "get GPIF_EN", "get DC_1V0",
                          "get DC_1V8",   "get DC_2V5",  "get DC_3V3"};
const Lines kTp2feCheck = {"get DETECTOR_EN",     "get CHIP_EN",    "get TPX_1V2",
                           "monitor PG_DETECTOR", "monitor PG_1V2", "monitor PG_TPX_1V2_D",
                           "monitor PG_TPX_1V2_A"};
const Lines kNobeFinish = {"set GPIF_EN",  "set MAIN_CLK", "invoke XSPI0_INIT", "invoke XADC0_INIT",
                           "version NOBE", "set PELT1",    "set PELT2"};
const Lines kNobePrepare = {"get MAIN_CLK",    "version FX3_FW", "set PELT1",    "set PELT2",
                            "set DETECTOR_EN", "set GPIF_EN",    "set MAIN_CLK", "get DC_1V0"};

struct Kind {
    const char* name;
    vboard::BoardKind kind;
    Lines backend_up;   // the cold unit's check and power-up
    Lines frontend_up;  // likewise, with the backend on
    Lines checks;       // both units' checks while they are on
    Lines down;         // the frontend's check and power-down, then the backend's
    Lines again;        // the backend's power-up after the power-down
    Lines lines;        // a cycle's log lines, in order; "{}" stands for a version
    States on;          // states after the power-up
    States off;         // states after the power-down
    std::vector<std::pair<const char*, std::vector<Bytes>>> payloads;  // inputs at the end
};

void PrintTo(const Kind& kind, std::ostream* out) {
    *out << kind.name;
}

class BoardPowerTest : public testing::PowerSession, public ::testing::WithParamInterface<Kind> {};

// Up, up again, down, down again and up: each step's requests in order, the states it leaves
// and, at the end, the log lines in order and the commands' inputs.
TEST_P(BoardPowerTest, CycleRunsTheScriptsStepByStep) {
    const Kind& kind = GetParam();
    ASSERT_EQ(OpenKind(kind.kind), OVEXSDK_OK);
    std::uint8_t count = 0;
    ASSERT_EQ(ovexsdk_dev_get_unit_count(&m_ctx, &count), OVEXSDK_OK);
    EXPECT_EQ(count, 2);

    ASSERT_EQ(ovexsdk_dev_power_up_unit(&m_ctx, 0), OVEXSDK_OK);
    EXPECT_EQ(Journal(), kind.backend_up);
    ClearJournal();
    ASSERT_EQ(ovexsdk_dev_power_up_unit(&m_ctx, 1), OVEXSDK_OK);
    EXPECT_EQ(Journal(), kind.frontend_up);
    ClearJournal();
    EXPECT_EQ(ovexsdk_dev_power_up(&m_ctx), OVEXSDK_ERR_BUSY);
    EXPECT_EQ(Journal(), kind.checks);
    for (const auto& [state, value] : kind.on) {
        EXPECT_EQ(Engine().StateValue(state), value) << "on: " << state;
    }

    ClearJournal();
    ASSERT_EQ(ovexsdk_dev_power_down(&m_ctx), OVEXSDK_OK);
    EXPECT_EQ(Journal(), kind.down);
    for (const auto& [state, value] : kind.off) {
        EXPECT_EQ(Engine().StateValue(state), value) << "off: " << state;
    }
    EXPECT_FALSE(DevicePowered());
    EXPECT_EQ(ovexsdk_dev_power_down(&m_ctx), OVEXSDK_ERR_UNAVAILABLE);

    ClearJournal();
    ASSERT_EQ(ovexsdk_dev_power_up_unit(&m_ctx, 0), OVEXSDK_OK);
    EXPECT_EQ(Journal(), kind.again);
    for (const auto& [command, inputs] : kind.payloads) {
        EXPECT_EQ(Engine().Invocations(command), inputs) << command;
    }
    Release();

    const auto& tables = vboard::TablesOf(kind.kind);
    Lines expected;
    for (std::string line : kind.lines) {
        if (const auto at = line.find("{}"); at != std::string::npos) {
            const auto name = line.substr(11, line.find('\'', 11) - 11);
            line.replace(at, 2, tables.versions[*vboard::FindItem(tables.versions, name)].value);
        }
        expected.push_back(line);
    }
    EXPECT_EQ(InOrder(expected), expected);
    // A healthy board gives no script cause for a warning; the host's own are about units
    // already switched.
    std::lock_guard lock(m_host_log.mutex);
    for (const auto& [severity, text] : m_host_log.lines) {
        if (severity < OVEXSDK_LOG_INFO) {
            EXPECT_NE(text.find(" already "), std::string::npos) << text;
        }
    }
}

const Bytes kClockReference = {0x60, 0x00, 0x1E, 0x00, 0x08, 0x04,
                               0x19, 0x00, 0x02, 0x00, 0x02, 0x00};
const Bytes kClocks = {0x80, 0x00, 0x04, 0x00};

Kind OvexBoard(const char* name, vboard::BoardKind board, Lines frontend_up, Lines check,
               Lines frontend_down, Lines frontend_lines, States on, States off,
               std::vector<std::pair<const char*, std::vector<Bytes>>> payloads = {}) {
    payloads.emplace_back("MAIN_CLK_SETUP",
                          std::vector<Bytes>{kClockReference, kClocks, kClockReference, kClocks});
    payloads.emplace_back("FPGA_CONF", std::vector<Bytes>{{}, {}});
    on.insert(on.end(), kOvbdOn.begin(), kOvbdOn.end());
    off.insert(off.end(), kOvbdOff.begin(), kOvbdOff.end());
    return {name,
            board,
            Join({kOvbdUp, {"invoke FLASH_INIT0"}}),  // the backend flash comes with the backend
            std::move(frontend_up),
            Join({kOvbdCheck, check}),
            Join({check, frontend_down, kOvbdDown}),
            kOvbdUp,
            Join({kOvbdLines,
                  frontend_lines,
                  {"Unit 1 ('frontend') successfully powered up.",
                   "Unit 0 ('backend') is already powered.",
                   "Unit 1 ('frontend') is already powered.", "Device is already fully powered up.",
                   "Unit 1 ('frontend') successfully powered down.",
                   "Unit 0 ('backend') successfully powered down.",
                   "Device successfully powered down.", "Device is already fully powered down."},
                  kOvbdLines}),
            std::move(on),
            std::move(off),
            std::move(payloads)};
}

INSTANTIATE_TEST_SUITE_P(
    Kinds, BoardPowerTest,
    ::testing::Values(
        OvexBoard("Timepix3", vboard::BoardKind::kTimepix3,
                  {"get FRONTEND_EN", "set PELTIER_EN", "set FRONTEND_EN", "monitor PG_FE_5V",
                   "invoke IO_EXP_INIT", "invoke ADC_INIT", "invoke TSENS_RESET", "set DETECTOR_EN",
                   "monitor PG_1V8", "monitor PG_VDD", "monitor PG_VDDA", "invoke TPX_CHIP_INFO"},
                  kTpx3Check, {"set BIAS", "set PELTIER", "set DETECTOR_EN", "set FRONTEND_EN"},
                  {"Peltier configuration: OK", "Frontend power rail: OK", "Chip power rail: OK"},
                  {{"PELTIER_EN", 1}, {"FRONTEND_EN", 1}, {"DETECTOR_EN", 1}, {"PELTIER", 350}},
                  {{"BIAS", 0}, {"PELTIER", 0}, {"DETECTOR_EN", 0}, {"FRONTEND_EN", 0}}),
        OvexBoard("Timepix2ChipBoard", vboard::BoardKind::kTimepix2Cb,
                  Join({{"sleep 1", "get DETECTOR_EN"},
                        {"set PELTIER_EN", "invoke ADC_INIT", "invoke TSENS_RESET",
                         "set DETECTOR_EN", "monitor PG_1V2_A", "monitor PG_1V2_D",
                         "invoke TPX_CHIP_INFO"}}),
                  kTpx2Check, {"set BIAS", "set PELTIER", "set DETECTOR_EN"},
                  {"Peltier configuration: OK", "Frontend 1V2 rails: OK"},
                  {{"PELTIER_EN", 1}, {"DETECTOR_EN", 1}},
                  {{"BIAS", 0}, {"PELTIER", 0}, {"DETECTOR_EN", 0}}),
        OvexBoard("Timepix4ChipBoard", vboard::BoardKind::kTimepix4Cb,
                  {"sleep 1", "get DETECTOR_EN", "set PELTIER", "invoke ADC_INIT_OVBD",
                   "invoke ADC_INIT_CB", "invoke PWR_CTRL_INIT", "invoke TSENS_RESET",
                   "set DETECTOR_EN", "monitor PG_VDD", "monitor PG_VDDA", "monitor PG_PLL",
                   "monitor PG_PST", "monitor PG_GWT", "monitor PG_1V8A", "monitor PG_1V8D",
                   "invoke TPX_CHIP_INFO"},
                  kTpx4Check, {"set BIAS", "set PELTIER", "invoke TPX4_POWER_UP"},
                  {"Peltier configuration: OK", "Chip power rail: OK",
                   "TPX4 chipboard successfully powered up."},
                  {{"PELTIER", 350}, {"DETECTOR_EN", 1}}, {{"PELTIER", 0}, {"DETECTOR_EN", 0}},
                  {{"TPX4_POWER_UP", {{0x00}}}}),
        // The NoBE's power-down leaves its DC/DC rails on: the next power-up finds them so.
        Kind{
            "Nobe",
            vboard::BoardKind::kNobe,
            Join({kNobePrepare,
                  {"invoke MAIN_PWR_RESET", "set DC_1V0", "set DC_1V8", "set DC_2V5", "set DC_3V3",
                   "set DDR_PWR_EN", "monitor PG_DDR_PWR", "invoke BIAS_DAC_RESET",
                   "invoke FPGA_CONF 40"},
                  kNobeFinish,
                  {"invoke FLASH_INIT0"}}),
            {"get DETECTOR_EN", "set DETECTOR_EN", "monitor PG_DETECTOR", "invoke TSENS_RESET",
             "set CHIP_EN", "monitor PG_1V2", "set TPX_1V2", "monitor PG_TPX_1V2_D",
             "invoke XSPI1_INIT", "invoke XADC1_INIT", "version TP2FE", "version TPX2",
             "invoke TPX_CHIP_INFO"},
            Join({kNobeCheck, kTp2feCheck}),
            Join({kTp2feCheck,
                  {"set BIAS", "set PELT1", "set DETECTOR_EN"},
                  kNobeCheck,
                  {"set PELT1", "set PELT2", "set MAIN_CLK", "set GPIF_EN", "invoke FPGA_RECONF"}}),
            Join({kNobePrepare,
                  {"get DC_1V8", "get DC_2V5", "get DC_3V3", "invoke FPGA_RECONF 40"},
                  kNobeFinish}),
            {"NoBE power up sequence started.",
             "Component 'FX3_FW': {}",
             "Main power reset: OK",
             "DDR power rail: OK",
             "Component 'NOBE': {}",
             "Backend successfully powered up.",
             "Peltier configuration: OK",
             "Unit 0 ('NoBE') successfully powered up.",
             "Frontend power rail: OK",
             "Chip enable rail: OK",
             "Timepix 1V2 power rail: OK",
             "Frontend XSPI init: OK",
             "Frontend XADC init: OK",
             "Component 'TP2FE': {}",
             "Component 'TPX2': {}",
             "TP2FE successfully powered up.",
             "Unit 1 ('TP2FE') successfully powered up.",
             "Device is already fully powered up.",
             "TP2FE power down sequence started.",
             "TP2FE successfully powered down.",
             "Unit 1 ('TP2FE') successfully powered down.",
             "NoBE BE power down sequence started.",
             "NoBE power down sequence successful.",
             "Unit 0 ('NoBE') successfully powered down.",
             "Device successfully powered down.",
             "NoBE power up sequence started.",
             "Backend successfully powered up."},
            {{"PELT1", 370},
             {"PELT2", 40},
             {"MAIN_CLK", 1},
             {"GPIF_EN", 1},
             {"DDR_PWR_EN", 1},
             {"DETECTOR_EN", 1},
             {"CHIP_EN", 1},
             {"TPX_1V2", 1}},
            {{"PELT1", 0},
             {"PELT2", 0},
             {"MAIN_CLK", 0},
             {"GPIF_EN", 0},
             {"DETECTOR_EN", 0},
             {"BIAS", 0},
             {"DC_1V0", 1},
             {"DC_3V3", 1}},
            {{"FPGA_RECONF", {{0x00, 0x00, 0x00, 0x00}, {0x01, 0x00, 0x00, 0x00}}},
             {"FPGA_CONF", {{}}}}}),
    [](const ::testing::TestParamInfo<Kind>& info) { return info.param.name; });

class PowerUnitTest : public testing::PowerSession {};

TEST_F(PowerUnitTest, UnitsSwitchOneByOneAndAnUnknownUnitIsRefused) {
    ASSERT_EQ(OpenKind(vboard::BoardKind::kTimepix3), OVEXSDK_OK);
    EXPECT_FALSE(DevicePowered());
    ASSERT_EQ(ovexsdk_dev_power_up_unit(&m_ctx, 0), OVEXSDK_OK);
    EXPECT_TRUE(UnitPowered(0));
    EXPECT_FALSE(UnitPowered(1));
    EXPECT_FALSE(DevicePowered());
    ASSERT_EQ(ovexsdk_dev_power_up_unit(&m_ctx, 1), OVEXSDK_OK);
    EXPECT_TRUE(DevicePowered());
    EXPECT_EQ(ovexsdk_dev_power_up_unit(&m_ctx, 2), OVEXSDK_ERR_FAILED);

    ASSERT_EQ(ovexsdk_dev_power_down_unit(&m_ctx, 1), OVEXSDK_OK);
    EXPECT_TRUE(UnitPowered(0));
    EXPECT_FALSE(UnitPowered(1));
    EXPECT_EQ(ovexsdk_dev_power_down_unit(&m_ctx, 1), OVEXSDK_ERR_UNAVAILABLE);
    ASSERT_EQ(ovexsdk_dev_power_down_unit(&m_ctx, 0), OVEXSDK_OK);
    Release();
    EXPECT_EQ(HostLines("Value '2' is not a valid power controller ID."), 1u);
}

// The clock stops and the DC/DC rails stay on: the unit counts as down, and its power-up switches
// off what draws from the rails and forces the FPGA to initialise instead of configuring it.
TEST_F(PowerUnitTest, BackendWithItsRailsOnIsReconfiguredNotConfigured) {
    ASSERT_EQ(OpenKind(vboard::BoardKind::kTimepix3), OVEXSDK_OK);
    ASSERT_EQ(ovexsdk_dev_power_up_unit(&m_ctx, 0), OVEXSDK_OK);
    ASSERT_EQ(Script("local s = Usb.VendorCmd.States.new(device)\n"
                     "assert(s:set_value('MAIN_CLK', 0):value() == 0)\n"
                     "assert(s:set_value('BIAS', 50):value() == 0)\n"
                     "assert(s:set_value('PELTIER_EN', 1):value() == 0)"),
              OVEXSDK_OK);
    EXPECT_FALSE(UnitPowered(0));

    ClearJournal();
    RefuseAt("invoke FPGA_RECONF 40");
    EXPECT_EQ(ovexsdk_dev_power_up_unit(&m_ctx, 0), OVEXSDK_ERR_FAILED);
    const Lines warm =
        Join({kOvbdPrepare, {"get DC_1V8", "get DC_2V5", "get DC_3V3", "invoke FPGA_RECONF 40"}});
    EXPECT_EQ(Journal(), warm);
    EXPECT_EQ(testing::Tail(ScriptLines(), 3),
              (Lines{"Failed to reconfigure FPGA - " + testing::kReason,
                     "Backend power up sequence failed.",
                     "Failed to power up unit: 0 ('backend'): - " + testing::kReason + "."}));
    EXPECT_EQ(Engine().StateValue("BIAS"), 0);
    EXPECT_EQ(Engine().StateValue("PELTIER_EN"), 0);

    ClearJournal();
    ASSERT_EQ(ovexsdk_dev_power_up_unit(&m_ctx, 0), OVEXSDK_OK);
    EXPECT_EQ(Journal(), Join({warm, kOvbdFinish}));
    EXPECT_EQ(Engine().Invocations("FPGA_RECONF"), (std::vector<Bytes>{{0x01, 0x00, 0x00, 0x00}}));
    EXPECT_EQ(Engine().Invocations("FPGA_CONF").size(), 1u);
    EXPECT_EQ(Engine().Invocations("MAIN_PWR_RESET").size(), 1u);
    EXPECT_TRUE(UnitPowered(0));
}

class HostScriptTest : public testing::BoardSession {};

TEST_F(HostScriptTest, ScriptsReachTheOpenBoardThroughDevice) {
    Create();
    EXPECT_EQ(Script("assert(device == nil)"), OVEXSDK_OK);
    AddBoard();
    ASSERT_EQ(ovexsdk_dev_open(&m_ctx), OVEXSDK_OK);
    EXPECT_EQ(Script("local s = Usb.VendorCmd.States.new(device)\n"
                     "assert(s:get_value('PELTIER') == 350)\n"
                     "assert(s:set_value('PELTIER', 300):value() == 0)"),
              OVEXSDK_OK);
    EXPECT_EQ(Board().Engine().StateValue("PELTIER"), 300);
    ASSERT_EQ(ovexsdk_dev_close(&m_ctx), OVEXSDK_OK);
    EXPECT_EQ(Script("assert(device == nil)"), OVEXSDK_OK);
}

TEST_F(HostScriptTest, FailingScriptsAreRefusedAndTheStateAnswersOn) {
    ASSERT_EQ(AddAndOpen(), OVEXSDK_OK);
    EXPECT_EQ(Script(""), OVEXSDK_ERR_INVALID);
    EXPECT_EQ(Script("kept = 1; error('x')"), OVEXSDK_ERR_INVALID);
    EXPECT_EQ(Script("Usb.VendorCmd.States.new(device):set_value('BIAS', 1.5)"),
              OVEXSDK_ERR_INVALID);
    EXPECT_EQ(Script("os.execute('true')"), OVEXSDK_ERR_INVALID);
    EXPECT_EQ(Script("io.open('/etc/passwd')"), OVEXSDK_ERR_INVALID);
    EXPECT_EQ(ovexsdk_script_execute(&m_ctx, nullptr), OVEXSDK_ERR_INVALID);
    EXPECT_EQ(Script("assert(kept == 1)"), OVEXSDK_OK);
    EXPECT_EQ(Board().Engine().StateValue("BIAS"), 0);
    Release();
    EXPECT_EQ(HostLines("Empty script."), 1u);
    EXPECT_EQ(HostLines("Execution of script failed, stack trace as follows:"), 4u);
    bool integer_error = false;
    std::lock_guard lock(m_host_log.mutex);
    for (const auto& line : m_host_log.lines) {
        integer_error |= line.second.find("not a numeric type that fits exactly an integer") !=
                         std::string::npos;
    }
    EXPECT_TRUE(integer_error);
}

}  // namespace
}  // namespace ovex::sdk
