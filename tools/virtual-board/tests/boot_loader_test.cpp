// A board in boot loader mode through the USB path: what the boot loader answers and refuses,
// which images it starts and which it doesn't, and the application it becomes.

#include <gtest/gtest.h>

#include <atomic>
#include <functional>
#include <optional>
#include <ostream>
#include <string>
#include <thread>
#include <vector>

#include "board_host.hpp"
#include "ovex/fx3img/image_builder.hpp"
#include "ovex/vboard/firmware_engine.hpp"
#include "ovex/vboard/firmware_model.hpp"
#include "virtual_board_test.hpp"

namespace ovex::vboard {
namespace {

using testing::BoardHost;
using testing::Bytes;

constexpr std::uint8_t kRam = 0xA0;
constexpr std::size_t kChunk = 4096;  // the largest control transfer libusb sends on Linux
// Large enough for two body sections.
constexpr std::size_t kImageSize = 70000;

// An image file as its sections and its entry point.
struct Image {
    struct Section {
        std::uint32_t address;
        Bytes data;
    };
    std::vector<Section> sections;
    std::uint32_t entry = 0;
};

Image Parse(const Bytes& file) {
    Image image;
    for (std::size_t pos = 4; pos + 8 <= file.size();) {
        const std::uint32_t words = BoardHost::U32(file, pos);
        const std::uint32_t address = BoardHost::U32(file, pos + 4);
        pos += 8;
        if (words == 0) {
            image.entry = address;
            break;
        }
        image.sections.push_back(
            {address, Bytes(file.begin() + static_cast<std::ptrdiff_t>(pos),
                            file.begin() + static_cast<std::ptrdiff_t>(pos + words * 4))});
        pos += words * 4;
    }
    return image;
}

Image Build(const fx3img::AppIdentity& identity) {
    return Parse(fx3img::BuildApplicationImage(identity, kImageSize));
}

const fx3img::AppIdentity kTimepix3{"TPX3EFE", "3.03", "0.24.3-TPX3"};

// The chunks a host writes of each section: at most kChunk bytes, in order.
template <class Write>
void ForEachChunk(const Image& image, Write write) {
    for (const Image::Section& section : image.sections) {
        for (std::size_t at = 0; at < section.data.size(); at += kChunk) {
            const std::size_t end = std::min(at + kChunk, section.data.size());
            write(section.address + static_cast<std::uint32_t>(at),
                  Bytes(section.data.begin() + static_cast<std::ptrdiff_t>(at),
                        section.data.begin() + static_cast<std::ptrdiff_t>(end)));
        }
    }
}

int ReadRam(BoardHost& host, std::uint32_t address, Bytes& data) {
    return host.In(kRam, static_cast<std::uint16_t>(address),
                   static_cast<std::uint16_t>(address >> 16), data);
}
int WriteRam(BoardHost& host, std::uint32_t address, Bytes data) {
    return host.Out(kRam, static_cast<std::uint16_t>(address),
                    static_cast<std::uint16_t>(address >> 16), std::move(data));
}

// Writes every section; the start is left to the test.
void Download(BoardHost& host, const Image& image) {
    ForEachChunk(image, [&](std::uint32_t address, Bytes chunk) {
        const int size = static_cast<int>(chunk.size());
        EXPECT_EQ(WriteRam(host, address, std::move(chunk)), size) << std::hex << address;
    });
}

// The boot loader's start order: a RAM read of no bytes at the entry point.
int Switch(BoardHost& host, std::uint32_t entry) {
    Bytes none;
    return ReadRam(host, entry, none);
}

class BootLoaderBoard : public VirtualBoardTest {
protected:
    void TearDown() override {
        m_host.reset();
        VirtualBoardTest::TearDown();
    }

    BoardHost& Start(const std::string& boot_id, BoardKind kind = BoardKind::kTimepix3,
                     std::uint16_t bcd_device = 0) {
        VirtualBoard::Settings settings;
        settings.kind = kind;
        settings.identity.bcd_device = bcd_device;
        settings.boot_loader = BootLoaderMode{.board_id = boot_id};
        AddBoard(std::move(settings));
        return m_host.emplace();
    }

