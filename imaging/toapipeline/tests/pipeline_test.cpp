#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "pipeline_harness.hpp"
#include "tpx3_stream/arena_feed.hpp"
#include "tpx3_stream/reference.hpp"

namespace {

using namespace tpx3_pipeline;
using common::DataEntry;
using tpx3_stream::ExpectedRecord;
using tpx3_stream::GeneratedStream;
using tpx3_stream::StreamSettings;
using tpx3_test::RunPipeline;

// A late fraction of 0 stands for the disorder of real detector data: column bursts.
struct Case {
    std::uint64_t seed;
    std::size_t block_bytes;
    double hits_per_tick;
    double late_fraction;
    std::uint32_t max_late_ticks;
    std::uint64_t start_tick;
};

void PrintTo(const Case& c, std::ostream* os) {
    *os << "seed " << c.seed << ", block " << c.block_bytes << " B, rate " << c.hits_per_tick;
    if (c.late_fraction == 0) {
        *os << ", column bursts";
    } else {
        *os << ", late " << c.late_fraction << " by up to " << c.max_late_ticks;
    }
}

StreamSettings SettingsOf(const Case& c) {
    StreamSettings s;
    s.seed = c.seed;
    s.block_bytes = c.block_bytes;
    s.hits_per_tick = c.hits_per_tick;
    s.late_fraction = c.late_fraction;
    s.max_late_ticks = c.max_late_ticks;
    s.start_tick = c.start_tick;
    if (c.late_fraction == 0) {
        s = tpx3_stream::WithRealDisorder(s);
    }
    s.lines = 5;
    s.line_ticks = 30'000;
    s.flyback_ticks = 35'000;
    s.tdc_channels = 0b111;
    s.tdc_per_tick = 0.001;
    s.idle_fraction = 0.001;
    return s;
}

constexpr std::uint64_t kBinWidth = 16 * 700;  // 17.5 us
constexpr std::uint32_t kBinsPerLine = 40;

class PipelineProperty : public ::testing::TestWithParam<Case> {
protected:
    void SetUp() override {
        m_settings = SettingsOf(GetParam());
        m_stream = tpx3_stream::Generate(m_settings);
        m_pool = tpx3_stream::MakeArenaPool(m_settings, 8);
        m_options.ring = &m_ring;
        m_options.binning = {kBinWidth, kBinsPerLine, m_settings.lines};
    }
    void TearDown() override { EXPECT_EQ(m_ring.Used(), 0u) << "record arrays left out"; }

    std::vector<DataEntry> Entries() { return tpx3_stream::ToEntries(m_stream, *m_pool); }

    template <typename Pipeline>
    tpx3_test::RunResult<Pipeline> Run() {
        Pipeline pipeline(m_options);
        return RunPipeline(pipeline, Entries());
    }

