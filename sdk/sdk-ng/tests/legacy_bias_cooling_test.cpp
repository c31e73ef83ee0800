// Bias supplies and cooling controllers through the older interface's ids.

#include <gtest/gtest.h>

#include <cstdint>

#include "support/legacy_session.hpp"
#include "support/log_capture.hpp"

namespace ovex::sdk::testing {
namespace {

// On a NoBE board: a bias supply and two cooling controllers, one in degrees and one in percent,
// from the open on.
class LegacyBiasCooling : public LegacySession {
protected:
    void SetUp() override {
        LegacySession::SetUp();
        if (IsSkipped()) {
            return;
        }
        ASSERT_EQ(AddAndOpen(vboard::BoardKind::kNobe), OVEX_OK);
    }
    std::int32_t Get(const char* id) {
        float value = 0;
        return ovex_cooling_get_desired(m_ctx, id, &value);
    }

    LogCapture m_log;
};

TEST_F(LegacyBiasCooling, IdsAreTheFamilysPrefixAndTheIndexPlusOneBelowTheCount) {
    std::uint32_t count = 0;
    ASSERT_EQ(ovex_cooling_count(m_ctx, &count), OVEX_OK);
    EXPECT_EQ(count, 2u);
    const char* id = nullptr;
    ASSERT_EQ(ovex_cooling_id(m_ctx, 1, &id), OVEX_OK);
    EXPECT_STREQ(id, "PELT2");
    EXPECT_EQ(ovex_cooling_id(m_ctx, 2, &id), OVEX_ERR_HANDLE);
    ASSERT_EQ(ovex_bias_supply_count(m_ctx, &count), OVEX_OK);
    EXPECT_EQ(count, 1u);
    ASSERT_EQ(ovex_bias_supply_id(m_ctx, 0, &id), OVEX_OK);
    EXPECT_STREQ(id, "BIAS1");
    EXPECT_EQ(ovex_bias_supply_id(m_ctx, 1, &id), OVEX_ERR_HANDLE);

    m_log.Clear();
    // Only the prefix, the length and the last digit count.
    EXPECT_EQ(Get("PELT1"), OVEX_OK);
    EXPECT_EQ(Get("PELT-2"), OVEX_OK);
    for (const char* unknown : {"PELT", "PEL1", "pelt1", "PELT0", "PELT3", "PELT1x", "BIAS1"}) {
        EXPECT_EQ(Get(unknown), OVEX_ERR_HANDLE) << unknown;
    }
    float volts = 0;
    EXPECT_EQ(ovex_bias_get(m_ctx, "BIAS2", &volts), OVEX_ERR_HANDLE);
    EXPECT_EQ(ovex_bias_get(m_ctx, "PELT1", &volts), OVEX_ERR_HANDLE);
    // Unknown ids are the host's mistake, not the board's: nothing is logged about them.
    for (const auto& line : m_log.Messages()) {
        EXPECT_GT(line.verbosity, ovex::log::kWarning) << line.message;
    }
}

TEST_F(LegacyBiasCooling, ValuesRangesAndUnitsComeFromTheNamedController) {
    // The board counts tenths of the unit.
    ASSERT_EQ(ovex_cooling_set_desired(m_ctx, "PELT2", -4.0F), OVEX_OK);
    EXPECT_EQ(Board().Engine().StateValue("PELT2"), -40);
    ASSERT_EQ(ovex_cooling_set_desired(m_ctx, "PELT1", 25.0F), OVEX_OK);
    EXPECT_EQ(Board().Engine().StateValue("PELT1"), 250);
    float value = 0;
    ASSERT_EQ(ovex_cooling_get_desired(m_ctx, "PELT2", &value), OVEX_OK);
    EXPECT_EQ(value, -4.0F);
    // What the first controller achieves is its sensor's reading, not its set point: the sensor
    // sits on the front end, which is not powered yet.
    ASSERT_EQ(ovex_cooling_get_actual(m_ctx, "PELT1", &value), OVEX_OK);
    EXPECT_EQ(value, 0.0F);
    float range[2] = {};
    ASSERT_EQ(ovex_cooling_limits(m_ctx, "PELT1", &range[0], &range[1]), OVEX_OK);
    EXPECT_EQ(range[0], 0.0F);
    EXPECT_EQ(range[1], 60.0F);
    const char* unit = nullptr;
    ASSERT_EQ(ovex_cooling_value_unit(m_ctx, "PELT1", &unit), OVEX_OK);
    EXPECT_STREQ(unit, "DegreeCelsius");
    ASSERT_EQ(ovex_cooling_value_unit(m_ctx, "PELT2", &unit), OVEX_OK);
    EXPECT_STREQ(unit, "Percent");
    // The board refuses a set point out of range: a failure of the operation.
    EXPECT_EQ(ovex_cooling_set_desired(m_ctx, "PELT1", 61.0F), OVEX_ERR_UNAVAILABLE);

    ASSERT_EQ(ovex_bias_set(m_ctx, "BIAS1", 50.5F), OVEX_OK);
    EXPECT_EQ(Board().Engine().StateValue("BIAS"), 51);
    ASSERT_EQ(ovex_bias_get(m_ctx, "BIAS1", &value), OVEX_OK);
    EXPECT_EQ(value, 51.0F);
    ASSERT_EQ(ovex_bias_range(m_ctx, "BIAS1", &range[0], &range[1]), OVEX_OK);
    EXPECT_EQ(range[0], -300.0F);
    EXPECT_EQ(range[1], 300.0F);
}

}  // namespace
}  // namespace ovex::sdk::testing
