// The copies out of the library's results: hit and pixel records in the package's layouts, and
// scan values cut into whole lines however the pieces fall.

#include <gtest/gtest.h>

#include <numeric>
#include <vector>

#include "result_blocks.hpp"

namespace ovex::python {
namespace {

std::vector<std::uint64_t> ValuesOf(const Block& block) {
    const auto* values = block.values.as<std::uint64_t>();
    return {values, values + block.rows * block.columns};
}

TEST(ResultBlocks, HitsKeepTheirFieldsAndGetTheirPixel) {
    const ovexsdk_acq_tpx3_toa_tot_record records[] = {
        {0xFFFF, 7, 123456789012ull},  // the matrix's first pixel, counted down and swapped
        {0xFEFF, 1023, 1},             // one column on
        {0x0000, 0, 0},                // the last pixel
    };
    const Buffer copy = CopyHits(records, 3);
    ASSERT_EQ(copy.bytes(), 3 * sizeof(HitRecord));
    const HitRecord* hits = copy.as<HitRecord>();
    EXPECT_EQ(hits[0].addr, 0xFFFF);
    EXPECT_EQ(hits[0].x, 0);
    EXPECT_EQ(hits[0].y, 0);
    EXPECT_EQ(hits[0].tot, 7);
    EXPECT_EQ(hits[0].time, 123456789012ull);
    EXPECT_EQ(hits[1].x, 1);
    EXPECT_EQ(hits[1].y, 0);
    EXPECT_EQ(hits[1].tot, 1023);
    EXPECT_EQ(hits[2].x, 255);
    EXPECT_EQ(hits[2].y, 255);
    EXPECT_EQ(CopyHits(records, 0).bytes(), 0u);
}

TEST(ResultBlocks, PixelsKeepTheirSums) {
    const ovexsdk_acq_tpx3_itot_evcount pixels[] = {{0xFFFE, 70000, 5000000000ull}};
    const Buffer copy = CopyPixels(pixels, 1);
    const PixelRecord& pixel = *copy.as<PixelRecord>();
    EXPECT_EQ(pixel.addr, 0xFFFE);
    EXPECT_EQ(pixel.x, 0);
    EXPECT_EQ(pixel.y, 1);
    EXPECT_EQ(pixel.itot, 70000u);
    EXPECT_EQ(pixel.events, 5000000000ull);
}

TEST(ResultBlocks, ScanValuesBecomeWholeLinesAcrossPieces) {
    ResultCopier copier(ResultKind::kScanCounts, 4);
    std::vector<std::uint64_t> values(11);
    std::iota(values.begin(), values.end(), 1);

    EXPECT_TRUE(copier.AddScanValues(values.data(), 3).empty()) << "no line is whole yet";
    const std::vector<Block> two = copier.AddScanValues(values.data() + 3, 6);
    ASSERT_EQ(two.size(), 1u);
    EXPECT_EQ(two[0].rows, 2u);
    EXPECT_EQ(two[0].columns, 4u);
    EXPECT_EQ(two[0].first_line, 0u);
    EXPECT_EQ(ValuesOf(two[0]), (std::vector<std::uint64_t>{1, 2, 3, 4, 5, 6, 7, 8}));
    EXPECT_EQ(copier.LinesDone(), 2u);

    const std::vector<Block> rest = copier.AddScanValues(values.data() + 9, 2);
    EXPECT_TRUE(rest.empty());
    const std::vector<Block> last = copier.Flush();
    ASSERT_EQ(last.size(), 1u);
    EXPECT_EQ(last[0].first_line, 2u);
    EXPECT_EQ(ValuesOf(last[0]), (std::vector<std::uint64_t>{9, 10, 11, 0}))
        << "the unfinished line is zero-filled";
    EXPECT_TRUE(copier.Flush().empty());
}

}  // namespace
}  // namespace ovex::python

namespace ovex::python {
namespace {

TEST(BlockMemory, ABufferGivenBackServesTheNextBlockOfAboutItsSize) {
    void* first = block_memory::Take(1 << 20);
    block_memory::Give(first);
    void* small = block_memory::Take(1000);
    EXPECT_NE(small, first) << "a small block pinned a large buffer";
    void* again = block_memory::Take((1 << 20) - 100);
    EXPECT_EQ(again, first) << "the buffer given back was not reused";
    block_memory::Give(again);
    block_memory::Give(small);
    block_memory::Give(nullptr);
}

}  // namespace
}  // namespace ovex::python
