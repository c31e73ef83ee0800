// The board's rails through the USB path: what each kind's enables switch, the order its firmware
// insists on, and the faults a test can put on the hardware. The host's power sequences run on
// every kind in the library's own board tests.

#include <gtest/gtest.h>

#include <cstring>
#include <initializer_list>
#include <optional>
#include <stdexcept>

#include "board_host.hpp"
#include "virtual_board_test.hpp"

namespace ovex::vboard {
namespace {

using testing::BoardHost;
using testing::Bytes;

// The words of the order constraints, written out so that the test checks the wire.
constexpr std::uint32_t kSupplyDown = 0x05000002;
constexpr std::uint32_t kFpgaNotConfigured = 0x00000044;
constexpr std::uint32_t kClockNotStarted = 0x00000042;
constexpr std::uint32_t kNoAcknowledge = 0x01000000;
constexpr std::uint32_t kBadValue = 0x00000040;

class Rails : public VirtualBoardTest {
protected:
    void TearDown() override {
        m_host.reset();
        VirtualBoardTest::TearDown();
    }

    BoardHost& Start(BoardKind kind) {
        VirtualBoard::Settings settings;
        settings.kind = kind;
        AddBoard(std::move(settings));
        return m_host.emplace();
    }

    // Each monitor reads 0 (its rail is off), or 1 (its power-good flag is up).
    void ExpectOff(BoardHost& host, std::initializer_list<const char*> monitors) {
        for (const char* monitor : monitors) {
            EXPECT_EQ(host.Monitor(monitor), 0.0F) << monitor;
        }
    }
    // The monitor of a supply that is on reads its nominal value within its converter's noise.
    static void ExpectNominal(BoardHost& host, const char* monitor, float nominal) {
        EXPECT_NEAR(host.Monitor(monitor), nominal, nominal * 0.005F) << monitor;
    }
    void ExpectGood(BoardHost& host, std::initializer_list<const char*> monitors) {
        for (const char* monitor : monitors) {
            EXPECT_EQ(host.Monitor(monitor), 1.0F) << monitor;
        }
    }

