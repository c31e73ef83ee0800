#include <gtest/gtest.h>

#include <algorithm>
#include <optional>
#include <random>
#include <vector>

#include "tpx3_pipeline/pipelines.hpp"
#include "tpx3_pipeline/toa_sort.hpp"

namespace {

using namespace tpx3_pipeline;
using common::ExtendedBlock;
using tpx3_toa_extension::ArenaAllocator;

bool ByTime(const ToaTotRecord& a, const ToaTotRecord& b) {
    return a.time < b.time;
}

// Every way of the block sort, and the sort that picks among them, on inputs that take each
// of their paths: already ordered, a few or many late records, bursts from far back, reversed,
// equal times, spreads that need more than two radix digits, times at the top of the range.
TEST(SortRecordsByTime, EveryWaySortsAnyDisorder) {
    using Sort = void (*)(ToaTotRecord*, ToaTotRecord*, SortScratch&);
    const std::pair<const char*, Sort> ways[] = {
        {"chosen", SortRecordsByTime},
        {"radix", RadixSortByTime},
        {"split", SplitSortByTime},
        {"insertion", [](ToaTotRecord* first, ToaTotRecord* last,
                         SortScratch&) { InsertionSortByTime(first, last); }},
    };
    SortScratch scratch;  // shared by every sort, as a worker's is
    std::mt19937_64 random(7);
    struct Shape {
        double late;
        std::uint64_t late_by;
        std::uint64_t step;
        std::uint64_t origin;
    };
    const Shape shapes[] = {
        {0.0, 0, 3, 10'000},
        {0.01, 5000, 3, 10'000},
        {0.3, 40, 3, 10'000},
        {0.5, 200'000, 3, 1'000'000},
        {1.0, 5000, 3, 10'000},
        {0.2, 20, 0, 10'000},                       // equal times
        {0.1, 1ull << 40, 1ull << 20, 1ull << 41},  // a spread of many digits
        {0.3, 1000, 7, ~0ull - (1ull << 30)},       // near the top of the range
    };
    for (std::size_t n : {0u, 1u, 2u, 5u, 255u, 256u, 1000u, 20000u}) {
        for (const Shape& shape : shapes) {
            std::vector<ToaTotRecord> records(n);
            for (std::size_t i = 0; i < n; ++i) {
                const bool is_late = std::uniform_real_distribution<>(0, 1)(random) < shape.late;
                const std::uint64_t back = is_late ? random() % (shape.late_by + 1) : 0;
                const std::uint64_t t = shape.origin + i * shape.step;
                records[i] = {static_cast<std::uint32_t>(i), 1, t - std::min(back, t)};
            }
            auto expected = records;
            std::stable_sort(expected.begin(), expected.end(), ByTime);
            for (const auto& [name, sort] : ways) {
                auto got = records;
                sort(got.data(), got.data() + n, scratch);
                ASSERT_TRUE(std::is_sorted(got.begin(), got.end(), ByTime))
                    << name << ", n " << n << ", late " << shape.late;
                // The same records, none lost or doubled: the addresses are unique.
                std::sort(got.begin(), got.end(),
                          [](auto& a, auto& b) { return a.address < b.address; });
                for (std::size_t i = 0; i < n; ++i) {
                    ASSERT_EQ(got[i].address, i) << name;
                    ASSERT_EQ(got[i].time, records[i].time) << name;
                }
            }
        }
    }
}

class SortStepTest : public ::testing::Test {
protected:
    common::BlockHandle Block(std::vector<std::uint64_t> times, std::uint64_t start = 0) {
        common::BlockHandle handle = m_blocks->Take();
        ExtendedBlock& block = *handle;
        block.records = tpx3_toa_extension::RingArray<ToaTotRecord>(
            static_cast<ToaTotRecord*>(
                m_ring.Allocate(16 * std::max<std::size_t>(times.size(), 1))),
            {&m_ring});
        for (std::size_t i = 0; i < times.size(); ++i) {
            block.records[i] = {static_cast<std::uint32_t>(m_next_address++), 1, times[i]};
        }
        block.count = times.size();
        block.start_toa = start;
        return handle;
    }
    common::SortToasOutput Add(std::vector<std::uint64_t> times, std::uint64_t start = 0) {
        return m_step.Process({EntryType::Data, Block(std::move(times), start)});
    }
    static std::vector<std::uint64_t> Times(const ExtendedBlock& block) {
        std::vector<std::uint64_t> times;
        for (const auto& r : block.Records()) {
            times.push_back(r.time);
        }
        return times;
    }

    static constexpr std::uint64_t W = SortToasStep::FlushWindow;
    ArenaAllocator m_ring{1 << 20};
    std::shared_ptr<Recycler<ExtendedBlock>> m_blocks =
        Recycler<ExtendedBlock>::Create(&ExtendedBlock::ClearForReuse);
    SortToasStep m_step;
    std::uint32_t m_next_address = 0;
};

TEST_F(SortStepTest, NothingLeavesBeforeAThirdBlockIsFarEnoughAhead) {
    const std::uint64_t base = 10 * W;
    EXPECT_TRUE(Add({base, base + 5}).blocks.empty());  // one block is never flushed
    EXPECT_TRUE(Add({base + 5 + W}).blocks.empty());    // not more than the window ahead
    EXPECT_TRUE(Add({base + 6 + W}).blocks.empty());    // boundary at the oldest: none in front
    auto out = Add({base + 7 + 4 * W});                 // boundary at the third: two leave
    ASSERT_EQ(out.blocks.size(), 2u);
    EXPECT_EQ(Times(*out.blocks.front()), (std::vector<std::uint64_t>{base, base + 5}));
    EXPECT_EQ(Times(*out.blocks.back()), (std::vector<std::uint64_t>{base + 5 + W}));
    EXPECT_EQ(m_step.Held().size(), 2u);
}

TEST_F(SortStepTest, EarlyInTheAcquisitionTheListJustGrows) {
    EXPECT_TRUE(Add({1, 2}).blocks.empty());
    EXPECT_TRUE(Add({3}).blocks.empty());
    EXPECT_TRUE(Add({W}).blocks.empty());  // t0 at the window: threshold 0
    EXPECT_EQ(m_step.Held().size(), 3u);
}

TEST_F(SortStepTest, LateRecordMovesIntoTheOlderBlockWhoseCountStays) {
    Add({100, 200, 300});
    Add({250, 400, 500});  // 250 belongs in front of 300
    auto out = m_step.Process({EntryType::Stop, nullptr});
    EXPECT_EQ(out.type, EntryType::Stop);
    ASSERT_EQ(out.blocks.size(), 2u);
    EXPECT_EQ(Times(*out.blocks.front()), (std::vector<std::uint64_t>{100, 200, 250}));
    EXPECT_EQ(Times(*out.blocks.back()), (std::vector<std::uint64_t>{300, 400, 500}));
}

TEST_F(SortStepTest, LateRecordsCrossEmptyBlocksAndSeveralBorders) {
    Add({10, 20});
    Add({});
    Add({30, 40});
    Add({5, 35, 50});
    auto out = m_step.Process({EntryType::Stop, nullptr});
    std::vector<std::uint64_t> all;
    std::vector<std::uint64_t> counts;
    for (const auto& block : out.blocks) {
        counts.push_back(block->count);
        for (auto t : Times(*block)) {
            all.push_back(t);
        }
    }
    EXPECT_EQ(all, (std::vector<std::uint64_t>{5, 10, 20, 30, 35, 40, 50}));
    EXPECT_EQ(counts, (std::vector<std::uint64_t>{2, 0, 2, 3}));
}

TEST_F(SortStepTest, EmptyNewestBlockUsesItsLineStart) {
    const std::uint64_t base = 10 * W;
    Add({base});
    Add({base + 1});
    auto out = Add({}, base + 1 + 2 * W);
    ASSERT_EQ(out.blocks.size(), 1u);
    EXPECT_EQ(Times(*out.blocks.front()), (std::vector<std::uint64_t>{base}));
}

TEST_F(SortStepTest, StopWithNothingHeldAndADataItemWithoutBlock) {
    auto out = m_step.Process({EntryType::Stop, nullptr});
    EXPECT_EQ(out.type, EntryType::Stop);
    EXPECT_TRUE(out.blocks.empty());
    EXPECT_THROW(m_step.Process({EntryType::Data, nullptr}), std::bad_optional_access);
}

template <typename Writer>
class BinningTest : public SortStepTest {
protected:
    // bins_per_line 3, bin_width 10
    BinningStep<Writer> m_binning{BinningParameters{10, 3, 1}};

    typename BinningStep<Writer>::Output Bin(std::vector<std::uint64_t> times, std::uint64_t start,
                                             bool line_end) {
        common::SortToasOutput sorted{EntryType::Data, {}};
        sorted.blocks.push_back(Block(std::move(times), start));
        sorted.blocks.back()->line_end = line_end;
        return m_binning.Process(sorted);
    }
};

using CountBinning = BinningTest<binning::BinWriterCountSums>;

TEST_F(CountBinning, ClosedLineGivesExactlyItsBins) {
    EXPECT_EQ(*Bin({105}, 100, true).value, (std::vector<std::uint64_t>{1, 0, 0}));
    EXPECT_EQ(*Bin({129}, 200, true).value, (std::vector<std::uint64_t>{0, 0, 0}));  // 129 < 200
    EXPECT_EQ(*Bin({429}, 400, true).value, (std::vector<std::uint64_t>{0, 0, 1}));
    EXPECT_EQ(*Bin({}, 500, true).value, (std::vector<std::uint64_t>{0, 0, 0}));
    EXPECT_TRUE(Bin({501}, 500, true).value->empty());  // same line, already closed
}

TEST_F(CountBinning, RecordPastTheLineClosesItAndIsDropped) {
    EXPECT_EQ(*Bin({101, 130}, 100, false).value, (std::vector<std::uint64_t>{1, 0, 0}));
    // The line is done: its line_end block adds nothing.
    EXPECT_TRUE(Bin({131}, 100, true).value->empty());
}

TEST_F(CountBinning, BlocksOfOneLineDeliverFragments) {
    EXPECT_TRUE(Bin({100, 101}, 100, false).value->empty());  // nothing closed: empty fragment
    EXPECT_EQ(*Bin({112, 113}, 100, false).value, (std::vector<std::uint64_t>{2}));
    EXPECT_EQ(*Bin({125}, 100, true).value, (std::vector<std::uint64_t>{2, 1}));
}

using ItotBinning = BinningTest<binning::BinWriterItotSums>;

TEST_F(ItotBinning, SumsTheToTOfEachBin) {
    common::SortToasOutput sorted{EntryType::Stop, {}};
    sorted.blocks.push_back(Block({100, 101, 125}, 100));
    sorted.blocks.back()->begin()[0].tot = 1023;
    sorted.blocks.back()->begin()[1].tot = 7;
    sorted.blocks.back()->begin()[2].tot = 5;
    sorted.blocks.back()->line_end = true;
    auto out = m_binning.Process(sorted);
    EXPECT_EQ(out.type, EntryType::Stop);
    EXPECT_EQ(*out.value, (std::vector<std::uint64_t>{1030, 0, 5}));
}

using PacketBinning = BinningTest<binning::BinWriterPackets>;

TEST_F(PacketBinning, PixelsInOrderOfFirstHitAndEmptyBinsHaveDescriptors) {
    common::SortToasOutput sorted{EntryType::Data, {}};
    sorted.blocks.push_back(Block({100, 101, 102, 125}, 100));
    auto* r = sorted.blocks.back()->begin();
    r[0] = {0x0200, 3, 100};
    r[1] = {0x0100, 4, 101};
    r[2] = {0x0200, 5, 102};
    r[3] = {0x0300, 6, 125};
    sorted.blocks.back()->line_end = true;
    const auto data = *m_binning.Process(sorted).value;
    EXPECT_EQ(data.events, (std::vector<std::uint64_t>{3, 0, 1}));
    EXPECT_EQ(data.itots, (std::vector<std::uint64_t>{12, 0, 6}));
    ASSERT_EQ(data.descriptors.size(), 3u);
    EXPECT_EQ(data.descriptors[0].offset, 0u);
    EXPECT_EQ(data.descriptors[0].count, 2u);
    EXPECT_EQ(data.descriptors[1].offset, 2u);
    EXPECT_EQ(data.descriptors[1].count, 0u);
    EXPECT_EQ(data.descriptors[2].offset, 2u);
    EXPECT_EQ(data.descriptors[2].count, 1u);
    ASSERT_EQ(data.packets.size(), 3u);
    EXPECT_EQ(data.packets[0].address, 0x0200u);
    EXPECT_EQ(data.packets[0].events, 2u);
    EXPECT_EQ(data.packets[0].itot, 8u);
    EXPECT_EQ(data.packets[1].address, 0x0100u);
    EXPECT_EQ(data.packets[1].events, 1u);
    EXPECT_EQ(data.packets[2].address, 0x0300u);
    // The next line starts with a clean table: pixel 0x0200 counts afresh.
    common::SortToasOutput line{EntryType::Data, {}};
    line.blocks.push_back(Block({200}, 200));
    line.blocks.back()->begin()[0] = {0x0200, 9, 200};
    line.blocks.back()->line_end = true;
    const auto next = *m_binning.Process(line).value;
    EXPECT_EQ(next.events, (std::vector<std::uint64_t>{1, 0, 0}));
    ASSERT_EQ(next.packets.size(), 1u);
    EXPECT_EQ(next.packets[0].events, 1u);
    EXPECT_EQ(next.packets[0].itot, 9u);
}

}  // namespace
