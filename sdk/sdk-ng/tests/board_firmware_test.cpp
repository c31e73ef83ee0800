// Boards that wait in their boot loader: found, given their firmware, recognised and opened
// through the exported interface; and the ways the firmware step can fail.

#include <gtest/gtest.h>

#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "ovex/fx3img/image_builder.hpp"
#include "support/board_session.hpp"

namespace ovex::sdk {
namespace {

struct BootCase {
    vboard::BoardKind kind;
    const char* boot_loader_id;
    const char* image;
    const char* firmware;
    const char* units[2];
};

class BootLoaderBoardTest : public testing::BoardSession,
                            public ::testing::WithParamInterface<BootCase> {};

vboard::VirtualBoard::Settings InBootLoader(vboard::BoardKind kind, const char* id) {
    vboard::VirtualBoard::Settings settings;
    settings.kind = kind;
    settings.boot_loader = vboard::BootLoaderMode{id};
    return settings;
}

TEST_P(BootLoaderBoardTest, GetsItsFirmwareIsRecognisedAndOpens) {
    const auto& c = GetParam();
    ASSERT_EQ(AddAndOpen(InBootLoader(c.kind, c.boot_loader_id)), OVEXSDK_OK);

    // The board now runs the firmware it was given.
    EXPECT_EQ(Script(std::string("assert(Usb.VendorCmd.Versions.new(device):get_value('FX3_FW')"
                                 " == '") +
                     c.firmware + "')"),
              OVEXSDK_OK);
    ovexsdk_dev_unit_info units[4];
    std::uint8_t count = 4;
    ASSERT_EQ(ovexsdk_dev_get_unit_info(&m_ctx, units, &count), OVEXSDK_OK);
    ASSERT_EQ(count, 2);
    EXPECT_STREQ(units[0].name, c.units[0]);
    EXPECT_STREQ(units[1].name, c.units[1]);

    // A second open finds the application running and downloads nothing.
    ASSERT_EQ(ovexsdk_dev_close(&m_ctx), OVEXSDK_OK);
    ASSERT_EQ(ovexsdk_dev_open(&m_ctx), OVEXSDK_OK);
    Release();

    const std::string product = std::string(c.boot_loader_id) + " BL";
    EXPECT_EQ(
        HostLines("Found device in bootloader mode - product: " + product + ", version: 1.3.4.0."),
        1u);
    const std::vector<std::string> expected{
        "Found device in bootloader mode - product: " + product + ", version: 1.3.4.0.",
        std::string("Using firmware image 'embedded: ") + c.image + "', version " + c.firmware +
            ".",
        "Switching to application, entrypoint: 0x40003000.",
        "Open successful, connected to the device.",
    };
    EXPECT_EQ(InOrder(expected), expected);
}

INSTANTIATE_TEST_SUITE_P(EveryBoardKind, BootLoaderBoardTest,
                         ::testing::Values(BootCase{vboard::BoardKind::kTimepix3,
                                                    "TPX3EFE",
                                                    "ovbd-fw_v3_0_3.img",
                                                    "0.24.3-TPX3",
                                                    {"backend", "frontend"}},
                                           // An "OVBD" board of PCB 3.03 is a Timepix3 board.
                                           BootCase{vboard::BoardKind::kTimepix3,
                                                    "OVBD",
                                                    "ovbd-fw_v3_0_3.img",
                                                    "0.24.3-TPX3",
                                                    {"backend", "frontend"}},
                                           BootCase{vboard::BoardKind::kTimepix2Cb,
                                                    "TPX2CB",
                                                    "ovbd-fw_v3_0_3_tpx2_cb.img",
                                                    "1.6.3-TPX2CB",
                                                    {"backend", "frontend"}},
                                           BootCase{vboard::BoardKind::kTimepix4Cb,
                                                    "TPX4CB",
                                                    "ovbd-fw_v3_0_3_tpx4_cb.img",
                                                    "1.5.1-TPX4CB",
                                                    {"backend", "frontend"}},
                                           BootCase{vboard::BoardKind::kNobe,
                                                    "NOBE",
                                                    "nobe-fw_v3_0_0.img",
                                                    "0.19.3",
                                                    {"NoBE", "TP2FE"}}),
                         [](const ::testing::TestParamInfo<BootCase>& info) {
                             return std::string(info.param.boot_loader_id);
                         });

class FirmwareChoiceTest : public testing::BoardSession {
protected:
    void TearDown() override {
        if (!m_home.empty()) {
            std::filesystem::current_path(m_home);
            std::filesystem::remove_all(m_dir);
        }
        BoardSession::TearDown();
    }

    // Runs the test in a fresh working directory holding `bytes` as the Timepix3 image's file.
    void PlaceImageFile(const std::vector<std::uint8_t>& bytes) {
        m_home = std::filesystem::current_path();
        m_dir = std::filesystem::temp_directory_path() /
                ("ovex-firmware-" + std::to_string(::getpid()));
        std::filesystem::create_directories(m_dir);
        std::filesystem::current_path(m_dir);
        std::ofstream file("ovbd-fw_v3_0_3.img", std::ios::binary);
        file.write(reinterpret_cast<const char*>(bytes.data()),
                   static_cast<std::streamsize>(bytes.size()));
    }