    StreamSettings m_settings;
    GeneratedStream m_stream;
    std::shared_ptr<tpx3_stream::ArenaPool> m_pool;
    tpx3_toa_extension::ArenaAllocator m_ring{64 << 20};
    PipelineOptions m_options;
};

void ExpectSameRecord(const ToaTotRecord& got, const ExpectedRecord& want, std::size_t index) {
    ASSERT_EQ(got.time, want.time) << "record " << index;
    ASSERT_EQ(got.address, want.address) << "record " << index;
    ASSERT_EQ(got.tot, want.tot) << "record " << index;
}

TEST_P(PipelineProperty, ExtendedModeGivesEveryRecordWithItsTrueTime) {
    auto result = Run<ExtendedPipeline>();
    ASSERT_EQ(result.failure, "");
    ASSERT_EQ(result.items.size(), m_stream.blocks.size() + 1);
    EXPECT_EQ(result.items.back().type, EntryType::Stop);
    EXPECT_FALSE(result.items.back().block);
    std::size_t next = 0;
    std::array<std::vector<std::uint64_t>, 3> tdc;
    for (std::size_t b = 0; b < m_stream.blocks.size(); ++b) {
        const auto& info = m_stream.blocks[b];
        const auto& item = result.items[b];
        ASSERT_TRUE(item.block);
        EXPECT_EQ(item.type, info.kind == tpx3_stream::BlockKind::LastData ? EntryType::LastData
                                                                           : EntryType::Data);
        EXPECT_EQ(item.block->line_end, info.kind == tpx3_stream::BlockKind::LastData);
        EXPECT_EQ(item.block->start_toa, m_stream.line_starts[info.line]) << "block " << b;
        ASSERT_EQ(item.block->count, info.record_count) << "block " << b;
        for (const ToaTotRecord& record : item.block->Records()) {
            ExpectSameRecord(record, m_stream.records[next], next);
            ++next;
        }
        for (int c = 0; c < 3; ++c) {
            tdc[c].insert(tdc[c].end(), item.block->tdc[c].begin(), item.block->tdc[c].end());
        }
    }
    EXPECT_EQ(next, m_stream.records.size());
    EXPECT_EQ(tdc, m_stream.tdc);
}

TEST_P(PipelineProperty, SortedModeGivesAllRecordsInTimeOrder) {
    auto result = Run<SortedPipeline>();
    ASSERT_EQ(result.failure, "");
    const auto expected = tpx3_stream::SortedByTime(m_stream);
    std::size_t next = 0;
    std::size_t blocks = 0;
    for (std::size_t i = 0; i < result.items.size(); ++i) {
        const auto& item = result.items[i];
        if (!item.block) {
            EXPECT_EQ(item.type, EntryType::Stop);
            continue;
        }
        ++blocks;
        for (const ToaTotRecord& record : item.block->Records()) {
            ASSERT_LT(next, expected.size());
            ExpectSameRecord(record, expected[next], next);
            ++next;
        }
    }
    EXPECT_EQ(next, expected.size());
    EXPECT_EQ(blocks, m_stream.blocks.size());
    EXPECT_EQ(result.items.back().type, EntryType::Stop);
}

template <typename Value>
std::vector<std::uint64_t> Concatenated(const std::vector<common::BinnedOutput<Value>>& items) {
    std::vector<std::uint64_t> all;
    for (const auto& item : items) {
        all.insert(all.end(), item.value->begin(), item.value->end());
    }
    return all;
}

TEST_P(PipelineProperty, CountSumsModeMatchesThePlainBinning) {
    auto result = Run<CountSumsPipeline>();
    ASSERT_EQ(result.failure, "");
    EXPECT_EQ(result.items.back().type, EntryType::Stop);
    const auto reference = tpx3_stream::BinLines(m_stream, kBinWidth, kBinsPerLine);
    EXPECT_EQ(Concatenated(result.items), reference.counts);
}

TEST_P(PipelineProperty, ItotSumsModeMatchesThePlainBinning) {
    auto result = Run<ItotSumsPipeline>();
    ASSERT_EQ(result.failure, "");
    const auto reference = tpx3_stream::BinLines(m_stream, kBinWidth, kBinsPerLine);
    EXPECT_EQ(Concatenated(result.items), reference.itots);
}

TEST_P(PipelineProperty, BinnedPacketsModeMatchesThePlainBinning) {
    auto result = Run<BinnedPacketsPipeline>();
    ASSERT_EQ(result.failure, "");
    const auto reference = tpx3_stream::BinLines(m_stream, kBinWidth, kBinsPerLine);
    std::size_t bin = 0;
    for (const auto& item : result.items) {
        const binning::BinnedData& data = *item.value;
        ASSERT_EQ(data.events.size(), data.descriptors.size());
        ASSERT_EQ(data.itots.size(), data.descriptors.size());
        for (std::size_t i = 0; i < data.descriptors.size(); ++i, ++bin) {
            ASSERT_LT(bin, reference.counts.size());
            EXPECT_EQ(data.events[i], reference.counts[bin]) << "bin " << bin;
            EXPECT_EQ(data.itots[i], reference.itots[bin]) << "bin " << bin;
            const auto [offset, count] = data.descriptors[i];
            std::vector<tpx3_stream::ReferencePixel> pixels;
            for (std::uint32_t k = offset; k < offset + count; ++k) {
                const auto& p = data.packets.at(k);
                pixels.push_back({p.address, p.events, p.itot});
            }
            ASSERT_EQ(pixels, reference.pixels[bin]) << "bin " << bin;
        }
    }
    EXPECT_EQ(bin, reference.counts.size());
}

INSTANTIATE_TEST_SUITE_P(
    Streams, PipelineProperty,
    ::testing::Values(Case{1, 6 * 512, 0.5, 0.02, 2000, 0x1000},
                      Case{2, 6 * 4096, 1.0, 0.10, 30000, 0x2000'0000},
                      // The running time crosses a 2^32-tick page during the second line.
                      Case{3, 6 * 100, 0.2, 0.05, 20000, 0xFFFF'0000},
                      Case{4, 6 * 20000, 1.0, 0.01, 500, 0x10'0000},
                      Case{5, 6, 0.05, 0.5, 3000, 0x5000}, Case{6, 6 * 4096, 1.0, 0, 0, 0x1000},
                      // Column bursts across a 2^32-tick page, in small blocks.
                      Case{7, 6 * 100, 0.5, 0, 0, 0xFFFF'0000},
                      // Full USB transfers at the detector's full rate.
                      Case{8, 983'040, 2.125, 0, 0, 0x2000'0000},
                      Case{9, 6 * 7, 0.1, 0, 0, 0x3000}));

}  // namespace
