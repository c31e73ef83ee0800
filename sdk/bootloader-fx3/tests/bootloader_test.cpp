// The boot loader against a virtual board that comes up without an application: the probe, the
// information, the download with its chunks, retries and read-back, and the start of the image.

#include "ovex/fx3/bootloader.hpp"

#include <gtest/gtest.h>

#include <array>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "board_fixture.hpp"
#include "image_maker.hpp"
#include "log_capture.hpp"
#include "ovex/fx3/errors.hpp"
#include "ovex/fx3img/image_builder.hpp"
#include "ovex/vboard/boot_loader_mode.hpp"
#include "ovex/vendor_cmd/cypress.hpp"

namespace ovex::fx3 {
namespace {

namespace cypress = usb::vendor_cmd::cypress;
using ovex::testing::LogCapture;
using testing::MakeImage;

constexpr std::uint8_t kRamRequest = 0xA0;
constexpr std::uint32_t kSysMem = 0x40000000;
// The message of a stalled control transfer.
const std::string kStallText = "halt condition/unsupported request";

// A RAM transfer as the board saw it.
struct Transfer {
    bool in;
    std::uint32_t address;
    std::uint16_t length;

    bool operator==(const Transfer&) const = default;
};

std::ostream& operator<<(std::ostream& out, const Transfer& t) {
    return out << (t.in ? "read 0x" : "write 0x") << std::hex << t.address << std::dec << " "
               << t.length;
}

FwImage Parsed(const std::vector<std::uint8_t>& bytes) {
    FwImage image;
    EXPECT_FALSE(FwImage::FromMemory(bytes, image));
    return image;
}

std::vector<std::string> Messages(const LogCapture& log) {
    std::vector<std::string> messages;
    for (const auto& entry : log.Lines()) {
        messages.push_back(entry.message);
    }
    return messages;
}

class BootloaderTest : public usb::vendor_cmd::testing::BoardFixture {
protected:
    // A board in boot loader mode and the boot loader on it.
    std::unique_ptr<Bootloader> OpenBootLoader() {
        vboard::VirtualBoard::Settings settings;
        settings.boot_loader = vboard::BootLoaderMode{"TPX3EFE", {1, 3, 4, 0}};
        OpenBoard(std::move(settings));
        std::unique_ptr<Bootloader> bootloader;
        EXPECT_FALSE(Bootloader::Create(Device(), bootloader));
        Forget();
        return bootloader;
    }

    std::uint16_t PacketSize() { return Device().GetControlEndpoint().GetMaxPacketSize(); }

