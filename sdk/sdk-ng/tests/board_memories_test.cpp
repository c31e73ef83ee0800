// The EEPROMs and the firmware-driven flash of a virtual board: round trips, page and sector
// boundaries, regions, and what is refused before anything reaches the board.

#include <gtest/gtest.h>

#include <numeric>
#include <stdexcept>
#include <vector>

#include "board_fixture.hpp"
#include "modules/eeprom_24CS512.hpp"
#include "modules/flash_S25FL128S.hpp"
#include "modules/flash_S25FS128S.hpp"
#include "ovex/vboard/item_tables.hpp"
#include "ovex/vendor_cmd/board_io.hpp"
#include "ovex/vendor_cmd/spi.hpp"
#include "sdk_dev_item_sets.hpp"
#include "support/log_capture.hpp"

namespace ovex::sdk {
namespace {

using Bytes = std::vector<std::uint8_t>;
constexpr std::uint8_t kI2cRequest = 0x92;
constexpr std::uint8_t kCommandRequest = 0x01;

Bytes Pattern(std::size_t size, std::uint8_t seed) {
    Bytes bytes(size);
    for (std::size_t i = 0; i < size; ++i) {
        bytes[i] = static_cast<std::uint8_t>(seed + i * 7 + i / 256);
    }
    return bytes;
}

class MemoriesTest : public usb::vendor_cmd::testing::BoardFixture {
protected:
    // The board's I2C requests since the last look: register and length of each.
    std::vector<std::pair<std::uint16_t, std::uint16_t>> I2cTransfers() {
        std::vector<std::pair<std::uint16_t, std::uint16_t>> transfers;
        for (const auto& setup : NewRequests()) {
            if (setup.bRequest == kI2cRequest) {
                transfers.emplace_back(setup.wValue, setup.wLength);
            }
        }
        return transfers;
    }
    bool Logged(const std::string& message) const { return m_log.Contains(log::kError, message); }

