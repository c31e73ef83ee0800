// Checks the files that the board runs of `ovex acquire` left in $OVEX_ACQUIRE_DIR (see
// CMakeLists.txt): what the summary counted is what the .npy holds, the images show the
// virtual board's beam spot at the sensor's centre, the raw stream replayed gives the same hits,
// and a run ended by Ctrl-C left complete files.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <map>
#include <numeric>
#include <span>
#include <sstream>
#include <tuple>

#include "npy_read.hpp"
#include "ovex/pixel_address.hpp"
#include "png_read.hpp"

namespace ovex::cli {
namespace {

using pixel::Pixel;
using pixel::PixelOf;
using testing::BrightestPixel;
using testing::NpyFile;
using testing::ReadNpy;
using testing::ReadPng;

constexpr char kHitDescr[] =
    "[('address', '<u4'), ('x', '<u2'), ('y', '<u2'), ('tot', '<u4'), ('toa', '<u8')]";
constexpr std::size_t kHitBytes = 20;

std::string PathOf(const char* name) {
    const char* dir = std::getenv("OVEX_ACQUIRE_DIR");
    return std::string(dir == nullptr ? "." : dir) + "/" + name;
}

// A figure of the summary line, "records=N ... lost=N ...".
std::uint64_t SummaryFigure(const char* file, const std::string& name) {
    std::ifstream in(PathOf(file));
    std::stringstream text;
    text << in.rdbuf();
    // Appended rather than joined with +: GCC 12 warns falsely (-Wrestrict) on " " + string at -O3.
    std::string summary(1, ' ');
    summary += text.str();
    std::string key(1, ' ');
    key += name;
    key += '=';
    const std::size_t at = summary.find(key);
    if (at == std::string::npos) {
        ADD_FAILURE() << "no " << name << " in the summary '" << summary << "'";
        return 0;
    }
    return std::stoull(summary.substr(at + name.size() + 2));
}

// The pixel index lies in the spot: within 12 pixels of the centre in x and y.
void ExpectInSpot(std::uint32_t pixel, const char* what) {
    const int x = static_cast<int>(pixel % 256);
    const int y = static_cast<int>(pixel / 256);
    EXPECT_LE(std::abs(x - 128), 12) << what << " at (" << x << ", " << y << ")";
    EXPECT_LE(std::abs(y - 128), 12) << what << " at (" << x << ", " << y << ")";
}

struct Hit {
    std::uint32_t address;
    std::uint16_t x, y;
    std::uint32_t tot;
    std::uint64_t toa;
};

std::vector<Hit> HitsOf(const NpyFile& npy) {
    std::vector<Hit> hits(npy.data.size() / kHitBytes);
    for (std::size_t i = 0; i < hits.size(); ++i) {
        const std::byte* at = npy.data.data() + i * kHitBytes;
        std::memcpy(&hits[i].address, at, 4);
        std::memcpy(&hits[i].x, at + 4, 2);
        std::memcpy(&hits[i].y, at + 6, 2);
        std::memcpy(&hits[i].tot, at + 8, 4);
        std::memcpy(&hits[i].toa, at + 12, 8);
    }
    return hits;
}

// A hit as a replay keeps it: address, ToT and the time within its page of 2^16 ToA ticks, in
// sixteenths of a tick.
using ReplayKey = std::tuple<std::uint32_t, std::uint32_t, std::uint64_t>;

std::map<ReplayKey, int> ReplayKeys(std::span<const Hit> hits) {
    std::map<ReplayKey, int> keys;
    for (const Hit& hit : hits) {
        ++keys[{hit.address, hit.tot, hit.toa & 0xFFFFF}];
    }
    return keys;
}

// A .npy of hit records whose rows are those the summary counted, with nothing lost.
std::vector<Hit> CheckedHits(const char* npy_name, const char* summary_name) {
    const NpyFile npy = ReadNpy(PathOf(npy_name));
    const std::uint64_t records = SummaryFigure(summary_name, "records");
    EXPECT_EQ(npy.descr, kHitDescr);
    EXPECT_EQ(npy.shape, std::vector<std::uint64_t>{records});
    EXPECT_EQ(npy.data.size(), records * kHitBytes);
    EXPECT_EQ(SummaryFigure(summary_name, "lost"), 0u);
    return HitsOf(npy);
}

// A whole 256 x 256 picture whose brightest pixel lies in the beam spot.
void ExpectSpotImage(const char* name) {
    const auto image = ReadPng(PathOf(name));
    EXPECT_EQ(image.width, 256u);
    EXPECT_EQ(image.height, 256u);
    ExpectInSpot(BrightestPixel(image), "the image's brightest pixel");
}

TEST(AcquireDataDriven, TheRecordsAreThoseCountedAndTheHitsFallInTheBeamSpot) {
    const std::vector<Hit> hits = CheckedHits("X.npy", "X.summary");
    ASSERT_GT(hits.size(), 100000u) << "2e5 hits/s for a second";
    std::vector<std::uint64_t> map(256 * 256);
    std::uint64_t steps_back = 0;
    for (std::size_t i = 0; i < hits.size(); ++i) {
        const Pixel pixel = PixelOf(hits[i].address);
        ASSERT_EQ(hits[i].x, pixel.x);
        ASSERT_EQ(hits[i].y, pixel.y);
        ++map[pixel.y * 256 + pixel.x];
        steps_back += i > 0 && hits[i].toa < hits[i - 1].toa;
    }
    EXPECT_EQ(steps_back, 0u) << "--process sorted";
    const auto hottest = std::max_element(map.begin(), map.end()) - map.begin();
    ExpectInSpot(static_cast<std::uint32_t>(hottest), "the hottest pixel of the records");

    ExpectSpotImage("X.png");
}

// The replay plays the raw file from its start, so the first pass's hits come first, each with
// its address, ToT and time within the page; later passes move time on by whole pages only.
TEST(AcquireDataDriven, TheRawStreamReplayedGivesTheSameHitsInItsFirstPass) {
    const std::vector<Hit> recorded = CheckedHits("X.npy", "X.summary");
    const std::vector<Hit> replayed = CheckedHits("Y.npy", "Y.summary");
    ASSERT_GT(recorded.size(), 0u);
    ASSERT_GE(replayed.size(), recorded.size()) << "the replay's run covers a whole pass";
    const auto first_pass = std::span(replayed).first(recorded.size());
    EXPECT_TRUE(ReplayKeys(recorded) == ReplayKeys(first_pass));
    std::ifstream raw(PathOf("X.bin"), std::ios::binary | std::ios::ate);
    EXPECT_EQ(static_cast<std::uint64_t>(raw.tellg()) % 6, 0u) << "whole 6-byte packets";
}

TEST(AcquireTimepix2, FramesAreSavedWholeAndTheirSumShowsTheSpot) {
    const NpyFile npy = ReadNpy(PathOf("F.npy"));
    EXPECT_EQ(npy.descr, "'<u2'");
    EXPECT_EQ(npy.shape, (std::vector<std::uint64_t>{2, 256, 256}));
    EXPECT_EQ(SummaryFigure("F.summary", "records"), 2u);
    ASSERT_EQ(npy.data.size(), 2u * 256 * 256 * 2);
    std::vector<std::uint64_t> sum(256 * 256);
    for (std::size_t i = 0; i < npy.data.size() / 2; ++i) {
        std::uint16_t count = 0;
        std::memcpy(&count, npy.data.data() + 2 * i, 2);
        sum[i % sum.size()] += count;
    }
    EXPECT_GT(std::accumulate(sum.begin(), sum.end(), std::uint64_t{0}), 0u);
    ExpectInSpot(static_cast<std::uint32_t>(std::max_element(sum.begin(), sum.end()) - sum.begin()),
                 "the frames' hottest pixel");
    ExpectSpotImage("F.png");
}

TEST(AcquireInterrupted, CtrlCLeavesAWholeNpyOfWhatWasCounted) {
    const std::vector<Hit> hits = CheckedHits("I.npy", "I.summary");
    EXPECT_LT(SummaryFigure("I.summary", "seconds"), 60u) << "ended early";
}

}  // namespace
}  // namespace ovex::cli
