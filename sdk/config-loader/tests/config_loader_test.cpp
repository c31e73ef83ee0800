#include "ovex/config_loader/config_loader.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>

#include "log_capture.hpp"
#include "samples.hpp"

namespace ovex::configuration {
namespace {

using ovex::testing::LogCapture;
using ::testing::ElementsAre;
using testing::ReadSample;
using testing::SampleMatrix;
using testing::SamplePath;

template <typename T>
T ChipValue(const ConfigLoader& loader, std::string_view chip, std::string_view key) {
    const ConfigValue* value = loader.GetChipValue(chip, key);
    EXPECT_TRUE(std::holds_alternative<T>(*value)) << key << " has index " << value->index();
    return std::holds_alternative<T>(*value) ? std::get<T>(*value) : T{};
}

struct Sample {
    const char* file;
    const char* parser;
    const char* chip;
    std::size_t chip_keys;
    std::size_t device_keys;
};

class SampleTest : public ::testing::TestWithParam<Sample> {};

// Each generation's sample, as a file and as a text, loads whole, with the matrix of every pixel.
TEST_P(SampleTest, LoadsWholeFromFileAndText) {
    const Sample& sample = GetParam();
    const ConfigLoader loaders[] = {ConfigLoader(SamplePath(sample.file)),
                                    ConfigLoader(kFromText, ReadSample(sample.file))};
    for (const ConfigLoader& loader : loaders) {
        ASSERT_TRUE(loader.IsValid());
        EXPECT_EQ(loader.GetParserName(), sample.parser);
        EXPECT_EQ(loader.GetChipCount(), 1);
        EXPECT_THAT(loader.GetChipSignatures(), ElementsAre(sample.chip));
        EXPECT_EQ(loader.GetChipKeys().size(), sample.chip_keys);
        EXPECT_EQ(loader.GetDeviceKeys().size(), sample.device_keys);
        EXPECT_EQ(ChipValue<std::vector<std::uint8_t>>(loader, sample.chip, "matrix"),
                  SampleMatrix());
    }
}

INSTANTIATE_TEST_SUITE_P(Generations, SampleTest,
                         ::testing::Values(Sample{"tpx1.yaml", "tpx1_yaml", "K09-W0107", 21, 0},
                                           Sample{"tpx2.xml", "tpx2_xml", "E07-W0025", 31, 2},
                                           Sample{"tpx2.yaml", "tpx2_yaml", "E07-W0025", 27, 0},
                                           Sample{"tpx3.xml", "tpx3_xml", "H05-W0318", 29, 1}));

TEST(ConfigLoaderTest, SampleValuesKeepTheirTypes) {
    const ConfigLoader tpx1(SamplePath("tpx1.yaml"));
    EXPECT_EQ(ChipValue<std::int32_t>(tpx1, "K09-W0107", "Ikrum"), 5);
    EXPECT_EQ(ChipValue<double>(tpx1, "K09-W0107", "B"), -83.4);
    EXPECT_EQ(ChipValue<std::int32_t>(tpx1, "K09-W0107", "THL"), (7 << 10) + 380);

    const ConfigLoader tpx2(SamplePath("tpx2.xml"));
    EXPECT_EQ(ChipValue<bool>(tpx2, "E07-W0025", "Polarity"), true);
    EXPECT_EQ(ChipValue<std::string>(tpx2, "E07-W0025", "SensorType"), "Si");
    EXPECT_EQ(ChipValue<std::int32_t>(tpx2, "E07-W0025", "PreamOff"), 8);
    EXPECT_EQ(ChipValue<double>(tpx2, "E07-W0025", "ThresholdCalibCoeffB"), -41.7);
    EXPECT_EQ(std::get<std::int32_t>(*tpx2.GetDeviceValue("Bias")), -150);
    EXPECT_EQ(std::get<bool>(*tpx2.GetDeviceValue("SensorRefreshEnabled")), true);

    const ConfigLoader tpx3(SamplePath("tpx3.xml"));
    EXPECT_EQ(ChipValue<bool>(tpx3, "H05-W0318", "Polarity"), false);
    EXPECT_EQ(ChipValue<double>(tpx3, "H05-W0318", "Threshold"), 4.25);
    EXPECT_EQ(ChipValue<std::int32_t>(tpx3, "H05-W0318", "twc"), 12);
    EXPECT_EQ(std::get<bool>(*tpx3.GetDeviceValue("SensorRefreshEnabled")), false);

    // Another chip's id, an unknown key and an absent device key all give the empty value.
    EXPECT_EQ(tpx3.GetChipValue("H05-W0319", "Ikrum")->index(), 0u);
    EXPECT_EQ(tpx3.GetChipValue("H05-W0318", "Ikrum2")->index(), 0u);
    EXPECT_EQ(tpx3.GetDeviceValue("Bias")->index(), 0u);
}

TEST(ConfigLoaderTest, DetectionTriesTheParsersInOrder) {
    LogCapture log;
    const ConfigLoader loader(kFromText, ReadSample("tpx3.xml"));
    ASSERT_EQ(loader.GetParserName(), "tpx3_xml");
    std::vector<std::string> verdicts;
    for (const auto& line : log.StartingWith("Parser of type")) {
        EXPECT_EQ(line.verbosity, 9);
        verdicts.push_back(line.message);
    }
    EXPECT_THAT(verdicts,
                ElementsAre("Parser of type 'tpx1_yaml' cannot parse input file.",
                            "Parser of type 'tpx2_xml' cannot parse input file.",
                            "Parser of type 'tpx2_yaml' cannot parse input file.",
                            "Parser of type 'tpx3_xml' will be used for configuration file."));
    // The Timepix2 table is told apart by its keys, not by a tag.
    EXPECT_TRUE(log.Contains(9,
                             "Key 'DiscPMOS' for chip 'H05-W0318' was not loaded from "
                             "configuration file."));
}

TEST(ConfigLoaderTest, InvalidLoaderAnswersEmptyAndSaysSo) {
    LogCapture log;
    ConfigLoader loader(kFromText, "\xff\xfe garbage \x80");
    ConfigLoader moved(std::move(loader));
    for (const ConfigLoader* invalid : {&moved, &loader}) {
        log.Clear();
        EXPECT_FALSE(invalid->IsValid());
        EXPECT_EQ(invalid->GetChipCount(), -1);
        EXPECT_EQ(invalid->GetChipSignature(0), "");
        EXPECT_TRUE(invalid->GetChipSignatures().empty());
        EXPECT_TRUE(invalid->GetChipKeys().empty());
        EXPECT_TRUE(invalid->GetDeviceKeys().empty());
        EXPECT_TRUE(invalid->GetDacKeys().empty());
        EXPECT_EQ(invalid->GetParserName(), "");
        EXPECT_EQ(invalid->GetChipValue("E07-W0025", "Disc")->index(), 0u);
        EXPECT_EQ(invalid->GetDeviceValue("Bias")->index(), 0u);
        EXPECT_EQ(log.Count(-2, "Operation failed, config loader is in invalid state."), 9);
    }
}

TEST(ConfigLoaderTest, ChipIndexBeyondTheCountAndDacKeys) {
    const ConfigLoader loader(SamplePath("tpx2.yaml"));
    LogCapture log;
    EXPECT_EQ(loader.GetChipSignature(0), "E07-W0025");
    EXPECT_EQ(loader.GetChipSignature(1), "");
    EXPECT_EQ(loader.GetChipSignature(-1), "");
    EXPECT_TRUE(loader.GetDacKeys().empty());
    EXPECT_THAT(log.Lines(), ElementsAre(LogCapture::Entry{-2,
                                                           "Missing chip signature, chip count: 1, "
                                                           "expected index: 1"},
                                         LogCapture::Entry{-2,
                                                           "Missing chip signature, chip count: 1, "
                                                           "expected index: -1"},
                                         LogCapture::Entry{-1, "GetDacKeys not yet implemented."}));
}

class ChipFileLookupTest : public ::testing::Test {
protected:
    void SetUp() override {
        m_dir = std::filesystem::temp_directory_path() /
                ("ovex_cfg_" + std::to_string(::testing::UnitTest::GetInstance()->random_seed()) +
                 ::testing::UnitTest::GetInstance()->current_test_info()->name());
        std::filesystem::remove_all(m_dir);
        std::filesystem::create_directories(m_dir);
    }
    void TearDown() override { std::filesystem::remove_all(m_dir); }
    void Place(const std::string& sample, const std::string& name) {
        std::ofstream(m_dir / name, std::ios::binary) << ReadSample(sample);
    }
    std::filesystem::path m_dir;
};

TEST_F(ChipFileLookupTest, YamlComesBeforeYmlBeforeXml) {
    EXPECT_FALSE(FindChipConfiguration("E07-W0025", m_dir).has_value());
    Place("tpx2.xml", "E07-W0025.xml");
    EXPECT_EQ(FindChipConfiguration("E07-W0025", m_dir)->GetParserName(), "tpx2_xml");
    Place("tpx2.yaml", "E07-W0025.yml");
    EXPECT_EQ(FindChipConfiguration("E07-W0025", m_dir)->GetParserName(), "tpx2_yaml");
    // A broken first choice is passed over for the next valid one.
    std::ofstream(m_dir / "E07-W0025.yaml") << "chip:\n  - id: E07-W0025\n    dacs: [";
    EXPECT_EQ(FindChipConfiguration("E07-W0025", m_dir)->GetParserName(), "tpx2_yaml");
    Place("tpx1.yaml", "E07-W0025.yaml");
    EXPECT_EQ(FindChipConfiguration("E07-W0025", m_dir)->GetParserName(), "tpx1_yaml");
    EXPECT_FALSE(FindChipConfiguration("H05-W0318", m_dir).has_value());
}

}  // namespace
}  // namespace ovex::configuration
