#include <gtest/gtest.h>

#include <array>
#include <random>
#include <stdexcept>
#include <string>
#include <vector>

#include "tpx3_pipeline/steps/extend_toas_step.hpp"
#include "tpx3_stream/generator.hpp"

namespace {

using namespace tpx3_toa_extension;
using tpx3_pipeline::EntryType;
using tpx3_pipeline::ExtendToasStep;
using tpx3_pipeline::common::DataEntry;
using tpx3_pipeline::common::ExtendToasOutput;
using tpx3_stream::AppendPacket;
using tpx3_stream::CfgPacket;
using tpx3_stream::DataPacket;
using tpx3_stream::TdcPacket;
using tpx3_stream::TimerPacket;

TEST(Extend16, PlacesCoarseTimeNextToTheLastOne) {
    EXPECT_EQ(Extend16(100000, 34465), 100001u);
    EXPECT_EQ(Extend16(65535, 0), 65536u);      // rollover forward
    EXPECT_EQ(Extend16(65536, 65535), 65535u);  // a late packet stays in front of it
    EXPECT_EQ(Extend16(100000, 1697), 67233u);  // 32769 ahead counts as 32767 behind
    EXPECT_EQ(Extend16(100000, (100000 + 32767) % 65536), 132767u);
    EXPECT_EQ(Extend16(100000, (100000 - 32768) % 65536), 67232u);
    EXPECT_EQ(Extend16(0, 40000), std::uint64_t(0) - 25536);  // wraps below zero
}

// The sink keeps the coarse time apart from the running time; it must still place every packet
// exactly where the rules put it, from any running time, across rollovers and timer packets.
TEST(ExtensionSink, PlacesEveryPacketAsTheRulesDo) {
    std::mt19937_64 random(11);
    for (std::uint64_t start : {0ull, 65535ull, 0xFFFF'FFF0ull, ~0ull - 40000}) {
        std::vector<std::uint64_t> packets;
        for (int i = 0; i < 4000; ++i) {
            const auto bits = random();
            packets.push_back(bits % 16 == 0 ? TimerPacket(bits >> 8)
                                             : DataPacket(1, 2, bits >> 20, bits & 0xF));
        }
        std::uint64_t last = start;
        std::vector<ToaTotRecord> expected;
        for (std::uint64_t p : packets) {
            if (MaskOfPacket(p) == HeaderMask::Ctrl) {
                last = Extend32(last, CtrlStamp(p));
            } else {
                last = Extend16(last, CoarseToa(p));
                expected.push_back({1, 2, (last << 4) | FineToa(p)});
            }
        }
        std::uint64_t running = start;
        std::vector<ToaTotRecord> got(packets.size());
        std::array<std::vector<std::uint64_t>, 3> tdc;
        ExtensionSink sink{running, got.data(), tdc};
        for (std::uint64_t p : packets) {
            sink(p, MaskOfPacket(p));
        }
        ASSERT_EQ(static_cast<std::size_t>(sink.out - got.data()), expected.size());
        for (std::size_t i = 0; i < expected.size(); ++i) {
            ASSERT_EQ(got[i].time, expected[i].time) << "start " << start << ", record " << i;
        }
        EXPECT_EQ(running, last);
    }
}

TEST(Extend32, FindsTheFirstMatchAtOrAboveTheFloor) {
    EXPECT_EQ(Extend32(0x1FFFFFFF0, 0x10), 0x200000010u);
    EXPECT_EQ(Extend32(0x100000010, 0xFFFFFFF0), 0x1FFFFFFF0u);
    for (std::uint64_t last : {0ull, 1ull, 0x7FFFull}) {
        EXPECT_EQ(Extend32(last, 0), 0u);  // no page is added low down
    }
    EXPECT_EQ(Extend32(0x300008000, 0x0), 0x400000000u);  // below the floor: next page
    EXPECT_EQ(Extend32(0x300008000, 0x1), 0x300000001u);
}

std::vector<std::uint8_t> Bytes(std::initializer_list<std::uint64_t> packets) {
    std::vector<std::uint8_t> bytes;
    for (std::uint64_t packet : packets) {
        AppendPacket(bytes, packet);
    }
    return bytes;
}

class ExtendToasStepTest : public ::testing::Test {
protected:
    ExtendToasOutput Run(const std::vector<std::uint8_t>& bytes, EntryType type = EntryType::Data) {
        m_kept.push_back(bytes);
        const auto& kept = m_kept.back();
        return m_step.Process(DataEntry{type, {nullptr, {kept.data(), kept.size()}}});
    }

    std::string Failure(const std::vector<std::uint8_t>& bytes) {
        try {
            Run(bytes);
        } catch (const std::exception& error) {
            return error.what();
        }
        return "no failure";
    }

    ArenaAllocator m_ring{1 << 20};
    ExtendToasStep m_step{m_ring};
    std::vector<std::vector<std::uint8_t>> m_kept;
};

TEST_F(ExtendToasStepTest, DataAheadOfTheFirstCtrlUsesTheTimeBeforeTheBlock) {
    auto out = Run(
        Bytes({DataPacket(1, 10, 5, 3), TimerPacket(0x12345678), DataPacket(2, 11, 0x5679, 0)}));
    ASSERT_TRUE(out.block);
    EXPECT_EQ(out.type, EntryType::Data);
    const auto& block = *out.block;
    EXPECT_EQ(block.start_toa, std::uint64_t{0x12345678} << 4);
    ASSERT_EQ(block.count, 2u);
    EXPECT_EQ(block.begin()[0].address, 1u);
    EXPECT_EQ(block.begin()[0].tot, 10u);
    EXPECT_EQ(block.begin()[0].time, (5u << 4) | 3u);
    EXPECT_EQ(block.begin()[1].time, std::uint64_t{0x12345679} << 4);
    EXPECT_FALSE(block.line_end);
    EXPECT_FALSE(m_step.NeedSync());
}

TEST_F(ExtendToasStepTest, TimerPacketsReanchorAndMayGoBack) {
    Run(Bytes({TimerPacket(0x10000), DataPacket(1, 1, 0x7000, 0)}));
    EXPECT_EQ(m_step.LastToa(), 0x17000u);
    Run(Bytes({TimerPacket(0x17000 - 0x7FFF)}));
    EXPECT_EQ(m_step.LastToa(), 0x17000u - 0x7FFF);
    Run(Bytes({DataPacket(1, 1, 0x8000, 0)}));
    EXPECT_EQ(m_step.LastToa(), 0x8000u);  // extended from the moved-back anchor
}

TEST_F(ExtendToasStepTest, TdcPacketsRecordAllTheirChannelsAndLeaveTheTimeAlone) {
    auto out = Run(Bytes({TimerPacket(1000), TdcPacket(0x7000'0000, 0b101), TdcPacket(1200, 0b010),
                          kAllOnesPacket}));
    const auto& tdc = out.block->tdc;
    EXPECT_EQ(tdc[0], (std::vector<std::uint64_t>{std::uint64_t{0x7000'0000} << 4}));
    EXPECT_EQ(tdc[1], (std::vector<std::uint64_t>{1200u << 4}));
    EXPECT_EQ(tdc[2], (std::vector<std::uint64_t>{std::uint64_t{0x7000'0000} << 4}));
    EXPECT_EQ(m_step.LastToa(), 1000u);  // neither TDC nor the all-ones packet moved it
    EXPECT_EQ(out.block->count, 0u);
}

TEST_F(ExtendToasStepTest, LastDataEndsTheLineAndTheNextBlockStartsANewOne) {
    auto first = Run(Bytes({TimerPacket(5000), DataPacket(1, 1, 5001, 0)}), EntryType::LastData);
    EXPECT_TRUE(first.block->line_end);
    EXPECT_EQ(first.type, EntryType::LastData);
    EXPECT_TRUE(m_step.NeedSync());
    auto same_line = Run(Bytes({DataPacket(1, 1, 5002, 0), TimerPacket(9000)}));
    EXPECT_EQ(same_line.block->start_toa, 9000u << 4);
    auto later = Run(Bytes({DataPacket(1, 1, 9001, 0), TimerPacket(9500)}));
    EXPECT_EQ(later.block->start_toa, 9000u << 4);  // same line: no new search
}

TEST_F(ExtendToasStepTest, StopResetsTheStep) {
    Run(Bytes({TimerPacket(70000), DataPacket(1, 1, 70001 & 0xFFFF, 0)}));
    auto stop = m_step.Process(DataEntry::Control(EntryType::Stop));
    EXPECT_EQ(stop.type, EntryType::Stop);
    EXPECT_FALSE(stop.block);
    EXPECT_EQ(m_step.LastToa(), 0u);
    EXPECT_EQ(m_step.LineStart(), 0u);
    EXPECT_TRUE(m_step.NeedSync());
    EXPECT_EQ(m_ring.Used(), 0u);  // the earlier block went back when its output died
}

TEST_F(ExtendToasStepTest, FailuresAndTheirTexts) {
    EXPECT_EQ(Failure(Bytes({DataPacket(1, 1, 1, 1)})),
              "Timepix3 buffer is too short to contain a single packet");
    EXPECT_EQ(Failure({}), "Timepix3 buffer is too short to contain a single packet");
    EXPECT_EQ(Failure(Bytes({TimerPacket(1), CfgPacket(1, 1)})),
              "Encountered Timepix3 packet with unsupported header CFG");
    EXPECT_EQ(Failure(Bytes({TimerPacket(1), std::uint64_t{2} << 46})),
              "Encountered Timepix3 packet with unsupported header UNKNOWN");
    EXPECT_EQ(m_ring.Used(), 0u);  // no record array stays out after a failure
}

TEST_F(ExtendToasStepTest, FullRingEndsTheStepWithoutWriting) {
    ArenaAllocator tiny(32);
    ExtendToasStep step(tiny);
    const auto bytes = Bytes({TimerPacket(1), DataPacket(1, 1, 2, 0), DataPacket(1, 1, 3, 0)});
    try {
        step.Process(DataEntry{EntryType::Data, {nullptr, {bytes.data(), bytes.size()}}});
        FAIL() << "no failure";
    } catch (const std::runtime_error& error) {
        EXPECT_STREQ(error.what(), "Arena allocator failed to allocate block of size 48");
    }
    EXPECT_EQ(tiny.Used(), 0u);
    EXPECT_TRUE(step.NeedSync());
    EXPECT_EQ(step.LastToa(), 0u);
}

}  // namespace