    std::vector<Transfer> RamTransfers() {
        std::vector<Transfer> transfers;
        for (const vboard::SetupPacket& setup : NewRequests()) {
            EXPECT_EQ(setup.bRequest, kRamRequest);
            transfers.push_back(
                {setup.IsIn(), (std::uint32_t{setup.wIndex} << 16) | setup.wValue, setup.wLength});
        }
        return transfers;
    }
};

TEST_F(BootloaderTest, ProbeFailsOnARunningApplication) {
    OpenBoard();
    std::unique_ptr<Bootloader> bootloader;
    EXPECT_EQ(Bootloader::Create(Device(), bootloader), std::errc::io_error);
    EXPECT_EQ(bootloader, nullptr);
    EXPECT_TRUE(Device().IsOpen());
    EXPECT_EQ(RamTransfers(), (std::vector<Transfer>{{true, 0, 1}}));
}

TEST_F(BootloaderTest, InformationIdAndCloseOnDestruction) {
    auto bootloader = OpenBootLoader();
    BootloaderInfo info;
    ASSERT_FALSE(bootloader->GetInfo(info));
    EXPECT_EQ(info.product, "TPX3EFE BL");
    EXPECT_EQ((std::array{info.version.major, info.version.minor, info.version.patch,
                          info.version.build}),
              (std::array<std::uint8_t, 4>{1, 3, 4, 0}));
    EXPECT_EQ(bootloader->IsProgrammer(), std::errc::bad_message);

    // The stock programmer is known by its exact id.
    Firmware().SetVendorRequest(
        0xB0, [](const vboard::SetupPacket&, std::span<const std::uint8_t>) {
            std::vector<std::uint8_t> field = {'F', 'X', '3', 'P', 'R', 'O', 'G'};
            field.resize(32);
            return vboard::ControlReply::Answer(field);
        });
    EXPECT_FALSE(bootloader->IsProgrammer());

    bootloader.reset();
    EXPECT_FALSE(Device().IsOpen());
}

TEST_F(BootloaderTest, DownloadAndSwitchStartTheApplication) {
    auto bootloader = OpenBootLoader();
    // The descriptor section and a body of 1920 bytes.
    const auto bytes = fx3img::BuildApplicationImage({"TPX3EFE", "3.03", "0.24.3-TPX3"}, 2048);
    LogCapture log(log::kInfo);
    ASSERT_FALSE(bootloader->Download(Parsed(bytes)));
    EXPECT_EQ(Messages(log),
              (std::vector<std::string>{
                  "Downloading firmware image section n.0 (address: 0x40003000, size: 96).",
                  "Verifying firmware image section n.0",
                  "Firmware image section n.0 - OK.",
                  "Downloading firmware image section n.1 (address: 0x40003100, size: 1920).",
                  "Verifying firmware image section n.1",
                  "Firmware image section n.1 - OK.",
              }));
    Forget();

    ASSERT_FALSE(bootloader->Switch());
    EXPECT_EQ(Messages(log).back(), "Switching to application, entrypoint: 0x40003000.");
    EXPECT_EQ(RamTransfers(), (std::vector<Transfer>{{true, 0x40003000, 0}}));
    std::string id;
    ASSERT_FALSE(cypress::GetId(Device(), id));
    EXPECT_EQ(id, "TPX3EFE");
}

TEST_F(BootloaderTest, SectionsGoOutInPacketSizedChunksAndAreReadBackTheSameWay) {
    auto bootloader = OpenBootLoader();
    const std::uint16_t p = PacketSize();
    // One packet and a word, then a section shorter than a packet.
    const auto bytes = MakeImage({{kSysMem + 0x100, std::vector<std::uint32_t>(p / 4 + 1, 9)},
                                  {kSysMem + 0x8000, {1, 2, 3}}});
    ASSERT_FALSE(bootloader->Download(Parsed(bytes)));
    EXPECT_EQ(RamTransfers(), (std::vector<Transfer>{{false, kSysMem + 0x100, p},
                                                     {false, kSysMem + 0x100 + p, 4},
                                                     {true, kSysMem + 0x100, p},
                                                     {true, kSysMem + 0x100 + p, 4},
                                                     {false, kSysMem + 0x8000, 12},
                                                     {true, kSysMem + 0x8000, 12}}));
}

TEST_F(BootloaderTest, AStalledWriteIsRetriedAndTheDownloadGoesOn) {
    auto bootloader = OpenBootLoader();
    Firmware().StallNext(kRamRequest, 2);
    LogCapture log(log::kInfo);
    ASSERT_FALSE(bootloader->Download(Parsed(MakeImage({{kSysMem, {1, 2}}}))));

    const std::string failed = "Write to RAM at address 0x40000000 failed: " + kStallText;
    EXPECT_EQ(Messages(log), (std::vector<std::string>{
                                 "Downloading firmware image section n.0 (address: 0x40000000, "
                                 "size: 8).",
                                 failed + ", will retry in 1.0e-04 seconds.",
                                 failed + ", will retry in 2.0e-04 seconds.",
                                 "Verifying firmware image section n.0",
                                 "Firmware image section n.0 - OK.",
                             }));
    EXPECT_EQ(
        RamTransfers(),
        (std::vector<Transfer>{
            {false, kSysMem, 8}, {false, kSysMem, 8}, {false, kSysMem, 8}, {true, kSysMem, 8}}));
}

TEST_F(BootloaderTest, AWriteThatKeepsFailingEndsTheDownloadAfterTenAttempts) {
    auto bootloader = OpenBootLoader();
    const std::uint16_t p = PacketSize();
    const std::uint32_t second = kSysMem + p;
    // Only the second chunk of the first section stalls, once more than it is tried.
    Firmware().StallNext({kRamRequest, static_cast<std::uint16_t>(second), 0x4000}, 11);
    LogCapture log(log::kInfo);
    const auto bytes =
        MakeImage({{kSysMem, std::vector<std::uint32_t>(p / 2, 7)}, {kSysMem + 0x1000, {1}}});
    EXPECT_EQ(bootloader->Download(Parsed(bytes)), std::errc::io_error);

    char address[16];
    std::snprintf(address, sizeof address, "0x%08X", second);
    const auto retries = log.StartingWith("Write to RAM at address " + std::string(address));
    ASSERT_EQ(retries.size(), 10u);
    EXPECT_TRUE(retries[0].message.ends_with("retry in 1.0e-04 seconds.")) << retries[0].message;
    EXPECT_TRUE(retries[9].message.ends_with("retry in 5.1e-02 seconds.")) << retries[9].message;
    const auto messages = Messages(log);
    EXPECT_EQ(std::vector(messages.end() - 2, messages.end()),
              (std::vector<std::string>{
                  "Failed to write RAM at address " + std::string(address) + ": " + kStallText +
                      ", retries exhausted.",
                  "Failed to write firmware image section n.0 to address 0x40000000."}));
    EXPECT_EQ(log.Lines().back().verbosity, log::kError);
    // One good chunk, ten attempts at the second, nothing read back.
    const auto transfers = RamTransfers();
    EXPECT_EQ(transfers.size(), 11u);
    EXPECT_EQ(transfers.back(), (Transfer{false, second, p}));
}

TEST_F(BootloaderTest, DataThatDoesNotReadBackFailsTheVerification) {
    auto bootloader = OpenBootLoader();
    const std::uint16_t p = PacketSize();
    // A RAM that flips bit 4 of byte 2 of the second chunk.
    auto ram = std::make_shared<std::map<std::uint32_t, std::vector<std::uint8_t>>>();
    Firmware().SetVendorRequest(
        kRamRequest, [ram, p](const vboard::SetupPacket& setup, std::span<const std::uint8_t> out) {
            const std::uint32_t address = (std::uint32_t{setup.wIndex} << 16) | setup.wValue;
            if (!setup.IsIn()) {
                (*ram)[address].assign(out.begin(), out.end());
                return vboard::ControlReply::Answer();
            }
            auto data = (*ram)[address];
            if (address == kSysMem + p) {
                data.at(2) ^= 0x10;
            }
            return vboard::ControlReply::Answer(data);
        });
    std::vector<std::uint32_t> words(p / 2);
    words[p / 4] = 0x00A50000;
    LogCapture log(log::kInfo);
    EXPECT_EQ(bootloader->Download(Parsed(MakeImage({{kSysMem, words}, {kSysMem + 0x1000, {1}}}))),
              BootloaderError::kDataMismatch);
    const auto messages = Messages(log);
    EXPECT_EQ(std::vector(messages.end() - 3, messages.end()),
              (std::vector<std::string>{
                  "Verifying firmware image section n.0",
                  "Data mismatch (0xa5 != 0xb5) at offset " + std::to_string(p + 2) + ".",
                  "Content verification of section n.0 failed."}));
    EXPECT_EQ(log.Lines().back().verbosity, log::kError);
}

TEST_F(BootloaderTest, AnImageWithoutSectionsSendsNothingAndKeepsItsEntryPoint) {
    auto bootloader = OpenBootLoader();
    ASSERT_FALSE(bootloader->Download(Parsed(MakeImage({}, 0x40001234))));
    EXPECT_TRUE(RamTransfers().empty());
    // The board refuses to start what isn't there; the start request shows the address.
    EXPECT_TRUE(bootloader->Switch());
    EXPECT_EQ(RamTransfers(), (std::vector<Transfer>{{true, 0x40001234, 0}}));
}

TEST_F(BootloaderTest, SecondStageLoaderGoesToTheBootEepromInChunksWithoutRetries) {
    auto bootloader = OpenBootLoader();
    const unsigned p = PacketSize();
    std::vector<std::uint8_t> loader(p * 2 + 8);
    for (std::size_t i = 0; i < loader.size(); ++i) {
        loader[i] = static_cast<std::uint8_t>(i * 7);
    }
    LogCapture log(log::kInfo);
    ASSERT_FALSE(bootloader->DownloadBootloader(loader));
    EXPECT_EQ(Messages(log),
              (std::vector<std::string>{
                  "Downloading bootloader image (size: " + std::to_string(loader.size()) + ")...",
                  "Bootloader image download successfull.",
                  "Verifying bootloader image...",
                  "Bootloader image verification successfull.",
              }));
    // Request, EEPROM device, address and length.
    std::vector<std::array<unsigned, 4>> requests;
    for (const auto& setup : NewRequests()) {
        requests.push_back({setup.bRequest, setup.wValue, setup.wIndex, setup.wLength});
    }
    EXPECT_EQ(requests, (std::vector<std::array<unsigned, 4>>{{0xBA, 0, 0, p},
                                                              {0xBA, 0, p, p},
                                                              {0xBA, 0, 2 * p, 8},
                                                              {0xBB, 0, 0, p},
                                                              {0xBB, 0, p, p},
                                                              {0xBB, 0, 2 * p, 8}}));

    EXPECT_EQ(bootloader->DownloadBootloader(std::vector<std::uint8_t>(65536)),
              std::errc::invalid_argument);
    EXPECT_TRUE(NewRequests().empty());
    Firmware().StallNext(0xBA);
    EXPECT_EQ(bootloader->DownloadBootloader(loader), std::errc::io_error);
    EXPECT_EQ(NewRequests().size(), 1u);
}

}  // namespace
}  // namespace ovex::fx3
