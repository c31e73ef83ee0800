#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "pipeline_harness.hpp"
#include "tpx3_stream/arena_feed.hpp"

namespace {

using namespace tpx3_pipeline;
using common::DataEntry;
using tpx3_stream::StreamSettings;
using tpx3_test::RunPipeline;

TEST(TokenCount, FallsBackToEightWhenTheMachineDoesNotSay) {
    EXPECT_EQ(TokenCount(0), 8u);
    EXPECT_EQ(TokenCount(2), 2u);
    EXPECT_EQ(TokenCount(64), 64u);
}

StreamSettings SmallStream() {
    StreamSettings s;
    s.lines = 3;
    s.line_ticks = 20'000;
    s.flyback_ticks = 35'000;
    s.hits_per_tick = 0.3;
    s.block_bytes = 6 * 256;
    return s;
}

class PipelineEnding : public ::testing::Test {
protected:
    void SetUp() override { m_options.ring = &m_ring; }
    void TearDown() override { EXPECT_EQ(m_ring.Used(), 0u) << "record arrays left out"; }

    std::vector<DataEntry> Entries(const StreamSettings& settings) {
        m_stream = tpx3_stream::Generate(settings);
        m_pool = tpx3_stream::MakeArenaPool(settings, 16);
        return tpx3_stream::ToEntries(m_stream, *m_pool);
    }

    // Runs a stream with a fault in every mode: the run fails with `text`, the out queue ends
    // with a Terminate item, and nothing is left out.
    template <typename Pipeline>
    void ExpectFailure(const StreamSettings& settings, const std::string& text) {
        {
            Pipeline pipeline(m_options);
            auto result = RunPipeline(pipeline, Entries(settings));
            EXPECT_EQ(result.failure, text);
            ASSERT_FALSE(result.items.empty());
            EXPECT_EQ(result.items.back().type, EntryType::Terminate);
        }
        EXPECT_EQ(m_ring.Used(), 0u);
        EXPECT_EQ(m_pool.use_count(), 1);
    }

    template <typename Pipeline>
    void ExpectFailureInEveryMode(const StreamSettings& settings, const std::string& text) {
        SCOPED_TRACE(text);
        ExpectFailure<ExtendedPipeline>(settings, text);
        ExpectFailure<SortedPipeline>(settings, text);
        ExpectFailure<CountSumsPipeline>(settings, text);
        ExpectFailure<ItotSumsPipeline>(settings, text);
        ExpectFailure<BinnedPacketsPipeline>(settings, text);
    }

