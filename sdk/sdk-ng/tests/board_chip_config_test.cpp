// Chip configuration files on a Timepix3 board through the exported interface: a file of each
// generation applied (DACs on the board, matrix in the chip, the threshold's calibration), the
// lookup of the chip's file in the working directory, and files broken in the ways real files
// break.

#include <gtest/gtest.h>

#include <unistd.h>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <string>
#include <utility>
#include <vector>

#include "support/chip_session.hpp"

namespace ovex::sdk {
namespace {

using testing::Bytes;
using testing::ChipStream;
using testing::kChipId;
using testing::kPixels;
using testing::ReadSample;
using testing::Replace;
using testing::SampleMatrix;

class BoardChipConfig : public testing::ChipSession {
protected:
    void TearDown() override {
        if (!m_previous_directory.empty()) {
            std::filesystem::current_path(m_previous_directory);
            std::filesystem::remove_all(m_directory);
        }
        ChipSession::TearDown();
    }

    // Works in an empty directory of its own from here on.
    void EnterEmptyDirectory() {
        m_previous_directory = std::filesystem::current_path();
        m_directory = std::filesystem::temp_directory_path() /
                      ("ovex-chip-config-" + std::to_string(::getpid()));
        std::filesystem::remove_all(m_directory);
        std::filesystem::create_directories(m_directory);
        std::filesystem::current_path(m_directory);
    }

    static void Write(const std::string& name, const std::string& text) {
        std::ofstream(name, std::ios::binary) << text;
    }

    float Threshold() {
        float kev = 0;
        EXPECT_EQ(ovexsdk_chip_get_thld(&m_ctx, 0, &kev), OVEXSDK_OK);
        return kev;
    }

