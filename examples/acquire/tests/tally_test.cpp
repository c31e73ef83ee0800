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

}  // namespace
