// The monitors' physics on the board's own clock, asked in-process through the firmware model:
// the Peltier loop's time constant, the bias supply's slew and leakage, the supplies' noise, and
// how a test's pinned value and its clock take over.

#include <gtest/gtest.h>

#include <bit>
#include <chrono>
#include <cmath>
#include <cstring>
#include <limits>
#include <set>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "ovex/vboard/firmware_engine.hpp"
#include "ovex/vboard/firmware_model.hpp"

namespace ovex::vboard {
namespace {

using Bytes = std::vector<std::uint8_t>;
using Seconds = std::chrono::duration<double>;

constexpr std::uint8_t kStates = 0x03;
constexpr std::uint8_t kMonitors = 0x05;

// A board of one kind without USB, with the host's item requests by name.
class Board {
public:
    explicit Board(BoardKind kind) : m_tables(TablesOf(kind)), m_engine(m_model, m_tables) {}

    FirmwareEngine& Engine() { return m_engine; }

    void Set(std::string_view state, int value) {
        const auto bits = static_cast<std::uint32_t>(value);
        const Bytes data = {static_cast<std::uint8_t>(bits), static_cast<std::uint8_t>(bits >> 8),
                            static_cast<std::uint8_t>(bits >> 16),
                            static_cast<std::uint8_t>(bits >> 24)};
        const auto id = static_cast<std::uint16_t>(FindItem(m_tables.states, state).value());
        ASSERT_EQ(m_model.Control({0x40, kStates, 3, id, 4}, data).kind,
                  ControlReply::Kind::kAnswer)
            << state;
    }

    float Read(std::string_view monitor) {
        const auto id = static_cast<std::uint16_t>(FindItem(m_tables.monitors, monitor).value());
        const ControlReply reply = m_model.Control({0xC0, kMonitors, 2, id, 4}, {});
        if (reply.data.size() != 4) {
            return std::numeric_limits<float>::quiet_NaN();
        }
        return std::bit_cast<float>(static_cast<std::uint32_t>(
            reply.data[0] | reply.data[1] << 8 | reply.data[2] << 16 | reply.data[3] << 24));
    }