    testing::LogCapture m_log;
};

// --- EEPROM -------------------------------------------------------------------------------

TEST_F(MemoriesTest, EepromRoundTripGoesPageByPageAndCountsWhatItDid) {
    OpenBoard();
    Eeprom24CS512 eeprom(SharedDevice(), 80, "i2c0-eeprom");
    EepromInfo info;
    ASSERT_FALSE(eeprom.GetInfo(info));
    EXPECT_EQ(info.id, "i2c0-eeprom");
    EXPECT_EQ(info.part_number, "24CS512");
    ASSERT_EQ(info.regions.size(), 1u);
    EXPECT_EQ(info.regions[0].kind, EepromRegion::kReadWrite);
    EXPECT_EQ(info.regions[0].sector_count, 512);
    EXPECT_EQ(info.regions[0].sector_size, 128);
    EXPECT_EQ(info.regions[0].first, 0u);
    EXPECT_EQ(info.regions[0].last, 65535u);

    // The chip wraps a write at its page's end to the page's start...
    Bytes wrapped{1, 2, 3, 4};
    ASSERT_FALSE(usb::vendor_cmd::i2c_transfer_16(Device(), 0xA0, 0x007E, wrapped));
    Bytes page_start(2);
    ASSERT_FALSE(usb::vendor_cmd::i2c_transfer_16(Device(), 0xA1, 0x0000, page_start));
    EXPECT_EQ(page_start, (Bytes{3, 4}));
    Forget();
    // ...so a write that starts inside a page ends its first chunk at the page's end.
    const Bytes data = Pattern(300, 3);
    std::uint64_t count = 0;
    ASSERT_FALSE(eeprom.Write(0x0170, data, count));
    EXPECT_EQ(count, 300u);
    using Transfer = std::pair<std::uint16_t, std::uint16_t>;
    EXPECT_EQ(I2cTransfers(),
              (std::vector<Transfer>{{0x0170, 16}, {0x0180, 128}, {0x0200, 128}, {0x0280, 28}}));

    Bytes back(300);
    count = 0;
    ASSERT_FALSE(eeprom.Read(0x0170, back, count));
    EXPECT_EQ(back, data);
    // A running count goes on where an earlier call stopped.
    Bytes rest(300, 0);
    count = 200;
    ASSERT_FALSE(eeprom.Read(0x0170, rest, count));
    EXPECT_EQ(count, 300u);
    EXPECT_EQ(Bytes(rest.begin(), rest.begin() + 200), Bytes(200, 0));
    EXPECT_EQ(Bytes(rest.begin() + 200, rest.end()), Bytes(data.begin() + 200, data.end()));

    // Erase writes 0xFF with the rules of a write, and reaches the chip's last byte.
    count = 0;
    ASSERT_FALSE(eeprom.Erase(0x0200, 0x80, count));
    count = 0;
    ASSERT_FALSE(eeprom.Write(0xFFFF, Bytes{0x5A}, count));
    count = 0;
    ASSERT_FALSE(eeprom.Read(0x0170, back, count));
    EXPECT_EQ(Bytes(back.begin(), back.begin() + 0x90), Bytes(data.begin(), data.begin() + 0x90));
    EXPECT_EQ(Bytes(back.begin() + 0x90, back.begin() + 0x110), Bytes(0x80, 0xFF));
    Bytes last(1);
    count = 0;
    ASSERT_FALSE(eeprom.Read(0xFFFF, last, count));
    EXPECT_EQ(last[0], 0x5A);
}

TEST_F(MemoriesTest, EepromRefusesRangesPastItsEndBeforeTheBusAndReportsAFailedChunk) {
    OpenBoard();
    Eeprom24CS512 eeprom(SharedDevice(), 80, "i2c0-eeprom");
    Bytes two(2);
    std::uint64_t count = 0;
    EXPECT_EQ(eeprom.Read(65535, two, count), std::errc::invalid_argument);
    EXPECT_TRUE(Logged("Read exceeds EEPROM address range."));
    EXPECT_EQ(eeprom.Write(65535, two, count), std::errc::invalid_argument);
    EXPECT_TRUE(Logged("Write exceeds the valid EEPROM address range."));
    EXPECT_EQ(eeprom.Erase(65000, 600, count), std::errc::invalid_argument);
    EXPECT_EQ(eeprom.Erase(0, std::uint64_t{1} << 40, count), std::errc::invalid_argument);
    EXPECT_EQ(count, 0u);
    EXPECT_TRUE(I2cTransfers().empty());

    // The second chunk fails: the count tells what was written.
    Firmware().StallNext({kI2cRequest, 0x0080, std::nullopt}, 1, 0x01000008);
    const Bytes data = Pattern(256, 9);
    EXPECT_TRUE(eeprom.Write(0, data, count));
    EXPECT_EQ(count, 128u);
    EXPECT_EQ(m_log.StartingWith("I2C transfer failed - ").size(), 1u);
}

TEST_F(MemoriesTest, SecureEepromWritesOnlyItsUserHalf) {
    OpenBoard();
    Eeprom24CS512Secure secure(SharedDevice(), 88, "i2c0-eeprom-security");
    EepromInfo info;
    ASSERT_FALSE(secure.GetInfo(info));
    ASSERT_EQ(info.regions.size(), 2u);
    EXPECT_EQ(info.regions[0].kind, EepromRegion::kReadOnly);
    EXPECT_EQ(info.regions[0].first, 0x0800u);
    EXPECT_EQ(info.regions[0].last, 0x087Fu);
    EXPECT_EQ(info.regions[1].kind, EepromRegion::kReadWrite);
    EXPECT_EQ(info.regions[1].first, 0x0880u);
    EXPECT_EQ(info.regions[1].last, 0x08FFu);

    std::uint64_t count = 0;
    EXPECT_EQ(secure.Write(0x0800, Bytes{1}, count), std::errc::invalid_argument);
    EXPECT_TRUE(Logged("The region containing the address range is read-only."));
    EXPECT_EQ(secure.Erase(0x0800, 16, count), std::errc::invalid_argument);
    // 0x0870..0x0890 lies in no single region.
    m_log.Clear();
    EXPECT_EQ(secure.Write(0x0870, Bytes(0x21), count), std::errc::invalid_argument);
    EXPECT_TRUE(Logged("Write exceeds the valid EEPROM address range."));
    Bytes byte(1);
    EXPECT_EQ(secure.Read(0x0000, byte, count), std::errc::invalid_argument);
    EXPECT_TRUE(I2cTransfers().empty());
    EXPECT_EQ(count, 0u);

    const Bytes data = Pattern(128, 1);
    ASSERT_FALSE(secure.Write(0x0880, data, count));
    Bytes user(128);
    count = 0;
    ASSERT_FALSE(secure.Read(0x0880, user, count));
    EXPECT_EQ(user, data);

    // The chip itself doesn't take a write to the factory half either.
    Bytes factory(128);
    count = 0;
    ASSERT_FALSE(secure.Read(0x0800, factory, count));
    Bytes attempt(16, 0);
    EXPECT_TRUE(usb::vendor_cmd::i2c_transfer_16(Device(), 0xB0, 0x0800, attempt));
    Bytes again(128);
    count = 0;
    ASSERT_FALSE(secure.Read(0x0800, again, count));
    EXPECT_EQ(again, factory);
}

// --- Flash driven by the board's firmware -----------------------------------------------------

class FirmwareFlashTest : public MemoriesTest {
protected:
    void SetUp() override {
        MemoriesTest::SetUp();
        if (IsSkipped()) {
            return;
        }
        OpenBoard();
        m_commands.emplace(Device());
    }
    void TearDown() override {
        m_commands.reset();
        MemoriesTest::TearDown();
    }
    // The blocks that the host configured since the last look: address and size of each.
    std::vector<std::pair<std::uint32_t, std::uint32_t>> Blocks() {
        std::vector<std::pair<std::uint32_t, std::uint32_t>> blocks;
        const auto invocations = Board().Engine().Invocations("FLASH_BLK_CFG0");
        for (std::size_t i = m_blocks_seen; i < invocations.size(); ++i) {
            const auto& input = invocations[i];
            const auto word = [&](std::size_t at) {
                return static_cast<std::uint32_t>(input[at] | input[at + 1] << 8 |
                                                  input[at + 2] << 16 | input[at + 3] << 24);
            };
            blocks.emplace_back(word(0), word(4));
        }
        m_blocks_seen = invocations.size();
        return blocks;
    }

