#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <cstring>

#include "tpx3_stream/generator.hpp"
#include "tpx3_stream/reference.hpp"

namespace {

using namespace tpx3_stream;

std::uint64_t PacketAt(const GeneratedStream& s, std::size_t offset) {
    std::uint64_t p = 0;
    std::memcpy(&p, &s.bytes[offset], 6);
    return p;
}

StreamSettings Small() {
    StreamSettings s;
    s.lines = 3;
    s.line_ticks = 20'000;
    s.flyback_ticks = 35'000;
    s.hits_per_tick = 0.4;
    s.late_fraction = 0.2;
    s.max_late_ticks = 3000;
    s.block_bytes = 6 * 300;
    s.tdc_channels = 0b110;
    s.tdc_per_tick = 0.002;
    return s;
}

TEST(Generator, SameSeedSameStreamOtherSeedOtherStream) {
    const auto a = Generate(Small());
    const auto b = Generate(Small());
    auto settings = Small();
    settings.seed = 2;
    const auto c = Generate(settings);
    EXPECT_EQ(a.bytes, b.bytes);
    EXPECT_NE(a.bytes, c.bytes);
}

TEST(Generator, LinesOpenWithTheirTimerAndCloseWithAShortBlock) {
    const auto s = Generate(Small());
    ASSERT_EQ(s.line_starts.size(), 3u);
    std::uint32_t line = 0;
    bool line_open = false;
    std::size_t records = 0;
    for (const auto& block : s.blocks) {
        EXPECT_EQ(block.length % 6, 0u);
        EXPECT_LE(block.length, Small().block_bytes);
        EXPECT_EQ(block.first_record, records);
        records += block.record_count;
        if (!line_open) {
            EXPECT_EQ(block.line, line);
            const std::uint64_t first = PacketAt(s, block.offset);
            EXPECT_EQ(first >> 46, 3u);        // CTRL
            EXPECT_EQ((first >> 36) & 7, 0u);  // a timer
            EXPECT_EQ(first & 0xFFFFFFFF, s.line_starts[line] / 16);
            line_open = true;
        }
        if (block.kind == BlockKind::LastData) {
            line_open = false;
            ++line;
        }
    }
    EXPECT_EQ(line, 3u);
    EXPECT_EQ(records, s.records.size());
}

TEST(Generator, TruthHasUniqueTimesLateArrivalsAndTdcOnChosenChannels) {
    const auto s = Generate(Small());
    ASSERT_GT(s.records.size(), 10000u);
    std::size_t late = 0;
    std::uint64_t newest = 0;
    for (const auto& r : s.records) {
        if (r.time < newest) {
            ++late;
            EXPECT_LE(newest - r.time, 3000u * 16 + 16);  // within the chosen lateness
        }
        newest = std::max(newest, r.time);
    }
    // Late hits are a fifth of all; each lands behind the newest unless overtaken itself.
    EXPECT_GT(late, s.records.size() / 10);
    EXPECT_LT(late, s.records.size() / 4);
    const auto sorted = SortedByTime(s);
    EXPECT_TRUE(std::adjacent_find(sorted.begin(), sorted.end(), [](auto& a, auto& b) {
                    return a.time == b.time;
                }) == sorted.end());
    EXPECT_TRUE(s.tdc[0].empty());
    EXPECT_FALSE(s.tdc[1].empty());
    EXPECT_FALSE(s.tdc[2].empty());
}

TEST(Generator, RealDisorderStepsBackOftenAndFarInColumnBursts) {
    StreamSettings settings = WithRealDisorder(Small());
    settings.hits_per_tick = 2.125;
    settings.block_bytes = 983'040;
    settings.lines = 6;
    settings.line_ticks = 100'000;
    settings.flyback_ticks = 40'000;
    const auto s = Generate(settings);
    const DisorderStats stats = MeasureDisorder(s);
    std::printf("step back %.3f, max %llu ticks, late per block %.3f..%.3f\n",
                stats.step_back_fraction, static_cast<unsigned long long>(stats.max_step_back),
                stats.min_block_late_fraction, stats.max_block_late_fraction);
    EXPECT_GT(stats.step_back_fraction, 0.2);
    EXPECT_LT(stats.step_back_fraction, 0.4);
    EXPECT_GT(stats.max_step_back, 15'000u);
    EXPECT_LE(stats.max_step_back, 18'001u);
    EXPECT_LT(stats.min_block_late_fraction, 0.25);
    EXPECT_GT(stats.max_block_late_fraction, 0.3);
    // A stalled column releases its hits oldest first: runs of steps forward inside a burst.
    std::uint64_t newest = 0;
    for (const auto& r : s.records) {
        EXPECT_LE(newest - std::min(newest, r.time), 18'000u * 16 + 16);
        newest = std::max(newest, r.time);
    }
}

TEST(Generator, Faults) {
    auto settings = Small();
    settings.cfg_packet_block = 1;
    settings.truncated_block = 2;
    settings.line_without_ctrl = 1;
    const auto s = Generate(settings);
    const auto& cfg = s.blocks[1];
    std::size_t cfg_count = 0;
    for (std::size_t o = cfg.offset; o + 6 <= cfg.offset + cfg.length; o += 6) {
        cfg_count += (PacketAt(s, o) >> 46) == 1;
    }
    EXPECT_EQ(cfg_count, 1u);
    EXPECT_EQ(s.blocks[2].length % 6, 3u);
    const auto first_of_line = std::find_if(s.blocks.begin(), s.blocks.end(),
                                            [](const BlockInfo& b) { return b.line == 1; });
    ASSERT_NE(first_of_line, s.blocks.end());
    for (std::size_t o = first_of_line->offset; o < first_of_line->offset + first_of_line->length;
         o += 6) {
        EXPECT_EQ(PacketAt(s, o) >> 46, 0u);
    }
}

TEST(Generator, RefusesSettingsItCannotModel) {
    auto settings = Small();
    settings.max_late_ticks = 32767;
    EXPECT_THROW(Generate(settings), std::invalid_argument);
    settings = Small();
    settings.block_bytes = 100;
    EXPECT_THROW(Generate(settings), std::invalid_argument);
}

TEST(Reference, BinsCountTheRecordsOfEachLinesBins) {
    GeneratedStream s;
    s.line_starts = {1000, 5000};
    s.records = {{1, 2, 1005}, {1, 3, 1001}, {2, 4, 1019},
                 {3, 5, 1030}, {4, 6, 4000}, {5, 7, 5000}};
    const auto bins = BinLines(s, 10, 3);
    EXPECT_EQ(bins.counts, (std::vector<std::uint64_t>{2, 1, 0, 1, 0, 0}));
    EXPECT_EQ(bins.itots, (std::vector<std::uint64_t>{5, 4, 0, 7, 0, 0}));
    EXPECT_EQ(bins.pixels[0], (std::vector<ReferencePixel>{{1, 2, 5}}));
}

}  // namespace
