// The hex dump: addresses, both halves, the text column, a short last line.
#include <gtest/gtest.h>

#include <vector>

#include "hex_dump.hpp"

namespace ovex::cli {
namespace {

TEST(HexDump, LinesOfSixteenFromTheAddressWithTextAndAShortLastLineKeepsItsColumn) {
    std::vector<std::uint8_t> bytes;
    for (int i = 0; i < 20; ++i) {
        bytes.push_back(static_cast<std::uint8_t>(0x3A + i));
    }
    bytes[1] = 0x00;
    bytes[2] = 0x7F;
    bytes[3] = 0xFF;
    EXPECT_EQ(HexDump(0x800, bytes),
              "00000800  3a 00 7f ff 3e 3f 40 41  42 43 44 45 46 47 48 49  |:...>?@ABCDEFGHI|\n"
              "00000810  4a 4b 4c 4d                                       |JKLM|\n");
}

TEST(HexDump, NothingGivesNoLinesAndAddressesPastEightDigitsGrow) {
    EXPECT_EQ(HexDump(0, {}), "");
    const std::uint8_t space[] = {0x20};
    const std::string line = HexDump(0x1FFFFFFFF, space);
    EXPECT_TRUE(line.starts_with("1ffffffff  20   ")) << line;
    EXPECT_TRUE(line.ends_with("  | |\n")) << line;
    // The text column one further than on an eight-digit line.
    EXPECT_EQ(line.find('|'), HexDump(0, space).find('|') + 1);
}

}  // namespace
}  // namespace ovex::cli