    std::optional<BoardHost> m_host;
};

TEST_F(Rails, Timepix3FrontEndRailFeedsTheChipRails) {
    BoardHost& host = Start(BoardKind::kTimepix3);
    ExpectOff(host, {"PG_FE_5V", "MONITOR_5V", "PG_1V8", "PG_VDD", "PG_VDDA"});
    ExpectGood(host, {"PG_5V"});

    // The FPGA switches the front end's 5 V.
    EXPECT_EQ(host.SetState("FRONTEND_EN", 1), 0x44u);
    ASSERT_EQ(host.ConfigureFpga(), 0u);

    // The chip's regulators stay off without the front end's 5 V.
    ASSERT_EQ(host.SetState("DETECTOR_EN", 1), 0u);
    ExpectOff(host, {"PG_1V8", "PG_VDD", "PG_VDDA"});
    ASSERT_EQ(host.SetState("FRONTEND_EN", 1), 0u);
    ExpectGood(host, {"PG_FE_5V", "PG_1V8", "PG_VDD", "PG_VDDA"});
    ExpectNominal(host, "MONITOR_5V", 5.0F);

    ASSERT_EQ(host.SetState("FRONTEND_EN", 0), 0u);
    ExpectOff(host, {"PG_FE_5V", "MONITOR_5V", "PG_1V8", "PG_VDD", "PG_VDDA"});

    // The front end's supply goes down with the FPGA.
    ASSERT_EQ(host.SetState("FRONTEND_EN", 1), 0u);
    ASSERT_EQ(host.Invoke("MAIN_PWR_RESET"), 0u);
    EXPECT_EQ(host.State("FRONTEND_EN"), 0);
    ExpectOff(host, {"PG_FE_5V", "PG_VDDA"});
}

TEST_F(Rails, Timepix4ChipRailsGoOffByCommandAndTheEnableShowsIt) {
    BoardHost& host = Start(BoardKind::kTimepix4Cb);
    const auto chip = {"PG_VDD", "PG_VDDA", "PG_PLL", "PG_PST", "PG_GWT", "PG_1V8A", "PG_1V8D"};
    ExpectOff(host, chip);
    ExpectGood(host, {"PG_5V"});
    ASSERT_EQ(host.SetState("DETECTOR_EN", 1), 0u);
    ExpectGood(host, chip);
    ExpectNominal(host, "TPX_CURRENT_ANALOG", 0.55F);

    EXPECT_EQ(host.Invoke("TPX4_POWER_UP", {0x00}), 0u);
    ExpectOff(host, chip);
    EXPECT_EQ(host.Monitor("TPX_CURRENT_DIGITAL"), 0.0F);
    EXPECT_EQ(host.State("DETECTOR_EN"), 0);
    EXPECT_EQ(host.Invoke("TPX4_POWER_UP", {0x01}), 0u);
    ExpectGood(host, chip);

    // One byte, 0 or 1; a refused command switches nothing.
    EXPECT_EQ(host.Invoke("TPX4_POWER_UP", {0x02}), kBadValue);
    EXPECT_EQ(host.Invoke("TPX4_POWER_UP", {0x00, 0x00}), kBadValue);
    EXPECT_EQ(host.Invoke("TPX4_POWER_UP"), kBadValue);
    ExpectGood(host, chip);
}

TEST_F(Rails, NobeRailsAndTheDcDcConverterAndMainPowerReset) {
    BoardHost& host = Start(BoardKind::kNobe);
    const auto switched = {"PG_DDR_PWR",   "PG_DETECTOR",  "PG_1V2",     "PG_TPX_1V2_D",
                           "PG_TPX_1V2_A", "PG_LP87524",   "PG_MGTAVTT", "PG_MGTAVCC",
                           "PG_PELT1",     "I_LOAD_DC_1V0"};
    ExpectOff(host, switched);
    ExpectGood(host, {"PG_USB_1V8", "PG_USB_3V3", "USB_CONN"});

    for (const char* state : {"DC_1V0", "DC_1V8", "DC_2V5"}) {
        ASSERT_EQ(host.SetState(state, 1), 0u);
    }
    ExpectOff(host, {"PG_LP87524", "PG_MGTAVCC"});  // all four rails or nothing
    ExpectNominal(host, "I_LOAD_DC_1V0", 0.42F);
    ASSERT_EQ(host.SetState("DC_3V3", 1), 0u);
    ExpectGood(host, {"PG_LP87524", "PG_MGTAVTT", "PG_MGTAVCC"});

    for (const char* state : {"DDR_PWR_EN", "DETECTOR_EN", "CHIP_EN", "TPX_1V2"}) {
        ASSERT_EQ(host.SetState(state, 1), 0u);
    }
    ASSERT_EQ(host.SetState("PELT1", 370), 0u);
    ExpectGood(host,
               {"PG_DDR_PWR", "PG_DETECTOR", "PG_1V2", "PG_TPX_1V2_D", "PG_TPX_1V2_A", "PG_PELT1"});
    ExpectOff(host, {"PG_PELT2"});

    EXPECT_EQ(host.Invoke("MAIN_PWR_RESET"), 0u);
    for (const char* state : {"DC_1V0", "DC_1V8", "DC_2V5", "DC_3V3", "DDR_PWR_EN"}) {
        EXPECT_EQ(host.State(state), 0) << state;
    }
    ExpectOff(host, {"PG_LP87524", "PG_DDR_PWR", "I_LOAD_DC_1V0"});
    ExpectGood(host, {"PG_DETECTOR"});  // the front end's supply isn't main power
}

TEST_F(Rails, BackEndRefusesStepsOutOfOrderWithTheReason) {
    BoardHost& host = Start(BoardKind::kTimepix3);
    EXPECT_EQ(host.Invoke("FPGA_CONF"), kSupplyDown);
    EXPECT_EQ(host.Invoke("FPGA_RECONF", {1, 0, 0, 0}), kSupplyDown);
    EXPECT_EQ(host.Invoke("FPGA_RECONF", {1, 0}), kBadValue);
    EXPECT_EQ(host.SetState("GPIF_EN", 1), kFpgaNotConfigured);
    EXPECT_EQ(host.SetState("MAIN_CLK", 1), kFpgaNotConfigured);
    EXPECT_EQ(host.SetState("GPIF_EN", 0), 0u);  // switching off needs nothing
    EXPECT_EQ(host.Invoke("LOAD_EEPROM"), kClockNotStarted);
    EXPECT_EQ(host.Invoke("IO_EXP_INIT"), kNoAcknowledge);
    EXPECT_EQ(host.Invoke("FPGA_RECONF", {0, 0, 0, 0}), 0u);  // off is always possible
    // Refused commands didn't run.
    EXPECT_TRUE(Board().Engine().Invocations("FPGA_CONF").empty());
    EXPECT_TRUE(Board().Engine().Invocations("LOAD_EEPROM").empty());

    for (const char* state : {"DC_1V0", "DC_1V8", "DC_2V5"}) {
        ASSERT_EQ(host.SetState(state, 1), 0u);
    }
    EXPECT_EQ(host.Invoke("FPGA_CONF"), kSupplyDown);
    ASSERT_EQ(host.SetState("DC_3V3", 1), 0u);
    ASSERT_EQ(host.Invoke("FPGA_CONF"), 0u);
    ASSERT_EQ(host.SetState("GPIF_EN", 1), 0u);
    ASSERT_EQ(host.SetState("MAIN_CLK", 1), 0u);
    EXPECT_EQ(host.Invoke("LOAD_EEPROM"), 0u);

    // A DC/DC rail going off takes the FPGA, and with it GPIF and the clock.
    ASSERT_EQ(host.SetState("DC_2V5", 0), 0u);
    EXPECT_EQ(host.State("GPIF_EN"), 0);
    EXPECT_EQ(host.State("MAIN_CLK"), 0);
    EXPECT_EQ(host.Invoke("XSPI_INIT"), kClockNotStarted);
    ASSERT_EQ(host.SetState("DC_2V5", 1), 0u);
    EXPECT_EQ(host.SetState("MAIN_CLK", 1), kFpgaNotConfigured);

    // Reloading the FPGA restarts what ran on it; the all-zero word switches it off.
    ASSERT_EQ(host.Invoke("FPGA_RECONF", {1, 0, 0, 0}), 0u);
    ASSERT_EQ(host.SetState("MAIN_CLK", 1), 0u);
    ASSERT_EQ(host.Invoke("FPGA_RECONF", {1, 0, 0, 0}), 0u);
    EXPECT_EQ(host.State("MAIN_CLK"), 0);
    ASSERT_EQ(host.Invoke("FPGA_RECONF", {0, 0, 0, 0}), 0u);
    EXPECT_EQ(host.SetState("GPIF_EN", 1), kFpgaNotConfigured);

    // A reset of the board switches everything off, the FPGA included.
    ASSERT_EQ(host.Invoke("FPGA_CONF"), 0u);
    Bytes none;
    ASSERT_EQ(host.In(0xE0, 0, 0, none), 0);
    EXPECT_EQ(host.State("DC_1V0"), 0);
    for (const char* state : {"DC_1V0", "DC_1V8", "DC_2V5", "DC_3V3"}) {
        ASSERT_EQ(host.SetState(state, 1), 0u);
    }
    EXPECT_EQ(host.SetState("GPIF_EN", 1), kFpgaNotConfigured);
}

TEST_F(Rails, NobeFrontEndCommandsNeedTheFrontEndSupply) {
    BoardHost& host = Start(BoardKind::kNobe);
    for (const char* command : {"TSENS_RESET", "XSPI1_INIT", "XADC1_INIT"}) {
        EXPECT_EQ(host.Invoke(command), kNoAcknowledge) << command;
    }
    EXPECT_EQ(host.Invoke("XSPI0_INIT"), kClockNotStarted);
    ASSERT_EQ(host.SetState("DETECTOR_EN", 1), 0u);
    for (const char* command : {"TSENS_RESET", "XSPI1_INIT", "XADC1_INIT"}) {
        EXPECT_EQ(host.Invoke(command), 0u) << command;
    }
}

TEST_F(Rails, FaultsKeepARailDownAndAMonitorUnreadableUntilCleared) {
    BoardHost& host = Start(BoardKind::kTimepix3);
    ASSERT_EQ(host.ConfigureFpga(), 0u);
    FirmwareEngine& engine = Board().Engine();
    engine.FailRail("PG_FE_5V");
    engine.BreakMonitor("PG_VDD");
    engine.BreakMonitor("FPGA_TEMP", 0x05000004);
    EXPECT_THROW(engine.FailRail("FPGA_TEMP"), std::out_of_range);  // not a switched rail
    EXPECT_THROW(engine.BreakMonitor("PG_NOPE"), std::out_of_range);

    // The enable is taken and the commands behind it run; the rail just never comes good.
    ASSERT_EQ(host.SetState("FRONTEND_EN", 1), 0u);
    ASSERT_EQ(host.SetState("DETECTOR_EN", 1), 0u);
    ExpectOff(host, {"PG_FE_5V", "MONITOR_5V"});
    EXPECT_EQ(host.Invoke("IO_EXP_INIT"), 0u);
    ExpectGood(host, {"PG_1V8", "PG_VDDA"});
    EXPECT_EQ(host.MonitorRefusal("PG_VDD"), kNoAcknowledge);
    EXPECT_EQ(host.MonitorRefusal("FPGA_TEMP"), 0x05000004u);
    Bytes range(8);
    EXPECT_EQ(host.In(BoardHost::kMonitors, 3, 0, range), 8);  // FPGA_TEMP's range still answers

    // Faults are the hardware's: a reset of the firmware keeps them.
    Bytes none;
    ASSERT_EQ(host.In(0xE0, 0, 0, none), 0);
    ASSERT_EQ(host.ConfigureFpga(), 0u);
    ASSERT_EQ(host.SetState("FRONTEND_EN", 1), 0u);
    ExpectOff(host, {"PG_FE_5V"});
    EXPECT_EQ(host.MonitorRefusal("PG_VDD"), kNoAcknowledge);

    engine.ClearPowerFaults();
    ExpectGood(host, {"PG_FE_5V"});
    EXPECT_EQ(host.MonitorRefusal("FPGA_TEMP"), 0u);
    EXPECT_EQ(host.Monitor("FPGA_TEMP"), 45.0F);
}

// The record of one monitor in a round of the monitor stream: flags, value, time stamp.
struct StreamRecord {
    std::uint8_t flags;
    float value;
    std::uint32_t timestamp;
};

StreamRecord RecordIn(const std::vector<std::uint8_t>& round, const char* monitor) {
    const auto& monitors = TablesOf(BoardKind::kTimepix3).monitors;
    for (std::size_t id = 0; id < monitors.size(); ++id) {
        if (monitors[id].name == monitor) {
            const std::uint8_t* record = round.data() + id * 10;
            EXPECT_EQ(record[0], id);
            StreamRecord found{record[1], 0.0F, 0};
            std::memcpy(&found.value, record + 2, 4);
            std::memcpy(&found.timestamp, record + 6, 4);
            return found;
        }
    }
    throw std::out_of_range(monitor);
}

TEST_F(Rails, MonitorStreamAvailabilityFollowsTheSwitchedRails) {
    BoardHost& host = Start(BoardKind::kTimepix3);
    FirmwareEngine& engine = Board().Engine();
    auto round = engine.MonitorRound();
    ASSERT_EQ(round.size(), TablesOf(BoardKind::kTimepix3).monitors.size() * 10);
    EXPECT_EQ(RecordIn(round, "MONITOR_5V").flags, 0x00);
    EXPECT_EQ(RecordIn(round, "MONITOR_5V").value, 0.0F);
    EXPECT_EQ(RecordIn(round, "MONITOR_5V").timestamp, 1u);
    EXPECT_EQ(RecordIn(round, "PG_5V").flags, 0x01);
    EXPECT_EQ(RecordIn(round, "PG_5V").value, 1.0F);

    ASSERT_EQ(host.ConfigureFpga(), 0u);
    ASSERT_EQ(host.SetState("FRONTEND_EN", 1), 0u);
    engine.SetMonitorValue("MONITOR_5V", 5.75F);  // above its 5.5 V
    round = engine.MonitorRound();
    EXPECT_EQ(RecordIn(round, "MONITOR_5V").flags, 0x03);
    EXPECT_EQ(RecordIn(round, "MONITOR_5V").value, 5.75F);
    EXPECT_EQ(RecordIn(round, "MONITOR_5V").timestamp, 2u);

    // The firmware switched the rail on; that it never came good shows only in the readings.
    engine.FailRail("PG_FE_5V");
    engine.BreakMonitor("FPGA_TEMP");
    round = engine.MonitorRound();
    EXPECT_EQ(RecordIn(round, "PG_FE_5V").flags, 0x01);
    EXPECT_EQ(RecordIn(round, "PG_FE_5V").value, 0.0F);
    EXPECT_EQ(RecordIn(round, "FPGA_TEMP").flags, 0x04);
}

}  // namespace
}  // namespace ovex::vboard
