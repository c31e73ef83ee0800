// The YAML generation, through the front that detects it.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "log_capture.hpp"
#include "ovex/config_loader/config_loader.hpp"
#include "samples.hpp"

namespace ovex::configuration {
namespace {

using ovex::testing::LogCapture;
using testing::ReadSample;
using testing::Replace;
using testing::SamplePath;

constexpr std::string_view kMatrixStart = "    matrix: |\n";

// The sample with its matrix replaced by a one-line one.
std::string WithMatrix(const std::string& sample, std::string_view matrix) {
    std::string text = ReadSample(sample);
    text.resize(text.find(kMatrixStart));
    return text + "    matrix: " + std::string(matrix) + "\n";
}

TEST(BulletLoaderTest, OnlyExactYamlExtensionsAreOpened) {
    LogCapture log;
    for (const char* path : {"/nonexistent/K09-W0107.json", "/nonexistent/K09-W0107.YAML"}) {
        log.Clear();
        EXPECT_FALSE(ConfigLoader(path).IsValid());
        EXPECT_EQ(log.Count(9, "Only .yaml or .yml files are supported by this loader."), 2);
        EXPECT_TRUE(log.StartingWith("Configuration file parsing failed").empty());
    }
    // A missing file with the right extension is tried, and its failure logged.
    log.Clear();
    EXPECT_FALSE(ConfigLoader(std::string("/nonexistent/K09-W0107.yml")).IsValid());
    EXPECT_EQ(log.StartingWith("Configuration file parsing failed: bad file").size(), 2u);
}

TEST(BulletLoaderTest, MatrixTokensAreCutToBytesAndNotCountedHere) {
    const ConfigLoader loader(kFromText, WithMatrix("tpx1.yaml", "1 2\t300 -1"));
    ASSERT_EQ(loader.GetParserName(), "tpx1_yaml");
    EXPECT_EQ(std::get<std::vector<std::uint8_t>>(*loader.GetChipValue("K09-W0107", "matrix")),
              (std::vector<std::uint8_t>{1, 2, 44, 255}));
}

TEST(BulletLoaderTest, BadValuesFailTheParserWithTheirReason) {
    struct Case {
        std::string text;
        const char* reason;
    };
    const std::string tpx1 = ReadSample("tpx1.yaml");
    const Case cases[] = {
        {WithMatrix("tpx1.yaml", "1 2 x3"),
         "Configuration file parsing failed: invalid stoi argument"},
        {WithMatrix("tpx1.yaml", "1 99999999999"),
         "Configuration file parsing failed: stoi argument out of range"},
        {Replace(tpx1, "Disc: 127", "Disc: ~"),
         "Configuration file parsing failed: yaml-cpp: error at line 12, column 13: bad "
         "conversion"},
        {Replace(tpx1, "Disc: 127", "Disc: high"),
         "Configuration file parsing failed: yaml-cpp: error at line 12, column 13: bad "
         "conversion"},
        {Replace(tpx1, "chip:", "chips:"),
         "Configuration file parsing failed: yaml-cpp: error at line 2, column 1: key not "
         "found: chip"},
        {"chip:\n  - id: K09-W0107\n    dacs: {Ikrum: 5, Di",
         "Configuration file parsing failed: yaml-cpp: error at line"},
        // Cut short, as by a full disk.
        {tpx1.substr(0, tpx1.find("THS")),
         "Key 'matrix' for chip 'K09-W0107' was not loaded from configuration file."},
    };
    for (const Case& bad : cases) {
        LogCapture log;
        EXPECT_FALSE(ConfigLoader(kFromText, bad.text).IsValid()) << bad.reason;
        EXPECT_FALSE(log.StartingWith(bad.reason).empty()) << bad.reason;
    }
}

TEST(BulletLoaderTest, ParamsComeBeforeDacs) {
    const ConfigLoader loader(kFromText, Replace(ReadSample("tpx1.yaml"), "      MinTHL: 384.0\n",
                                                 "      MinTHL: 384.0\n      Disc: 99\n"));
    EXPECT_EQ(std::get<std::int32_t>(*loader.GetChipValue("K09-W0107", "Disc")), 99);
}

TEST(BulletLoaderTest, ThlIsCoarseAndFineSteps) {
    const ConfigLoader loader(
        kFromText, Replace(Replace(ReadSample("tpx1.yaml"), "THLFine: 380", "THLFine: 5"),
                           "THLCoarse: 7", "THLCoarse: 2"));
    EXPECT_EQ(std::get<std::int32_t>(*loader.GetChipValue("K09-W0107", "THL")), 2053);
}

TEST(BulletLoaderTest, AnyMissingKeyMakesTheFileInvalid) {
    LogCapture log;
    const std::string tpx2 = ReadSample("tpx2.yaml");
    EXPECT_FALSE(ConfigLoader(kFromText, Replace(tpx2, "      BiasRes: 140\n", "")).IsValid());
    EXPECT_TRUE(log.Contains(
        9, "Key 'BiasRes' for chip 'E07-W0025' was not loaded from configuration file."));
    EXPECT_TRUE(log.Contains(9, "Parser of type 'tpx3_xml' cannot parse input file."));

    // The second of two chips lacks its matrix.
    const std::string second = tpx2.substr(tpx2.find("  - id:"));
    const std::string two_chips =
        tpx2 + Replace(second.substr(0, second.find(kMatrixStart)), "E07-W0025", "E07-W0026");
    log.Clear();
    EXPECT_FALSE(ConfigLoader(kFromText, two_chips).IsValid());
    EXPECT_TRUE(log.Contains(
        9, "Key 'matrix' for chip 'E07-W0026' was not loaded from configuration file."));
}

TEST(BulletLoaderTest, TwoChipsWithOneIdFailTheParser) {
    LogCapture log;
    const std::string tpx2 = ReadSample("tpx2.yaml");
    const ConfigLoader loader(kFromText, tpx2 + tpx2.substr(tpx2.find("  - id:")));
    EXPECT_FALSE(loader.IsValid());
    EXPECT_EQ(log.Count(-2, "Cannot insert chip signature 'E07-W0025' into database."), 2);
}

TEST(BulletLoaderTest, TwoChipsLoadSideBySide) {
    const std::string tpx2 = ReadSample("tpx2.yaml");
    const ConfigLoader loader(
        kFromText, tpx2 + Replace(tpx2.substr(tpx2.find("  - id:")), "E07-W0025", "E07-W0026"));
    ASSERT_EQ(loader.GetChipCount(), 2);
    EXPECT_NE(loader.GetChipSignature(0), loader.GetChipSignature(1));
    EXPECT_EQ(std::get<std::int32_t>(*loader.GetChipValue("E07-W0026", "Threshold")), 1100);
}

}  // namespace
}  // namespace ovex::configuration
