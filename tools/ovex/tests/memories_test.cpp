// How a read is cut to fit a memory, and the numbers a read takes.
#include <gtest/gtest.h>

#include "memories.hpp"

namespace ovex::cli {
namespace {

// As the library describes the board's security EEPROM: two regions, no size.
const Memory kSecurity = {
    1,         "i2c0-eeprom-security",
    "24CS512", 0,
    0,         {{0x0800, 0x087F, 1, 128, "ro"}, {0x0880, 0x08FF, 1, 128, "rw"}}};
const Memory kFlash = {
    0, "flash_fpga_be", "S25FS128S", 16 * 1024 * 1024, 256, {{0, 0xFFFFFF, 256, 65536, ""}}};

template <typename Call>
std::string UsageMessage(Call call) {
    try {
        call();
    } catch (const UsageError& error) {
        return error.what();
    }
    return "no error";
}

TEST(MemoryPieces, AnEepromReadIsCutAtItsRegionsBorders) {
    using Pieces = std::vector<MemoryPiece>;
    EXPECT_EQ(ReadablePieces(kSecurity, 0x800, 16), (Pieces{{0x800, 16}}));
    EXPECT_EQ(ReadablePieces(kSecurity, 0x870, 0x20), (Pieces{{0x870, 0x10}, {0x880, 0x10}}));
    EXPECT_EQ(ReadablePieces(kSecurity, 0x800, 0x100), (Pieces{{0x800, 0x80}, {0x880, 0x80}}));
    EXPECT_EQ(ReadablePieces(kSecurity, 0x8FF, 1), (Pieces{{0x8FF, 1}}));
}

TEST(MemoryPieces, BytesOutsideTheRegionsOrPastTheSizeAreRefusedWithWhatTheMemoryHolds) {
    EXPECT_EQ(UsageMessage([] { ReadablePieces(kSecurity, 0x8F0, 0x20); }),
              "i2c0-eeprom-security has no byte at 0x0900; it holds 0x0800-0x087F, "
              "0x0880-0x08FF");
    EXPECT_EQ(UsageMessage([] { ReadablePieces(kSecurity, 0x7FF, 2); }),
              "i2c0-eeprom-security has no byte at 0x07FF; it holds 0x0800-0x087F, "
              "0x0880-0x08FF");
    EXPECT_EQ(UsageMessage([] { ReadablePieces(kFlash, 0xFFFFF0, 0x11); }),
              "flash_fpga_be holds 16777216 bytes, so ADDRESS + LENGTH can't pass 16777216");
}

TEST(MemoryPieces, AMemoryOfKnownSizeIsReadInOnePieceWhateverItsRegions) {
    EXPECT_EQ(ReadablePieces(kFlash, 0xFFFFF0, 0x10), (std::vector<MemoryPiece>{{0xFFFFF0, 16}}));
    EXPECT_EQ(ReadablePieces(kFlash, 0, 16 * 1024 * 1024),
              (std::vector<MemoryPiece>{{0, 16 * 1024 * 1024}}));
}

TEST(MemoryAddress, DecimalOrHexUpToTheMemorysWidth) {
    EXPECT_EQ(ParseAddress("2048", "ADDRESS", 0xFFFF), 2048u);
    EXPECT_EQ(ParseAddress("0x800", "ADDRESS", 0xFFFF), 0x800u);
    EXPECT_EQ(ParseAddress("0XfFfF", "ADDRESS", 0xFFFF), 0xFFFFu);
    EXPECT_EQ(UsageMessage([] { ParseAddress("0x10000", "ADDRESS", 0xFFFF); }),
              "ADDRESS takes a whole number from 0 to 65535, not '0x10000'");
    EXPECT_EQ(UsageMessage([] { ParseAddress("0x", "LENGTH", 0xFFFF); }),
              "LENGTH takes a whole number from 0 to 65535, not '0x'");
    EXPECT_EQ(UsageMessage([] { ParseAddress("0x1g", "LENGTH", 0xFFFF); }),
              "LENGTH takes a whole number from 0 to 65535, not '0x1g'");
    EXPECT_EQ(UsageMessage([] { ParseAddress("-1", "ADDRESS", 0xFFFF); }),
              "ADDRESS takes a whole number from 0 to 65535, not '-1'");
}

}  // namespace
}  // namespace ovex::cli
