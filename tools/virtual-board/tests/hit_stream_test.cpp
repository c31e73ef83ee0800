// The Timepix3 board's data-driven stream, asked in-process through the firmware model: each
// shutter opening is a line that starts with its timer packet and ends short, the hits on the
// wire are the board's truth in the order it sent them, trigger edges become TDC packets, and a
// replayed recording loops with its times moved on by whole pages.

#include <gtest/gtest.h>

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <numeric>
#include <string>

#include "hit_stream.hpp"
#include "ovex/vboard/data_driven.hpp"
#include "tpx3_firmware.hpp"
#include "tpx3_stream/generator.hpp"

namespace ovex::vboard {
namespace {

using namespace test;
using std::chrono::duration;

constexpr std::uint64_t kTimerType = 3;

class HitStream : public ::testing::Test, public FrameBoard {
protected:
    // The transfers of `size` bytes the data endpoint completes from the stream.
    std::vector<Bytes> Transfers(std::size_t size) {
        return FrameBoard::Transfers(size, &FirmwareEngine::ReadHits);
    }

    static std::vector<Packet> Joined(const std::vector<Bytes>& transfers) {
        std::vector<Packet> packets;
        for (const Bytes& transfer : transfers) {
            const auto some = Decode(transfer);
            packets.insert(packets.end(), some.begin(), some.end());
        }
        return packets;
    }

