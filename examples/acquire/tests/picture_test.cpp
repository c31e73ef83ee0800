// The coarse pictures of ovex_acquire: a pixel matrix in blocks of 4 x 8, a scan of any size in
// as few rows and columns as fit, and shades by each block's share of the darkest.

#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <vector>

extern "C" {
#include "picture.h"
}

namespace {

std::vector<std::string> Draw(const std::vector<std::uint64_t>& values, std::uint64_t width,
                              std::uint64_t height) {
    picture drawn{};
    picture_draw(values.data(), width, height, &drawn);
    std::vector<std::string> rows;
    for (int row = 0; row < drawn.rows; ++row) {
        rows.emplace_back(drawn.text[row]);
        EXPECT_EQ(rows.back().size(), static_cast<std::size_t>(drawn.columns));
    }
    return rows;
}

TEST(AcquirePicture, TheMatrixFillsThePictureInBlocksOfFourByEight) {
    std::vector<std::uint64_t> image(256 * 256);
    image[40 * 256 + 100] = 3;  // row 40 / 8, column 100 / 4
    image[255 * 256 + 255] = 1;
    const auto rows = Draw(image, 256, 256);
    ASSERT_EQ(rows.size(), 32u);
    ASSERT_EQ(rows[0].size(), 64u);
    EXPECT_EQ(rows[5][25], '@');
    EXPECT_EQ(rows[31][63], '-');  // a third of the darkest
    EXPECT_EQ(rows[5].find_first_not_of(' '), 25u);
    EXPECT_EQ(rows[5].find_last_not_of(' '), 25u);
    EXPECT_EQ(rows[0], std::string(64, ' '));
}

TEST(AcquirePicture, ASmallScanKeepsOneCharacterPerBinAndShadesByShare) {
    const std::vector<std::uint64_t> scan{0, 1, 2, 3, 4,  //
                                          5, 6, 7, 8, 9,  //
                                          9, 9, 9, 9, 0};
    const auto rows = Draw(scan, 5, 3);
    EXPECT_EQ(rows, (std::vector<std::string>{" .:-=", "+*#%@", "@@@@ "}));
}

TEST(AcquirePicture, BlocksOfALargeScanSumTheirValues) {
    // 100 bins go in blocks of 2 (50 columns), 40 lines in blocks of 2 (20 rows).
    std::vector<std::uint64_t> scan(100 * 40);
    scan[0] = 1;
    scan[1] = 1;
    scan[100] = 1;
    scan[39 * 100 + 99] = 1;
    const auto rows = Draw(scan, 100, 40);
    ASSERT_EQ(rows.size(), 20u);
    ASSERT_EQ(rows[0].size(), 50u);
    EXPECT_EQ(rows[0][0], '@');
    EXPECT_EQ(rows[19][49], '-');
}

TEST(AcquirePicture, NothingToDrawGivesBlanksOrNoRows) {
    EXPECT_EQ(Draw(std::vector<std::uint64_t>(6), 3, 2), (std::vector<std::string>{"   ", "   "}));
    EXPECT_TRUE(Draw({}, 3, 0).empty());
    EXPECT_TRUE(Draw({}, 0, 3).empty());
}

TEST(AcquirePicture, HugeSumsStillShade) {
    const std::uint64_t big = std::uint64_t{1} << 62;
    const auto rows = Draw({big, big / 2, 0}, 3, 1);
    EXPECT_EQ(rows, (std::vector<std::string>{"@= "}));
}

}  // namespace
