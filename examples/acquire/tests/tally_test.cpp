// What the data callbacks of ovex_acquire gather: hits placed on the pixels the chip's addresses
// stand for, the time order across callbacks, TDC stamps, iToT pixels, and a scan's bin values
// kept line after line up to the tally's capacity.

#include <gtest/gtest.h>

#include <cstdint>
#include <memory>
#include <vector>

extern "C" {
#include "tally.h"
}

namespace {

struct TallyDeleter {
    void operator()(tally* seen) const { tally_destroy(seen); }
};
using TallyPtr = std::unique_ptr<tally, TallyDeleter>;

TallyPtr MakeTally(std::uint64_t scan_capacity = 0) {
    TallyPtr seen(tally_create(scan_capacity));
    EXPECT_NE(seen, nullptr);
    return seen;
}

// The address at which the chip sends host pixel `pixel` (row * 256 + column): its place
// counted down from the last pixel, with its two bytes swapped.
std::uint32_t AddressOf(std::uint32_t pixel) {
    const std::uint32_t down = 65535u - pixel;
    return ((down & 0xFFu) << 8) | (down >> 8);
}

ovexsdk_acq_tpx3_toa_tot_record Hit(std::uint32_t pixel, std::uint64_t time) {
    return {AddressOf(pixel), 100, time};
}

TEST(AcquireTally, AddressesStandForTheHostsPixels) {
    for (std::uint32_t pixel : {0u, 1u, 255u, 256u, 0x1234u, 40000u, 65535u}) {
        EXPECT_EQ(tally_pixel_of(AddressOf(pixel)), pixel) << pixel;
    }
    // Only the address's 16 bits count.
    EXPECT_EQ(tally_pixel_of(0xABCD0000u | AddressOf(77)), 77u);
}

TEST(AcquireTally, HitsLandOnTheirPixelsAndKeepTheFirstAndLastTime) {
    auto seen = MakeTally();
    const std::vector<ovexsdk_acq_tpx3_toa_tot_record> first{Hit(10, 500), Hit(10, 600)};
    const std::vector<ovexsdk_acq_tpx3_toa_tot_record> second{Hit(65535, 700)};
    tally_add_hits(seen.get(), first.data(), first.size());
    tally_add_hits(seen.get(), second.data(), second.size());
    tally_add_hits(seen.get(), nullptr, 0);
    EXPECT_EQ(seen->records, 3u);
    EXPECT_EQ(seen->hits, 3u);
    EXPECT_EQ(seen->image[10], 2u);
    EXPECT_EQ(seen->image[65535], 1u);
    EXPECT_EQ(seen->first_time, 500u);
    EXPECT_EQ(seen->last_time, 700u);
    EXPECT_EQ(seen->steps_back, 0u);
}

TEST(AcquireTally, StepsBackCountAcrossCallbacksAndEqualTimesAreInOrder) {
    auto seen = MakeTally();
    const std::vector<ovexsdk_acq_tpx3_toa_tot_record> first{Hit(1, 100), Hit(2, 100), Hit(3, 90)};
    // The second block starts before the first one ended: one step back at the seam.
    const std::vector<ovexsdk_acq_tpx3_toa_tot_record> second{Hit(4, 80), Hit(5, 200)};
    tally_add_hits(seen.get(), first.data(), first.size());
    tally_add_hits(seen.get(), second.data(), second.size());
    EXPECT_EQ(seen->steps_back, 2u);
    EXPECT_EQ(seen->first_time, 100u);
    EXPECT_EQ(seen->last_time, 200u);
}

TEST(AcquireTally, TdcStampsAddUpPerChannel) {
    auto seen = MakeTally();
    const std::uint64_t stamps[4] = {1, 2, 3, 4};
    const ovexsdk_acq_tpx3_tdc_list lists[4] = {
        {stamps, 2}, {nullptr, 0}, {stamps, 4}, {stamps, 3}};
    tally_add_tdcs(seen.get(), lists, 3);
    tally_add_tdcs(seen.get(), lists, 1);
    // A fourth list has no channel to count it in.
    tally_add_tdcs(seen.get(), lists, 4);
    EXPECT_EQ(seen->tdc_stamps[0], 6u);
    EXPECT_EQ(seen->tdc_stamps[1], 0u);
    EXPECT_EQ(seen->tdc_stamps[2], 8u);
}

TEST(AcquireTally, ItotPixelsCountTheirEventsAsHits) {
    auto seen = MakeTally();
    const ovexsdk_acq_tpx3_itot_evcount pixels[] = {{AddressOf(5), 300, 3}, {AddressOf(6), 10, 1}};
    tally_add_itot_pixels(seen.get(), pixels, 2);
    tally_add_itot_pixels(seen.get(), pixels, 1);
    EXPECT_EQ(seen->records, 3u);
    EXPECT_EQ(seen->hits, 7u);
    EXPECT_EQ(seen->image[5], 6u);
    EXPECT_EQ(seen->image[6], 1u);
}

TEST(AcquireTally, BinValuesFollowOnAcrossFragmentsUpToTheCapacity) {
    auto seen = MakeTally(5);
    const std::uint64_t first[] = {1, 2, 3};
    const std::uint64_t second[] = {4, 5, 6, 7};
    tally_add_bin_values(seen.get(), first, 3);
    tally_add_bin_values(seen.get(), nullptr, 0);
    tally_add_bin_values(seen.get(), second, 4);
    EXPECT_EQ(seen->bins, 7u);
    EXPECT_EQ(seen->counts, 28u);
    EXPECT_EQ(std::vector<std::uint64_t>(seen->scan, seen->scan + 5),
              (std::vector<std::uint64_t>{1, 2, 3, 4, 5}));
}

TEST(AcquireTally, ATallyWithoutAScanCountsBinsAndKeepsNone) {
    auto seen = MakeTally();
    EXPECT_EQ(seen->scan, nullptr);
    const std::uint64_t values[] = {9, 9};
    tally_add_bin_values(seen.get(), values, 2);
    EXPECT_EQ(seen->bins, 2u);
    EXPECT_EQ(seen->counts, 18u);
}

TEST(AcquireTally, BinnedPixelsLandOnTheImageAndEmptyBinsHaveNone) {
    auto seen = MakeTally();
    const ovexsdk_tpx3_pixel_bin_record first[] = {{AddressOf(300), 2, 50}, {AddressOf(301), 1, 9}};
    const ovexsdk_tpx3_pixel_bin_record third[] = {{AddressOf(300), 4, 80}};
    const ovexsdk_tpx3_bin_descriptor bins[] = {{first, 2}, {nullptr, 0}, {third, 1}};
    tally_add_bin_pixels(seen.get(), bins, 3);
    EXPECT_EQ(seen->records, 3u);
    EXPECT_EQ(seen->hits, 7u);
    EXPECT_EQ(seen->image[300], 6u);
    EXPECT_EQ(seen->image[301], 1u);
}

// Timepix2 frames add pixel by pixel into the image, each with its own sum, largest value and
// saturated pixels; a frame of another size is counted and left out.
TEST(AcquireTally, FramesAddIntoTheImageWithTheirOwnStatistics) {
    auto seen = MakeTally();
    std::vector<std::uint16_t> first(65536), second(65536);
    first[0] = 3;
    first[128 * 256 + 127] = 1023;  // x 127, y 128
    first[65535] = 1023;
    second[128 * 256 + 127] = 1000;
    second[5] = 1;
    const std::vector<std::uint16_t> short_frame(4096, 1023);
    const ovexsdk_acq_tpx2_frame frames[] = {{first.data(), 65536},
                                             {short_frame.data(), 4096},
                                             {nullptr, 65536},
                                             {second.data(), 65536}};
    tally_add_frames(seen.get(), frames, 1, 1023);
    tally_add_frames(seen.get(), frames + 1, 3, 1023);
    EXPECT_EQ(seen->frames, 2u);
    EXPECT_EQ(seen->odd_frames, 2u);
    EXPECT_EQ(seen->frame_counts, 3u + 2 * 1023 + 1000 + 1);
    EXPECT_EQ(seen->saturated, 2u);
    EXPECT_EQ(seen->frame[0].sum, 3u + 2 * 1023);
    EXPECT_EQ(seen->frame[0].most, 1023u);
    EXPECT_EQ(seen->frame[0].saturated, 2u);
    EXPECT_EQ(seen->frame[1].sum, 1001u);
    EXPECT_EQ(seen->frame[1].most, 1000u);
    EXPECT_EQ(seen->frame[1].saturated, 0u);
    EXPECT_EQ(seen->image[128 * 256 + 127], 2023u);
    EXPECT_EQ(seen->image[0], 3u);
    EXPECT_EQ(seen->image[5], 1u);
    EXPECT_EQ(tally_hottest_pixel(seen.get()), 128u * 256 + 127);
    // Sums of many 14-bit frames outgrow 16 and 32 bits.
    std::vector<std::uint16_t> full(65536, 16383);
    const ovexsdk_acq_tpx2_frame saturated{full.data(), 65536};
    for (int f = 0; f < 20; ++f) {
        tally_add_frames(seen.get(), &saturated, 1, 16383);
    }
    EXPECT_EQ(seen->frames, 22u);
    EXPECT_EQ(seen->frame[2].saturated, 65536u);
    EXPECT_EQ(seen->frame[2].sum, 65536u * 16383);
    EXPECT_EQ(seen->image[7], 20u * 16383);
    EXPECT_EQ(seen->saturated, 2u + 20u * 65536);
}

TEST(AcquireTally, OnlyTheFirstFramesKeepTheirStatisticsAndTheHottestPixelIsTheFirstOfEquals) {
    auto seen = MakeTally();
    EXPECT_EQ(tally_hottest_pixel(seen.get()), 0u);
    std::vector<std::uint16_t> pixels(65536);
    const ovexsdk_acq_tpx2_frame frame{pixels.data(), 65536};
    for (std::uint16_t f = 0; f < kTallyFramesKept + 2; ++f) {
        pixels[300] = f;
        pixels[700] = f;
        tally_add_frames(seen.get(), &frame, 1, 255);
    }
    EXPECT_EQ(seen->frames, kTallyFramesKept + 2u);
    EXPECT_EQ(seen->frame[kTallyFramesKept - 1].most, kTallyFramesKept - 1u);
    EXPECT_EQ(tally_hottest_pixel(seen.get()), 300u);
}

}  // namespace