    static std::uint64_t Timer(std::uint64_t tick) {
        return kTimerType << 46 | (tick & 0xFFFFFFFF);
    }
};

TEST_F(HitStream, LineStartsWithItsTimerCarriesTheTruthInOrderAndEndsShort) {
    PowerChip(1);
    m_engine.AdvanceTime(duration<double>(0.001));
    m_engine.SetHitModel({.spot_x = 60,
                          .spot_y = 90,
                          .spot_sigma = 5,
                          .spot_rate = 4e6,
                          .background_rate = 2,
                          .seed = 7});
    Expose(2 * kTicksPerMs);
    EXPECT_FALSE(Transfers(6 * 1000).empty());
    m_engine.AdvanceTime(duration<double>(0.01));  // the line is over: nothing more comes

    m_engine.SetHitModel({.spot_rate = 4e6, .seed = 7});
    Expose(2 * kTicksPerMs);
    const std::vector<Bytes> transfers = Transfers(6 * 1000);
    const StreamTruth truth = m_engine.TakeStreamTruth();
    ASSERT_EQ(truth.line_starts.size(), 2U);
    const std::uint64_t open = truth.line_starts[1];
    EXPECT_EQ(open, 13 * kTicksPerMs * 16) << "on the ToA clock synced at power-up";

    ASSERT_GT(transfers.size(), 2U);
    EXPECT_EQ(Decode(transfers.front()).front().raw, Timer(open / 16));
    for (std::size_t i = 0; i + 1 < transfers.size(); ++i) {
        ASSERT_EQ(transfers[i].size(), 6000U) << "only the line's end is short";
    }
    EXPECT_LT(transfers.back().size(), 6000U);

    // The second line's hits, as they went, are the truth's second part.
    std::vector<Packet> hits;
    for (const Packet& packet : Joined(transfers)) {
        ASSERT_TRUE(packet.type == 0 || packet.type == kTimerType) << packet.raw;
        if (packet.type == 0) {
            hits.push_back(packet);
        }
    }
    const DataDrivenCounters counts = m_engine.StreamCounts();
    ASSERT_EQ(counts.hits_sent, truth.records.size());
    ASSERT_GE(truth.records.size(), hits.size());
    const std::size_t first = truth.records.size() - hits.size();
    std::uint64_t newest = 0;
    std::size_t steps_back = 0;
    std::uint64_t digest = 0;
    for (std::size_t i = 0; i < truth.records.size(); ++i) {
        const tpx3_stream::ExpectedRecord& record = truth.records[i];
        digest += HitDigest(record.address, record.tot, record.time);
        if (i < first) {
            continue;
        }
        const Packet& hit = hits[i - first];
        ASSERT_EQ(hit.raw >> 30 & 0xFFFF, record.address) << i;
        ASSERT_EQ(hit.high, record.tot) << i;
        ASSERT_EQ(hit.low, record.time & 0xFFFFF) << i;
        ASSERT_GE(record.time, open);
        ASSERT_LT(record.time, open + 2 * kTicksPerMs * 16);
        steps_back += record.time < newest;
        ASSERT_LE(newest, record.time + 2000 * 16) << "a hit later than the chip keeps it";
        newest = std::max(newest, record.time);
    }
    EXPECT_EQ(counts.digest, digest);
    EXPECT_EQ(counts.hits_lost, 0U);
    EXPECT_GT(steps_back, hits.size() / 20) << "the columns release hits out of order";
    EXPECT_NEAR(static_cast<double>(hits.size()), 8000.0, 400.0) << "4 MHz for 2 ms";
}

TEST_F(HitStream, LineEndsShortWhateverItsLastTransferHolds) {
    PowerChip(1);
    m_engine.SetHitModel({.spot_rate = 1e6, .seed = 3});
    Expose(kTicksPerMs);
    const std::uint64_t bytes = m_engine.StreamCounts().fifo_bytes;
    ASSERT_GT(bytes, 600U);
    const std::vector<Bytes> transfers = Transfers(bytes);
    ASSERT_EQ(transfers.size(), 2U);
    EXPECT_EQ(transfers[0].size(), bytes);
    ASSERT_EQ(transfers[1].size(), 6U);
    EXPECT_EQ(Decode(transfers[1])[0].raw, kIdlePacket);

    // A line whose packets have all left by its end ends the transfer under way, adding nothing.
    m_engine.SetHitModel({});
    ASSERT_EQ(SetState("TPX_SHUT_DUR", 0), 0U);
    ASSERT_EQ(Invoke("TPX_SHUT_IMM"), 0U);
    m_engine.AdvanceTime(std::chrono::milliseconds(1));
    Bytes transfer(0x100000);
    const auto sent = m_engine.ReadHits(transfer, false);
    ASSERT_TRUE(sent.has_value());
    EXPECT_EQ(sent->bytes, 6U) << "the line's timer";
    EXPECT_FALSE(sent->end_of_transfer);
    EXPECT_FALSE(m_engine.ReadHits(std::span(transfer).subspan(sent->bytes), true).has_value());
    ASSERT_EQ(Invoke("TPX_SHUT_STOP"), 0U);
    const auto end = m_engine.ReadHits(std::span(transfer).subspan(sent->bytes), true);
    ASSERT_TRUE(end.has_value());
    EXPECT_EQ(end->bytes, 0U);
    EXPECT_TRUE(end->end_of_transfer);
}

TEST_F(HitStream, TriggerEdgesBecomeTdcPacketsAndMaskedPixelsAndAPowerLossEndTheLine) {
    PowerChip(1);
    // The spot falls on masked pixels only.
    std::vector<std::uint32_t> masked;
    for (std::uint32_t y = 100; y < 120; ++y) {
        for (std::uint32_t x = 100; x < 120; ++x) {
            masked.push_back(y * 256 + x);
        }
    }
    Mask(masked);
    m_engine.SetHitModel(
        {.spot_x = 110, .spot_y = 110, .spot_sigma = 1, .spot_rate = 1e6, .background_rate = 0.1});
    ASSERT_EQ(SetState("TPX_SHUT_DUR", 0), 0U);
    ASSERT_EQ(Invoke("TPX_SHUT_IMM"), 0U);
    for (int pulse = 0; pulse < 3; ++pulse) {
        m_engine.AdvanceTime(duration<double>(0.002));
        m_engine.PulseTriggerInput(duration<double>(0.0001));
    }
    // The rails go: the line ends with what left the chip.
    ASSERT_EQ(SetState("FRONTEND_EN", 0), 0U);
    m_engine.AdvanceTime(duration<double>(0.01));
    const std::vector<Packet> packets = Joined(Transfers(0x10000));
    const StreamTruth truth = m_engine.TakeStreamTruth();

    ASSERT_EQ(truth.tdc[0].size(), 3U);
    std::vector<std::uint64_t> tdc;
    for (const Packet& packet : packets) {
        if (packet.type == kTimerType && (packet.raw >> 36 & 7) != 0) {
            EXPECT_EQ(packet.raw >> 36 & 7, 1U) << "channel 0";
            tdc.push_back((packet.raw & 0xFFFFFFFF) * 16);
        }
    }
    EXPECT_EQ(tdc, truth.tdc[0]);
    EXPECT_EQ(truth.tdc[0][1] - truth.tdc[0][0], (2 * kTicksPerMs + kTicksPerMs / 10) * 16);
    // The background alone: 0.1 hits/s on each pixel for 6.3 ms, about 41 hits.
    EXPECT_GT(truth.records.size(), 15U);
    EXPECT_LT(truth.records.size(), 80U);
    for (const auto& record : truth.records) {
        const std::uint32_t swapped = (record.address & 0xFF) << 8 | record.address >> 8;
        const std::uint32_t pixel = 65535 - swapped;
        EXPECT_FALSE(pixel / 256 >= 100 && pixel / 256 < 120 && pixel % 256 >= 100 &&
                     pixel % 256 < 120)
            << pixel;
    }
}

TEST_F(HitStream, DurationWrittenAfterAPulseOpenedTheLineStillEndsIt) {
    // The host arms the input, then writes the duration: a pulse may come between.
    PowerChip(1);
    ASSERT_EQ(Invoke("TRIG_I_1PULSE"), 0U);
    ASSERT_EQ(Invoke("TPX_SHUT_EXT"), 0U);
    m_engine.PulseTriggerInput(duration<double>(1e-6));
    ASSERT_EQ(SetState("TPX_SHUT_DUR", static_cast<int>(kTicksPerMs)), 0U);
    m_engine.AdvanceTime(duration<double>(0.002));
    const std::vector<Bytes> transfers = Transfers(0x1000);
    ASSERT_EQ(transfers.size(), 1U) << "one line of a timer and its TDC, ended";
    EXPECT_EQ(Decode(transfers[0]).size(), 2U);
}

TEST(HitStreamOnTheRealClock, StepDrawsABoundedNumberOfHitsAndCountsTheRestLost) {
    // A beam of 2·10^8 hits/s for 50 ms in one step: far more than one step may draw.
    Tpx3HitStream stream;
    stream.FollowRealTime(true);
    stream.Open(0, {.spot_rate = 2e8, .seed = 5}, std::vector<std::uint8_t>(65536, 0));
    stream.Close(50 * kTicksPerMs);
    const DataDrivenCounters counts = stream.Counters();
    EXPECT_LE(counts.hits_sent, std::uint64_t{1} << 18);
    EXPECT_GT(counts.hits_lost, 9'000'000U);
    EXPECT_NEAR(static_cast<double>(counts.hits_sent + counts.hits_lost), 1e7, 1e5);
}

TEST_F(HitStream, ReplayLoopsTheRecordingWithItsTimesMovedOnByWholePages) {
    tpx3_stream::StreamSettings settings;
    settings.lines = 2;
    settings.line_ticks = 20'000;
    settings.flyback_ticks = 5'000;
    settings.hits_per_tick = 0.05;
    const tpx3_stream::GeneratedStream recording = tpx3_stream::Generate(settings);
    const std::uint64_t packets = recording.bytes.size() / 6;
    const auto path = std::filesystem::temp_directory_path() / "ovex_hit_stream_replay.bin";
    std::ofstream(path, std::ios::binary)
        .write(reinterpret_cast<const char*>(recording.bytes.data()),
               static_cast<std::streamsize>(recording.bytes.size()));
    auto loaded = LoadReplayFile(path, 1e6);
    std::filesystem::remove(path);
    ASSERT_TRUE(std::holds_alternative<ReplayStream>(loaded)) << std::get<std::string>(loaded);
    m_engine.SetReplay(std::get<ReplayStream>(std::move(loaded)));

    PowerChip(1);
    m_engine.AdvanceTime(duration<double>(0.001));
    // 2.5 passes at a million packets a second.
    const double seconds = 2.5 * static_cast<double>(packets) / 1e6;
    Expose(static_cast<std::uint64_t>(seconds * kTicksPerSecond));
    const std::vector<Packet> sent = Joined(Transfers(0x40000));
    const auto due = static_cast<std::size_t>(seconds * 1e6);
    ASSERT_NEAR(static_cast<double>(sent.size()), static_cast<double>(1 + due), 1.0);
    EXPECT_EQ(sent[0].raw, Timer(kTicksPerMs)) << "the line's own timer";

    const std::vector<Packet> original = Decode(recording.bytes);
    std::uint64_t data = 0;
    std::uint64_t last_offset = 0;
    for (std::size_t i = 1; i < sent.size(); ++i) {
        const Packet& copy = sent[i];
        const Packet& source = original[(i - 1) % packets];
        if (source.type != kTimerType) {
            ASSERT_EQ(copy.raw, source.raw) << i;
            data += source.type == 0;
            continue;
        }
        const std::uint64_t offset = ((copy.raw - source.raw) & 0xFFFFFFFF);
        ASSERT_EQ(copy.raw & ~std::uint64_t{0xFFFFFFFF}, source.raw & ~std::uint64_t{0xFFFFFFFF});
        ASSERT_EQ(offset % 0x10000, 0U) << "whole pages: the hits' packets stay valid";
        ASSERT_GE(offset, last_offset) << i;
        last_offset = offset;
    }
    EXPECT_GT(last_offset, 0U);
    // Each pass starts beyond the latest hit of the one before, as a host extends their times.
    std::uint64_t now = 0;
    std::uint64_t latest = 0;
    for (std::size_t i = 1; i < sent.size(); ++i) {
        const Packet& packet = sent[i];
        if (packet.type == kTimerType) {
            now = (packet.raw & 0xFFFFFFFF) * 16;
            if ((i - 1) % packets == 0) {
                ASSERT_GT(now, latest) << "pass " << (i - 1) / packets;
            }
        } else if (packet.type == 0) {
            std::uint64_t time = (now & ~std::uint64_t{0xFFFFF}) | packet.low;
            time += time + 0x80000 < now ? 0x100000 : 0;
            now = std::max(now, time);
            latest = std::max(latest, time);
        }
    }
    EXPECT_EQ(m_engine.StreamCounts().hits_sent, data);
    EXPECT_TRUE(m_engine.TakeStreamTruth().records.empty()) << "a replay has no truth";

    // What cannot be replayed.
    const auto bad = std::filesystem::temp_directory_path() / "ovex_hit_stream_bad.bin";
    EXPECT_EQ(std::get<std::string>(LoadReplayFile(bad, 0)),
              "cannot open replay file " + bad.string());
    std::ofstream(bad, std::ios::binary).write("1234567", 7);
    EXPECT_EQ(
        std::get<std::string>(LoadReplayFile(bad, 0)),
        "replay file " + bad.string() + " holds 7 bytes, not a whole number of 6-byte packets");
    std::ofstream(bad, std::ios::binary | std::ios::trunc);
    EXPECT_EQ(std::get<std::string>(LoadReplayFile(bad, 0)),
              "replay file " + bad.string() + " is empty");
    std::filesystem::remove(bad);
}

}  // namespace
}  // namespace ovex::vboard