    std::optional<UsbCommands> m_commands;
    std::size_t m_blocks_seen = 0;
};

using Block = std::pair<std::uint32_t, std::uint32_t>;

TEST_F(FirmwareFlashTest, InformationComesFromTheBoardOnce) {
    FlashS25FS128S flash(&*m_commands, "flash_fpga_be");
    EXPECT_STREQ(flash.GetName(), "S25FS128S flash memory");
    Forget();
    FlashInfo info;
    ASSERT_FALSE(flash.GetInfo(info));
    EXPECT_EQ(info.id, "flash_fpga_be");
    EXPECT_EQ(info.part_number, "S25FS128S");
    EXPECT_EQ(info.flash_size, 16u * 1024 * 1024);
    EXPECT_EQ(info.page_size, 256);
    ASSERT_EQ(info.regions.size(), 1u);
    EXPECT_EQ(info.regions[0].start, 0u);
    EXPECT_EQ(info.regions[0].sector_count, 256);
    EXPECT_EQ(info.regions[0].sector_size, 65536u);
    EXPECT_EQ(info.regions[0].merged, 0);
    Forget();
    FlashInfo again;
    ASSERT_FALSE(flash.GetInfo(again));
    EXPECT_TRUE(NewRequests().empty());
    EXPECT_EQ(again.regions.size(), 1u);
}

TEST_F(FirmwareFlashTest, SectorRoundTripInBlocksAndProgrammingOnlyClearsBits) {
    FlashS25FS128S flash(&*m_commands, "flash_fpga_be");
    constexpr std::uint32_t kSector = 0x30000;
    const Bytes first = Pattern(65536, 5);
    ASSERT_FALSE(flash.ProgramSector(kSector, first));
    const auto blocks = Blocks();
    ASSERT_EQ(blocks.size(), 128u);
    EXPECT_EQ(blocks.front(), (Block{kSector, 512}));
    EXPECT_EQ(blocks.back(), (Block{kSector + 127 * 512, 512}));

    // A block fits one control transfer: 2500 bytes go as four blocks of 512 and 452.
    Bytes back(2500);
    ASSERT_FALSE(flash.Read(kSector + 100, back));
    EXPECT_EQ(Blocks(), (std::vector<Block>{{kSector + 100, 512},
                                            {kSector + 612, 512},
                                            {kSector + 1124, 512},
                                            {kSector + 1636, 512},
                                            {kSector + 2148, 452}}));
    EXPECT_EQ(back, Bytes(first.begin() + 100, first.begin() + 2600));
    // Across the sector's end: the next sector is still erased.
    Bytes edge(4);
    ASSERT_FALSE(flash.Read(kSector + 65534, edge));
    EXPECT_EQ(edge, (Bytes{first[65534], first[65535], 0xFF, 0xFF}));

    const Bytes second = Pattern(65536, 77);
    ASSERT_FALSE(flash.ProgramSector(kSector, second));
    Bytes both(65536);
    ASSERT_FALSE(flash.Read(kSector, both));
    for (std::size_t i = 0; i < both.size(); i += 997) {
        ASSERT_EQ(both[i], first[i] & second[i]) << i;
    }

    Blocks();
    ASSERT_FALSE(flash.EraseSector(kSector));
    EXPECT_EQ(Blocks(), (std::vector<Block>{{kSector, 0}}));
    ASSERT_FALSE(flash.Read(kSector, both));
    EXPECT_EQ(both, Bytes(65536, 0xFF));
    Forget();
    EXPECT_FALSE(flash.Read(kSector, {}));
    EXPECT_TRUE(NewRequests().empty());
}

TEST_F(FirmwareFlashTest, BadSectorsAreRefusedBeforeAnyCommand) {
    FlashS25FS128S flash(&*m_commands, "flash_fpga_be");
    FlashInfo info;
    ASSERT_FALSE(flash.GetInfo(info));
    Forget();
    const auto out_of_domain = std::make_error_code(std::errc::argument_out_of_domain);
    EXPECT_EQ(flash.ProgramSector(0x10000, Bytes(32768)), out_of_domain);
    EXPECT_TRUE(Logged(
        "Provided buffer size does not match the flash memory sector size (32768 != 65536)"));
    EXPECT_EQ(flash.ProgramSector(0x10100, Bytes(65536)), out_of_domain);
    EXPECT_TRUE(
        Logged("Flash address 0x10100 does not point to the start of any flash memory sector"));
    EXPECT_EQ(flash.ProgramSector(0x1000000, Bytes(65536)), out_of_domain);
    EXPECT_TRUE(Logged("Flash address 0x1000000 does not correspond to any flash memory region."));
    EXPECT_EQ(flash.EraseSector(0x10001), out_of_domain);
    EXPECT_EQ(flash.EraseSector(0xFFFFFFFF), out_of_domain);
    EXPECT_TRUE(NewRequests().empty());

    // What the board refuses: a read past the flash's end.
    Bytes tail(100);
    EXPECT_TRUE(flash.Read(0xFFFFF0, tail));
    EXPECT_EQ(m_log.StartingWith("Failed to execute flash memory read on the device. - ").size(),
              1u);
}

TEST_F(FirmwareFlashTest, FailedStepsEndTheOperationWithTheirMessage) {
    const auto id = [&](const char* name) {
        return static_cast<std::uint16_t>(*m_commands->IndexOf(name));
    };
    Firmware().StallNext({kCommandRequest, 2, id("FLASH_INIT0")});
    EXPECT_THROW(FlashS25FS128S(&*m_commands, "flash_fpga_be"), std::runtime_error);
    EXPECT_EQ(
        m_log.StartingWith("Failed to execute flash memory initialize on the device. - ").size(),
        1u);

    FlashS25FS128S flash(&*m_commands, "flash_fpga_be");
    Firmware().StallNext({kCommandRequest, 2, id("FLASH_INFO0")});
    EXPECT_TRUE(flash.EraseSector(0));
    EXPECT_EQ(m_log.StartingWith("Failed to retrieve flash memory information from the device. - ")
                  .size(),
              1u);
    EXPECT_EQ(m_log.StartingWith("Failed to retrieve flash memory info. - ").size(), 1u);

    Firmware().StallNext({kCommandRequest, 2, id("FLASH_BLK_CFG0")});
    EXPECT_TRUE(flash.EraseSector(0x20000));
    EXPECT_EQ(m_log.StartingWith("Failed to configure flash memory erase with address 0x20000. - ")
                  .size(),
              1u);
    Firmware().StallNext({kCommandRequest, 2, id("FLASH_ERASE0")});
    EXPECT_TRUE(flash.EraseSector(0x20000));
    EXPECT_EQ(m_log.StartingWith("Failed to execute flash memory erase on the device. - ").size(),
              1u);

    Firmware().StallNext({kCommandRequest, 2, id("FLASH_WRITE0")});
    EXPECT_TRUE(flash.ProgramSector(0x20000, Bytes(65536)));
    EXPECT_EQ(m_log.StartingWith("Failed to execute flash memory program sector on the device. - ")
                  .size(),
              1u);
    Firmware().StallNext({kCommandRequest, 2, id("FLASH_BLK_CFG0")});
    Bytes ten(10);
    EXPECT_TRUE(flash.Read(0x20000, ten));
    EXPECT_EQ(m_log
                  .StartingWith("Failed to configure flash memory read with address 0x20000 and "
                                "size 10. - ")
                  .size(),
              1u);
}

TEST_F(MemoriesTest, FlashInformationThatRunsPastItsAnswerIsRefused) {
    auto tables = vboard::TablesOf(vboard::BoardKind::kTimepix3);
    for (auto& command : tables.commands) {
        if (command.name == "FLASH_INFO0") {
            command.answer = Bytes(1016, 'A');  // a text with no end
        }
    }
    vboard::VirtualBoard::Settings settings;
    settings.tables = std::move(tables);
    OpenBoard(std::move(settings));
    UsbCommands commands(Device());
    FlashS25FS128S flash(&commands, "flash_fpga_be");
    FlashInfo info;
    try {
        flash.GetInfo(info);
        ADD_FAILURE() << "no exception";
    } catch (const std::invalid_argument& e) {
        EXPECT_STREQ(e.what(), "Offset points to data behind the buffer");
    }
}

// --- Flash driven by the host over SPI ---------------------------------------------------------

class SpiFlashTest : public MemoriesTest {
protected:
    void SetUp() override {
        MemoriesTest::SetUp();
        if (IsSkipped()) {
            return;
        }
        vboard::VirtualBoard::Settings settings;
        settings.kind = vboard::BoardKind::kNobe;
        OpenBoard(std::move(settings));
    }
    // Writes the chip's configuration register as a host tool would.
    void WriteConfiguration(std::uint8_t cr1) {
        using usb::vendor_cmd::spi::SpiBusId;
        const Bytes enable{0x06};
        const Bytes write{0x01, 0x00, cr1};
        ASSERT_FALSE(usb::vendor_cmd::spi::Transmit(Device(), SpiBusId{1}, 0, enable));
        ASSERT_FALSE(usb::vendor_cmd::spi::Transmit(Device(), SpiBusId{1}, 0, write));
    }
    vboard::FirmwareEngine& Engine() { return Board().Engine(); }
};

TEST_F(SpiFlashTest, InformationComesFromTheChipsCfiWithParameterSectorsMerged) {
    FlashS25FL128S flash(SharedDevice(), "flash_fpga_fe");
    EXPECT_STREQ(flash.GetName(), "S25FL128S flash memory");
    FlashInfo info;
    ASSERT_FALSE(flash.GetInfo(info));
    EXPECT_EQ(info.id, "flash_fpga_fe");
    EXPECT_EQ(info.part_number, "S25FL128S");
    EXPECT_EQ(info.flash_size, 16u * 1024 * 1024);
    EXPECT_EQ(info.page_size, 256);
    ASSERT_EQ(info.regions.size(), 2u);
    // 32 parameter sectors of 4 KiB are two sectors of 64 KiB.
    EXPECT_EQ(info.regions[0].start, 0u);
    EXPECT_EQ(info.regions[0].sector_count, 2);
    EXPECT_EQ(info.regions[0].sector_size, 65536u);
    EXPECT_EQ(info.regions[0].merged, 1);
    EXPECT_EQ(info.regions[1].start, 0x20000u);
    EXPECT_EQ(info.regions[1].sector_count, 254);
    EXPECT_EQ(info.regions[1].sector_size, 65536u);
    EXPECT_EQ(info.regions[1].merged, 0);

    // With the parameter sectors at the top the regions change places.
    WriteConfiguration(0x04);
    FlashS25FL128S top(SharedDevice(), "flash_fpga_fe");
    ASSERT_FALSE(top.GetInfo(info));
    ASSERT_EQ(info.regions.size(), 2u);
    EXPECT_EQ(info.regions[0].start, 0u);
    EXPECT_EQ(info.regions[0].sector_count, 254);
    EXPECT_EQ(info.regions[0].merged, 0);
    EXPECT_EQ(info.regions[1].start, 0xFE0000u);
    EXPECT_EQ(info.regions[1].sector_count, 2);
    EXPECT_EQ(info.regions[1].merged, 1);
}

TEST_F(SpiFlashTest, SectorRoundTripPageByPageWithEitherReadLatency) {
    FlashS25FL128S flash(SharedDevice(), "flash_fpga_fe");
    constexpr std::uint32_t kSector = 0x30000;
    const Bytes data = Pattern(65536, 11);
    ASSERT_FALSE(flash.ProgramSector(kSector, data));
    EXPECT_EQ(m_log.Count(log::kInfo,
                          "Chunk of size 256 successfully written at address 0x30100 on S25FL128S "
                          "flash memory"),
              1);
    Bytes back(300);
    ASSERT_FALSE(flash.Read(kSector + 200, back));
    EXPECT_EQ(back, Bytes(data.begin() + 200, data.begin() + 500));
    EXPECT_EQ(m_log.Count(log::kInfo,
                          "Chunk of size 44 successfully read from address 0x301c8 on S25FL128S "
                          "flash memory"),
              1);

    // Latency code 3 reads with no dummy byte.
    WriteConfiguration(0xC0);
    FlashS25FL128S no_dummy(SharedDevice(), "flash_fpga_fe");
    Bytes again(300);
    ASSERT_FALSE(no_dummy.Read(kSector + 200, again));
    EXPECT_EQ(again, back);

    ASSERT_FALSE(flash.EraseSector(kSector));
    EXPECT_TRUE(m_log.Contains(
        log::kInfo, "Sector at address 0x30000 successfully erased from S25FL128S flash memory"));
    ASSERT_FALSE(flash.Read(kSector, back));
    EXPECT_EQ(back, Bytes(300, 0xFF));

    // A bulk erase, as a host tool sends it, clears the whole chip, and only after write enable.
    using usb::vendor_cmd::spi::SpiBusId;
    ASSERT_FALSE(flash.ProgramSector(kSector, data));
    ASSERT_FALSE(usb::vendor_cmd::spi::Transmit(Device(), SpiBusId{1}, 0, Bytes{0xC7}));
    ASSERT_FALSE(no_dummy.Read(kSector + 200, back));
    EXPECT_EQ(back, Bytes(data.begin() + 200, data.begin() + 500));
    ASSERT_FALSE(usb::vendor_cmd::spi::Transmit(Device(), SpiBusId{1}, 0, Bytes{0x06}));
    ASSERT_FALSE(usb::vendor_cmd::spi::Transmit(Device(), SpiBusId{1}, 0, Bytes{0xC7}));
    ASSERT_FALSE(no_dummy.Read(kSector + 200, back));
    EXPECT_EQ(back, Bytes(300, 0xFF));
}

TEST_F(SpiFlashTest, BadAddressesAndSizesAreRefusedBeforeTheBus) {
    FlashS25FL128S flash(SharedDevice(), "flash_fpga_fe");
    FlashInfo info;
    ASSERT_FALSE(flash.GetInfo(info));
    Forget();
    const auto out_of_domain = std::make_error_code(std::errc::argument_out_of_domain);
    EXPECT_EQ(flash.ProgramSector(0x30000, Bytes(32768)), out_of_domain);
    EXPECT_TRUE(
        Logged("Provided buffer size does not match the S25FL128S flash memory sector "
               "size (32768 != 65536)"));
    EXPECT_EQ(flash.ProgramSector(0x30100, Bytes(65536)), out_of_domain);
    EXPECT_TRUE(Logged(
        "Flash address 0x30100 does not point to the start of any S25FL128S flash memory sector"));
    EXPECT_EQ(flash.ProgramSector(0x1000000, Bytes(65536)), out_of_domain);
    EXPECT_TRUE(Logged(
        "Flash address 0x1000000 does not correspond to any S25FL128S flash memory region."));
    EXPECT_EQ(flash.EraseSector(0x10000000), out_of_domain);
    EXPECT_TRUE(Logged("Flash address 0x10000000 does not correspond to any flash memory region."));
    EXPECT_EQ(flash.EraseSector(0x1000), out_of_domain);
    EXPECT_TRUE(
        Logged("Flash address 0x1000  does not point to the start of any flash memory sector"));
    Bytes two(2);
    EXPECT_EQ(flash.Read(0xFFFFFF, two), std::errc::invalid_argument);
    EXPECT_TRUE(NewRequests().empty());
}

TEST_F(SpiFlashTest, ASlowChipGetsItsMaximumTimeAndAStuckOneTimesOut) {
    FlashS25FL128S flash(SharedDevice(), "flash_fpga_fe");
    FlashInfo info;
    ASSERT_FALSE(flash.GetInfo(info));

    // Busy at the first status read after the typical time, done at the maximum.
    Engine().SlowFrontEndFlash(1);
    EXPECT_FALSE(flash.EraseSector(0x40000));
    EXPECT_TRUE(m_log.Contains(
        log::kInfo,
        "Sector erase did not finish in typical time, waiting until maximum time elapses..."));
    // A page gets no time at all: still busy is a failed page.
    EXPECT_EQ(flash.ProgramSector(0x40000, Bytes(65536)), std::errc::io_error);
    EXPECT_TRUE(Logged("Failed to program page at address 0x40000 on S25FL128S flash memory"));

    Engine().SlowFrontEndFlash(SIZE_MAX);
    EXPECT_EQ(flash.EraseSector(0x40000), std::errc::timed_out);
    EXPECT_TRUE(Logged("Erase did not finish in maximum possible time."));
    // The busy chip takes no write enable.
    EXPECT_EQ(flash.EraseSector(0x40000), std::errc::result_out_of_range);
    EXPECT_TRUE(m_log.Contains(log::kInfo,
                               "Write-enable latch is not set to 1 after write-enable command"));
    EXPECT_EQ(m_log
                  .StartingWith("Failed to execute enable-write command before erase command on "
                                "S25FL128S flash memory. - ")
                  .size(),
              1u);
}

TEST_F(SpiFlashTest, BusRefusalsAndFailedExchangesEndWithTheirMessages) {
    Firmware().StallNext(0xD3, 1, 0x03000005);
    EXPECT_THROW(FlashS25FL128S(SharedDevice(), "flash_fpga_fe"), std::runtime_error);

    FlashS25FL128S flash(SharedDevice(), "flash_fpga_fe");
    Firmware().StallNext({0xD5, std::nullopt, std::nullopt});
    FlashInfo info;
    EXPECT_TRUE(flash.GetInfo(info));
    for (const char* start : {"Failed to transmit command over bus 1 to bus slave 0 - ",
                              "Failed to execute read-identification command. - ",
                              "Failed to read identification from S25FL128S flash memory. - "}) {
        EXPECT_EQ(m_log.StartingWith(start).size(), 1u) << start;
    }
}

TEST(CommandBuilder, RefusesAppendsAfterFinalizeAndPastOneSpiTransfer) {
    FlashS25FL128S::CommandBuilder builder;
    builder.Instruction(0x0C).Address(0x01020304).Bytes(Bytes{9}).Pad(2);
    EXPECT_EQ(builder.Finalize(), (Bytes{0x0C, 1, 2, 3, 4, 9, 0, 0}));
    try {
        builder.Pad(1);
        ADD_FAILURE() << "no exception";
    } catch (const std::runtime_error& e) {
        EXPECT_STREQ(e.what(),
                     "It is not possible to manipulate CommandBuilder object, it has already been "
                     "finalized.");
    }
    FlashS25FL128S::CommandBuilder full;
    full.Pad(508);
    try {
        full.Address(0);
        full.Instruction(0);
        ADD_FAILURE() << "no exception";
    } catch (const std::runtime_error& e) {
        EXPECT_STREQ(e.what(),
                     "Failed to append bytes to command data. Required command size 513B is "
                     "bigger than maximum SPI dataload size 512B.");
    }
}

}  // namespace
}  // namespace ovex::sdk