    std::filesystem::path m_home;
    std::filesystem::path m_dir;
};

TEST_F(FirmwareChoiceTest, SoundFileInTheWorkingDirectoryReplacesTheEmbeddedImage) {
    PlaceImageFile(fx3img::BuildApplicationImage({"TPX3EFE", "3.03", "0.24.9-LAB"}, 8192));
    ASSERT_EQ(AddAndOpen(InBootLoader(vboard::BoardKind::kTimepix3, "TPX3EFE")), OVEXSDK_OK);
    EXPECT_EQ(
        Script("assert(Usb.VendorCmd.Versions.new(device):get_value('FX3_FW') == '0.24.9-LAB')"),
        OVEXSDK_OK);
    Release();
    EXPECT_EQ(HostLines("Using firmware image from file 'ovbd-fw_v3_0_3.img'."), 1u);
}

TEST_F(FirmwareChoiceTest, BrokenFileIsPassedOverForTheEmbeddedImage) {
    auto bytes = fx3img::BuildApplicationImage({"TPX3EFE", "3.03", "0.24.9-LAB"}, 8192);
    bytes[200] ^= 0x01;  // a data byte: the checksum no longer matches
    PlaceImageFile(bytes);
    ASSERT_EQ(AddAndOpen(InBootLoader(vboard::BoardKind::kTimepix3, "TPX3EFE")), OVEXSDK_OK);
    EXPECT_TRUE(
        Logged("Failed to read firmware from file 'ovbd-fw_v3_0_3.img' - fwimg: invalid "
               "image checksum."));
    EXPECT_EQ(
        Script("assert(Usb.VendorCmd.Versions.new(device):get_value('FX3_FW') == '0.24.3-TPX3')"),
        OVEXSDK_OK);
    Release();
    EXPECT_EQ(
        HostLines("Using firmware image 'embedded: ovbd-fw_v3_0_3.img', version 0.24.3-TPX3."), 1u);
}

TEST_F(FirmwareChoiceTest, SoundFileOfAnotherBoardIsPassedOverForTheEmbeddedImage) {
    PlaceImageFile(fx3img::BuildApplicationImage({"TPX2CB", "3.03", "0.9.9-TPX2"}, 8192));
    ASSERT_EQ(AddAndOpen(InBootLoader(vboard::BoardKind::kTimepix3, "TPX3EFE")), OVEXSDK_OK);
    EXPECT_EQ(
        Script("assert(Usb.VendorCmd.Versions.new(device):get_value('FX3_FW') == '0.24.3-TPX3')"),
        OVEXSDK_OK);
    Release();
    EXPECT_EQ(HostLines("Firmware image file 'ovbd-fw_v3_0_3.img' is for board TPX2CB 3.03, "
                        "not TPX3EFE 3.03: it is not used."),
              1u);
    EXPECT_EQ(
        HostLines("Using firmware image 'embedded: ovbd-fw_v3_0_3.img', version 0.24.3-TPX3."), 1u);
}

TEST_F(FirmwareChoiceTest, BoardWithoutFirmwareInTheLibraryStaysInItsBootLoader) {
    auto settings = InBootLoader(vboard::BoardKind::kTimepix3, "TPX3EFE");
    settings.identity.bcd_device = 0x0304;
    EXPECT_EQ(AddAndOpen(std::move(settings)), OVEXSDK_ERR_FAILED);
    // Still the boot loader: the next open finds it there again.
    EXPECT_EQ(ovexsdk_dev_open(&m_ctx), OVEXSDK_ERR_FAILED);
    Release();
    EXPECT_EQ(HostLines("Found device in bootloader mode - product: TPX3EFE BL, version: 1.3.4.0."),
              2u);
    const std::vector<std::string> expected{
        "Unknown or unsupported filename/location of firmware image ('not found').",
        "Failed to load firmware image to device.",
        "Failed to inspect the device: - generic: Operation not supported.",
    };
    EXPECT_EQ(InOrder(expected), expected);
}

TEST_F(FirmwareChoiceTest, BoardIdIsCutAtTheLastBootLoaderMark) {
    // "TPX3EFE BL BL" names the board "TPX3EFE BL", which has no firmware.
    EXPECT_EQ(AddAndOpen(InBootLoader(vboard::BoardKind::kTimepix3, "TPX3EFE BL")),
              OVEXSDK_ERR_FAILED);
    Release();
    EXPECT_EQ(
        HostLines("Unknown or unsupported filename/location of firmware image ('not found')."), 1u);
}

TEST_F(FirmwareChoiceTest, OldOvexBoardInItsBootLoaderGetsNoFirmware) {
    vboard::VirtualBoard::Settings settings;
    settings.boot_loader = vboard::BootLoaderMode{"OVBD"};
    settings.identity.bcd_device = 0x0301;  // a PCB this library has no firmware for
    EXPECT_EQ(AddAndOpen(std::move(settings)), OVEXSDK_ERR_FAILED);
    Release();
    EXPECT_EQ(HostLines("Failed to load firmware image to device."), 1u);
    EXPECT_EQ(HostLines("Switching to application, entrypoint: 0x40003000."), 0u);
}

}  // namespace
}  // namespace ovex::sdk