    tpx3_toa_extension::ArenaAllocator m_ring{16 << 20};
    PipelineOptions m_options{nullptr, {16 * 500, 30, 3}};
    tpx3_stream::GeneratedStream m_stream;
    std::shared_ptr<tpx3_stream::ArenaPool> m_pool;
};

TEST_F(PipelineEnding, CfgPacketEndsTheRun) {
    auto settings = SmallStream();
    settings.cfg_packet_block = 4;
    ExpectFailureInEveryMode<void>(settings,
                                   "Encountered Timepix3 packet with unsupported header CFG");
    settings.fault_type_unknown = true;
    ExpectFailure<SortedPipeline>(settings,
                                  "Encountered Timepix3 packet with unsupported header UNKNOWN");
}

TEST_F(PipelineEnding, LineWithoutCtrlPacketEndsTheRun) {
    auto settings = SmallStream();
    settings.line_without_ctrl = 1;
    ExpectFailureInEveryMode<void>(settings,
                                   "Timepix3 buffer is too short to contain a single packet");
}

TEST_F(PipelineEnding, FullRingEndsTheRunWithoutWriting) {
    tpx3_toa_extension::ArenaAllocator tiny(1000);  // less than one block's records
    m_options.ring = &tiny;
    auto settings = SmallStream();
    ExpectFailure<ExtendedPipeline>(settings,
                                    "Arena allocator failed to allocate block of size 4096");
    ExpectFailure<CountSumsPipeline>(settings,
                                     "Arena allocator failed to allocate block of size 4096");
    EXPECT_EQ(tiny.Used(), 0u);
    m_options.ring = &m_ring;
}

TEST_F(PipelineEnding, RaggedBlockIsLoggedAndTheRunGoesOn) {
    auto settings = SmallStream();
    settings.truncated_block = 2;
    ExtendedPipeline pipeline(m_options);
    auto entries = Entries(settings);
    const std::size_t blocks = entries.size();
    auto result = RunPipeline(pipeline, std::move(entries));
    EXPECT_EQ(result.failure, "");
    EXPECT_EQ(result.items.size(), blocks + 1);
    // The cut packet is lost, and with the pairwise walk the whole packet in front of it too.
    const auto& info = m_stream.blocks[2];
    ASSERT_EQ(info.length % 12, 9u);
    std::size_t lost = 0;
    for (std::size_t back : {3u, 9u}) {
        const std::uint64_t packet = tpx3_toa_extension::LoadPacket(
            &m_stream.bytes[info.offset + info.length + 3 - back - 3]);
        lost += tpx3_toa_extension::MaskOfPacket(packet) == tpx3_toa_extension::HeaderMask::Data;
    }
    EXPECT_GT(lost, 0u);
    EXPECT_EQ(result.items[2].block->count, info.record_count - lost);
}

template <typename Pipeline>
void ExpectStopOnly(const PipelineOptions& options) {
    Pipeline pipeline(options);
    auto result = RunPipeline(pipeline, {});
    EXPECT_EQ(result.failure, "");
    ASSERT_EQ(result.items.size(), 1u);
    EXPECT_EQ(result.items[0].type, EntryType::Stop);
    EXPECT_EQ(pipeline.OutQueue().Size(), 0u);
    // The Terminate behind the Stop is never read; it goes with the pipeline.
    EXPECT_EQ(pipeline.InQueue().Size(), 1u);
}

TEST_F(PipelineEnding, StopAloneGivesOnlyAStopInEveryMode) {
    ExpectStopOnly<ExtendedPipeline>(m_options);
    ExpectStopOnly<SortedPipeline>(m_options);
    ExpectStopOnly<CountSumsPipeline>(m_options);
    ExpectStopOnly<ItotSumsPipeline>(m_options);
    ExpectStopOnly<BinnedPacketsPipeline>(m_options);
}

TEST_F(PipelineEnding, EntriesLeftInTheInQueueReleaseTheirArenas) {
    auto pool = ovex::alloc::Pool<Arena>::Create(Arena::Settings{6, 6 * 10});
    {
        ExtendedPipeline pipeline(m_options);
        pipeline.Start();
        pipeline.PushEntry(DataEntry::Control(EntryType::Stop));
        pipeline.PushEntry({EntryType::Terminate, {pool->Acquire(), {}}});
        EXPECT_EQ(pipeline.PopResult().type, EntryType::Stop);
        pipeline.Wait();
        EXPECT_EQ(pool->FreeCount(), 0u);
    }
    EXPECT_EQ(pool->FreeCount(), 1u);
}

TEST_F(PipelineEnding, DestroyingARunningPipelineEndsItsRun) {
    auto entries = Entries(SmallStream());
    {
        SortedPipeline pipeline(m_options);
        pipeline.Start();
        for (auto& entry : entries) {
            pipeline.PushEntry(std::move(entry));
        }
        // Nobody reads the results and no Stop was sent.
    }
    entries.clear();
    EXPECT_EQ(m_pool.use_count(), 1);
}

TEST_F(PipelineEnding, FullOutQueueStopsTheChainWithoutLosingAnything) {
    StreamSettings settings = SmallStream();
    settings.block_bytes = 6 * 4;
    settings.lines = 5;
    settings.hits_per_tick = 0.1;
    auto entries = Entries(settings);
    const std::size_t blocks = entries.size();
    ASSERT_GT(blocks, BlockingQueue<DataEntry>::kCapacity + 100);
    ASSERT_LT(blocks, 2 * BlockingQueue<DataEntry>::kCapacity);

    ExtendedPipeline pipeline(m_options);
    pipeline.Start();
    std::thread feeder([&] {
        for (auto& entry : entries) {
            pipeline.PushEntry(std::move(entry));
        }
        pipeline.PushEntry(DataEntry::Control(EntryType::Stop));
    });
    // Nobody reads until the out queue is full and the feeder has put everything in.
    while (pipeline.OutQueue().Size() < BlockingQueue<DataEntry>::kCapacity) {
        std::this_thread::yield();
    }
    feeder.join();
    EXPECT_EQ(pipeline.OutQueue().Size(), 5000u);
    // What isn't in the out queue waits in the in queue, but for the items that hold tokens.
    const std::size_t tokens = TokenCount(std::thread::hardware_concurrency());
    EXPECT_GE(pipeline.InQueue().Size() + tokens, blocks + 1 - 5000);

    std::size_t records = 0;
    std::size_t items = 0;
    for (;;) {
        auto item = pipeline.PopResult();
        if (item.type == EntryType::Stop) {
            break;
        }
        ++items;
        records += item.block->count;
    }
    pipeline.Wait();
    EXPECT_EQ(items, blocks);
    EXPECT_EQ(records, m_stream.records.size());
}

}  // namespace