    // Flags and value of the monitor's record in a round of the monitor stream.
    std::pair<std::uint8_t, float> Record(std::string_view monitor) {
        const std::size_t id = FindItem(m_tables.monitors, monitor).value();
        const std::vector<std::uint8_t> round = m_engine.MonitorRound();
        const std::uint8_t* record = round.data() + id * 10;
        float value = 0.0F;
        std::memcpy(&value, record + 2, 4);
        return {record[1], value};
    }

private:
    ItemTables m_tables;
    FirmwareModel m_model;
    FirmwareEngine m_engine;
};

TEST(BoardPhysics, SensorFollowsThePeltierSetPointWithItsTimeConstantAndDriftsBackWhenOff) {
    Board board(BoardKind::kTimepix3);
    EXPECT_EQ(board.Read("TSENS_TEMP"), 26.0F);
    board.Set("PELTIER", 450);  // 45.0 degrees, a step of 19 from ambient
    board.Engine().AdvanceTime(Seconds(5.0));
    EXPECT_EQ(board.Read("TSENS_TEMP"), 26.0F) << "the loop is off";
    EXPECT_EQ(board.Read("PELTIER_OUTPUT"), 0.0F);

    board.Set("PELTIER_EN", 1);
    // Heating: a negative drive, full on so large an error.
    EXPECT_EQ(board.Read("PELTIER_P_TERM"), -100.0F);
    EXPECT_NEAR(board.Read("PELTIER_D_TERM"), 19.0F, 1e-4);
    EXPECT_EQ(board.Read("PELTIER_OUTPUT"), -81.0F);
    EXPECT_NEAR(board.Read("I_PELT"), -2.025F, 1e-5);
    EXPECT_NEAR(board.Read("U_PELT"), -3.24F, 1e-5);

    // One time constant: 63 % of the step; the integral of the decaying error exactly.
    board.Engine().AdvanceTime(Seconds(20.0));
    const double step = 19.0 * (1.0 - std::exp(-1.0));
    EXPECT_NEAR(board.Read("TSENS_TEMP"), 26.0 + step, 1e-4);
    EXPECT_NEAR(board.Read("PELTIER_I_ERR"), -20.0 * step, 1e-3);
    EXPECT_NEAR(board.Read("PELTIER_P_TERM"), -10.0 * (19.0 - step), 1e-3);

    // Settled, the integral term alone holds the temperature.
    board.Engine().AdvanceTime(Seconds(400.0));
    EXPECT_NEAR(board.Read("TSENS_TEMP"), 45.0F, 1e-4);
    EXPECT_NEAR(board.Read("PELTIER_P_TERM"), 0.0F, 1e-3);
    EXPECT_NEAR(board.Read("PELTIER_I_TERM"), -38.0F, 1e-3);
    EXPECT_NEAR(board.Read("PELTIER_OUTPUT"), -38.0F, 1e-3);

    // Off, the controller forgets and the sensor drifts back to ambient.
    board.Set("PELTIER_EN", 0);
    EXPECT_EQ(board.Read("PELTIER_OUTPUT"), 0.0F);
    EXPECT_EQ(board.Read("I_PELT"), 0.0F);
    board.Engine().AdvanceTime(Seconds(20.0));
    EXPECT_NEAR(board.Read("TSENS_TEMP"), 26.0 + 19.0 * std::exp(-1.0), 1e-4);
    EXPECT_EQ(board.Read("PELTIER_I_ERR"), 0.0F);
}

TEST(BoardPhysics, ASetPointOfZeroIsOffAndTheTimepix4BoardsSetPointAloneRunsItsPeltier) {
    // Enabled with the set point at 0, as a front end's power-down leaves it: nothing moves.
    Board tpx2(BoardKind::kTimepix2Cb);
    tpx2.Set("PELTIER_EN", 1);
    tpx2.Set("PELTIER", 0);
    tpx2.Engine().AdvanceTime(Seconds(20.0));
    EXPECT_EQ(tpx2.Read("TSENS_TEMP"), 26.0F);
    EXPECT_EQ(tpx2.Read("PELTIER_OUTPUT"), 0.0F);

    // The Timepix4 chip board runs it from its set point while the board is supplied, whatever
    // PELTIER_EN says; cold, its power-on set point moves nothing.
    Board tpx4(BoardKind::kTimepix4Cb);
    tpx4.Engine().AdvanceTime(Seconds(20.0));
    EXPECT_EQ(tpx4.Read("TSENS_TEMP"), 26.0F);
    EXPECT_EQ(tpx4.Read("PG_PELT"), 0.0F);
    tpx4.Set("DETECTOR_EN", 1);
    EXPECT_EQ(tpx4.Read("PG_PELT"), 1.0F);
    tpx4.Engine().AdvanceTime(Seconds(20.0));
    EXPECT_NEAR(tpx4.Read("TSENS_TEMP"), 26.0 + 9.0 * (1.0 - std::exp(-1.0)), 1e-4);
    tpx4.Set("PELTIER", 0);
    EXPECT_EQ(tpx4.Read("PELTIER_OUTPUT"), 0.0F);
    EXPECT_EQ(tpx4.Read("PG_PELT"), 0.0F);
}

TEST(BoardPhysics, NobeFirstPeltierHoldsTheSensorWhileItsSetPointIsNonZero) {
    Board board(BoardKind::kNobe);
    // The sensor and the front end's FPGA sit on the front end: cold, they read 0.
    EXPECT_EQ(board.Read("TSENS_TEMP"), 0.0F);
    EXPECT_EQ(board.Read("FPGA_TEMP_1"), 0.0F);
    EXPECT_EQ(board.Read("VCC_INT_1"), 0.0F);
    EXPECT_EQ(board.Read("FPGA_TEMP_0"), 45.0F);
    board.Set("DETECTOR_EN", 1);
    EXPECT_NEAR(board.Read("VCC_INT_1"), 1.0F, 0.006F);
    board.Set("PELT1", 160);  // 16.0 degrees: cooling
    board.Set("PELT2", 40);   // the second driver runs open, at its set percentage
    board.Engine().AdvanceTime(Seconds(20.0));
    EXPECT_NEAR(board.Read("TSENS_TEMP"), 26.0 - 10.0 * (1.0 - std::exp(-1.0)), 1e-4);
    EXPECT_GT(board.Read("PELT1_OUTPUT"), 0.0F);
    EXPECT_EQ(board.Read("PELT2_OUTPUT"), 40.0F);
    EXPECT_NEAR(board.Read("I_PELT2"), 1.0F, 1e-6);
}

TEST(BoardPhysics, BiasRampsAtItsSlewRateWithLeakageAndTheClockRefusesBadSteps) {
    Board board(BoardKind::kTimepix2Cb);
    board.Set("BIAS", -100);
    EXPECT_EQ(board.Read("U_BIAS"), 0.0F);
    board.Engine().AdvanceTime(Seconds(2.5));
    EXPECT_EQ(board.Read("U_BIAS"), -25.0F);
    EXPECT_EQ(board.Read("I_BIAS"), -0.25F);
    board.Engine().AdvanceTime(Seconds(10.0));
    EXPECT_EQ(board.Read("U_BIAS"), -100.0F) << "no overshoot";
    board.Set("BIAS", 50);
    board.Engine().AdvanceTime(Seconds(1.0));
    EXPECT_EQ(board.Read("U_BIAS"), -90.0F);

    EXPECT_THROW(board.Engine().AdvanceTime(Seconds(-1.0)), std::invalid_argument);
    EXPECT_THROW(board.Engine().AdvanceTime(Seconds(std::nan(""))), std::invalid_argument);
    EXPECT_EQ(board.Engine().BoardTime(), 13.5);

    // A pinned value stays; the model goes on behind it.
    board.Engine().SetMonitorValue("U_BIAS", 12.5F);
    board.Engine().AdvanceTime(Seconds(100.0));
    EXPECT_EQ(board.Read("U_BIAS"), 12.5F);
    EXPECT_EQ(board.Read("I_BIAS"), 0.5F);
}

TEST(BoardPhysics, SwitchedSupplyReadsItsNominalWithBoundedReproducibleNoise) {
    Board board(BoardKind::kTimepix4Cb);
    Board twin(BoardKind::kTimepix4Cb);
    EXPECT_EQ(board.Record("TPX_CURRENT_ANALOG"), std::make_pair(std::uint8_t{0x00}, 0.0F));
    board.Set("DETECTOR_EN", 1);
    twin.Set("DETECTOR_EN", 1);
    std::set<float> seen;
    for (int sample = 0; sample < 50; ++sample) {
        const float value = board.Read("TPX_CURRENT_ANALOG");
        EXPECT_NEAR(value, 0.55F, 0.55F * 0.005F);
        EXPECT_EQ(twin.Read("TPX_CURRENT_ANALOG"), value) << "same seed, same board time";
        EXPECT_EQ(board.Record("TPX_CURRENT_ANALOG"), std::make_pair(std::uint8_t{0x01}, value));
        EXPECT_EQ(board.Read("PG_VDDA"), 1.0F) << "a power-good flag has no noise";
        seen.insert(value);
        board.Engine().AdvanceTime(Seconds(0.1));
        twin.Engine().AdvanceTime(Seconds(0.1));
    }
    EXPECT_GT(seen.size(), 40u);

    board.Set("DETECTOR_EN", 0);
    EXPECT_EQ(board.Record("TPX_CURRENT_ANALOG"), std::make_pair(std::uint8_t{0x00}, 0.0F));
    EXPECT_EQ(board.Read("TPX_CURRENT_ANALOG"), 0.0F);
}

TEST(BoardPhysics, TestClockTakesOverFromRealTime) {
    Board board(BoardKind::kTimepix3);
    board.Engine().FollowRealTime();
    board.Engine().AdvanceTime(Seconds(0.0));
    board.Set("BIAS", 100);
    EXPECT_EQ(board.Read("U_BIAS"), 0.0F);
    EXPECT_EQ(board.Engine().BoardTime(), 0.0) << "requests no longer catch up with real time";
}

}  // namespace
}  // namespace ovex::vboard
