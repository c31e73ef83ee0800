// The XML generation, through the front that detects it.

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

// The sample with the text of its BinaryPixelCfg replaced.
std::string WithMatrix(const std::string& sample, std::string_view base64) {
    std::string text = ReadSample(sample);
    const auto begin = text.find("<BinaryPixelCfg>") + std::string_view("<BinaryPixelCfg>").size();
    const auto end = text.find("</BinaryPixelCfg>");
    return text.replace(begin, end - begin, base64);
}

TEST(GravelLoaderTest, MatrixMustDecodeToEveryPixel) {
    const std::string full(87380, 'A');  // 65535 bytes
    const struct {
        std::string text;
        int verbosity;
        const char* line;
    } cases[] = {
        {WithMatrix("tpx2.xml", full), -2, "Base64 decoding has failed."},
        {WithMatrix("tpx2.xml", full + "AAA="), -2, "Base64 decoding has failed."},
        {WithMatrix("tpx2.xml", full + "A"), -2, "Base64 decoding has failed."},
        {WithMatrix("tpx2.xml", full + "AA="), -2, "Base64 decoding has failed."},
        {WithMatrix("tpx2.xml", full + "AA"), -2, "Base64 decoding has failed."},
        {WithMatrix("tpx2.xml", full + "AA==AAAA"), -2, "Base64 decoding has failed."},
        {WithMatrix("tpx2.xml", full + "AA!="), -2, "Base64 decoding has failed."},
        {WithMatrix("tpx2.xml", full + "A=A="), -2, "Base64 decoding has failed."},
        {Replace(Replace(ReadSample("tpx3.xml"), "BinaryPixelCfg>", "PixelCfg>"), "BinaryPixelCfg>",
                 "PixelCfg>"),
         -2, "Cannot obtain pixel matrix from configuration matrix"},
    };
    for (const auto& bad : cases) {
        LogCapture log;
        EXPECT_FALSE(ConfigLoader(kFromText, bad.text).IsValid()) << bad.line;
        EXPECT_TRUE(log.Contains(bad.verbosity, bad.line)) << bad.line;
    }
    const ConfigLoader exact(kFromText, WithMatrix("tpx2.xml", full + "AA=="));
    EXPECT_EQ(std::get<std::vector<std::uint8_t>>(*exact.GetChipValue("E07-W0025", "matrix")),
              std::vector<std::uint8_t>(65536, 0));
}

TEST(GravelLoaderTest, BrokenFilesAreRefusedWithTheirReason) {
    const std::string tpx3 = ReadSample("tpx3.xml");
    const struct {
        std::string text;
        const char* start;
    } cases[] = {
        {tpx3.substr(0, tpx3.size() / 2), "Cannot parse content '"},
        {Replace(tpx3, "<twc>12</twc>", "<twc>twelve</twc>"),
         "Configuration file parsing failed: invalid stoi argument"},
        {Replace(tpx3, "<twc>12</twc>", "<twc>4000000000</twc>"),
         "Configuration file parsing failed: stoi argument out of range"},
        {Replace(tpx3, "<Threshold>4.25</Threshold>", "<Threshold>-</Threshold>"),
         "Configuration file parsing failed: invalid stod argument"},
        {Replace(tpx3, "<Threshold>4.25</Threshold>", "<Threshold>1e999</Threshold>"),
         "Configuration file parsing failed: stod argument out of range"},
        {Replace(tpx3, "<SensorRefreshEnabled>false</SensorRefreshEnabled>", ""),
         "Device key 'SensorRefreshEnabled' was not loaded from configuration file."},
        {Replace(tpx3, "</Settings>", "</Settings><Settings/>"),
         "Cannot insert key 'SensorRefreshEnabled' into database."},
    };
    for (const auto& bad : cases) {
        LogCapture log;
        EXPECT_FALSE(ConfigLoader(kFromText, bad.text).IsValid()) << bad.start;
        EXPECT_FALSE(log.StartingWith(bad.start).empty()) << bad.start;
    }

    LogCapture log;
    EXPECT_FALSE(ConfigLoader(SamplePath("missing.xml")).IsValid());
    EXPECT_TRUE(log.Contains(
        9, "Cannot parse file '" + SamplePath("missing.xml") + "': File was not found"));
}

TEST(GravelLoaderTest, SettingsAreOptionalAndPolarityIsTrueOnlyWhenSaid) {
    std::string text =
        Replace(ReadSample("tpx3.xml"), "<Polarity>false</Polarity>", "<Polarity>yes</Polarity>");
    text = Replace(text, "<SensorRefreshEnabled>false</SensorRefreshEnabled>", "");
    text = Replace(text, "<Settings>", "<Parameters>");
    text = Replace(text, "</Settings>", "</Parameters>");
    const ConfigLoader loader(kFromText, Replace(text, "<Polarity>yes", "<Polarity>TRUE"));
    ASSERT_EQ(loader.GetParserName(), "tpx3_xml");
    EXPECT_FALSE(std::get<bool>(*loader.GetChipValue("H05-W0318", "Polarity")));
    EXPECT_EQ(loader.GetDeviceValue("SensorRefreshEnabled")->index(), 0u);
}

TEST(GravelLoaderTest, DocumentWithoutXmlRootHasNoChips) {
    const ConfigLoader loader(kFromText, "<config><H05-W0318/></config>");
    EXPECT_EQ(loader.GetParserName(), "tpx2_xml");
    EXPECT_EQ(loader.GetChipCount(), 0);
}

TEST(GravelLoaderTest, ChipElementsNameTheirChips) {
    const std::string tpx3 = ReadSample("tpx3.xml");
    const auto begin = tpx3.find("  <H05-W0318>");
    const std::string chip = tpx3.substr(begin, tpx3.find("</xml>") - begin);
    {
        LogCapture log;
        EXPECT_FALSE(ConfigLoader(kFromText, Replace(tpx3, "</xml>", chip + "</xml>")).IsValid());
        EXPECT_EQ(log.Count(-2, "Cannot insert chip signature 'H05-W0318' into database."), 2);
    }
    const ConfigLoader two(kFromText, Replace(tpx3, "</xml>",
                                              Replace(Replace(chip, "H05-W0318", "H06-W0318"),
                                                      "H05-W0318", "H06-W0318") +
                                                  "</xml>"));
    EXPECT_EQ(two.GetChipCount(), 2);
    EXPECT_EQ(std::get<std::int32_t>(*two.GetChipValue("H06-W0318", "Ikrum")), 15);
}

}  // namespace
}  // namespace ovex::configuration
