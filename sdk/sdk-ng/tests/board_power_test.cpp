// Power units of real board classes, driven by the library's power scripts against virtual
// boards, and host scripts in the context's interpreter.

#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <vector>

#include "ovex/vboard/item_tables.hpp"
#include "support/board_session.hpp"

namespace ovex::sdk {
namespace {

constexpr std::uint8_t kStateRequest = 0x03;
constexpr std::uint16_t kStateSet = 3;

std::uint16_t StateId(vboard::BoardKind kind, const std::string& name) {
    const auto id = vboard::FindItem(vboard::TablesOf(kind).states, name);
    EXPECT_TRUE(id.has_value()) << "no state " << name;
    return static_cast<std::uint16_t>(id.value_or(0));
}

vboard::VirtualBoard::Settings OfKind(vboard::BoardKind kind) {
    vboard::VirtualBoard::Settings settings;
    settings.kind = kind;
    return settings;
}

class BoardPowerTest : public testing::BoardSession {
protected:
    bool UnitPowered(std::uint8_t unit) {
        bool powered = false;
        EXPECT_EQ(ovexsdk_dev_is_unit_powered(&m_ctx, unit, &powered), OVEXSDK_OK);
        return powered;
    }
    bool DevicePowered() {
        bool powered = true;
        EXPECT_EQ(ovexsdk_dev_is_powered(&m_ctx, &powered), OVEXSDK_OK);
        return powered;
    }
    vboard::FirmwareEngine& Engine() { return Board().Engine(); }
};

TEST_F(BoardPowerTest, Timepix3BoardPowersUpAndDownWithTheScriptsLinesInOrder) {
    ASSERT_EQ(AddAndOpen(), OVEXSDK_OK);
    std::uint8_t count = 0;
    ASSERT_EQ(ovexsdk_dev_get_unit_count(&m_ctx, &count), OVEXSDK_OK);
    EXPECT_EQ(count, 2);
    EXPECT_FALSE(DevicePowered());

    ASSERT_EQ(ovexsdk_dev_power_up(&m_ctx), OVEXSDK_OK);
    EXPECT_TRUE(DevicePowered());
    EXPECT_EQ(Engine().StateValue("DETECTOR_EN"), 1);
    EXPECT_EQ(Engine().Invocations("FPGA_CONF").size(), 1u);
    EXPECT_EQ(ovexsdk_dev_power_up(&m_ctx), OVEXSDK_ERR_BUSY);

    ASSERT_EQ(ovexsdk_dev_power_down(&m_ctx), OVEXSDK_OK);
    EXPECT_FALSE(UnitPowered(0));
    EXPECT_FALSE(UnitPowered(1));
    EXPECT_EQ(Engine().StateValue("DC_1V0"), 0);
    EXPECT_EQ(ovexsdk_dev_power_down(&m_ctx), OVEXSDK_ERR_UNAVAILABLE);
    ASSERT_EQ(ovexsdk_dev_close(&m_ctx), OVEXSDK_OK);
    Release();

    EXPECT_TRUE(m_sleeps.empty());  // healthy rails come up at the first reading
    const std::vector<std::string> expected{
        "Open successful, connected to the device.",
        "Component 'FX3_FW': 0.24.3-TPX3",
        "USB cable mux initialization: OK",
        "DC/DC converter power rails enabled.",
        "DDR power rail enabled.",
        "FPGA configuration completed.",
        "XSPI initialization completed.",
        "Component 'Ovexboard': 2.7.4",
        "Backend successfully powered up.",
        "Unit 0 ('backend') successfully powered up.",
        "Peltier configuration: OK",
        "Frontend power rail: OK",
        "Chip power rail: OK",
        "Unit 1 ('frontend') successfully powered up.",
        "Device successfully powered up.",
        "Unit 1 ('frontend') is already powered.",
        "Device is already fully powered up.",
        "Unit 1 ('frontend') successfully powered down.",
        "Unit 0 ('backend') successfully powered down.",
        "Device successfully powered down.",
        "Device is already fully powered down.",
    };
    EXPECT_EQ(InOrder(expected), expected);
}

TEST_F(BoardPowerTest, UnitsSwitchOneByOneAndAnUnknownUnitIsRefused) {
    ASSERT_EQ(AddAndOpen(), OVEXSDK_OK);
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

TEST_F(BoardPowerTest, BackendWithItsRailsOnIsReconfiguredNotConfigured) {
    ASSERT_EQ(AddAndOpen(), OVEXSDK_OK);
    ASSERT_EQ(ovexsdk_dev_power_up_unit(&m_ctx, 0), OVEXSDK_OK);
    // The clock stops, the DC/DC rails stay on: the unit counts as down, the FPGA as configured.
    ASSERT_EQ(Script("assert(Usb.VendorCmd.States.new(device):set_value('MAIN_CLK', 0):value()"
                     " == 0)"),
              OVEXSDK_OK);
    EXPECT_FALSE(UnitPowered(0));
    ASSERT_EQ(ovexsdk_dev_power_up_unit(&m_ctx, 0), OVEXSDK_OK);
    EXPECT_EQ(Engine().Invocations("FPGA_CONF").size(), 1u);
    EXPECT_EQ(Engine().Invocations("FPGA_RECONF"),
              (std::vector<std::vector<std::uint8_t>>{{0x01, 0x00, 0x00, 0x00}}));
    EXPECT_EQ(Engine().Invocations("MAIN_PWR_RESET").size(), 1u);
}

TEST_F(BoardPowerTest, RailThatNeverRisesCostsSixSecondsAndIsOnlyReported) {
    ASSERT_EQ(AddAndOpen(), OVEXSDK_OK);
    Engine().FailRail("PG_FE_5V");
    ASSERT_EQ(ovexsdk_dev_power_up_unit(&m_ctx, 0), OVEXSDK_OK);
    m_sleeps.clear();
    ASSERT_EQ(ovexsdk_dev_power_up_unit(&m_ctx, 1), OVEXSDK_OK);
    EXPECT_EQ(m_sleeps, std::vector<double>(6, 1.0));
    EXPECT_FALSE(UnitPowered(1));  // the script's own check sees the dead rail
    Release();
    EXPECT_TRUE(m_host_log.Has(OVEXSDK_LOG_ERROR, "Frontend power rail: FAIL\n"));
    EXPECT_EQ(HostLines("Chip power rail: OK"), 1u);  // the sequence went on
}

TEST_F(BoardPowerTest, FailingRailEndsTheTimepix2ChipBoardsSequenceTimedOut) {
    ASSERT_EQ(AddAndOpen(OfKind(vboard::BoardKind::kTimepix2Cb)), OVEXSDK_OK);
    Engine().FailRail("PG_1V2_A");
    ASSERT_EQ(ovexsdk_dev_power_up_unit(&m_ctx, 0), OVEXSDK_OK);
    m_sleeps.clear();
    EXPECT_EQ(ovexsdk_dev_power_up_unit(&m_ctx, 1), OVEXSDK_ERR_FAILED);
    // One settling second of the power check ahead of the sequence, then six passes.
    EXPECT_EQ(m_sleeps, std::vector<double>(7, 1.0));
    Release();
    const std::vector<std::string> expected{
        "Frontend 1V2 rails: FAIL",
        "Failed to power up unit: 1 ('frontend'): - generic: Connection timed out.",
    };
    EXPECT_EQ(InOrder(expected), expected);
}

TEST_F(BoardPowerTest, RefusedRailSwitchStopsTheSequenceWithTheBoardsCode) {
    ASSERT_EQ(AddAndOpen(), OVEXSDK_OK);
    ASSERT_EQ(ovexsdk_dev_power_up_unit(&m_ctx, 0), OVEXSDK_OK);
    Board().Firmware().StallNext(
        {kStateRequest, kStateSet, StateId(vboard::BoardKind::kTimepix3, "FRONTEND_EN")});
    EXPECT_EQ(ovexsdk_dev_power_up_unit(&m_ctx, 1), OVEXSDK_ERR_FAILED);
    EXPECT_EQ(Engine().Invocations("IO_EXP_INIT").size(), 0u);
    Release();
    std::string enable_line;
    std::string unit_line;
    {
        std::lock_guard lock(m_host_log.mutex);
        for (const auto& [severity, text] : m_host_log.lines) {
            if (text.rfind("Failed to enable the frontend power - ", 0) == 0) {
                enable_line = text;
            } else if (text.rfind("Failed to power up unit: 1 ('frontend'): - ", 0) == 0) {
                unit_line = text;
            }
        }
    }
    ASSERT_FALSE(enable_line.empty());
    ASSERT_FALSE(unit_line.empty());
    // The board's error crosses the script unchanged: both lines name it alike.
    const auto reason =
        enable_line.substr(std::string("Failed to enable the frontend power - ").size());
    EXPECT_EQ(unit_line, "Failed to power up unit: 1 ('frontend'): - " +
                             reason.substr(0, reason.size() - 1) + ".\n");
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
