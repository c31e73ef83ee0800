// The chip, chip mode and threshold functions of the older interface over a virtual Timepix3
// board, and the handle and argument checks that every function starts with.

#include <gtest/gtest.h>

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "support/chip_session.hpp"
#include "support/legacy_session.hpp"
#include "support/log_capture.hpp"

namespace ovex::sdk::testing {
namespace {

class LegacyChip : public LegacySession {
protected:
    int State(const char* name) { return Board().Engine().StateValue(name); }
};

TEST_F(LegacyChip, BadHandlesAndNullArgumentsGiveTheHandleErrorAndLogNothing) {
    uint32_t count = 0;
    const char* text = nullptr;
    const auto event = [](ovex_mon_event*, void*) {};
    // A function of each file, each family's way of taking its handle.
    const std::vector<std::function<std::int32_t(ovex_ctx*)>> calls = {
        [&](ovex_ctx* c) { return ovex_chip_id(c, 0, &text); },
        [&](ovex_ctx* c) { return ovex_chip_mode_select(c, "tpx3-toa-tot-dd"); },
        [&](ovex_ctx* c) { return ovex_chip_dac_name(c, 0, &text); },
        [&](ovex_ctx* c) { return ovex_chip_threshold_raw_get(c, "0", &count); },
        [&](ovex_ctx* c) { return ovex_mon_event_set_onvaluechanged(c, "T_SENS", event, nullptr); },
    };
    ovexsdk_dev_ctx current{};
    ASSERT_EQ(ovexsdk_ctx_create(&current, "usb:ix:0"), OVEXSDK_OK);
    // A released handle's memory is gone: a record whose magic was cleared stands for it.
    auto released = std::make_unique<ovex_ctx>();
    New();
    LogCapture log;
    for (std::size_t i = 0; i < calls.size(); ++i) {
        EXPECT_EQ(calls[i](nullptr), OVEX_ERR_HANDLE) << i;
        EXPECT_EQ(calls[i](released.get()), OVEX_ERR_HANDLE) << i;
        EXPECT_EQ(calls[i](reinterpret_cast<ovex_ctx*>(&current)), OVEX_ERR_HANDLE) << i;
    }
    // Null arguments are refused before the library is asked.
    uint8_t byte = 0;
    int32_t value = 0;
    EXPECT_EQ(ovex_chip_mode_select_ex(m_ctx, "tpx3-toa-tot-dd", nullptr), OVEX_ERR_HANDLE);
    EXPECT_EQ(ovex_load_configuration_matrix(m_ctx, &byte, 1, nullptr, nullptr), OVEX_ERR_HANDLE);
    EXPECT_EQ(ovex_chip_dac_value_get(m_ctx, "Fbk", nullptr), OVEX_ERR_HANDLE);
    EXPECT_EQ(ovex_chip_threshold_range(m_ctx, "0", nullptr, nullptr, nullptr), OVEX_ERR_HANDLE);
    EXPECT_EQ(ovex_mon_event_set_onavailabilitychanged(m_ctx, "T_SENS", nullptr, nullptr),
              OVEX_ERR_HANDLE);
    EXPECT_EQ(ovex_mon_event_is_available(nullptr, &value), OVEX_ERR_HANDLE);
    EXPECT_EQ(ovex_mon_event_id(&m_ctx->value_events[0], nullptr), OVEX_ERR_HANDLE);
    EXPECT_TRUE(log.Lines().empty());
    EXPECT_EQ(ovexsdk_ctx_release(&current), OVEXSDK_OK);
    ASSERT_EQ(ovex_mon_get_last_error(m_ctx, &text), OVEX_OK);
    EXPECT_STREQ(text, "");
}

TEST_F(LegacyChip, ChipIdsPolarityAndThresholdIdsExistBehindTheFrontendsPowerUp) {
    ASSERT_EQ(AddAndOpen(), OVEX_OK);
    uint32_t count = 9;
    const char* id = nullptr;
    ASSERT_EQ(ovex_chip_threshold_count(m_ctx, &count), OVEX_OK);
    EXPECT_EQ(count, 0u);
    EXPECT_EQ(ovex_chip_id(m_ctx, 0, &id), OVEX_ERR_HANDLE);
    EXPECT_EQ(ovex_chip_mode_count(m_ctx, &count), OVEX_ERR_HANDLE);
    EXPECT_EQ(ovex_chip_threshold_id(m_ctx, 0, &id), OVEX_ERR_HANDLE);
    EXPECT_EQ(ovex_chip_refresh(m_ctx), OVEX_OK);  // no chip to configure
    ASSERT_EQ(ovexsdk_dev_power_up(&m_ctx->context), OVEXSDK_OK);

    ASSERT_EQ(ovex_chip_count(m_ctx, &count), OVEX_OK);
    EXPECT_EQ(count, 1u);
    ASSERT_EQ(ovex_chip_id(m_ctx, 0, &id), OVEX_OK);
    EXPECT_STREQ(id, "H05-W0318");
    EXPECT_EQ(id, m_ctx->chips[0].chip_id);  // kept in the handle
    EXPECT_EQ(ovex_chip_id(m_ctx, 1, &id), OVEX_ERR_HANDLE);
    ASSERT_EQ(ovex_chip_threshold_id(m_ctx, 0, &id), OVEX_OK);
    EXPECT_STREQ(id, "0");
    EXPECT_EQ(ovex_chip_threshold_id(m_ctx, 1, &id), OVEX_ERR_HANDLE);
    ovex_pixel_mask_size size{};
    ASSERT_EQ(ovex_get_pixel_mask_size(m_ctx, &size), OVEX_OK);
    EXPECT_EQ(size.height, 256u);
    EXPECT_EQ(size.width, 256u);

    // Polarities count from 0; anything but 1 is the first.
    int32_t polarity = 9;
    for (const int32_t value : {7, -1, 2}) {
        ASSERT_EQ(ovex_chip_set_polarity(m_ctx, 0, 1), OVEX_OK);
        EXPECT_EQ(State("TPX_CHIP_POLARITY"), 1);
        ASSERT_EQ(ovex_chip_get_polarity(m_ctx, 0, &polarity), OVEX_OK);
        EXPECT_EQ(polarity, 1);
        ASSERT_EQ(ovex_chip_set_polarity(m_ctx, 0, value), OVEX_OK) << value;
        EXPECT_EQ(State("TPX_CHIP_POLARITY"), 0) << value;
        ASSERT_EQ(ovex_chip_get_polarity(m_ctx, 0, &polarity), OVEX_OK);
        EXPECT_EQ(polarity, 0);
    }
    EXPECT_EQ(ovex_chip_get_polarity(m_ctx, 1, &polarity), OVEX_ERR_HANDLE);
    EXPECT_EQ(ovex_chip_set_polarity(m_ctx, 4, 0), OVEX_ERR_HANDLE);
    // Below the handle's four chips, one the board lacks is the library's refusal.
    EXPECT_EQ(ovex_chip_set_polarity(m_ctx, 1, 0), OVEX_ERR_INVALID);
}

TEST_F(LegacyChip, ModeIdsFollowTheChipsModesAndSelectBothModes) {
    OpenPowered();
    uint32_t count = 0;
    ASSERT_EQ(ovex_chip_mode_count(m_ctx, &count), OVEX_OK);
    std::vector<std::string> ids;
    const char* id = nullptr;
    for (uint32_t index = 0; index < count; ++index) {
        ASSERT_EQ(ovex_chip_mode_id(m_ctx, index, &id), OVEX_OK);
        ids.emplace_back(id);
    }
    EXPECT_EQ(ids, (std::vector<std::string>{
                       "tpx3-toa-tot-dd", "tpx3-toa-tot-dd-s", "tpx3-count-img", "tpx3-itot-img",
                       "tpx3-itot-count-bin", "tpx3-toa-tot-fb-zs", "tpx3-itot-evcount-zs"}));
    EXPECT_EQ(ovex_chip_mode_id(m_ctx, count, &id), OVEX_ERR_HANDLE);

    ASSERT_EQ(ovex_chip_mode_select(m_ctx, "tpx3-itot-count-bin"), OVEX_OK);
    EXPECT_EQ(std::make_pair(m_ctx->chip_mode, m_ctx->processing_mode), std::make_pair(6u, 5u));
    ASSERT_EQ(ovex_chip_mode_select(m_ctx, "tpx3-itot-evcount-zs"), OVEX_OK);
    EXPECT_EQ(std::make_pair(m_ctx->chip_mode, m_ctx->processing_mode), std::make_pair(8u, 1u));
    EXPECT_EQ(Board().Engine().Invocations("TPX_OPMODE"),
              (std::vector<std::vector<std::uint8_t>>{{1}, {2}}));
    // A Timepix2 mode is the chip's refusal, an unknown id ours; both keep what was stored.
    EXPECT_EQ(ovex_chip_mode_select(m_ctx, "tpx2-itot-10bit"), OVEX_ERR_INVALID);
    EXPECT_EQ(ovex_chip_mode_select(m_ctx, "tpx3-toa-tot"), OVEX_ERR_INVALID);
    EXPECT_EQ(m_ctx->chip_mode, 8u);

    // The parameters are kept first, even for an id that is refused.
    const ovexsdk_acq_params refused{{4, 5, 600}};
    EXPECT_EQ(ovex_chip_mode_select_ex(m_ctx, "unknown", &refused), OVEX_ERR_INVALID);
    EXPECT_EQ(m_ctx->params.scan.dwell_time, 600u);
    const ovexsdk_acq_params scan{{16, 8, 1000}};
    ASSERT_EQ(ovex_chip_mode_select_ex(m_ctx, "tpx3-count-img", &scan), OVEX_OK);
    EXPECT_EQ(m_ctx->params.scan.bins_per_line, 16u);
    EXPECT_EQ(std::make_pair(m_ctx->chip_mode, m_ctx->processing_mode), std::make_pair(6u, 3u));
}

void TakeBadPixels(const uint32_t* indices, uint64_t count, void* user) {
    auto& calls = *static_cast<std::vector<std::vector<uint32_t>>*>(user);
    calls.emplace_back(indices, indices + count);
}

TEST_F(LegacyChip, ConfigurationsOfAnyOfTheThreeFormatNamesAndMatricesReachChipZero) {
    OpenPowered();
    const std::string xml = ReadSample("tpx3.xml");
    ASSERT_FALSE(xml.empty());
    EXPECT_EQ(ovex_load_configuration(m_ctx, "XML", xml.c_str()), OVEX_ERR_HANDLE);
    int32_t calibrated = 9;
    ASSERT_EQ(ovex_chip_threshold_is_calibrated(m_ctx, "0", &calibrated), OVEX_OK);
    EXPECT_EQ(calibrated, 0);
    ASSERT_EQ(ovex_load_configuration(m_ctx, "yaml", xml.c_str()), OVEX_OK);
    EXPECT_EQ(State("DAC_THLCoarse_0"), 4);
    ASSERT_EQ(ovex_chip_threshold_is_calibrated(m_ctx, "0", &calibrated), OVEX_OK);
    EXPECT_EQ(calibrated, 1);
    EXPECT_EQ(ovex_load_configuration(m_ctx, "yml", "Layout: [unclosed"), OVEX_ERR_INVALID);

    // The failed pixels go to the callback once, and only for a matrix that was taken.
    Board().Engine().StickPixel(1234, 0x3F);
    std::vector<uint8_t> matrix(65536, 0x10);
    std::vector<std::vector<uint32_t>> calls;
    ASSERT_EQ(
        ovex_load_configuration_matrix(m_ctx, matrix.data(), matrix.size(), &TakeBadPixels, &calls),
        OVEX_OK);
    EXPECT_EQ(calls, (std::vector<std::vector<uint32_t>>{{1234}}));
    EXPECT_EQ(ovex_load_configuration_matrix(m_ctx, matrix.data(), 10, &TakeBadPixels, &calls),
              OVEX_ERR_UNAVAILABLE);
    EXPECT_EQ(calls.size(), 1u);

    std::vector<uint8_t> mask(65536, 0);
    mask[300] = 1;
    const ovexsdk_chip_pixel_mask user{mask.data(), mask.size()};
    ASSERT_EQ(ovex_set_pixel_mask(m_ctx, &user), OVEX_OK);
    std::vector<uint8_t> back(301, 9);
    uint64_t size = back.size();
    ASSERT_EQ(ovex_get_pixel_mask(m_ctx, back.data(), &size), OVEX_OK);
    EXPECT_EQ(back, std::vector<uint8_t>(mask.begin(), mask.begin() + 301));
}

TEST_F(LegacyChip, ThresholdsGoToTheChipTheIdsFirstDigitNames) {
    OpenPowered();
    ASSERT_EQ(ovex_chip_threshold_raw_set(m_ctx, "0", 512), OVEX_OK);
    EXPECT_EQ(State("DAC_THLCoarse_0"), 1);
    EXPECT_EQ(State("DAC_THLFine_0"), 352);
    uint32_t raw = 0;
    ASSERT_EQ(ovex_chip_threshold_raw_get(m_ctx, "0 and more", &raw), OVEX_OK);
    EXPECT_EQ(raw, 512u);
    for (const char* unknown : {"1", "x0", "", "-0"}) {
        EXPECT_EQ(ovex_chip_threshold_raw_get(m_ctx, unknown, &raw), OVEX_ERR_HANDLE) << unknown;
    }
    EXPECT_EQ(ovex_chip_threshold_raw_set(m_ctx, "0", 2912), OVEX_ERR_UNAVAILABLE);
    uint32_t min = 9;
    uint32_t max = 0;
    ASSERT_EQ(ovex_chip_threshold_raw_range(m_ctx, "0", &min, &max), OVEX_OK);
    EXPECT_EQ(std::make_pair(min, max), std::make_pair(0u, 2911u));
    float low = 9;
    float high = 9;
    float lowest_raw = 9;
    ASSERT_EQ(ovex_chip_threshold_range(m_ctx, "0", &low, &high, &lowest_raw), OVEX_OK);
    EXPECT_EQ(std::make_pair(low, high), std::make_pair(0.0f, 0.0f));
    // Without calibration keV and raw are one: only 0 is in range.
    ASSERT_EQ(ovex_chip_threshold_set(m_ctx, "0", 0.0f), OVEX_OK);
    EXPECT_EQ(State("DAC_THLCoarse_0"), 0);
    EXPECT_EQ(ovex_chip_threshold_set(m_ctx, "0", 1.0f), OVEX_ERR_UNAVAILABLE);
    float kev = 9;
    ASSERT_EQ(ovex_chip_threshold_get(m_ctx, "0", &kev), OVEX_OK);
    EXPECT_EQ(kev, 0.0f);
}

}  // namespace
}  // namespace ovex::sdk::testing
