// The Timepix3 chip module over scripted item sets: the matrix transforms, what reaches the
// board and in which order, the chip id, the DACs and the threshold split.

#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <map>
#include <random>
#include <string>
#include <utility>
#include <vector>

#include "impl/item_set.hpp"
#include "modules/tpx3_chip.hpp"
#include "modules/tpx3_matrix.hpp"
#include "modules/tpx3_thld_ctrl.hpp"
#include "ovex/config_loader/config_loader.hpp"
#include "support/edited_config.hpp"
#include "support/log_capture.hpp"
#include "support/scripted_items.hpp"

namespace ovex::sdk::testing {
namespace {

using Bytes = std::vector<std::uint8_t>;

// The item sets of a Timepix3 board.
ScriptedCommands Tpx3Commands() {
    return ScriptedCommands({"TPX_INIT", "TPX_ALIGN_CLK", "TPX_DEFAULT_DAC", "TPX_RESET_SEQ",
                             "TPX_LOAD_PXCONF", "TPX_READ_PXCONF", "TPX_OPMODE", "TPX_CHIP_INFO"});
}
ScriptedStates Tpx3States() {
    return ScriptedStates(
        {"TPX_CHAN_EN",    "TPX_CHIP_POLARITY", "TPX_CHIP_ID",     "TPX_DAC_SELECT",
         "TPX_DAC_OUT",    "DAC_PreampOn_0",    "DAC_PreampOff_0", "DAC_NCas_0",
         "DAC_Ikrum_0",    "DAC_Fbk_0",         "DAC_THLFine_0",   "DAC_THLCoarse_0",
         "DAC_DiscS1On_0", "DAC_DiscS1Off_0",   "DAC_DiscS2On_0",  "DAC_DiscS2Off_0",
         "DAC_PixelDac_0", "DAC_TpBuffIn_0",    "DAC_TpBuffOut_0", "DAC_TpCoarse_0",
         "DAC_TpFine_0",   "DAC_CpPll_0",       "DAC_PllVCntrl_0"},
        {{"DAC_THLFine_0", {0, 511}}, {"DAC_THLCoarse_0", {0, 15}}});
}

Bytes RandomPixels(unsigned seed) {
    std::mt19937 random(seed);
    Bytes pixels(tpx3::kPixelCount);
    for (auto& pixel : pixels) {
        pixel = static_cast<std::uint8_t>(random() & tpx3::kPixelBits);
    }
    return pixels;
}

Bytes Reversed(Bytes bytes) {
    std::reverse(bytes.begin(), bytes.end());
    return bytes;
}

class Tpx3ChipTest : public ::testing::Test {
protected:
    // The bytes of the last matrix sent, in the order the board took them.
    Bytes LastMatrixSent() const {
        Bytes sent;
        for (const auto& [name, input] : commands.calls) {
            if (name == "TPX_LOAD_PXCONF" && input.size() == 4) {
                sent.clear();
            } else if (name == "TPX_LOAD_PXCONF") {
                sent.insert(sent.end(), input.begin(), input.end());
            }
        }
        return sent;
    }
    // The host form of the last matrix sent.
    Bytes LastHostMatrix() const {
        const Bytes packed = Reversed(LastMatrixSent());
        Bytes device(tpx3::kPixelCount);
        Bytes host(tpx3::kPixelCount);
        tpx3::Unpack(packed, device);
        tpx3::ToDeviceOrder(device, host);
        return host;
    }

