// The Timepix2 chip module over scripted item sets: the matrix merge and word order, what reaches
// the board and in which order, the DACs and the threshold split. The matrix transfers over USB
// run against a virtual board elsewhere; here a chip without a device shows where they stop.

#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <map>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "impl/item_set.hpp"
#include "modules/chip_support.hpp"
#include "modules/tpx2_chip.hpp"
#include "modules/tpx2_matrix.hpp"
#include "modules/tpx2_thld_ctrl.hpp"
#include "modules/tpx4_chip.hpp"
#include "ovex/config_loader/config_loader.hpp"
#include "support/edited_config.hpp"
#include "support/log_capture.hpp"
#include "support/scripted_items.hpp"

namespace ovex::sdk::testing {
namespace {

using Bytes = std::vector<std::uint8_t>;
using Call = ScriptedCommands::Call;

// The item sets of a Timepix2 board.
ScriptedCommands Tpx2Commands() {
    return ScriptedCommands({"TPX_INIT", "TPX_DEFAULT_DAC", "TPX_READ_MATRIX", "TPX_WRITE_MATRIX",
                             "TPX_PRC_BYPASS", "TPX_OPMODE", "TPX_CHIP_INFO", "TPX_DAC_SELECT"});
}
ScriptedStates Tpx2States() {
    return ScriptedStates({"TPX_CHIP_ID",
                           "TPX_SHUT_DUR",
                           "TPX_DAC_OUT",
                           "DAC_BIAS_PREAMP_ON",
                           "DAC_BIAS_PREAMP_OFF",
                           "DAC_BIAS_LS_ON",
                           "DAC_BIAS_LS_OFF",
                           "DAC_CASC_PREAMP",
                           "DAC_FBK",
                           "DAC_TH_COARSE",
                           "DAC_TH_FINE",
                           "DAC_BIAS_IKRUM",
                           "DAC_BIAS_DISC_PMOS",
                           "DAC_BIAS_DISC_NMOS",
                           "DAC_CASC_DISC",
                           "DAC_BIAS_THS",
                           "DAC_GND",
                           "DAC_TP_COARSE",
                           "DAC_TP_FINE",
                           "DAC_BIAS_SLVS",
                           "DAC_CM_SLVS",
                           "DAC_BIAS_RES"},
                          {{"DAC_TH_COARSE", {0, 15}}, {"DAC_TH_FINE", {0, 1023}}});
}

class Tpx2ChipTest : public ::testing::Test {
protected:
    LogCapture log;
    ScriptedCommands commands = Tpx2Commands();
    ScriptedStates states = Tpx2States();
    Timepix2 chip{&commands, &states, nullptr, nullptr};
};

TEST(Tpx2Matrix, ConfAndTrimNibblesMergeIntoTheHostForm) {
    Bytes conf(tpx2::kHalfMatrixSize, 0x88);
    Bytes trim(tpx2::kHalfMatrixSize, 0x00);
    conf[7] = 0x9B;
    trim[7] = 0xA5;
    Bytes host(TPX2_CHIP_NPIXELS);
    tpx2::MergeConfTrim(conf, trim, host);
    EXPECT_EQ(host[14], 0x57);
    EXPECT_EQ(host[15], 0x69);
    host[14] = host[15] = tpx2::kDefaultPixel;
    EXPECT_EQ(host, Bytes(TPX2_CHIP_NPIXELS, tpx2::kDefaultPixel));

    // CONF bit 2 never reaches a pixel.
    conf[0] = 0x4F;
    trim[0] = 0x00;
    tpx2::MergeConfTrim(conf, trim, host);
    EXPECT_EQ(host[0], 0x43);
    EXPECT_EQ(host[1], 0x00);
}

TEST(Tpx2Matrix, WordsAreByteSwappedAndATrailingPartWordIsKept) {
    Bytes bytes{1, 2, 3, 4, 5, 6, 7, 8, 9, 10};
    tpx2::SwapWordBytes(bytes);
    EXPECT_EQ(bytes, (Bytes{4, 3, 2, 1, 8, 7, 6, 5, 9, 10}));
}

TEST(Tpx2Matrix, MaskSetsBitOneAndNeverClearsIt) {
    const Bytes matrix{0x40, 0x42, 0x7F, 0x00};
    const Bytes mask{0, 0, 0, 9};
    EXPECT_EQ(MaskedMatrix(matrix, mask, tpx2::kMaskBit), (Bytes{0x40, 0x42, 0x7F, 0x02}));
}

TEST(Tpx2Matrix, ProducerLendsItsBufferOnceAndHandsBackHostOrderWords) {
    LogCapture log;
    CfgDataProducer producer(16);
    const auto lent = producer.Acquire(16);
    ASSERT_NE(lent.buffer, nullptr);
    EXPECT_EQ(lent.size, 16u);
    for (std::uint8_t i = 0; i < 6; ++i) {
        lent.buffer[i] = static_cast<std::uint8_t>(i + 1);
    }
    // Delivered from another thread while the caller waits, as the USB event thread does.
    std::thread usb([&] { producer.Deliver({lent.buffer, lent.size, 6}); });
    EXPECT_TRUE(producer.WaitDelivered(std::chrono::steady_clock::now() + std::chrono::hours(1)));
    usb.join();
    EXPECT_TRUE(producer.Finished());
    EXPECT_EQ(producer.Acquire(16).buffer, nullptr);
    EXPECT_TRUE(log.Contains(log::kError, "Matrix data incomplete."));
    EXPECT_EQ(producer.TakeData(), (Bytes{4, 3, 2, 1, 5, 6}));

    // A transfer that timed out on a silent board delivers nothing: the wait still times out.
    CfgDataProducer silent(16);
    const auto buffer = silent.Acquire(16);
    silent.Deliver({buffer.buffer, buffer.size, 0});
    EXPECT_FALSE(silent.WaitDelivered(std::chrono::steady_clock::now()));
    EXPECT_TRUE(silent.TakeData().empty());
}

TEST_F(Tpx2ChipTest, MatrixOfAnotherSizeIsRefusedSilentlyAndNothingIsSent) {
    EXPECT_EQ(chip.WriteMatrix(Bytes(TPX2_CHIP_NPIXELS - 1, 0x40)), std::errc::invalid_argument);
    EXPECT_TRUE(commands.calls.empty());
    EXPECT_TRUE(log.Lines().empty());
}

TEST_F(Tpx2ChipTest, MatrixTransfersStopWhereTheDeviceLacksAnEndpoint) {
    EXPECT_EQ(chip.WriteMatrix(chip.GetDefaultMatrix()), std::errc::no_such_device_or_address);
    EXPECT_TRUE(log.Contains(log::kError, "BUG: Device doesn't have endpoint 0x01."));
    EXPECT_TRUE(commands.calls.empty());

    // The read-back bypasses the readout control first and leaves it so on a failure.
    Bytes out{1, 2, 3};
    EXPECT_EQ(chip.ReadMatrix(out), std::errc::no_such_device_or_address);
    EXPECT_TRUE(log.Contains(log::kError, "BUG: Device doesn't have endpoint 0x81."));
    EXPECT_EQ(commands.calls, (std::vector<Call>{{"TPX_PRC_BYPASS", {1}}}));

    commands.calls.clear();
    commands.failing = {"TPX_PRC_BYPASS"};
    EXPECT_EQ(chip.ReadMatrix(out), kBoardError);
    EXPECT_TRUE(
        log.Contains(log::kError, "Failed to enable PRC bypass - generic: Input/output error."));
    EXPECT_TRUE(log.Contains(log::kError,
                             "PRC bypass configuration failure - generic: Input/output error."));
    EXPECT_EQ(commands.calls.size(), 1u);

    std::vector<std::uint32_t> bad{5};
    EXPECT_EQ(chip.DigitalTest(bad), std::errc::no_such_device_or_address);
    EXPECT_TRUE(log.Contains(log::kError,
                             "Failed to load default configuration matrix - generic: No such "
                             "device or address."));
    EXPECT_TRUE(bad.empty());
}

TEST_F(Tpx2ChipTest, MaskIsCheckedAndKeptBeforeAnyMatrixWasWritten) {
    EXPECT_EQ(chip.SetMask(Bytes(10)), std::errc::invalid_argument);
    EXPECT_TRUE(log.Contains(
        log::kError,
        "Provided pixel mask doesn't have correct size. Expected 65536 bytes, got 10."));

    Bytes mask(TPX2_CHIP_NPIXELS, 0);
    mask[3] = 1;
    mask[9] = 0xFF;
    EXPECT_EQ(chip.SetMask(mask), std::errc::operation_not_permitted);
    EXPECT_TRUE(log.Contains(log::kInfo, "New user mask contains 2 masked pixels."));
    EXPECT_TRUE(commands.calls.empty());
    Bytes kept;
    ASSERT_FALSE(chip.GetMask(kept));
    EXPECT_EQ(kept, mask);
}

TEST_F(Tpx2ChipTest, ResetRunsItsStepsInOrderAndStopsAtTheFirstFailure) {
    ASSERT_FALSE(chip.Reset());
    EXPECT_EQ(commands.calls, (std::vector<Call>{{"TPX_INIT", {}}, {"TPX_DEFAULT_DAC", {}}}));

    commands.calls.clear();
    commands.failing = {"TPX_INIT"};
    EXPECT_EQ(chip.Reset(), kBoardError);
    EXPECT_EQ(commands.calls.size(), 1u);
    EXPECT_TRUE(log.Contains(log::kError,
                             "Failed to reset the Timepix2 chip <UNKNOWN> - generic: "
                             "Input/output error."));

    commands.failing = {"TPX_DEFAULT_DAC"};
    EXPECT_EQ(chip.Reset(), kBoardError);
    EXPECT_TRUE(log.Contains(log::kError,
                             "Failed to initialize DACs of Timepix2 chip <UNKNOWN> - generic: "
                             "Input/output error."));
}

TEST_F(Tpx2ChipTest, ModesMapToTheBoardsCodesAndThePolarityIsFixed) {
    const std::pair<ovexsdk_chip_mode, std::uint8_t> modes[] = {
        {EvCount8Bit, 6}, {EvCount10Bit, 6}, {EvCount14Bit, 7}, {IToT10Bit, 10}, {IToT14Bit, 11}};
    for (const auto& [mode, byte] : modes) {
        ASSERT_FALSE(chip.SetMode(mode));
        EXPECT_EQ(commands.calls.back(), (Call{"TPX_OPMODE", {byte}}));
        EXPECT_EQ(chip.GetMode(), mode);
    }
    const auto sent = commands.calls.size();
    EXPECT_EQ(chip.SetMode(ToAToTDD), std::errc::not_supported);
    EXPECT_TRUE(log.Contains(log::kError, "Uknown operational mode: 6"));
    EXPECT_EQ(commands.calls.size(), sent);
    EXPECT_EQ(chip.GetMode(), IToT14Bit);

    commands.failing = {"TPX_OPMODE"};
    EXPECT_EQ(chip.SetMode(EvCount10Bit), kBoardError);
    EXPECT_FALSE(chip.IsModeSet());
    EXPECT_TRUE(log.Contains(log::kError,
                             "Failed to configure operation mode - generic: Input/output error"));

    commands.calls.clear();
    EXPECT_EQ(chip.SetPolarity(1), std::errc::not_supported);
    EXPECT_EQ(chip.SetPolarity(2), std::errc::not_supported);
    EXPECT_TRUE(commands.calls.empty());
    std::uint8_t polarity = 0;
    ASSERT_FALSE(chip.GetPolarity(polarity));
    EXPECT_EQ(polarity, 2);
}

TEST_F(Tpx2ChipTest, InfoCarriesTheRecordWithTheTimepix2ModesAndPolarities) {
    commands.chip_info = {2, 2, 0xAB, 0xCD, 0xEE, 0x00, 0x07, 0};
    auto info = chip.GetInfo();
    ASSERT_TRUE(info);
    EXPECT_EQ(info->pixel_count, 65536u);
    EXPECT_EQ(info->width, 256u);
    EXPECT_EQ(info->height, 256u);
    EXPECT_EQ(info->number_a, 0xABCD);
    EXPECT_EQ(info->number_b, 0x0007);
    EXPECT_EQ(info->code, 2);
    EXPECT_EQ(info->chip_type, 2);
    EXPECT_EQ(info->config_depth_class, 0);
    EXPECT_EQ(info->modes,
              (std::vector<ovexsdk_chip_mode>{EvCount10Bit, EvCount14Bit, IToT10Bit, IToT14Bit}));
    EXPECT_EQ(info->polarities, (std::vector<std::uint8_t>{2, 1}));

    // Codes outside their ranges read 0; seven bytes are enough, six leave every field 0.
    commands.chip_info = {7, 3, 0xAB, 0xCD, 0xEE, 0x00, 0x07};
    info = chip.GetInfo();
    ASSERT_TRUE(info);
    EXPECT_EQ(info->chip_type, 0);
    EXPECT_EQ(info->code, 0);
    EXPECT_EQ(info->number_b, 0x0007);
    commands.chip_info = {2, 2, 0xAB, 0xCD, 0xEE, 0x00};
    info = chip.GetInfo();
    ASSERT_TRUE(info);
    EXPECT_EQ(info->chip_type, 0);
    EXPECT_EQ(info->code, 0);
    EXPECT_EQ(info->number_a, 0);
    EXPECT_EQ(info->number_b, 0);
    EXPECT_EQ(info->width, 256u);

    commands.failing = {"TPX_CHIP_INFO"};
    EXPECT_FALSE(chip.GetInfo());
    EXPECT_TRUE(log.Contains(log::kError,
                             "Failed to obtain chip information from the device - generic: "
                             "Input/output error."));
}

TEST_F(Tpx2ChipTest, ChipIdIsDecodedFromTheEfusesAndKeptOnceValid) {
    states.values["TPX_CHIP_ID"] = 0;
    EXPECT_EQ(chip.GetChipId(), "<UNKNOWN>");
    states.values["TPX_CHIP_ID"] = 0x1975;
    EXPECT_EQ(chip.GetChipId(), "E07-W0025");
    states.values["TPX_CHIP_ID"] = 0x00013E50;
    EXPECT_EQ(chip.GetChipId(), "E07-W0025");
}

TEST_F(Tpx2ChipTest, DacsListTheTableAndSwitchTheSensePinByCommand) {
    ITimepixDacs& dacs = chip.GetDacs();
    const auto list = dacs.GetDacList();
    ASSERT_EQ(list.size(), 19u);
    EXPECT_STREQ(list[1].name, "PreamOff");
    EXPECT_STREQ(list[6].name, "THLCoarse");
    EXPECT_STREQ(list[7].name, "THLFine");
    EXPECT_EQ(list[7].max, 1023);
    EXPECT_STREQ(list[18].name, "BiasRes");
    EXPECT_FALSE(list[18].measurable);
    EXPECT_TRUE(
        std::all_of(list.begin(), list.end() - 1, [](const DacInfo& d) { return d.measurable; }));

    ASSERT_FALSE(dacs.SetDac(8, 300));
    EXPECT_EQ(states.values["DAC_TH_FINE"], 300);

    EXPECT_EQ(dacs.SelectSenseDac(19), std::errc::invalid_argument);
    EXPECT_TRUE(
        log.Contains(log::kError, "DAC 'BiasRes' cannot be measured using DAC_OUT chip pin."));
    for (const std::uint8_t id : {0, 20}) {
        EXPECT_EQ(dacs.SelectSenseDac(id), std::errc::invalid_argument);
        EXPECT_TRUE(log.Contains(log::kError, "DAC ID " + std::to_string(id) + " is invalid."));
    }
    EXPECT_TRUE(commands.calls.empty());
    ASSERT_FALSE(dacs.SelectSenseDac(18));
    EXPECT_EQ(commands.calls, (std::vector<Call>{{"TPX_DAC_SELECT", {18}}}));

    states.values["TPX_DAC_OUT"] = 812;
    float sense = 0;
    ASSERT_FALSE(dacs.ReadDacOut(sense));
    EXPECT_EQ(sense, 812.0f);
}

TEST_F(Tpx2ChipTest, RawThresholdPicksTheCoarseRowAndReadsBack) {
    IThresholdControl& threshold = *chip.GetThresholdControl();
    const auto set = [&](std::uint32_t raw) {
        EXPECT_FALSE(threshold.SetRawThreshold(raw)) << raw;
        return std::pair(states.values["DAC_TH_COARSE"], states.values["DAC_TH_FINE"]);
    };
    const auto get = [&] {
        std::uint32_t raw = 0;
        EXPECT_FALSE(threshold.GetRawThreshold(raw));
        return raw;
    };
    // With the default step of 163.
    EXPECT_EQ(set(0), std::pair(2, 0));
    EXPECT_EQ(set(235), std::pair(2, 0));
    EXPECT_EQ(set(236), std::pair(2, 1));
    EXPECT_EQ(get(), 236u);
    EXPECT_EQ(set(2073), std::pair(7, 1023));
    EXPECT_EQ(get(), 2073u);
    EXPECT_EQ(set(2074), std::pair(12, 209));
    EXPECT_EQ(get(), 2074u);
    EXPECT_EQ(set(2888), std::pair(12, 1023));
    // Above the coarse-12 row the constant is 2074: the read-back comes one lower.
    EXPECT_EQ(set(3000), std::pair(15, 645));
    EXPECT_EQ(get(), 2999u);
    EXPECT_EQ(set(3379), std::pair(15, 1023));
    EXPECT_EQ(set(3468), std::pair(15, 1023));

    EXPECT_EQ(threshold.SetRawThreshold(3469), std::errc::invalid_argument);
    EXPECT_TRUE(log.Contains(
        log::kError, "Raw threshold input value: 3469 is outside the valid range [0, 3468]."));

    states.failing = {"DAC_TH_COARSE"};
    EXPECT_EQ(threshold.SetRawThreshold(1000), kBoardError);
    EXPECT_EQ(states.values["DAC_TH_FINE"], 1023);  // the fine DAC isn't reached
    EXPECT_TRUE(log.Contains(log::kError,
                             "Failed to configure threshold, unable to configure VthCoarse - "
                             "generic: Input/output error."));
    std::uint32_t raw = 0;
    EXPECT_EQ(threshold.GetRawThreshold(raw), kBoardError);
    EXPECT_TRUE(log.Contains(log::kError,
                             "Failed to read value of VthCoarse - generic: Input/output error."));

    // Without the two threshold DACs there is no range.
    Tpx4Dacs none;
    Tpx2ThresholdCtlr blind(none, nullptr, "");
    ThresholdInfo info{};
    EXPECT_EQ(blind.GetThresholdInfo(info), std::errc::invalid_argument);
    EXPECT_TRUE(log.Contains(
        log::kError,
        "DAC required for threshold configuration is unavailable (VthCoarse/VthFine)."));
}

// The Timepix2 sample configuration, with some of its texts replaced.
configuration::ConfigLoader Sample(const std::string& name,
                                   const std::vector<std::pair<std::string, std::string>>& edits) {
    return EditedConfig(std::filesystem::path(OVEX_CONFIG_SAMPLES) / name, edits);
}

TEST_F(Tpx2ChipTest, EnergyFollowsTheCalibrationOfTheChipsConfiguration) {
    IThresholdControl* threshold = chip.GetThresholdControl();
    ThresholdInfo info{};
    ASSERT_FALSE(threshold->GetThresholdInfo(info));
    EXPECT_FALSE(info.calibrated);
    EXPECT_EQ(info.energy_high, 0.0f);
    EXPECT_FALSE(threshold->SetThreshold(0.0f));
    EXPECT_EQ(threshold->SetThreshold(0.5f), std::errc::invalid_argument);
    EXPECT_TRUE(log.Contains(log::kError,
                             "Input threshold: 0.500 keV is outside the valid range "
                             "[0.000, 0.000] keV."));

    states.values["TPX_CHIP_ID"] = 0x1975;  // E07-W0025, the sample's chip
    const auto sample = Sample("tpx2.xml", {});
    ASSERT_TRUE(sample.IsValid());
    ASSERT_FALSE(chip.CreateThresholdControl(&sample));
    EXPECT_EQ(chip.GetThresholdControl(), threshold);  // the controller is replaced in place
    ASSERT_FALSE(threshold->GetThresholdInfo(info));
    EXPECT_TRUE(info.calibrated);
    EXPECT_EQ(info.min_threshold, 3.5f);
    EXPECT_EQ(info.raw_max, 15u * 160 + 1023);  // the file's coarse step
    EXPECT_EQ(info.energy_high, static_cast<float>((3.5 - -41.7) / 0.0265));

    // raw = keV + 0.5, rounded half away from zero: 1000.5 gives 1001, below 1050 coarse 2.
    const auto offset =
        Sample("tpx2.xml", {{"<ThresholdCalibCoeffA>0.0265<", "<ThresholdCalibCoeffA>1<"},
                            {"<ThresholdCalibCoeffB>-41.7<", "<ThresholdCalibCoeffB>0.5<"},
                            {"<MinThreshold>3.5<", "<MinThreshold>3000.5<"},
                            {"<ThresholdCoarseStep>160<", "<ThresholdCoarseStep>163<"}});
    ASSERT_TRUE(offset.IsValid());
    ASSERT_FALSE(chip.CreateThresholdControl(&offset));
    ASSERT_FALSE(threshold->SetThreshold(1000.0f));
    EXPECT_EQ(states.values["DAC_TH_COARSE"], 2);
    EXPECT_EQ(states.values["DAC_TH_FINE"], 1001 - 235);
    float kev = 0;
    ASSERT_FALSE(threshold->GetThreshold(kev));
    EXPECT_EQ(kev, 1000.5f);

    // The YAML sample names the coefficients otherwise and has only MinEnergyThreshold.
    const configuration::ConfigLoader yaml(std::filesystem::path(OVEX_CONFIG_SAMPLES) /
                                           "tpx2.yaml");
    ASSERT_TRUE(yaml.IsValid());
    ASSERT_FALSE(chip.CreateThresholdControl(&yaml));
    EXPECT_TRUE(log.Contains(log::kWarning,
                             "Threshold calibration value 'ThresholdCalibCoeffA' not available, "
                             "using default value."));
    EXPECT_TRUE(log.Contains(log::kWarning,
                             "Threshold calibration value 'ThresholdCalibCoeffB' not available, "
                             "using default value."));
    ASSERT_FALSE(threshold->GetThresholdInfo(info));
    EXPECT_FALSE(info.calibrated);
    EXPECT_EQ(info.min_threshold, 3.5f);
    EXPECT_EQ(info.raw_max, 15u * 160 + 1023);

    Tpx2ThresholdCtlr other(chip.GetDacs(), &sample, "A01-W0001");
    EXPECT_TRUE(log.Contains(log::kWarning,
                             "Threshold calibration value 'MinThreshold' or 'MinEnergyThreshold' "
                             "not available, using default value."));
    EXPECT_TRUE(log.Contains(log::kWarning,
                             "Threshold calibration value 'ThresholdCoarseStep' not available, "
                             "using default value."));
    ASSERT_FALSE(other.GetThresholdInfo(info));
    EXPECT_EQ(info.raw_max, 15u * 163 + 1023);
}

TEST(Tpx4Chip, EveryConfigurationRequestIsNotSupported) {
    LogCapture log;
    ScriptedCommands commands = Tpx2Commands();
    ScriptedStates states = Tpx2States();
    Timepix4 chip(&commands, &states, nullptr);
    const auto unsupported = std::make_error_code(std::errc::operation_not_supported);

    EXPECT_STREQ(chip.GetName(), "Timepix4 chip");
    EXPECT_EQ(chip.GetDefaultMatrix(), Bytes(229376, 0x40));
    std::uint8_t polarity = 0;
    EXPECT_EQ(chip.GetPolarity(polarity), unsupported);
    EXPECT_EQ(chip.SetPolarity(1), unsupported);
    EXPECT_EQ(chip.WriteMatrix(chip.GetDefaultMatrix()), unsupported);
    Bytes bytes;
    EXPECT_EQ(chip.ReadMatrix(bytes), unsupported);
    EXPECT_EQ(chip.SetMask(Bytes(229376)), unsupported);
    EXPECT_EQ(chip.GetMask(bytes), unsupported);
    for (const auto mode : {EvCount8Bit, IToT14Bit, ToAToTDD, IToTEvCountFBZS}) {
        EXPECT_EQ(chip.SetMode(mode), unsupported);
    }
    EXPECT_FALSE(chip.IsModeSet());
    EXPECT_EQ(chip.GetMode(), 0);
    EXPECT_FALSE(chip.Reset());
    std::vector<std::uint32_t> bad{1};
    EXPECT_FALSE(chip.DigitalTest(bad));
    EXPECT_TRUE(bad.empty());
    EXPECT_FALSE(chip.CreateThresholdControl(nullptr));
    EXPECT_EQ(chip.GetChipId(), "");
    EXPECT_TRUE(commands.calls.empty());

    ITimepixDacs& dacs = chip.GetDacs();
    EXPECT_STREQ(dacs.GetName(), "Timepix 4 DACs");
    EXPECT_TRUE(dacs.GetDacList().empty());
    std::uint32_t value = 0;
    float sense = 0;
    EXPECT_EQ(dacs.SetDac(1, 1), unsupported);
    EXPECT_EQ(dacs.GetDac(1, value), unsupported);
    EXPECT_EQ(dacs.SelectSenseDac(1), unsupported);
    EXPECT_EQ(dacs.ReadDacOut(sense), unsupported);

    IThresholdControl& threshold = *chip.GetThresholdControl();
    EXPECT_STREQ(threshold.GetName(), "Timepix4 threshold controller");
    ThresholdInfo info{};
    EXPECT_EQ(threshold.GetThresholdInfo(info), unsupported);
    EXPECT_EQ(threshold.GetThreshold(sense), unsupported);
    EXPECT_EQ(threshold.SetThreshold(1.0f), unsupported);
    EXPECT_EQ(threshold.GetRawThreshold(value), unsupported);
    EXPECT_EQ(threshold.SetRawThreshold(1), unsupported);

    commands.chip_info = {4, 1, 0, 9, 0, 0, 3, 0};
    const auto record = chip.GetInfo();
    ASSERT_TRUE(record);
    EXPECT_EQ(record->chip_type, 4);
    EXPECT_EQ(record->number_a, 9);
    EXPECT_EQ(record->number_b, 3);
    EXPECT_EQ(record->width, 0u);
    EXPECT_EQ(record->height, 0u);
    EXPECT_EQ(record->pixel_count, 0u);
    EXPECT_TRUE(record->modes.empty());
    EXPECT_TRUE(record->polarities.empty());
    commands.failing = {"TPX_CHIP_INFO"};
    EXPECT_FALSE(chip.GetInfo());
    EXPECT_TRUE(log.Contains(log::kError,
                             "Failed to obtain chip information from the device - generic: "
                             "Input/output error."));
}

}  // namespace
}  // namespace ovex::sdk::testing
