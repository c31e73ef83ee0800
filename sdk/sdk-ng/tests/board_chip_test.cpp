// The chip of a Timepix3 board through the exported interface: what exists before and after the
// frontend's power-up, the chip's description, pixel matrices and masks as the chip receives
// them, its digital test, DACs, thresholds, mode and polarity.

#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <string>
#include <vector>

#include "api_internal.hpp"
#include "support/chip_session.hpp"

namespace ovex::sdk {
namespace {

using testing::Bytes;
using testing::ChipStream;
using testing::kChipId;
using testing::kPixels;

class BoardChip : public testing::ChipSession {};

TEST_F(BoardChip, ChipExistsOnlyBehindTheFrontendPowerUp) {
    std::uint8_t count = 9;
    ASSERT_EQ(OpenKind(vboard::BoardKind::kTimepix3), OVEXSDK_OK);
    EXPECT_EQ(ovexsdk_chip_get_count(&m_ctx, nullptr), OVEXSDK_ERR_INVALID);
    EXPECT_TRUE(Logged("Count pointer is not valid."));
    EXPECT_EQ(ovexsdk_chip_get_count(&m_ctx, &count), OVEXSDK_OK);
    EXPECT_EQ(count, 0);
    EXPECT_EQ(ovexsdk_chip_set_raw_thld(&m_ctx, 0, 100), OVEXSDK_ERR_INVALID);
    EXPECT_TRUE(Logged("Value '0' is not a valid chip ID."));
    EXPECT_EQ(ovexsdk_chip_configure(&m_ctx, 0), OVEXSDK_ERR_INVALID);
    EXPECT_TRUE(Logged("Value '0' is not a valid Timepix chip ID."));
    EXPECT_EQ(ovexsdk_chip_set_mode(&m_ctx, ToAToTDD), OVEXSDK_ERR_INVALID);
    EXPECT_TRUE(Logged("Failed to set chip mode, chip module is missing."));
    ovexsdk_chip_thld_info info{};
    count = 1;
    EXPECT_EQ(ovexsdk_chip_get_thld_info(&m_ctx, &info, &count), OVEXSDK_OK);
    EXPECT_EQ(count, 0);

    // The frontend's script needs the backend: without it the unit fails and adds nothing.
    EXPECT_EQ(ovexsdk_dev_power_up_unit(&m_ctx, 1), OVEXSDK_ERR_FAILED);
    EXPECT_EQ(ovexsdk_chip_get_count(&m_ctx, &count), OVEXSDK_OK);
    EXPECT_EQ(count, 0);

    ASSERT_EQ(ovexsdk_dev_power_up(&m_ctx), OVEXSDK_OK);
    EXPECT_EQ(ovexsdk_chip_get_count(&m_ctx, &count), OVEXSDK_OK);
    EXPECT_EQ(count, 1);
    EXPECT_EQ(ovexsdk_chip_get_count(&m_ctx, &count), OVEXSDK_OK);

    // Power cycles keep the modules: the callbacks find them and skip.
    ASSERT_EQ(ovexsdk_dev_power_down(&m_ctx), OVEXSDK_OK);
    ASSERT_EQ(ovexsdk_dev_power_up(&m_ctx), OVEXSDK_OK);
    EXPECT_TRUE(Logged("Device backend power-up callback already invoked, skipping."));
    EXPECT_TRUE(Logged("Device frontend already created, skipping."));
    EXPECT_EQ(ovexsdk_chip_get_count(&m_ctx, &count), OVEXSDK_OK);
    EXPECT_EQ(count, 1);
}

TEST_F(BoardChip, RefusedChipInfoFailsTheFrontendAndLeavesNothingHalfBuilt) {
    ASSERT_EQ(OpenKind(vboard::BoardKind::kTimepix3), OVEXSDK_OK);
    ASSERT_EQ(ovexsdk_dev_power_up_unit(&m_ctx, 0), OVEXSDK_OK);
    RefuseAt("invoke TPX_CHIP_INFO");
    EXPECT_EQ(ovexsdk_dev_power_up_unit(&m_ctx, 1), OVEXSDK_ERR_FAILED);
    EXPECT_TRUE(Logged("Failed to build a device after power up. Cannot fetch a chip info."));
    std::uint8_t count = 9;
    EXPECT_EQ(ovexsdk_chip_get_count(&m_ctx, &count), OVEXSDK_OK);
    EXPECT_EQ(count, 0);
    ovexsdk_trigger_mode modes[4];
    std::uint64_t capacity = 4;
    EXPECT_EQ(ovexsdk_trigger_list(&m_ctx, modes, &capacity), OVEXSDK_ERR_FAILED);

    // A frontend added before the chip was known would make the next power-up skip the chip.
    EXPECT_EQ(ovexsdk_dev_power_down_unit(&m_ctx, 1), OVEXSDK_OK);
    ASSERT_EQ(ovexsdk_dev_power_up_unit(&m_ctx, 1), OVEXSDK_OK);
    EXPECT_EQ(ovexsdk_chip_get_count(&m_ctx, &count), OVEXSDK_OK);
    EXPECT_EQ(count, 1);
    EXPECT_EQ(ovexsdk_trigger_list(&m_ctx, modes, &capacity), OVEXSDK_OK);
}

TEST_F(BoardChip, RefusesCallsWithoutDeviceOrWithBadPointers) {
    Create();
    std::uint8_t count = 1;
    EXPECT_EQ(ovexsdk_chip_get_count(&m_ctx, &count), OVEXSDK_ERR_NO_DEVICE);
    EXPECT_EQ(ovexsdk_chip_configure(&m_ctx, 0), OVEXSDK_ERR_NO_DEVICE);
    EXPECT_EQ(ovexsdk_chip_get_thld(&m_ctx, 0, nullptr), OVEXSDK_ERR_INVALID);
    EXPECT_TRUE(Logged("Device pointer 'device' is invalid."));
    Release();

    OpenPowered();
    EXPECT_EQ(ovexsdk_chip_get_info(&m_ctx, nullptr, &count), OVEXSDK_ERR_INVALID);
    EXPECT_TRUE(Logged("Parameter pointer 'infos' is invalid."));
    EXPECT_EQ(ovexsdk_chip_configure_from_string(&m_ctx, 0, nullptr), OVEXSDK_ERR_INVALID);
    EXPECT_TRUE(Logged("Parameter pointer 'contents' is invalid."));
    EXPECT_EQ(ovexsdk_chip_set_pixel_mask(&m_ctx, 0, nullptr), OVEXSDK_ERR_INVALID);
    ovexsdk_chip_pixel_mask no_data{nullptr, kPixels};
    EXPECT_EQ(ovexsdk_chip_get_pixel_mask(&m_ctx, 0, &no_data), OVEXSDK_ERR_INVALID);
    EXPECT_TRUE(Logged("Parameter pointer 'mask->data' is invalid."));
    EXPECT_EQ(ovexsdk_chip_get_raw_thld(&m_ctx, 0, nullptr), OVEXSDK_ERR_INVALID);
    EXPECT_EQ(ovexsdk_chip_set_thld(&m_ctx, 1, 5.0f), OVEXSDK_ERR_INVALID);
    EXPECT_TRUE(Logged("Value '1' is not a valid chip ID."));
    EXPECT_EQ(ovexsdk_chip_set_polarity(&m_ctx, 3, OVEXSDK_POLARITY_1), OVEXSDK_ERR_INVALID);
    EXPECT_TRUE(Logged("Value '3' is not a valid Timepix chip ID."));
    EXPECT_TRUE(Journal().empty());
}

TEST_F(BoardChip, DescribesTheChipAndFillsArraysUpToTheirCapacity) {
    OpenPowered();
    ovexsdk_chip_info infos[2]{};
    std::uint8_t count = 2;
    ASSERT_EQ(ovexsdk_chip_get_info(&m_ctx, infos, &count), OVEXSDK_OK);
    ASSERT_EQ(count, 1);
    EXPECT_STREQ(infos[0].chip_id, kChipId);
    EXPECT_EQ(std::vector<int>(infos[0].modes, infos[0].modes + 8),
              (std::vector<int>{6, 7, 8, 0, 0, 0, 0, 0}));
    EXPECT_EQ(infos[0].polarities[0], OVEXSDK_POLARITY_1);
    EXPECT_EQ(infos[0].polarities[1], OVEXSDK_POLARITY_2);
    EXPECT_EQ(infos[0].width, 256u);
    EXPECT_EQ(infos[0].height, 256u);

    ovexsdk_chip_settings settings{};
    count = 1;
    ASSERT_EQ(ovexsdk_chip_get_settings(&m_ctx, &settings, &count), OVEXSDK_OK);
    EXPECT_EQ(settings.mode, Unknown);
    EXPECT_EQ(settings.polarity, OVEXSDK_POLARITY_1);

    count = 0;
    EXPECT_EQ(ovexsdk_chip_get_settings(&m_ctx, &settings, &count), OVEXSDK_OK);
    EXPECT_EQ(count, 0);
    EXPECT_TRUE(
        Logged("Cannot fit all chip settings structs into the array: provided array of size 0, "
               "got 1 elements"));
}

TEST_F(BoardChip, ModeAndPolarityReachTheChip) {
    OpenPowered();
    const auto modes = [this] { return Engine().Invocations("TPX_OPMODE"); };
    ASSERT_EQ(ovexsdk_chip_set_mode(&m_ctx, ToAToTDD), OVEXSDK_OK);
    ASSERT_EQ(ovexsdk_chip_set_mode(&m_ctx, IToTEvCountFBZS), OVEXSDK_OK);
    ASSERT_EQ(ovexsdk_chip_set_mode(&m_ctx, ToAToTFBZS), OVEXSDK_OK);
    EXPECT_EQ(modes(), (std::vector<Bytes>{{1}, {2}, {0}}));

    // No pipeline takes the depth of an unknown mode; a Timepix2 mode has no byte on this chip.
    EXPECT_EQ(ovexsdk_chip_set_mode(&m_ctx, Unknown), OVEXSDK_ERR_FAILED);
    EXPECT_TRUE(Logged("BUG: Acquisition pixel depth '4' is unhandled."));
    EXPECT_EQ(ovexsdk_chip_set_mode(&m_ctx, EvCount8Bit), OVEXSDK_ERR_INVALID);
    EXPECT_TRUE(Logged("Unsupported operational mode: 1"));
    EXPECT_EQ(modes().size(), 3u);

    EXPECT_EQ(ovexsdk_chip_set_polarity(&m_ctx, 0, static_cast<ovexsdk_chip_polarity>(0)),
              OVEXSDK_ERR_INVALID);
    EXPECT_EQ(ovexsdk_chip_set_polarity(&m_ctx, 0, static_cast<ovexsdk_chip_polarity>(3)),
              OVEXSDK_ERR_INVALID);
    EXPECT_TRUE(Logged("Value '3' is not a valid Timepix polarity."));
    EXPECT_EQ(State("TPX_CHIP_POLARITY"), 0);
    ASSERT_EQ(ovexsdk_chip_set_polarity(&m_ctx, 0, OVEXSDK_POLARITY_2), OVEXSDK_OK);
    EXPECT_EQ(State("TPX_CHIP_POLARITY"), 1);

    ovexsdk_chip_settings settings{};
    std::uint8_t count = 1;
    ASSERT_EQ(ovexsdk_chip_get_settings(&m_ctx, &settings, &count), OVEXSDK_OK);
    EXPECT_EQ(settings.mode, ToAToTFBZS);
    EXPECT_EQ(settings.polarity, OVEXSDK_POLARITY_2);
}

// A matrix with every bit pattern: trims, masks and test bits, different in every column.
Bytes PatternMatrix() {
    Bytes matrix(kPixels);
    for (std::size_t i = 0; i < kPixels; ++i) {
        matrix[i] = static_cast<std::uint8_t>((i * 37 + i / 256) % 64);
    }
    return matrix;
}

TEST_F(BoardChip, MatricesReachTheChipInItsColumnOrderAndStuckPixelsFailTheDigitalTest) {
    OpenPowered();
    Engine().StickPixel(1234, 0x3F);
    Engine().StickPixel(65535, 0x00);
    Bytes host = PatternMatrix();
    ovexsdk_chip_matrix matrix{host.data(), host.size()};
    std::vector<ovexsdk_chip_pix_indices> bad(kPixels, 7);
    std::uint64_t count = 0;
    ASSERT_EQ(ovexsdk_chip_configure_from_matrix(&m_ctx, 0, &matrix, bad.data(), &count),
              OVEXSDK_OK);
    ASSERT_EQ(count, 2u);
    EXPECT_EQ(bad[0], 1234u);
    EXPECT_EQ(bad[1], 65535u);
    EXPECT_TRUE(Logged("Digital test of 'H05-W0318' - good: 65534, bad: 2."));
    EXPECT_TRUE(Logged("Chip H05-W0318 configured with provided data."));
    EXPECT_EQ(ChipMatrix(), ChipStream(host));

    // A packed matrix is taken as the chip's own order and only turned end for end.
    Bytes packed(49152);
    for (std::size_t i = 0; i < packed.size(); ++i) {
        packed[i] = static_cast<std::uint8_t>(i * 7 + i / 384);
    }
    matrix = {packed.data(), packed.size()};
    ASSERT_EQ(ovexsdk_chip_configure_from_matrix(&m_ctx, 0, &matrix, bad.data(), &count),
              OVEXSDK_OK);
    EXPECT_EQ(ChipMatrix(), testing::ReversedStream(packed));

    // A matrix of another size reaches nothing, after the default matrix went in.
    Bytes short_matrix(1000, 0x3F);
    matrix = {short_matrix.data(), short_matrix.size()};
    EXPECT_EQ(ovexsdk_chip_configure_from_matrix(&m_ctx, 0, &matrix, bad.data(), &count),
              OVEXSDK_ERR_FAILED);
    EXPECT_TRUE(Logged("Provided configuration matrix has incorrect size (1000)"));
    EXPECT_EQ(ChipMatrix(), ChipStream(Bytes(kPixels, 0x10)));
}

TEST_F(BoardChip, UserMaskMergesIntoTheMatrixAndNeverUnmasks) {
    OpenPowered();
    Bytes host = PatternMatrix();
    ovexsdk_chip_matrix matrix{host.data(), host.size()};
    std::vector<ovexsdk_chip_pix_indices> bad(kPixels);
    std::uint64_t count = 0;
    ASSERT_EQ(ovexsdk_chip_configure_from_matrix(&m_ctx, 0, &matrix, bad.data(), &count),
              OVEXSDK_OK);

    Bytes mask(kPixels, 0);
    mask[3 * 256 + 200] = 1;
    mask[255 * 256 + 0] = 0xFF;
    const ovexsdk_chip_pixel_mask user{mask.data(), mask.size()};
    ASSERT_EQ(ovexsdk_chip_set_pixel_mask(&m_ctx, 0, &user), OVEXSDK_OK);
    EXPECT_TRUE(Logged("New user mask contains 2 masked pixels."));
    Bytes masked = host;
    masked[3 * 256 + 200] |= 1;
    masked[255 * 256 + 0] |= 1;
    EXPECT_EQ(ChipMatrix(), ChipStream(masked));

    const Bytes none(kPixels, 0);
    const ovexsdk_chip_pixel_mask clear{const_cast<std::uint8_t*>(none.data()), none.size()};
    ASSERT_EQ(ovexsdk_chip_set_pixel_mask(&m_ctx, 0, &clear), OVEXSDK_OK);
    EXPECT_EQ(ChipMatrix(), ChipStream(masked));

    // The getter copies what fits and keeps the host's size.
    ASSERT_EQ(ovexsdk_chip_set_pixel_mask(&m_ctx, 0, &user), OVEXSDK_OK);
    Bytes back(3 * 256 + 201, 9);
    ovexsdk_chip_pixel_mask got{back.data(), back.size()};
    ASSERT_EQ(ovexsdk_chip_get_pixel_mask(&m_ctx, 0, &got), OVEXSDK_OK);
    EXPECT_EQ(got.size, back.size());
    EXPECT_EQ(back, Bytes(mask.begin(), mask.begin() + static_cast<long>(back.size())));

    const ovexsdk_chip_pixel_mask wrong{mask.data(), 1000};
    EXPECT_EQ(ovexsdk_chip_set_pixel_mask(&m_ctx, 0, &wrong), OVEXSDK_ERR_FAILED);
    EXPECT_TRUE(
        Logged("Provided pixel mask doesn't have correct size. Expected 65536 bytes, got 1000."));
    EXPECT_EQ(ChipMatrix(), ChipStream(masked));
}

TEST_F(BoardChip, DacsKeepTheBoardsLimitsAndTheSensePinFollowsThem) {
    OpenPowered();
    std::uint8_t count = 0;
    ASSERT_EQ(ovexsdk_chip_get_dac_count(&m_ctx, 0, &count), OVEXSDK_OK);
    ASSERT_EQ(count, 18);
    ovexsdk_chip_dac_info dacs[18]{};
    ASSERT_EQ(ovexsdk_chip_get_dac_info(&m_ctx, 0, dacs, &count), OVEXSDK_OK);
    ASSERT_EQ(count, 18);
    EXPECT_STREQ(dacs[0].name, "PreampOn");
    EXPECT_STREQ(dacs[5].name, "THLFine");
    EXPECT_STREQ(dacs[6].name, "THLCoarse");
    EXPECT_STREQ(dacs[17].name, "PllVCntrl");

    for (const auto& dac : dacs) {
        SCOPED_TRACE(dac.name);
        EXPECT_EQ(dac.is_sense, 0);
        EXPECT_EQ(dac.flag, 1);
        const auto state = std::string("DAC_") + dac.name + "_0";
        for (const int value : {dac.min, dac.max}) {
            ASSERT_EQ(ovexsdk_chip_set_dac(&m_ctx, 0, dac.id, static_cast<std::uint16_t>(value)),
                      OVEXSDK_OK);
            std::uint16_t read = 0;
            ASSERT_EQ(ovexsdk_chip_get_dac(&m_ctx, 0, dac.id, &read), OVEXSDK_OK);
            EXPECT_EQ(read, value);
        }
        EXPECT_EQ(ovexsdk_chip_set_dac(&m_ctx, 0, dac.id, static_cast<std::uint16_t>(dac.max + 1)),
                  OVEXSDK_ERR_FAILED);
        EXPECT_EQ(State(state.c_str()), dac.max);
    }
    EXPECT_EQ(dacs[5].max, 511);
    EXPECT_EQ(dacs[6].max, 15);

    for (const std::uint8_t id : {0, 19}) {
        EXPECT_EQ(ovexsdk_chip_set_dac(&m_ctx, 0, id, 1), OVEXSDK_ERR_FAILED);
        float value = 0;
        EXPECT_EQ(ovexsdk_chip_measure_dac(&m_ctx, 0, id, &value), OVEXSDK_ERR_FAILED);
    }
    EXPECT_TRUE(Logged("Value 19 is not a valid DAC identifier."));

    // The sense pin spans 100 mV at a DAC's lowest code to 1300 mV at its highest; the value
    // comes in the board's unit.
    ASSERT_EQ(ovexsdk_chip_set_dac(&m_ctx, 0, 6, 0), OVEXSDK_OK);
    float millivolts = 0;
    ASSERT_EQ(ovexsdk_chip_measure_dac(&m_ctx, 0, 6, &millivolts), OVEXSDK_OK);
    EXPECT_EQ(millivolts, 100.0f);
    EXPECT_EQ(State("TPX_DAC_SELECT"), 6);
    ASSERT_EQ(ovexsdk_chip_measure_dac(&m_ctx, 0, 7, &millivolts), OVEXSDK_OK);
    EXPECT_EQ(millivolts, 1300.0f);
}

TEST_F(BoardChip, RawThresholdsSplitOverCoarseAndFineAndReadBack) {
    OpenPowered();
    ovexsdk_chip_thld_info info{};
    std::uint8_t count = 1;
    ASSERT_EQ(ovexsdk_chip_get_thld_info(&m_ctx, &info, &count), OVEXSDK_OK);
    EXPECT_EQ(info.raw_min, 0u);
    EXPECT_EQ(info.raw_max, 15u * 160 + 511);
    EXPECT_EQ(info.calibrated, 0u);
    EXPECT_EQ(info.energy_low, 0.0f);
    EXPECT_EQ(info.energy_high, 0.0f);

    for (const std::uint32_t raw : {0u, 511u, 512u, 1078u, 2910u, 2911u}) {
        SCOPED_TRACE(raw);
        ASSERT_EQ(ovexsdk_chip_set_raw_thld(&m_ctx, 0, raw), OVEXSDK_OK);
        std::uint32_t read = 0;
        ASSERT_EQ(ovexsdk_chip_get_raw_thld(&m_ctx, 0, &read), OVEXSDK_OK);
        EXPECT_EQ(read, raw);
        EXPECT_EQ(State("DAC_THLCoarse_0") * 160 + State("DAC_THLFine_0"), static_cast<int>(raw));
        EXPECT_LE(State("DAC_THLFine_0"), 511);
    }
    ASSERT_EQ(ovexsdk_chip_set_raw_thld(&m_ctx, 0, 512), OVEXSDK_OK);
    EXPECT_EQ(State("DAC_THLCoarse_0"), 1);
    EXPECT_EQ(State("DAC_THLFine_0"), 352);

    EXPECT_EQ(ovexsdk_chip_set_raw_thld(&m_ctx, 0, 2912), OVEXSDK_ERR_FAILED);
    EXPECT_TRUE(Logged("Raw threshold input value: 2912 is outside the valid range [0, 2911]."));
    EXPECT_EQ(State("DAC_THLFine_0"), 352);

    // Without a calibration keV and raw are one: only 0 is in range.
    ASSERT_EQ(ovexsdk_chip_set_thld(&m_ctx, 0, 0.0f), OVEXSDK_OK);
    EXPECT_EQ(State("DAC_THLCoarse_0"), 0);
    EXPECT_EQ(State("DAC_THLFine_0"), 0);
    EXPECT_EQ(ovexsdk_chip_set_thld(&m_ctx, 0, 1.0f), OVEXSDK_ERR_FAILED);
    EXPECT_TRUE(
        Logged("Input threshold: 1.000 keV is outside the valid range [0.000, 0.000] keV."));
}

}  // namespace
}  // namespace ovex::sdk