    LogCapture log;
    ScriptedCommands commands = Tpx3Commands();
    ScriptedStates states = Tpx3States();
    Timepix3 chip{&commands, &states, nullptr, nullptr};
};

TEST(Tpx3Matrix, DeviceOrderIsTheAntiDiagonalMirrorWithTrimBitsReversedAndItsOwnInverse) {
    const Bytes host = RandomPixels(1);
    Bytes device(tpx3::kPixelCount);
    tpx3::ToDeviceOrder(host, device);
    for (std::size_t y = 0; y < 256; ++y) {
        for (std::size_t x = 0; x < 256; ++x) {
            const std::uint8_t in = host[(255 - x) * 256 + (255 - y)];
            const int swapped = (in & 0x21) | (in >> 4 & 1) << 1 | (in >> 3 & 1) << 2 |
                                (in >> 2 & 1) << 3 | (in >> 1 & 1) << 4;
            ASSERT_EQ(device[y * 256 + x], swapped) << x << "," << y;
        }
    }
    Bytes back(tpx3::kPixelCount);
    tpx3::ToDeviceOrder(device, back);
    EXPECT_EQ(back, host);
}

TEST(Tpx3Matrix, PackingPutsFourPixelsBigEndianIntoThreeBytesAndUnpackingUndoesIt) {
    Bytes pixels = RandomPixels(2);
    pixels[0] = 0x3F;
    pixels[1] = 0x00;
    pixels[2] = 0x2A;
    pixels[3] = 0x15;
    Bytes packed(tpx3::kPackedSize);
    tpx3::Pack(pixels, packed);
    EXPECT_EQ(Bytes(packed.begin(), packed.begin() + 3), (Bytes{0xFC, 0x0A, 0x95}));
    Bytes back(tpx3::kPixelCount);
    tpx3::Unpack(packed, back);
    EXPECT_EQ(back, pixels);
}

TEST(Tpx3Matrix, ReadbackPlacesEachConfigurationPacketAndLeavesSilentPixelsZero) {
    const Bytes host = RandomPixels(3);
    Bytes device(tpx3::kPixelCount);
    tpx3::ToDeviceOrder(host, device);
    // Packets in reverse pixel order, a DATA packet among them; device pixel 7 sends nothing.
    Bytes readback;
    const auto put = [&](std::uint64_t packet) {
        for (int b = 0; b < 6; ++b) {
            readback.push_back(static_cast<std::uint8_t>(packet >> (8 * b)));
        }
    };
    put(0x0000'1234'5678ull);
    for (std::size_t k = tpx3::kPixelCount; k-- > 0;) {
        if (k == 7) {
            continue;
        }
        const auto from_end = static_cast<std::uint16_t>(tpx3::kPixelCount - 1 - k);
        const std::uint64_t address = static_cast<std::uint16_t>(from_end << 8 | from_end >> 8);
        put(1ull << 46 | address << 30 | static_cast<std::uint64_t>(device[k]) << 14);
    }
    Bytes expected = host;
    // Device pixel 7 is host pixel x = 255, y = 248.
    expected[248 * 256 + 255] = 0;
    EXPECT_EQ(tpx3::DecodeReadback(readback), expected);
}

TEST_F(Tpx3ChipTest, MatrixOfAnotherSizeIsRefusedAndNothingIsSent) {
    EXPECT_EQ(chip.WriteMatrix(Bytes(1000, 0x10)), std::errc::invalid_argument);
    EXPECT_TRUE(
        log.Contains(log::kError, "Provided configuration matrix has incorrect size (1000)"));
    EXPECT_TRUE(commands.calls.empty());
}

TEST_F(Tpx3ChipTest, PackedMatrixReachesTheBoardReversedAndHostFormInDeviceOrder) {
    Bytes packed = RandomPixels(4);
    packed.resize(tpx3::kPackedSize);
    ASSERT_FALSE(chip.WriteMatrix(packed));
    ASSERT_EQ(commands.calls.size(), 129u);
    EXPECT_EQ(commands.calls.front(), (ScriptedCommands::Call("TPX_LOAD_PXCONF", Bytes(4))));
    for (std::size_t i = 1; i < commands.calls.size(); ++i) {
        ASSERT_EQ(commands.calls[i].second.size(), 384u);
    }
    EXPECT_EQ(LastMatrixSent(), Reversed(packed));

    const Bytes host = RandomPixels(5);
    ASSERT_FALSE(chip.WriteMatrix(host));
    EXPECT_EQ(LastHostMatrix(), host);
}

TEST_F(Tpx3ChipTest, FailedDoubleColumnEndsTheSendingAndTheMatrixIsStillKept) {
    commands.Fail("TPX_LOAD_PXCONF", 4);  // the column-index restart, then double columns 0..3
    Bytes host(tpx3::kPixelCount, 0x10);
    host[42] = 0x11;
    EXPECT_EQ(chip.WriteMatrix(host), kBoardError);
    EXPECT_TRUE(log.Contains(log::kError,
                             "Failed to write configuration data at double column 6 - generic: "
                             "Input/output error"));
    EXPECT_EQ(commands.calls.size(), 5u);

    // The mask merges into the matrix that was kept.
    commands.calls.clear();
    ASSERT_FALSE(chip.SetMask(Bytes(tpx3::kPixelCount, 0)));
    EXPECT_EQ(LastHostMatrix(), host);

    commands.calls.clear();
    commands.Fail("TPX_LOAD_PXCONF");
    EXPECT_EQ(chip.WriteMatrix(host), kBoardError);
    EXPECT_TRUE(log.Contains(
        log::kError,
        "Failed to write reset configuration column index - generic: Input/output error"));
    EXPECT_EQ(commands.calls.size(), 1u);
}

TEST_F(Tpx3ChipTest, MaskAddsMaskedPixelsAndNeverUnmasksThem) {
    Bytes mask(tpx3::kPixelCount, 0);
    EXPECT_EQ(chip.SetMask(Bytes(10)), std::errc::invalid_argument);
    EXPECT_TRUE(log.Contains(
        log::kError,
        "Provided pixel mask doesn't have correct size. Expected 65536 bytes, got 10."));

    // Before any matrix the mask is kept but has nothing to merge with.
    mask[3] = 1;
    EXPECT_EQ(chip.SetMask(mask), std::errc::operation_not_permitted);
    EXPECT_TRUE(commands.calls.empty());
    Bytes kept;
    ASSERT_FALSE(chip.GetMask(kept));
    EXPECT_EQ(kept, mask);

    Bytes host = RandomPixels(6);
    host[5] |= 1;
    host[6] &= 0x3E;
    ASSERT_FALSE(chip.WriteMatrix(host));
    mask[6] = 0xFF;
    ASSERT_FALSE(chip.SetMask(mask));
    EXPECT_TRUE(log.Contains(log::kInfo, "New user mask contains 2 masked pixels."));
    Bytes expected = host;
    expected[3] |= 1;
    expected[6] |= 1;
    EXPECT_EQ(LastHostMatrix(), expected);

    ASSERT_FALSE(chip.SetMask(Bytes(tpx3::kPixelCount, 0)));
    EXPECT_EQ(LastHostMatrix(), expected);
    ASSERT_FALSE(chip.GetMask(kept));
    EXPECT_EQ(kept, Bytes(tpx3::kPixelCount, 0));
}

TEST_F(Tpx3ChipTest, ChipIdIsDecodedFromTheEfusesAndKeptOnceValid) {
    states.values["TPX_CHIP_ID"] = 0;
    EXPECT_EQ(chip.GetChipId(), "<UNKNOWN>");
    EXPECT_EQ(chip.GetChipId(), "<UNKNOWN>");
    EXPECT_EQ(states.reads["TPX_CHIP_ID"], 2);

    states.values["TPX_CHIP_ID"] = 0x00012345;
    EXPECT_EQ(chip.GetChipId(), "E04-W0291");
    EXPECT_EQ(chip.GetChipId(), "E04-W0291");
    EXPECT_EQ(states.reads["TPX_CHIP_ID"], 3);

    const auto decode = [this](std::uint32_t efuses) {
        ScriptedStates fresh = Tpx3States();
        fresh.values["TPX_CHIP_ID"] = static_cast<int>(efuses);
        return Timepix3(&commands, &fresh, nullptr, nullptr).GetChipId();
    };
    EXPECT_EQ(decode(0x00013E50), "X05-W0318");
    EXPECT_EQ(decode(0x00013E58), "H05-W0318");
    // The override bits put the upper ten bits into the letter, the row or the wafer number.
    EXPECT_EQ(decode(1u << 22 | 1u << 20 | 0x13E58), "A05-W0318");
    EXPECT_EQ(decode(7u << 22 | 2u << 20 | 0x13E58), "H07-W0318");
    EXPECT_EQ(decode(9u << 22 | 3u << 20 | 0x13E58), "H05-W0009");
    EXPECT_EQ(decode(30u << 22 | 1u << 20 | 0x13E58), "^05-W0318");
    EXPECT_TRUE(log.Contains(log::kError, "Chip ID decoded from efuses 0x07913E58 is not valid."));

    ScriptedStates broken = Tpx3States();
    broken.failing = {"TPX_CHIP_ID"};
    EXPECT_EQ(Timepix3(&commands, &broken, nullptr, nullptr).GetChipId(), "<UNKNOWN>");
    EXPECT_TRUE(
        log.Contains(log::kError, "Failed to read chip efuses: generic: Input/output error."));
}

TEST_F(Tpx3ChipTest, ResetRunsItsStepsInOrderAndStopsAtTheFirstFailure) {
    ASSERT_FALSE(chip.Reset());
    EXPECT_EQ(commands.Names(), (std::vector<std::string>{"TPX_INIT", "TPX_ALIGN_CLK",
                                                          "TPX_DEFAULT_DAC", "TPX_RESET_SEQ"}));
    EXPECT_EQ(states.sets, (std::vector<std::pair<std::string, int>>{{"TPX_CHAN_EN", 255}}));

    commands.calls.clear();
    commands.Fail("TPX_ALIGN_CLK");
    EXPECT_EQ(chip.Reset(), kBoardError);
    EXPECT_EQ(commands.Names(), (std::vector<std::string>{"TPX_INIT", "TPX_ALIGN_CLK"}));
    EXPECT_TRUE(
        log.Contains(log::kError, "Failed to align chip clock - generic: Input/output error."));

    commands.Fail("TPX_INIT");
    EXPECT_EQ(chip.Reset(), kBoardError);
    EXPECT_TRUE(log.Contains(log::kError,
                             "Failed to reset the Timepix3 chip <UNKNOWN> - generic: "
                             "Input/output error."));
}

TEST_F(Tpx3ChipTest, ModeAndPolarityMapToTheBoardsValues) {
    const std::pair<ovexsdk_chip_mode, std::uint8_t> modes[] = {
        {ToAToTDD, 1}, {ToAToTFBZS, 0}, {IToTEvCountFBZS, 2}};
    for (const auto& [mode, byte] : modes) {
        ASSERT_FALSE(chip.SetMode(mode));
        EXPECT_EQ(commands.calls.back(), (ScriptedCommands::Call("TPX_OPMODE", Bytes{byte})));
        EXPECT_EQ(chip.GetMode(), mode);
    }
    const auto sent = commands.calls.size();
    EXPECT_EQ(chip.SetMode(EvCount8Bit), std::errc::not_supported);
    EXPECT_TRUE(log.Contains(log::kError, "Unsupported operational mode: 1"));
    EXPECT_EQ(commands.calls.size(), sent);
    EXPECT_EQ(chip.GetMode(), IToTEvCountFBZS);

    commands.Fail("TPX_OPMODE");
    EXPECT_EQ(chip.SetMode(ToAToTDD), kBoardError);
    EXPECT_FALSE(chip.IsModeSet());
    EXPECT_TRUE(log.Contains(
        log::kError, "Failed to configure chip operation mode - generic: Input/output error"));

    EXPECT_EQ(chip.SetPolarity(3), std::errc::not_supported);
    EXPECT_TRUE(log.Contains(log::kError, "Unsupported polarity: 3"));
    EXPECT_TRUE(states.sets.empty());
    std::uint8_t polarity = 0;
    ASSERT_FALSE(chip.SetPolarity(2));
    ASSERT_FALSE(chip.GetPolarity(polarity));
    EXPECT_EQ(polarity, 2);
    ASSERT_FALSE(chip.SetPolarity(1));
    ASSERT_FALSE(chip.GetPolarity(polarity));
    EXPECT_EQ(polarity, 1);
    EXPECT_EQ(states.sets, (std::vector<std::pair<std::string, int>>{{"TPX_CHIP_POLARITY", 1},
                                                                     {"TPX_CHIP_POLARITY", 0}}));
}

TEST_F(Tpx3ChipTest, InfoCarriesTheBoardsRecordWithInvalidCodesAsZero) {
    commands.chip_info = {3, 1, 0x12, 0x34, 0xEE, 0x01, 0x00, 0};
    auto info = chip.GetInfo();
    ASSERT_TRUE(info);
    EXPECT_EQ(info->pixel_count, 65536u);
    EXPECT_EQ(info->width, 256u);
    EXPECT_EQ(info->number_a, 0x1234);
    EXPECT_EQ(info->number_b, 0x0100);
    EXPECT_EQ(info->code, 1);
    EXPECT_EQ(info->chip_type, 3);
    EXPECT_EQ(info->config_depth_class, 1);
    EXPECT_EQ(info->modes, (std::vector<ovexsdk_chip_mode>{ToAToTDD, ToAToTFBZS, IToTEvCountFBZS}));
    EXPECT_EQ(info->polarities, (std::vector<std::uint8_t>{1, 2}));

    commands.chip_info = {5, 3, 0, 0, 0, 0, 0, 0};
    info = chip.GetInfo();
    ASSERT_TRUE(info);
    EXPECT_EQ(info->chip_type, 0);
    EXPECT_EQ(info->code, 0);

    commands.Fail("TPX_CHIP_INFO");
    EXPECT_FALSE(chip.GetInfo());
}

TEST_F(Tpx3ChipTest, DacsAnswerByIdWithTheirLimitsAskedEachTime) {
    ITimepixDacs& dacs = chip.GetDacs();
    states.failing_limits = {"DAC_PreampOn_0"};
    auto list = dacs.GetDacList();
    ASSERT_EQ(list.size(), 18u);
    EXPECT_EQ(list[0].id, 1);
    EXPECT_EQ(list[0].min, -32768);
    EXPECT_EQ(list[0].max, 32767);
    EXPECT_TRUE(log.Contains(log::kWarning,
                             "Failed to obtain limits of DAC PreampOn - generic: "
                             "Input/output error."));
    EXPECT_STREQ(list[5].name, "THLFine");
    EXPECT_EQ(list[5].max, 511);
    EXPECT_STREQ(list[6].name, "THLCoarse");
    EXPECT_STREQ(list[17].name, "PllVCntrl");
    EXPECT_EQ(list[17].id, 18);
    EXPECT_TRUE(
        std::all_of(list.begin(), list.end(), [](const DacInfo& d) { return d.measurable; }));
    states.ranges["DAC_THLFine_0"] = {0, 1023};
    EXPECT_EQ(dacs.GetDacList()[5].max, 1023);

    EXPECT_EQ(dacs.SetDac(19, 1), std::errc::invalid_argument);
    EXPECT_TRUE(
        log.Contains(log::kError, "state '<invalid state>' is not recognized by the device."));

    for (const std::uint8_t id : {0, 19}) {
        EXPECT_EQ(dacs.SelectSenseDac(id), std::errc::invalid_argument);
        EXPECT_TRUE(log.Contains(log::kError, "DAC ID " + std::to_string(id) + " is invalid."));
    }
    EXPECT_EQ(states.values.count("TPX_DAC_SELECT"), 0u);
    ASSERT_FALSE(dacs.SelectSenseDac(18));
    EXPECT_EQ(states.values["TPX_DAC_SELECT"], 18);

    float sense = 0;
    states.failing = {"TPX_DAC_OUT"};
    EXPECT_EQ(dacs.ReadDacOut(sense), kBoardError);
    EXPECT_TRUE(log.Contains(log::kError,
                             "Unable to read measured value of DAC_OUT - generic: "
                             "Input/output error."));
}

TEST_F(Tpx3ChipTest, RawThresholdFillsTheFineDacFirstAndReadsBackTheSame) {
    IThresholdControl& threshold = *chip.GetThresholdControl();
    const auto set = [&](std::uint32_t raw) {
        EXPECT_FALSE(threshold.SetRawThreshold(raw));
        return std::pair(states.values["DAC_THLCoarse_0"], states.values["DAC_THLFine_0"]);
    };
    EXPECT_EQ(set(0), std::pair(0, 0));
    EXPECT_EQ(set(511), std::pair(0, 511));
    EXPECT_EQ(set(512), std::pair(1, 512 - 160));
    EXPECT_EQ(set(15 * 160 + 511), std::pair(15, 511));
    for (const std::uint32_t raw : {0u, 300u, 511u, 512u, 671u, 672u, 1000u, 2911u}) {
        set(raw);
        std::uint32_t back = 0;
        ASSERT_FALSE(threshold.GetRawThreshold(back));
        EXPECT_EQ(back, raw);
    }

    EXPECT_EQ(threshold.SetRawThreshold(2912), std::errc::invalid_argument);
    EXPECT_TRUE(log.Contains(
        log::kError, "Raw threshold input value: 2912 is outside the valid range [0, 2911]."));

    states.failing = {"DAC_THLFine_0"};
    EXPECT_EQ(threshold.SetRawThreshold(700), kBoardError);
    EXPECT_EQ(states.values["DAC_THLCoarse_0"], 2);  // the coarse step stays written
    EXPECT_TRUE(log.Contains(log::kError,
                             "Failed to configure threshold, unable to configure DAC 'THLFine' - "
                             "generic: Input/output error."));
    std::uint32_t raw = 0;
    EXPECT_EQ(threshold.GetRawThreshold(raw), kBoardError);
    EXPECT_TRUE(log.Contains(log::kError,
                             "Failed to read value of DAC THLFine - generic: Input/output error."));
}

// The sample configuration file of the Timepix3 generation, with some of its texts replaced.
configuration::ConfigLoader Sample(const std::vector<std::pair<std::string, std::string>>& edits) {
    return EditedConfig(std::filesystem::path(OVEX_CONFIG_SAMPLES) / "tpx3.xml", edits);
}

TEST_F(Tpx3ChipTest, ThresholdInfoFollowsTheCalibrationOfTheChipsConfiguration) {
    ThresholdInfo info{};
    ASSERT_FALSE(chip.GetThresholdControl()->GetThresholdInfo(info));
    EXPECT_FALSE(info.calibrated);
    EXPECT_EQ(info.energy_low, 0.0f);
    EXPECT_EQ(info.energy_high, 0.0f);
    EXPECT_EQ(info.raw_max, 2911u);
    EXPECT_FALSE(chip.GetThresholdControl()->SetThreshold(0.0f));
    EXPECT_EQ(chip.GetThresholdControl()->SetThreshold(0.001f), std::errc::invalid_argument);
    EXPECT_TRUE(log.Contains(log::kError,
                             "Input threshold: 0.001 keV is outside the valid range "
                             "[0.000, 0.000] keV."));

    states.values["TPX_CHIP_ID"] = 0x00013E58;  // H05-W0318, the sample's chip
    const auto sample = Sample({});
    ASSERT_TRUE(sample.IsValid());
    ASSERT_FALSE(chip.CreateThresholdControl(&sample));
    IThresholdControl& calibrated = *chip.GetThresholdControl();
    ASSERT_FALSE(calibrated.GetThresholdInfo(info));
    EXPECT_TRUE(info.calibrated);
    EXPECT_EQ(info.min_threshold, 120.0f);
    EXPECT_EQ(info.energy_high, static_cast<float>((120.0 - 1180.0) / -23.9));
    // raw = -23.9 * 10 + 1180 = 941: coarse 3, fine 461.
    ASSERT_FALSE(calibrated.SetThreshold(10.0f));
    EXPECT_EQ(states.values["DAC_THLCoarse_0"], 3);
    EXPECT_EQ(states.values["DAC_THLFine_0"], 461);
    float kev = 0;
    ASSERT_FALSE(calibrated.GetThreshold(kev));
    EXPECT_FLOAT_EQ(kev, 10.0f);

    // A within 1e-9 of 1 counts as no calibration.
    const auto uncalibrated =
        Sample({{"<ThresholdCalibCoeffA>-23.9<", "<ThresholdCalibCoeffA>1.0000000001<"},
                {"<ThresholdCalibCoeffB>1180<", "<ThresholdCalibCoeffB>0<"}});
    ASSERT_TRUE(uncalibrated.IsValid());
    ASSERT_FALSE(chip.CreateThresholdControl(&uncalibrated));
    ASSERT_FALSE(chip.GetThresholdControl()->GetThresholdInfo(info));
    EXPECT_FALSE(info.calibrated);

    // Another chip's file leaves the defaults, each announced.
    Tpx3ThresholdCtlr other(chip.GetDacs(), &sample, "A01-W0001");
    EXPECT_TRUE(log.Contains(log::kWarning,
                             "Threshold calibration coefficient A not available, "
                             "using default value of 1.000000."));
    EXPECT_TRUE(log.Contains(log::kWarning,
                             "Threshold calibration coefficient B not available, "
                             "using default value of 0.000000."));
    EXPECT_TRUE(log.Contains(log::kWarning,
                             "Threshold configuration value 'MinThreshold' is "
                             "missing, using default value of 0.000000."));
    ASSERT_FALSE(other.GetThresholdInfo(info));
    EXPECT_FALSE(info.calibrated);
}

}  // namespace
}  // namespace ovex::sdk::testing
