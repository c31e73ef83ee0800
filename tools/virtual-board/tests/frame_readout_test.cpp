// The Timepix3 board's shutter and frame readout, asked in-process through the firmware model:
// when exposures open and close on the board's clock and the trigger input, what each frame
// holds on the wire against the board's log, and what the FIFO and the injected faults do.

#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "tpx3_firmware.hpp"

namespace ovex::vboard {
namespace {

using namespace test;
using std::chrono::duration;
using namespace std::chrono_literals;

class FrameReadout : public ::testing::Test, public FrameBoard {};

TEST_F(FrameReadout, ImmediateShutterClosesAfterItsTicksAndItsFrameIsTheLoggedHits) {
    m_engine.SetHitModel({.spot_x = 40, .spot_y = 200, .spot_sigma = 5, .spot_rate = 2e6});
    m_engine.AdvanceTime(1ms);
    PowerChip();
    m_engine.AdvanceTime(2ms);  // the ToA clock runs from the sync, 1 ms in
    ASSERT_EQ(SetState("TPX_SHUT_DUR", static_cast<int>(4 * kTicksPerMs)), 0U);
    ASSERT_EQ(Invoke("TPX_SHUT_IMM"), 0U);
    m_engine.AdvanceTime(3ms);
    EXPECT_TRUE(Transfers().empty());
    EXPECT_EQ(m_engine.FrameCounts().read_out, 0U);
    m_engine.AdvanceTime(5ms);  // the close falls inside this step, at its exact tick

    const auto log = m_engine.FrameLog();
    ASSERT_EQ(log.size(), 1U);
    const ReadoutFrame& frame = log[0];
    EXPECT_EQ(frame.mode, 0);
    EXPECT_EQ(frame.open_tick, 3 * kTicksPerMs);
    EXPECT_EQ(frame.close_tick, 7 * kTicksPerMs);
    EXPECT_EQ(frame.close_toa, 6 * kTicksPerMs);
    EXPECT_GT(frame.hits.size(), 300U);
    for (const FrameHit& hit : frame.hits) {
        // Within the exposure on the ToA clock, in sixteenths, and near the spot.
        ASSERT_GE(hit.toa, 2 * kTicksPerMs * 16);
        ASSERT_LT(hit.toa, 6 * kTicksPerMs * 16);
        ASSERT_GE(hit.tot, 1);
        ASSERT_LT(std::abs(static_cast<int>(hit.pixel % 256) - 40), 40);
        ASSERT_LT(std::abs(static_cast<int>(hit.pixel / 256) - 200), 40);
    }
    const auto transfers = Transfers();
    ASSERT_EQ(transfers.size(), 1U);
    ExpectFrameMatchesLog(transfers[0], frame);
}

TEST_F(FrameReadout, CountModeSumsEveryHitAndAFrameWithoutHitsIsOneCtrlPacket) {
    m_engine.SetHitModel({.spot_sigma = 3, .spot_rate = 4e7, .background_rate = 2.0});
    PowerChip(2);
    Expose(10 * kTicksPerMs);
    // Data-driven mode reads out no frames; a dark exposure gives only the closing packet.
    ASSERT_EQ(Invoke("TPX_OPMODE", {1}), 0U);
    Expose(kTicksPerMs);
    m_engine.SetHitModel({});
    ASSERT_EQ(Invoke("TPX_OPMODE", {0}), 0U);
    Expose(kTicksPerMs);

    const auto log = m_engine.FrameLog();
    ASSERT_EQ(log.size(), 2U);
    const auto transfers = Transfers();
    ASSERT_EQ(transfers.size(), 2U);
    ExpectFrameMatchesLog(transfers[0], log[0]);
    EXPECT_EQ(log[0].mode, 2);
    // 400000 spot hits on some 300 pixels: the centre's counters saturate, and all counts together
    // come near the hits that fell on the chip; the background reaches the rest.
    std::uint64_t counted = 0;
    std::size_t saturated = 0;
    for (const FrameHit& hit : log[0].hits) {
        counted += hit.count;
        saturated += hit.count == 1023 ? 1 : 0;
        if (hit.count == 1) {
            EXPECT_TRUE(hit.itot >= 1 && hit.itot <= 1023) << hit.itot;
        } else if (hit.count == 1023) {
            EXPECT_EQ(hit.itot, 16383);
        }
    }
    EXPECT_GT(saturated, 50U);
    EXPECT_GT(log[0].hits.size(), 1000U);
    EXPECT_LT(counted, 400000U);

    EXPECT_TRUE(log[1].hits.empty());
    EXPECT_EQ(transfers[1].size(), 6U);
    ExpectFrameMatchesLog(transfers[1], log[1]);
}

TEST_F(FrameReadout, ShutterOfZeroTicksWaitsForStopAndRefusesWhatWouldDisturbIt) {
    EXPECT_EQ(Invoke("TPX_SHUT_IMM"), kChipNotReadyWord);
    EXPECT_EQ(Invoke("TPX_T0_SYNC"), kChipNotReadyWord);
    EXPECT_EQ(Invoke("TPX_SHUT_STOP"), 0U);  // nothing open, nothing to refuse
    PowerChip();
    EXPECT_EQ(Invoke("TPX_SHUT_EXT"), kNotConfiguredWord);  // no trigger input wired yet
    EXPECT_EQ(Invoke("TPX_SHUT_IMM", {1}), kBadValue);
    EXPECT_EQ(Invoke("TPX_SHUT_STOP", {1}), kBadValue);
    // Without data channels no frame could leave the chip.
    ASSERT_EQ(SetState("TPX_CHAN_EN", 0), 0U);
    EXPECT_EQ(Invoke("TPX_SHUT_IMM"), kChannelFailureWord);
    ASSERT_EQ(SetState("TPX_CHAN_EN", 255), 0U);

    ASSERT_EQ(Invoke("TPX_SHUT_IMM"), 0U);  // TPX_SHUT_DUR is 0
    m_engine.AdvanceTime(10s);
    EXPECT_EQ(Invoke("TPX_SHUT_IMM"), kChipBusyWord);
    EXPECT_EQ(Invoke("TPX_OPMODE", {2}), kChipBusyWord);
    ASSERT_EQ(Invoke("TRIG_I_EDGE"), 0U);
    EXPECT_EQ(Invoke("TPX_SHUT_EXT"), kChipBusyWord);
    EXPECT_EQ(m_engine.FrameCounts().read_out, 0U);
    ASSERT_EQ(Invoke("TPX_SHUT_STOP"), 0U);
    ASSERT_EQ(Invoke("TPX_SHUT_STOP"), 0U);

    const auto log = m_engine.FrameLog();
    ASSERT_EQ(log.size(), 1U);
    EXPECT_EQ(log[0].close_tick - log[0].open_tick, 10 * 1000 * kTicksPerMs);

    // The chip's rails going off lose an exposure; nothing can open it until they are back.
    ASSERT_EQ(Invoke("TPX_SHUT_IMM"), 0U);
    ASSERT_EQ(SetState("DETECTOR_EN", 0), 0U);
    EXPECT_EQ(Invoke("TPX_SHUT_STOP"), 0U);
    EXPECT_EQ(m_engine.FrameCounts().read_out, 1U);
}

TEST_F(FrameReadout, TriggerInputOpensTheArmedShutterAsItsWiringSays) {
    PowerChip();
    m_engine.AdvanceTime(1ms);
    // Not armed: the input does nothing.
    m_engine.PulseTriggerInput(1ms);
    ASSERT_EQ(Invoke("TRIG_I_1PULSE"), 0U);
    ASSERT_EQ(SetState("TPX_SHUT_DUR", static_cast<int>(3 * kTicksPerMs)), 0U);
    ASSERT_EQ(Invoke("TPX_SHUT_EXT"), 0U);
    m_engine.AdvanceTime(1ms);  // 3 ms
    // Type 3: each rising edge opens for the duration; edges while open don't restart it.
    m_engine.PulseTriggerInput(1ms);  // opens at 3
    m_engine.PulseTriggerInput(1ms);  // ignored at 4
    m_engine.AdvanceTime(2ms);        // closes at 6
    m_engine.PulseTriggerInput(1ms);  // opens at 7, closes at 10
    m_engine.AdvanceTime(5ms);        // 13

    // Type 4: open while the input is high; the duration doesn't matter.
    ASSERT_EQ(Invoke("TRIG_I_LEVEL"), 0U);
    ASSERT_EQ(Invoke("TPX_SHUT_EXT"), 0U);
    m_engine.PulseTriggerInput(10ms);  // 13 to 23
    m_engine.SetTriggerInput(true);    // 23
    ASSERT_EQ(Invoke("TPX_SHUT_STOP"), 0U);
    m_engine.SetTriggerInput(false);

    // Type 5: a rising edge opens, the next closes; falling edges don't count.
    ASSERT_EQ(Invoke("TRIG_I_EDGE"), 0U);
    ASSERT_EQ(Invoke("TPX_SHUT_EXT"), 0U);
    m_engine.PulseTriggerInput(1ms);  // opens at 23
    m_engine.AdvanceTime(1ms);
    m_engine.PulseTriggerInput(1ms);  // closes at 25
    m_engine.AdvanceTime(1ms);
    m_engine.PulseTriggerInput(1ms);         // opens at 27
    ASSERT_EQ(Invoke("TPX_SHUT_STOP"), 0U);  // closes at 28, disarmed
    m_engine.PulseTriggerInput(1ms);

    // Active low: a pulse's falling edge is the active level's rising one.
    ASSERT_EQ(SetState("SYNC_IO_ACT_LOW", 1), 0U);
    ASSERT_EQ(Invoke("TRIG_I_1PULSE"), 0U);
    ASSERT_EQ(Invoke("TPX_SHUT_EXT"), 0U);
    m_engine.PulseTriggerInput(1ms);  // 29 to 30: opens at 30 for 3 ms
    m_engine.AdvanceTime(3ms);

    std::vector<std::pair<std::uint64_t, std::uint64_t>> exposures;
    for (const ReadoutFrame& frame : m_engine.FrameLog()) {
        exposures.emplace_back(frame.open_tick / kTicksPerMs, frame.close_tick / kTicksPerMs);
    }
    const std::vector<std::pair<std::uint64_t, std::uint64_t>> expected = {
        {3, 6}, {7, 10}, {13, 23}, {23, 23}, {23, 25}, {27, 28}, {30, 33}};
    EXPECT_EQ(exposures, expected);
}

TEST_F(FrameReadout, FloodHitsEveryUnmaskedPixelOnceInEitherMode) {
    m_engine.SetHitModel({.flood = true, .seed = 7});
    PowerChip();
    // The pixels hold what their stuck bits say: pixel 300 is masked though the host didn't,
    // and pixel 40000 can't be masked.
    const std::vector<std::uint32_t> masked = {0, 1, 256, 300, 65535};
    Mask({0, 1, 256, 40000, 65535});
    m_engine.StickPixel(300, 1);
    m_engine.StickPixel(40000, 0);
    Expose(kTicksPerMs);
    ASSERT_EQ(Invoke("TPX_OPMODE", {2}), 0U);
    Expose(kTicksPerMs);

    const auto log = m_engine.FrameLog();
    ASSERT_EQ(log.size(), 2U);
    const auto transfers = Transfers();
    ASSERT_EQ(transfers.size(), 2U);
    for (std::size_t f = 0; f < 2; ++f) {
        ASSERT_EQ(log[f].hits.size(), 65536 - masked.size());
        std::vector<std::uint32_t> missing;
        std::uint32_t next = 0;
        for (const FrameHit& hit : log[f].hits) {
            for (; next < hit.pixel; ++next) {
                missing.push_back(next);
            }
            next = hit.pixel + 1;
        }
        for (; next < 65536; ++next) {
            missing.push_back(next);
        }
        EXPECT_EQ(missing, masked);
        ExpectFrameMatchesLog(transfers[f], log[f]);
        EXPECT_LT(transfers[f].size(), kTransfer);
    }
    EXPECT_TRUE(std::all_of(log[1].hits.begin(), log[1].hits.end(),
                            [](const FrameHit& hit) { return hit.count == 1 && hit.itot >= 1; }));
}

TEST_F(FrameReadout, SameSeedGivesTheSameFramesAndAnotherSeedOthers) {
    const auto frame = [](std::uint64_t seed) {
        FrameBoard board;
        board.m_engine.SetHitModel({.spot_rate = 1e6, .background_rate = 50, .seed = seed});
        board.PowerChip();
        board.Expose(kTicksPerMs);
        const auto transfers = board.Transfers();
        EXPECT_EQ(transfers.size(), 1U);
        return transfers.empty() ? Bytes{} : transfers[0];
    };
    const Bytes first = frame(99);
    EXPECT_GT(first.size(), 600U);
    EXPECT_EQ(frame(99), first);
    EXPECT_NE(frame(100), first);
}

TEST_F(FrameReadout, FullFifoLosesAndCountsFramesAndFaultsDamageOnlyTheNextFrame) {
    PowerChip();
    m_engine.InjectFrameFault(FrameFault::kTruncated);
    Expose(kTicksPerMs);
    m_engine.InjectFrameFault(FrameFault::kCorrupted);
    for (int i = 0; i < 9; ++i) {
        Expose(kTicksPerMs);
    }
    const FrameCounters counters = m_engine.FrameCounts();
    EXPECT_EQ(counters.read_out, 10U);
    EXPECT_EQ(counters.overflowed, 2U);
    const auto log = m_engine.FrameLog();
    ASSERT_EQ(log.size(), 10U);
    for (std::size_t i = 0; i < log.size(); ++i) {
        EXPECT_EQ(log[i].index, i);
        EXPECT_EQ(log[i].lost, i >= kFrameFifoDepth) << i;
        EXPECT_EQ(log[i].fault, i == 0 ? FrameFault::kTruncated
                                       : (i == 1 ? FrameFault::kCorrupted : FrameFault::kNone))
            << i;
    }

    const auto transfers = Transfers();
    ASSERT_EQ(transfers.size(), kFrameFifoDepth);
    EXPECT_EQ(transfers[0].size(), 3U);  // the CTRL packet cut in half
    ASSERT_EQ(transfers[1].size(), 12U);
    EXPECT_EQ(Decode(transfers[1])[0].type, 1U);
    ExpectFrameMatchesLog(transfers[2], log[2]);
    for (std::size_t i = 2; i < transfers.size(); ++i) {
        EXPECT_EQ(Decode(transfers[i]).at(0).raw, 3ULL << 46 | (log[i].close_toa & 0xFFFFFFFF));
    }
    // Room again: the next frame is queued.
    Expose(kTicksPerMs);
    EXPECT_EQ(Transfers().size(), 1U);
    EXPECT_EQ(m_engine.FrameCounts().overflowed, 2U);
}

TEST_F(FrameReadout, FrameStartsItsOwnTransferAndOneEndingAtItsEndIsFollowedByAnEmptyOne) {
    PowerChip();
    Expose(kTicksPerMs);
    Bytes room(64);
    // A transfer holding other data ends empty-handed first; the frame waits.
    const auto ended = m_engine.ReadFrame(room, true);
    ASSERT_TRUE(ended);
    EXPECT_EQ(ended->bytes, 0U);
    EXPECT_TRUE(ended->end_of_transfer);
    // Six bytes in transfers of six: the full transfer, then an empty one.
    const auto exact = Transfers(6);
    ASSERT_EQ(exact.size(), 2U);
    EXPECT_EQ(exact[0].size(), 6U);
    EXPECT_TRUE(exact[1].empty());
    // In transfers of four: one full, the rest short.
    Expose(kTicksPerMs);
    const auto split = Transfers(4);
    ASSERT_EQ(split.size(), 2U);
    EXPECT_EQ(split[0].size(), 4U);
    EXPECT_EQ(split[1].size(), 2U);
    EXPECT_FALSE(m_engine.ReadFrame(room, false));
}

}  // namespace
}  // namespace ovex::vboard
