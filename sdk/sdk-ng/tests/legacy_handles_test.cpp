// The checks every function of the older interface's device families makes before it reaches the
// board: a null, released or foreign handle and a null pointer give OVEX_ERR_HANDLE and log
// nothing.

#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <functional>
#include <string>
#include <vector>

#include "support/legacy_session.hpp"
#include "support/log_capture.hpp"

namespace ovex::sdk::testing {
namespace {

// Where the calls write; nothing reads it.
const char* text;
std::uint32_t number;
std::int32_t flag;
std::uint16_t id;
float value;
void* state;
constexpr std::uint32_t kScratch = 0x40000004;

struct Call {
    std::string name;
    std::function<std::int32_t(ovex_ctx*)> run;
};
#define CALL(expression)                                     \
    Call {                                                   \
#expression, [](ovex_ctx * c) { return expression; } \
    }

// Every function with a handle, its other arguments valid.
const std::vector<Call> kHandleCalls = {
    CALL(ovex_dev_prop_get_connection_string(c, &text)),
    CALL(ovex_dev_prop_get_manufacturer(c, &text)),
    CALL(ovex_dev_prop_get_product(c, &text)),
    CALL(ovex_dev_prop_get_serial_number(c, &text)),
    CALL(ovex_dev_prop_usb_get_instance_path(c, &text)),
    CALL(ovex_dev_prop_usb_get_vid_pid(c, &id, &id)),
    CALL(ovex_dev_prop_usb_is_high_speed(c, &flag)),
    CALL(ovex_dev_prop_usb_is_super_speed(c, &flag)),
    CALL(ovex_board_count(c, &number)),
    CALL(ovex_board_id(c, 0, &text)),
    CALL(ovex_board_is_powered(c, "backend", &flag)),
    CALL(ovex_board_power_on(c, "backend")),
    CALL(ovex_board_power_off(c, "backend")),
    CALL(ovex_bias_supply_count(c, &number)),
    CALL(ovex_bias_supply_id(c, 0, &text)),
    CALL(ovex_bias_get(c, "BIAS1", &value)),
    CALL(ovex_bias_set(c, "BIAS1", 1.0F)),
    CALL(ovex_bias_range(c, "BIAS1", &value, &value)),
    CALL(ovex_cooling_count(c, &number)),
    CALL(ovex_cooling_id(c, 0, &text)),
    CALL(ovex_cooling_get_desired(c, "PELT1", &value)),
    CALL(ovex_cooling_set_desired(c, "PELT1", 1.0F)),
    CALL(ovex_cooling_get_actual(c, "PELT1", &value)),
    CALL(ovex_cooling_limits(c, "PELT1", &value, &value)),
    CALL(ovex_cooling_value_unit(c, "PELT1", &text)),
    CALL(ovex_hw_version_count(c, &number)),
    CALL(ovex_hw_version_id(c, 0, &text)),
    CALL(ovex_hw_version_string(c, "FX3_FW", &text)),
    CALL(ovex_script_run(c, "x = 1")),
    CALL(ovex_script_get_state(c, &state)),
    CALL(ovex_axi_read(c, kScratch, &number)),
    CALL(ovex_axi_write(c, kScratch, 1)),
};

// Each pointer argument null in turn, with a live handle of an open board.
const std::vector<Call> kNullPointerCalls = {
    CALL(ovex_dev_enumerate(c, nullptr, nullptr, &number)),
    CALL(ovex_dev_prop_get_serial_number(c, nullptr)),
    CALL(ovex_dev_prop_usb_get_vid_pid(c, nullptr, &id)),
    CALL(ovex_dev_prop_usb_get_vid_pid(c, &id, nullptr)),
    CALL(ovex_board_count(c, nullptr)),
    CALL(ovex_board_id(c, 0, nullptr)),
    CALL(ovex_board_is_powered(c, nullptr, &flag)),
    CALL(ovex_board_is_powered(c, "backend", nullptr)),
    CALL(ovex_board_power_on(c, nullptr)),
    CALL(ovex_bias_supply_id(c, 0, nullptr)),
    CALL(ovex_bias_get(c, nullptr, &value)),
    CALL(ovex_bias_get(c, "BIAS1", nullptr)),
    CALL(ovex_bias_set(c, nullptr, 1.0F)),
    CALL(ovex_bias_range(c, "BIAS1", &value, nullptr)),
    CALL(ovex_cooling_count(c, nullptr)),
    CALL(ovex_cooling_id(c, 0, nullptr)),
    CALL(ovex_cooling_set_desired(c, nullptr, 1.0F)),
    CALL(ovex_cooling_get_actual(c, "PELT1", nullptr)),
    CALL(ovex_cooling_limits(c, "PELT1", &value, nullptr)),
    CALL(ovex_cooling_value_unit(c, "PELT1", nullptr)),
    CALL(ovex_hw_version_count(c, nullptr)),
    CALL(ovex_hw_version_id(c, 0, nullptr)),
    CALL(ovex_hw_version_string(c, "FX3_FW", nullptr)),
    CALL(ovex_script_run(c, nullptr)),
    CALL(ovex_script_get_state(c, nullptr)),
    CALL(ovex_axi_read(c, kScratch, nullptr)),
};

// The calls whose result differs from `expected`, by name.
std::vector<std::string> Differing(const std::vector<Call>& calls, ovex_ctx* ctx,
                                   std::int32_t expected) {
    std::vector<std::string> differing;
    for (const auto& call : calls) {
        if (const std::int32_t result = call.run(ctx); result != expected) {
            differing.push_back(call.name + " gave " + std::to_string(result));
        }
    }
    return differing;
}

class LegacyHandles : public LegacySession {
protected:
    LogCapture m_log;
};

TEST_F(LegacyHandles, NullReleasedAndForeignHandlesAreRefusedWithoutALogLine) {
    ASSERT_EQ(AddAndOpen(), OVEX_OK);
    m_log.Clear();
    EXPECT_EQ(Differing(kHandleCalls, nullptr, OVEX_ERR_HANDLE), std::vector<std::string>{});

    // What ovex_ctx_delete leaves of a handle, on a record that is still there to be read.
    std::memset(m_ctx->magic, 0, sizeof m_ctx->magic);
    EXPECT_EQ(Differing(kHandleCalls, m_ctx, OVEX_ERR_HANDLE), std::vector<std::string>{});
    ovex_log_set_func(
        m_ctx, [](const char*, int32_t, void*) { ADD_FAILURE(); }, nullptr, nullptr);
    std::memcpy(m_ctx->magic, legacy::kMagic, sizeof m_ctx->magic);
    EXPECT_TRUE(m_log.Messages().empty());

    // A context of the current interface, whose record begins with its own tag.
    ovexsdk_dev_ctx current{};
    ASSERT_EQ(ovexsdk_ctx_create(&current, "usb:sn:OVX00001"), OVEXSDK_OK);
    m_log.Clear();
    EXPECT_EQ(Differing(kHandleCalls, reinterpret_cast<ovex_ctx*>(&current), OVEX_ERR_HANDLE),
              std::vector<std::string>{});
    EXPECT_TRUE(m_log.Messages().empty());
    EXPECT_EQ(ovexsdk_ctx_release(&current), OVEXSDK_OK);
}

TEST_F(LegacyHandles, NullPointersAreRefusedBeforeTheBoardIsAsked) {
    ASSERT_EQ(AddAndOpen(), OVEX_OK);
    m_log.Clear();
    EXPECT_EQ(Differing(kNullPointerCalls, m_ctx, OVEX_ERR_HANDLE), std::vector<std::string>{});
    EXPECT_TRUE(m_log.Messages().empty());
}

}  // namespace
}  // namespace ovex::sdk::testing