    std::optional<BoardHost> m_host;
};

TEST_F(BootLoaderBoard, AnswersItsIdVersionAndRamAndRefusesTheApplicationsRequests) {
    BoardHost& host = Start("OVBD");
    EXPECT_EQ(host.BoardId(), "OVBD BL");
    Bytes version(8);
    ASSERT_EQ(host.In(0xC8, 0, 0, version), 8);
    EXPECT_EQ(version, (Bytes{1, 0, 3, 0, 4, 0, 0, 0}));
    Bytes probe(1, 0xEE);
    ASSERT_EQ(ReadRam(host, 0, probe), 1);
    EXPECT_EQ(probe, Bytes{0});

    // No items, no last error, no buses, no reset.
    EXPECT_EQ(host.Count(BoardHost::kCommands), testing::kTransferFailed);
    Bytes word(4);
    EXPECT_EQ(host.In(0x00, 0, 0, word), LIBUSB_ERROR_PIPE);
    EXPECT_EQ(host.In(0x92, 0, 0x01A1, word), LIBUSB_ERROR_PIPE);
    EXPECT_EQ(host.In(0x04, 0, 0, word), LIBUSB_ERROR_PIPE);
    Bytes none;
    EXPECT_EQ(host.In(0xE0, 0, 0, none), LIBUSB_ERROR_PIPE);
    // The EEPROMs answer in both modes.
    ASSERT_EQ(host.Out(0xBA, 2, 0x0010, {0x5A, 0xA5}), 2);
    Bytes eeprom(2);
    ASSERT_EQ(host.In(0xBB, 2, 0x0010, eeprom), 2);
    EXPECT_EQ(eeprom, (Bytes{0x5A, 0xA5}));

    // RAM: whole ranges inside I-TCM or SYSMEM only; a refused write changes nothing.
    ASSERT_EQ(WriteRam(host, 0x4007FFFC, {1, 2, 3, 4}), 4);
    Bytes back(4);
    ASSERT_EQ(ReadRam(host, 0x4007FFFC, back), 4);
    EXPECT_EQ(back, (Bytes{1, 2, 3, 4}));
    EXPECT_EQ(WriteRam(host, 0x4007FFFE, {9, 9, 9, 9}), LIBUSB_ERROR_PIPE);
    ASSERT_EQ(ReadRam(host, 0x4007FFFC, back), 4);
    EXPECT_EQ(back, (Bytes{1, 2, 3, 4}));
    ASSERT_EQ(ReadRam(host, 0x00003FFC, back), 4);
    Bytes two(2);
    EXPECT_EQ(ReadRam(host, 0x00003FFF, two), LIBUSB_ERROR_PIPE);
    EXPECT_EQ(ReadRam(host, 0x00004000, two), LIBUSB_ERROR_PIPE);
    EXPECT_EQ(ReadRam(host, 0x3FFFFFFF, two), LIBUSB_ERROR_PIPE);
    EXPECT_EQ(ReadRam(host, 0xFFFFFFFF, two), LIBUSB_ERROR_PIPE);
    EXPECT_EQ(host.BoardId(), "OVBD BL");
}

struct StartCase {
    const char* name;
    std::string boot_id;
    BoardKind board;  // the kind the board is made as (its USB identity)
    fx3img::AppIdentity image;
    BoardKind runs;
    Bytes version;  // the controller's version answer of the application
};

void PrintTo(const StartCase& start, std::ostream* out) {
    *out << start.name;
}

class SoundImage : public BootLoaderBoard, public ::testing::WithParamInterface<StartCase> {};

TEST_P(SoundImage, StartsAndTheBoardAnswersAsItsApplicationOnTheSameHandle) {
    const StartCase& start = GetParam();
    BoardHost& host = Start(start.boot_id, start.board);
    // The hardware's measurements and faults are there before any firmware runs.
    Board().Engine().SetMonitorValue("TSENS_TEMP", 31.5F);
    Board().Engine().BreakMonitor("U_BIAS");
    ASSERT_EQ(host.Out(0xBA, 0, 0, {0x42}), 1);

    const Image image = Build(start.image);
    Download(host, image);
    ASSERT_EQ(Switch(host, image.entry), 0);

    const ItemTables& tables = TablesOf(start.runs);
    EXPECT_EQ(host.BoardId(), tables.board_id);
    Bytes version(8);
    ASSERT_EQ(host.In(0xC8, 0, 0, version), 8);
    EXPECT_EQ(version, start.version);
    EXPECT_EQ(host.Version("FX3_FW"), start.image.firmware_version);
    EXPECT_EQ(host.Count(BoardHost::kCommands), tables.commands.size());
    EXPECT_EQ(host.Count(BoardHost::kStates), tables.states.size());
    EXPECT_EQ(host.Count(BoardHost::kMonitors), tables.monitors.size());
    EXPECT_EQ(host.LastError(), 0u);
    Bytes probe(1);
    EXPECT_EQ(ReadRam(host, 0, probe), LIBUSB_ERROR_PIPE);
    EXPECT_EQ(Switch(host, image.entry), LIBUSB_ERROR_PIPE);

    ASSERT_EQ(host.SetState("DETECTOR_EN", 1), 0U);  // the NoBE's sensor is the front end's
    EXPECT_EQ(host.Monitor("TSENS_TEMP"), 31.5F);
    EXPECT_EQ(host.MonitorRefusal("U_BIAS"), 0x01000000u);
    Bytes eeprom(1);
    ASSERT_EQ(host.In(0xBB, 0, 0, eeprom), 1);
    EXPECT_EQ(eeprom, Bytes{0x42});
}

INSTANTIATE_TEST_SUITE_P(
    Boards, SoundImage,
    ::testing::Values(
        // The plain OvexBoard id loads the Timepix3 firmware; the image's own version counts.
        StartCase{"OvexBoardAsTimepix3",
                  "OVBD",
                  BoardKind::kTimepix3,
                  {"TPX3EFE", "3.03", "0.25.1-TPX3"},
                  BoardKind::kTimepix3,
                  {0, 0, 25, 0, 1, 0, 0, 0}},
        StartCase{"Timepix2ChipBoard",
                  "TPX2CB",
                  BoardKind::kTimepix3,
                  {"TPX2CB", "3.03", "1.6.3-TPX2CB"},
                  BoardKind::kTimepix2Cb,
                  {1, 0, 6, 0, 3, 0, 0, 0}},
        StartCase{"Timepix4ChipBoard",
                  "TPX4CB",
                  BoardKind::kTimepix4Cb,
                  {"TPX4CB", "3.03", "1.5.1-TPX4CB"},
                  BoardKind::kTimepix4Cb,
                  {1, 0, 5, 0, 1, 0, 0, 0}},
        StartCase{"Nobe",
                  "NOBE",
                  BoardKind::kNobe,
                  {"NOBE", "3.00", "0.19.3"},
                  BoardKind::kNobe,
                  {0, 0, 19, 0, 3, 0, 0, 0}}),
    [](const ::testing::TestParamInfo<StartCase>& info) { return info.param.name; });

struct Corruption {
    const char* name;
    fx3img::AppIdentity image;
    std::function<void(Image&)> spoil;
};

void PrintTo(const Corruption& corruption, std::ostream* out) {
    *out << corruption.name;
}

class CorruptImage : public BootLoaderBoard, public ::testing::WithParamInterface<Corruption> {};

TEST_P(CorruptImage, DoesNotStartAndTheBoardCanBeLoadedAfterwards) {
    const Corruption& corruption = GetParam();
    BoardHost& host = Start("OVBD");
    Image bad = Build(corruption.image);
    ASSERT_EQ(bad.sections.size(), 3u);  // the descriptor and two body sections
    corruption.spoil(bad);
    Download(host, bad);
    EXPECT_EQ(Switch(host, bad.entry), LIBUSB_ERROR_PIPE);
    EXPECT_EQ(host.BoardId(), "OVBD BL");
    EXPECT_EQ(host.Count(BoardHost::kCommands), testing::kTransferFailed);

    const Image good = Build(kTimepix3);
    Download(host, good);
    ASSERT_EQ(Switch(host, good.entry), 0);
    EXPECT_EQ(host.BoardId(), "TPX3EFE");
    EXPECT_EQ(host.Count(BoardHost::kCommands), TablesOf(BoardKind::kTimepix3).commands.size());
}

INSTANTIATE_TEST_SUITE_P(
    Downloads, CorruptImage,
    ::testing::Values(
        Corruption{"OneBodyByteChanged", kTimepix3,
                   [](Image& image) { image.sections[2].data[17] ^= 0x01; }},
        Corruption{"BodySectionMissing", kTimepix3,
                   [](Image& image) { image.sections.pop_back(); }},
        Corruption{"WrongMagic", kTimepix3,
                   [](Image& image) { image.sections[0].data[0] ^= 0x20; }},
        Corruption{"BodySectionAtAnotherAddress", kTimepix3,
                   [](Image& image) { image.sections[1].address += 0x1000; }},
        Corruption{"OtherPcbVersion", {"TPX3EFE", "3.04", "0.24.3-TPX3"}, [](Image&) {}},
        Corruption{"UnknownBoardId", {"TPX9XYZ", "3.03", "0.24.3-TPX3"}, [](Image&) {}},
        Corruption{"EntryPointOffTheDescriptor", kTimepix3,
                   [](Image& image) { image.entry += 4; }}),
    [](const ::testing::TestParamInfo<Corruption>& info) { return info.param.name; });

TEST_F(BootLoaderBoard, ImageForItsOwnPcbVersionStartsOnAnotherRelease) {
    BoardHost& host = Start("TPX3EFE", BoardKind::kTimepix3, 0x0304);
    const Image image = Build({"TPX3EFE", "3.04", "0.24.3-TPX3"});
    Download(host, image);
    ASSERT_EQ(Switch(host, image.entry), 0);
    EXPECT_EQ(host.BoardId(), "TPX3EFE");
}

// The start swaps the firmware under the engine's lock: a test thread and the host see the boot
// loader or the application, never a mix.
TEST(BootLoaderStart, IsWholeForConcurrentRequestsAndTestCalls) {
    BoardIdentity identity;
    identity.bcd_device = 0x0303;
    FirmwareModel model(identity);
    FirmwareEngine engine(model, TablesOf(BoardKind::kTimepix3),
                          BootLoaderMode{.board_id = "OVBD"});
    const Image image = Build(kTimepix3);
    std::atomic<bool> started = false;
    std::thread host([&] {
        ForEachChunk(image, [&](std::uint32_t address, const Bytes& chunk) {
            model.Control({0x40, kRam, static_cast<std::uint16_t>(address),
                           static_cast<std::uint16_t>(address >> 16),
                           static_cast<std::uint16_t>(chunk.size())},
                          chunk);
        });
        const ControlReply reply =
            model.Control({0xC0, kRam, static_cast<std::uint16_t>(image.entry),
                           static_cast<std::uint16_t>(image.entry >> 16), 0},
                          {});
        EXPECT_EQ(reply.kind, ControlReply::Kind::kAnswer);
        started = true;
    });
    const auto id_field = [](const std::string& text) {
        Bytes field(text.begin(), text.end());
        field.resize(32, 0);
        return field;
    };
    const Bytes boot_loader = id_field("OVBD BL");
    const Bytes application = id_field("TPX3EFE");
    int answers = 0;
    while (!started || answers == 0) {
        engine.SetMonitorValue("FPGA_TEMP", 50.0F);
        EXPECT_EQ(engine.StateValue("MAIN_CLK"), 0);
        const ControlReply id = model.Control({0xC0, 0xB0, 0, 0, 32}, {});
        ASSERT_EQ(id.kind, ControlReply::Kind::kAnswer);
        EXPECT_TRUE(id.data == boot_loader || id.data == application);
        ++answers;
    }
    host.join();
    EXPECT_EQ(model.Control({0xC0, 0xB0, 0, 0, 32}, {}).data, application);
}

}  // namespace
}  // namespace ovex::vboard
