// The trigger and the external synchronisation of the older interface on a powered virtual
// Timepix3 board: mode ids, when the kept mode and duration reach the board, the options by
// name, and what bad input gets.

#include <gtest/gtest.h>

#include <chrono>
#include <cstdint>
#include <limits>
#include <memory>
#include <string>
#include <vector>

#include "support/legacy_session.hpp"
#include "support/log_capture.hpp"

namespace ovex::sdk::testing {
namespace {

using namespace std::chrono_literals;

class LegacyTrigger : public LegacySession {
protected:
    void PowerUp() {
        ASSERT_EQ(AddAndOpen(), OVEX_OK);
        ASSERT_EQ(ovexsdk_dev_power_up(&m_ctx->context), OVEXSDK_OK);
        // The chip's reset turns its data channels on, without which no shutter opens.
        ASSERT_EQ(ovexsdk_chip_configure(&m_ctx->context, 0), OVEXSDK_OK);
    }
    int State(const char* name) { return Board().Engine().StateValue(name); }
    std::size_t Invoked(const char* command) {
        return Board().Engine().Invocations(command).size();
    }

    LogCapture m_log;
};

TEST_F(LegacyTrigger, ModeIdsNameTheModesTheBoardOffersInOrder) {
    PowerUp();
    std::uint32_t count = 0;
    ASSERT_EQ(ovex_trigger_mode_count(m_ctx, &count), OVEX_OK);
    std::vector<std::string> ids;
    for (std::uint32_t i = 0; i < count; ++i) {
        const char* id = nullptr;
        ASSERT_EQ(ovex_trigger_mode_id(m_ctx, i, &id), OVEX_OK);
        ids.emplace_back(id);
    }
    EXPECT_EQ(ids, (std::vector<std::string>{
                       "software-start-shutter-duration", "hardware-start-shutter-duration",
                       "hardware-start-hardware-stop:level", "hardware-start-hardware-stop:edge"}));
    const char* id = nullptr;
    EXPECT_EQ(ovex_trigger_mode_id(m_ctx, count, &id), OVEX_ERR_HANDLE);
}

TEST_F(LegacyTrigger, OnlyAChosenModeWithAFiniteDurationReachesTheBoard) {
    PowerUp();
    const int untouched = State("TPX_SHUT_DUR");
    // A duration before any mode is kept, and nothing is configured.
    EXPECT_EQ(ovex_trigger_set_shutter_duration(m_ctx, 0.01f), OVEX_OK);
    EXPECT_EQ(m_ctx->trigger.mode, Invalid);
    EXPECT_EQ(m_ctx->trigger.shutter_duration, 0.01f);
    EXPECT_EQ(State("TPX_SHUT_DUR"), untouched);
    EXPECT_EQ(ovex_trigger(m_ctx), OVEX_ERR_INVALID) << "no trigger is configured";

    // The mode completes it; a later duration is configured at once.
    ASSERT_EQ(ovex_trigger_mode_select(m_ctx, "software-start-shutter-duration"), OVEX_OK);
    EXPECT_EQ(State("TPX_SHUT_DUR"), 399999);
    EXPECT_EQ(ovex_trigger(m_ctx), OVEX_OK);
    Board().Engine().AdvanceTime(10ms);  // the shutter closes again
    ASSERT_EQ(ovex_trigger_set_shutter_duration(m_ctx, 0.002f), OVEX_OK);
    EXPECT_EQ(State("TPX_SHUT_DUR"), 80000);
    // Durations that aren't finite are kept but wait; a negative one the board's side refuses.
    EXPECT_EQ(ovex_trigger_set_shutter_duration(m_ctx, std::numeric_limits<float>::infinity()),
              OVEX_OK);
    EXPECT_EQ(ovex_trigger_set_shutter_duration(m_ctx, std::numeric_limits<float>::quiet_NaN()),
              OVEX_OK);
    EXPECT_EQ(State("TPX_SHUT_DUR"), 80000);
    EXPECT_EQ(ovex_trigger_set_shutter_duration(m_ctx, -1.0f), OVEX_ERR_INVALID);

    // The hardware-stop modes have no duration: it becomes 0 and the mode is configured.
    const std::size_t level = Invoked("TRIG_I_LEVEL");
    ASSERT_EQ(ovex_trigger_mode_select(m_ctx, "hardware-start-hardware-stop:level"), OVEX_OK);
    EXPECT_EQ(m_ctx->trigger.shutter_duration, 0.0f);
    EXPECT_EQ(Invoked("TRIG_I_LEVEL"), level + 1);

    // An unknown id is no error: it clears the mode, and a duration then configures nothing.
    ASSERT_EQ(ovex_trigger_mode_select(m_ctx, "hardware-start"), OVEX_OK);
    EXPECT_EQ(m_ctx->trigger.mode, Invalid);
    const int before = State("TPX_SHUT_DUR");
    EXPECT_EQ(ovex_trigger_set_shutter_duration(m_ctx, 0.01f), OVEX_OK);
    EXPECT_EQ(State("TPX_SHUT_DUR"), before);
    EXPECT_EQ(Invoked("TRIG_I_LEVEL"), level + 1);
}

TEST_F(LegacyTrigger, SyncOptionsAreNamedByTheirNumberAndAppliedOneByOne) {
    PowerUp();
    std::uint32_t count = 0;
    ASSERT_EQ(ovex_extsync_option_count(m_ctx, &count), OVEX_OK);
    EXPECT_EQ(count, 16U);
    const char* id = nullptr;
    ASSERT_EQ(ovex_extsync_option_id(m_ctx, 0, &id), OVEX_OK);
    EXPECT_STREQ(id, "trigger-out:no");
    ASSERT_EQ(ovex_extsync_option_id(m_ctx, 8, &id), OVEX_OK);
    EXPECT_STREQ(id, "input-polarity:active-high");
    ASSERT_EQ(ovex_extsync_option_id(m_ctx, 15, &id), OVEX_OK);
    EXPECT_STREQ(id, "clock-input:external-40-mhz");
    EXPECT_EQ(ovex_extsync_option_id(m_ctx, 16, &id), OVEX_ERR_HANDLE);

    EXPECT_EQ(ovex_extsync_option_select(m_ctx, "trigger-out:edge"), OVEX_OK);
    EXPECT_EQ(Invoked("TRIG_O_EDGE"), 1U);
    EXPECT_EQ(Invoked("TRIG_O_LEVEL"), 0U);
    EXPECT_EQ(ovex_extsync_option_select(m_ctx, "ready-out:yes"), OVEX_OK);
    EXPECT_EQ(State("READY_IO_EN") & 2, 2);
    // The backend refuses a clock switch under power: the library's -14.
    EXPECT_EQ(ovex_extsync_option_select(m_ctx, "clock-input:external-40-mhz"),
              OVEX_ERR_UNAVAILABLE);
    EXPECT_TRUE(m_log.Contains(log::kError, "Clock cannot be changed when detector is powered."));
    EXPECT_EQ(ovex_extsync_option_select(m_ctx, "trigger-out"), OVEX_ERR_HANDLE);
}

TEST_F(LegacyTrigger, BadHandlesAndPointersAreRefusedAndNoDeviceIsAHandleError) {
    New();
    const auto released = std::make_unique<ovex_ctx>();
    auto* current = reinterpret_cast<ovex_ctx*>(&m_ctx->context);
    m_log.Clear();
    std::uint32_t count = 0;
    const char* id = nullptr;
    for (ovex_ctx* bad : {static_cast<ovex_ctx*>(nullptr), released.get(), current}) {
        EXPECT_EQ(ovex_trigger(bad), OVEX_ERR_HANDLE);
        EXPECT_EQ(ovex_trigger_mode_count(bad, &count), OVEX_ERR_HANDLE);
        EXPECT_EQ(ovex_trigger_mode_id(bad, 0, &id), OVEX_ERR_HANDLE);
        EXPECT_EQ(ovex_trigger_mode_select(bad, "software-start-shutter-duration"),
                  OVEX_ERR_HANDLE);
        EXPECT_EQ(ovex_trigger_set_shutter_duration(bad, 0.01f), OVEX_ERR_HANDLE);
        EXPECT_EQ(ovex_extsync_option_count(bad, &count), OVEX_ERR_HANDLE);
        EXPECT_EQ(ovex_extsync_option_id(bad, 0, &id), OVEX_ERR_HANDLE);
        EXPECT_EQ(ovex_extsync_option_select(bad, "trigger-out:no"), OVEX_ERR_HANDLE);
    }
    EXPECT_EQ(ovex_trigger_mode_count(m_ctx, nullptr), OVEX_ERR_HANDLE);
    EXPECT_EQ(ovex_trigger_mode_id(m_ctx, 0, nullptr), OVEX_ERR_HANDLE);
    EXPECT_EQ(ovex_trigger_mode_select(m_ctx, nullptr), OVEX_ERR_HANDLE);
    EXPECT_EQ(ovex_extsync_option_id(m_ctx, 0, nullptr), OVEX_ERR_HANDLE);
    EXPECT_EQ(ovex_extsync_option_select(m_ctx, nullptr), OVEX_ERR_HANDLE);
    EXPECT_EQ(m_ctx->trigger.mode, Invalid) << "the refused selection changed nothing";
    EXPECT_TRUE(m_log.Messages().empty());

    // Without a device: the names need none, the board's -19 is a handle error.
    EXPECT_EQ(ovex_extsync_option_id(m_ctx, 1, &id), OVEX_OK);
    EXPECT_STREQ(id, "trigger-out:level");
    EXPECT_EQ(ovex_trigger_mode_count(m_ctx, &count), OVEX_ERR_HANDLE);
    EXPECT_EQ(ovex_trigger_mode_select(m_ctx, "software-start-shutter-duration"), OVEX_OK)
        << "the duration is still infinite: nothing to configure";
    EXPECT_EQ(ovex_trigger_set_shutter_duration(m_ctx, 0.01f), OVEX_ERR_HANDLE);
}

}  // namespace
}  // namespace ovex::sdk::testing