    std::filesystem::path m_previous_directory;
    std::filesystem::path m_directory;
};

const Bytes kDefaults = ChipStream(Bytes(kPixels, 0x10));

TEST_F(BoardChipConfig, TimepixThreeFileSetsDacsMatrixAndCalibration) {
    OpenPowered();
    ASSERT_EQ(Configure(ReadSample("tpx3.xml")), OVEXSDK_OK);
    EXPECT_TRUE(Logged("Chip H05-W0318 configured with configuration data."));
    EXPECT_TRUE(Logged("Digital test of 'H05-W0318' - good: 65536, bad: 0."));
    const std::vector<std::pair<const char*, int>> dacs = {
        {"DAC_Ikrum_0", 15},    {"DAC_Fbk_0", 164},      {"DAC_THLFine_0", 438},
        {"DAC_THLCoarse_0", 4}, {"DAC_DiscS1On_0", 100}, {"DAC_TpFine_0", 256},
        {"DAC_PreampOff_0", 8}};
    for (const auto& [state, value] : dacs) {
        EXPECT_EQ(State(state), value) << state;
    }
    EXPECT_EQ(ChipMatrix(), ChipStream(SampleMatrix()));

    // raw = -23.9 keV^-1 * E + 1180, down to the raw threshold 120.
    ovexsdk_chip_thld_info info{};
    std::uint8_t count = 1;
    ASSERT_EQ(ovexsdk_chip_get_thld_info(&m_ctx, &info, &count), OVEXSDK_OK);
    EXPECT_EQ(info.calibrated, 1u);
    EXPECT_EQ(info.energy_low, 0.0f);
    EXPECT_FLOAT_EQ(info.energy_high, static_cast<float>((120.0 - 1180.0) / -23.9));
    EXPECT_EQ(info.min_threshold, 120.0f);
    EXPECT_NEAR(Threshold(), (4 * 160 + 438 - 1180.0) / -23.9, 1e-4);

    // Every energy in range comes back within one DAC code's worth of keV.
    for (const float kev : {0.0f, 0.5f, 4.25f, 6.0f, 20.0f, 44.35f}) {
        SCOPED_TRACE(kev);
        ASSERT_EQ(ovexsdk_chip_set_thld(&m_ctx, 0, kev), OVEXSDK_OK);
        EXPECT_NEAR(Threshold(), kev, 1.0 / 23.9);
        EXPECT_LE(State("DAC_THLFine_0"), 511);
    }
    ASSERT_EQ(ovexsdk_chip_set_thld(&m_ctx, 0, 4.25f), OVEXSDK_OK);
    EXPECT_EQ(State("DAC_THLCoarse_0"), 4);
    EXPECT_EQ(State("DAC_THLFine_0"), 438);
    EXPECT_EQ(ovexsdk_chip_set_thld(&m_ctx, 0, 44.5f), OVEXSDK_ERR_FAILED);
    EXPECT_TRUE(
        Logged("Input threshold: 44.500 keV is outside the valid range [0.000, 44.351] keV."));
    EXPECT_EQ(ovexsdk_chip_set_thld(&m_ctx, 0, -0.1f), OVEXSDK_ERR_FAILED);
    EXPECT_EQ(State("DAC_THLFine_0"), 438);
}

// Files of the other generations, written for this chip: the parsers tell them apart, the DACs
// they name alike are set, the others are reported, and the matrix is the file's.
TEST_F(BoardChipConfig, FilesOfEveryGenerationConfigureTheChip) {
    OpenPowered();
    const std::vector<std::pair<std::string, std::string>> files = {
        {"tpx1.yaml", "K09-W0107"}, {"tpx2.yaml", "E07-W0025"}, {"tpx2.xml", "E07-W0025"}};
    for (const auto& [name, id] : files) {
        SCOPED_TRACE(name);
        ASSERT_EQ(ovexsdk_dev_power_down(&m_ctx), OVEXSDK_OK);
        ASSERT_EQ(ovexsdk_dev_power_up(&m_ctx), OVEXSDK_OK);
        ASSERT_EQ(ChipMatrix(), Bytes(49152, 0));
        ASSERT_EQ(Configure(Replace(ReadSample(name), id, kChipId)), OVEXSDK_OK);
        EXPECT_EQ(ChipMatrix(), ChipStream(SampleMatrix()));
        EXPECT_TRUE(
            Logged("Configuration value for DAC NCas is missing, it will not be configured."));
    }
}

TEST_F(BoardChipConfig, ConfigureLooksForTheChipsFileInTheWorkingDirectory) {
    EnterEmptyDirectory();
    OpenPowered();
    ASSERT_EQ(ovexsdk_chip_configure(&m_ctx, 0), OVEXSDK_OK);
    EXPECT_TRUE(Logged("No configuration available for chip H05-W0318, defaults will be used."));
    EXPECT_EQ(ChipMatrix(), kDefaults);

    const std::string xml = ReadSample("tpx3.xml");
    Write("H05-W0318.xml", xml);
    Write("H05-W0318.yaml", xml.substr(0, 900));  // broken: the next name counts
    ASSERT_EQ(ovexsdk_chip_configure(&m_ctx, 0), OVEXSDK_OK);
    EXPECT_EQ(State("DAC_THLFine_0"), 438);
    EXPECT_EQ(ChipMatrix(), ChipStream(SampleMatrix()));

    // A valid YAML file comes first.
    Write("H05-W0318.yaml", Replace(Replace(ReadSample("tpx1.yaml"), "K09-W0107", kChipId),
                                    "THLFine: 380", "THLFine: 5"));
    ASSERT_EQ(ovexsdk_chip_configure(&m_ctx, 0), OVEXSDK_OK);
    EXPECT_EQ(State("DAC_THLFine_0"), 5);
}

TEST_F(BoardChipConfig, BrokenFilesAreRefusedAndReported) {
    OpenPowered();
    const std::string xml = ReadSample("tpx3.xml");
    const std::string invalid = "Provided configuration for chip H05-W0318 is not valid.";

    // Texts that no parser takes (cut short, not UTF-8, a number that isn't one, a key missing,
    // empty): the chip was reset, nothing else happened.
    const std::vector<std::string> unreadable = {
        xml.substr(0, xml.size() / 2), std::string("\xff\xfe<\x00x\x00m\x00l\x00>", 10),
        Replace(xml, "<THLCoarse>4</THLCoarse>", "<THLCoarse>four</THLCoarse>"),
        Replace(xml, "<Ikrum>15</Ikrum>", ""), ""};
    for (const auto& text : unreadable) {
        EXPECT_EQ(Configure(text), OVEXSDK_ERR_INVALID);
    }
    std::size_t refusals = 0;
    for (const auto& line : m_log.Messages()) {
        refusals += line.message == invalid;
    }
    EXPECT_EQ(refusals, unreadable.size());
    EXPECT_EQ(ChipMatrix(), Bytes(49152, 0));

    // A file of another chip: no DAC, no matrix; the chip keeps its defaults.
    EXPECT_EQ(Configure(Replace(xml, kChipId, "K07-W0011")), OVEXSDK_ERR_FAILED);
    EXPECT_TRUE(Logged("Provided configuration matrix has incorrect size (0)"));
    EXPECT_EQ(ChipMatrix(), kDefaults);

    // A DAC value the board refuses ends the DACs; matrix and calibration still go in, and the
    // call reports the failure.
    EXPECT_EQ(Configure(Replace(xml, "<Fbk>164</Fbk>", "<Fbk>300</Fbk>")), OVEXSDK_ERR_FAILED);
    EXPECT_TRUE(Logged("Chip H05-W0318 configured with configuration data."));
    EXPECT_EQ(ChipMatrix(), ChipStream(SampleMatrix()));
}

}  // namespace
}  // namespace ovex::sdk
