// The Timepix2 chip's shutters and frames on a NoBE's firmware, in-process: each depth's packing
// against the frame the board kept, decoded here as the host's descramblers read it; what the
// pixels count in each mode; continuous runs, the FIFO's overflow, the trigger input, and the
// damage a test can do to a frame on the wire.

#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <vector>

#include "ovex/vboard/tpx2_frames.hpp"
#include "tpx3_firmware.hpp"

namespace ovex::vboard::test {
namespace {

constexpr std::uint32_t kNotStarted = 0x42;
constexpr std::uint32_t kNotConfigured = 0x44;
constexpr std::uint8_t kEventCount = 6;
constexpr std::uint8_t kEventCount14 = 7;
constexpr std::uint8_t kIToT14 = 11;
constexpr std::uint64_t kGapTicks = 40000;  // the readout between the shutters of a run

// `count` values of `bits` bits from a little-endian bit stream.
std::vector<std::uint16_t> Unpack(const Bytes& bytes, unsigned bits, std::size_t count) {
    std::vector<std::uint16_t> values(count);
    for (std::size_t p = 0; p < count; ++p) {
        for (unsigned b = 0; b < bits; ++b) {
            const std::size_t bit = p * bits + b;
            values[p] =
                static_cast<std::uint16_t>(values[p] | (bytes[bit / 8] >> (bit % 8) & 1) << b);
        }
    }
    return values;
}

// A frame's transfers in host pixel order, as the host's descrambler of that depth puts them.
std::vector<std::uint16_t> Descramble(const std::vector<Bytes>& transfers, std::uint8_t depth) {
    if (depth == 1) {
        EXPECT_EQ(transfers.size(), 1U);
        return {transfers[0].begin(), transfers[0].end()};
    }
    if (depth == 2) {
        EXPECT_EQ(transfers.size(), 1U);
        return Unpack(transfers[0], 10, kTpx2Pixels);
    }
    EXPECT_EQ(transfers.size(), 2U);
    const auto low = Unpack(transfers[0], 10, kTpx2Pixels);
    const auto high = Unpack(transfers[1], 4, kTpx2Pixels);
    std::vector<std::uint16_t> pixels(kTpx2Pixels);
    for (std::size_t p = 0; p < kTpx2Pixels; ++p) {
        pixels[kTpx2Pixels - 1 - p] = static_cast<std::uint16_t>(low[p] | high[p] << 10);
    }
    return pixels;
}

class Tpx2Board : public FrameBoard {
public:
    Tpx2Board() : FrameBoard(BoardKind::kNobe) {}

    void Power() {
        for (const char* rail : {"DC_1V0", "DC_1V8", "DC_2V5", "DC_3V3"}) {
            ASSERT_EQ(SetState(rail, 1), 0U);
        }
        ASSERT_EQ(Invoke("FPGA_CONF"), 0U);
        ASSERT_EQ(SetState("GPIF_EN", 1), 0U);
        ASSERT_EQ(SetState("MAIN_CLK", 1), 0U);
        ASSERT_EQ(SetState("DETECTOR_EN", 1), 0U);
        ASSERT_EQ(SetState("TPX_1V2", 1), 0U);
    }
    void Configure(std::uint8_t mode, std::uint8_t depth) {
        ASSERT_EQ(Invoke("TPX_OPMODE", {mode}), 0U);
        ASSERT_EQ(Invoke("PIPELINE_BPP", {depth}), 0U);
    }
    // The host's matrix write, the data as the configuration endpoint takes them.
    void WriteMatrix(const Bytes& matrix) {
        ASSERT_EQ(Outcome(m_model.Control({0x40, 0xB3, 0, 0, 0}, {})), 0U);
        ASSERT_EQ(Outcome(m_model.Control({0x40, 0x1A, 0, 0, 0}, {})), 0U);
        ASSERT_EQ(Invoke("TPX_PRC_BYPASS", {1}), 0U);
        m_engine.TakeConfiguration(matrix);
        ASSERT_EQ(Invoke("TPX_WRITE_MATRIX", {3}), 0U);
        ASSERT_EQ(Invoke("TPX_PRC_BYPASS", {0}), 0U);
    }
    void Advance(std::uint64_t ticks) {
        m_engine.AdvanceTime(
            std::chrono::duration<double>(static_cast<double>(ticks) / kTicksPerSecond));
    }
    // One single shutter of `ticks`; the frame it read out.
    Tpx2Frame Single(std::uint64_t ticks) {
        EXPECT_EQ(SetState("TPX_SHUT_DUR", static_cast<int>(ticks)), 0U);
        EXPECT_EQ(Invoke("TPX_TRIG_SINGLE"), 0U);
        Advance(ticks);
        const auto log = m_engine.Tpx2FrameLog();
        return log.empty() ? Tpx2Frame{} : log.back();
    }
};

TEST(Tpx2Frames, EachDepthPacksTheFrameAsTheHostUnpacksItSaturatedAtItsMaximum) {
    for (const std::uint8_t depth : {1, 2, 3}) {
        SCOPED_TRACE(static_cast<int>(depth));
        Tpx2Board board;
        board.Power();
        board.Configure(kEventCount14, depth);
        // A spot that saturates its centre at every depth over a background that leaves every
        // pixel, the last one included, with a count of its own.
        board.m_engine.SetHitModel(
            {.spot_sigma = 20.0, .spot_rate = 1e11, .background_rate = 2e5, .seed = 7});
        const Tpx2Frame frame = board.Single(40000);
        ASSERT_EQ(frame.pixels.size(), kTpx2Pixels);
        EXPECT_EQ(frame.depth, static_cast<Tpx2Depth>(depth));
        EXPECT_EQ(frame.opmode, kEventCount14);
        const std::uint16_t max = Tpx2MaxValue(static_cast<Tpx2Depth>(depth));
        EXPECT_EQ(*std::max_element(frame.pixels.begin(), frame.pixels.end()), max);
        EXPECT_GT(frame.pixels[65535], 0U);
        EXPECT_LT(frame.pixels[65535], max);

        const std::vector<Bytes> transfers = board.Transfers(Tpx2FrameBytes(frame.depth));
        std::size_t bytes = 0;
        for (const Bytes& transfer : transfers) {
            bytes += transfer.size();
        }
        EXPECT_EQ(bytes, Tpx2FrameBytes(frame.depth));
        EXPECT_EQ(Descramble(transfers, depth), frame.pixels);
    }
}

TEST(Tpx2Frames, TheModesCounterWidthSaturatesFirstThenThePipelinesDepth) {
    struct Case {
        std::uint8_t mode, depth;
        std::uint16_t max;
    };
    for (const Case c : {Case{kEventCount, 3, 1023}, Case{10, 3, 1023}, Case{kIToT14, 3, 16383},
                         Case{kEventCount14, 1, 255}}) {
        SCOPED_TRACE(static_cast<int>(c.mode));
        Tpx2Board board;
        board.Power();
        board.Configure(c.mode, c.depth);
        board.m_engine.SetHitModel({.spot_sigma = 20.0, .spot_rate = 1e11, .seed = 7});
        const Tpx2Frame frame = board.Single(40000);
        ASSERT_EQ(frame.pixels.size(), kTpx2Pixels);
        EXPECT_EQ(*std::max_element(frame.pixels.begin(), frame.pixels.end()), c.max);
    }
}

TEST(Tpx2Frames, FramesNeedTheBackEndsDataPathAndAnFpgaReloadDropsQueuedFramesAndTheDepth) {
    Tpx2Board board;
    for (const char* rail : {"DC_1V0", "DC_1V8", "DC_2V5", "DC_3V3", "DETECTOR_EN", "TPX_1V2"}) {
        ASSERT_EQ(board.SetState(rail, 1), 0U);
    }
    ASSERT_EQ(board.SetState("TPX_SHUT_DUR", 4000), 0U);
    EXPECT_EQ(board.Invoke("TPX_TRIG_SINGLE"), kNotConfigured);  // FPGA unconfigured
    EXPECT_EQ(board.Invoke("PIPELINE_BPP", {2}), kNotConfigured);
    EXPECT_EQ(board.Outcome(board.m_model.Control({0x40, 0x1A, 0, 0, 0}, {})), kNotConfigured);
    ASSERT_EQ(board.Invoke("FPGA_CONF"), 0U);
    ASSERT_EQ(board.SetState("GPIF_EN", 1), 0U);
    EXPECT_EQ(board.Invoke("PIPELINE_BPP", {2}), kNotStarted);  // clock off
    ASSERT_EQ(board.SetState("MAIN_CLK", 1), 0U);
    ASSERT_EQ(board.Invoke("PIPELINE_BPP", {2}), 0U);

    // With the PRC bypassed no frame could leave: the shutter is refused.
    ASSERT_EQ(board.Invoke("TPX_PRC_BYPASS", {1}), 0U);
    EXPECT_EQ(board.Invoke("TPX_TRIG_SINGLE"), kChannelFailureWord);
    EXPECT_EQ(board.Invoke("TPX_SHUT_EXT", {1}), kChannelFailureWord);
    ASSERT_EQ(board.Invoke("TPX_PRC_BYPASS", {0}), 0U);

    // The configuration's depth isn't one frames leave at: they keep theirs.
    ASSERT_EQ(board.Invoke("PIPELINE_BPP", {0}), 0U);
    // A frame waits in the FPGA while its GPIF is off.
    EXPECT_EQ(board.Single(4000).depth, Tpx2Depth::k10Bit);
    ASSERT_EQ(board.SetState("GPIF_EN", 0), 0U);
    EXPECT_TRUE(board.Transfers(81920).empty());
    ASSERT_EQ(board.SetState("GPIF_EN", 1), 0U);
    EXPECT_EQ(board.Transfers(81920).size(), 1U);

    // Frames queued before a reload never leave after it, and the depth is the power-on one.
    board.Single(4000);
    board.Single(4000);
    ASSERT_EQ(board.Invoke("FPGA_RECONF", {1, 0, 0, 0}), 0U);
    EXPECT_EQ(board.m_engine.StateValue("GPIF_EN"), 0);
    ASSERT_EQ(board.SetState("GPIF_EN", 1), 0U);
    ASSERT_EQ(board.SetState("MAIN_CLK", 1), 0U);
    EXPECT_TRUE(board.Transfers(81920).empty());
    EXPECT_EQ(board.Single(4000).depth, Tpx2Depth::k8Bit);
    EXPECT_EQ(board.Transfers(81920).size(), 1U);
}

TEST(Tpx2Frames, EventCountCountsHitsAndIToTSumsTheirToTMaskedPixelsStaySilent) {
    Tpx2Board board;
    board.Power();
    Bytes matrix(kTpx2Pixels, 0x40);
    for (const std::uint32_t masked : {0U, 300U, 65535U}) {
        matrix[masked] = 0x42;
    }
    board.WriteMatrix(matrix);
    EXPECT_EQ(board.m_engine.Tpx2Matrix(), matrix);
    board.m_engine.SetHitModel({.flood = true});

    board.Configure(kEventCount, 2);
    const Tpx2Frame counted = board.Single(4000);
    board.Configure(kIToT14, 3);
    const Tpx2Frame summed = board.Single(4000);
    for (std::size_t k = 0; k < kTpx2Pixels; ++k) {
        const bool masked = matrix[k] == 0x42;
        ASSERT_EQ(counted.pixels[k], masked ? 0 : 1) << k;
        // One hit's ToT from the source's spectrum.
        ASSERT_TRUE(masked ? summed.pixels[k] == 0
                           : summed.pixels[k] >= 1 && summed.pixels[k] <= 1023)
            << k;
    }
    EXPECT_EQ(summed.opmode, kIToT14);
    EXPECT_GT(std::count_if(summed.pixels.begin(), summed.pixels.end(),
                            [](std::uint16_t v) { return v > 1; }),
              60000);
}

TEST(Tpx2Frames, ContinuousRunReadsOutInOrderLosesWhatTheFullFifoCantTakeAndAbortDropsTheCut) {
    Tpx2Board board;
    board.Power();
    constexpr std::uint64_t kShutter = 8000;
    ASSERT_EQ(board.SetState("TPX_SHUT_DUR", kShutter), 0U);
    ASSERT_EQ(board.Invoke("TPX_TRIG_CONT"), 0U);
    EXPECT_EQ(board.Invoke("TPX_TRIG_SINGLE"), kChipBusyWord);
    EXPECT_EQ(board.Invoke("TPX_OPMODE", {7}), kChipBusyWord);
    board.Advance(9 * (kShutter + kGapTicks) + kShutter);  // ten shutters closed

    const std::vector<Tpx2Frame> log = board.m_engine.Tpx2FrameLog();
    ASSERT_EQ(log.size(), 10U);
    for (std::size_t i = 0; i < log.size(); ++i) {
        EXPECT_EQ(log[i].index, i);
        EXPECT_EQ(log[i].open_tick, i * (kShutter + kGapTicks));
        EXPECT_EQ(log[i].close_tick - log[i].open_tick, kShutter);
        EXPECT_EQ(log[i].lost, i >= kFrameFifoDepth);
    }
    EXPECT_EQ(board.m_engine.Tpx2FrameCounts().read_out, 10U);
    EXPECT_EQ(board.m_engine.Tpx2FrameCounts().overflowed, 2U);
    EXPECT_EQ(board.Transfers(65536).size(), kFrameFifoDepth);

    // Aborted half-way through its next shutter, the run reads out nothing more.
    board.Advance(kGapTicks + kShutter / 2);
    ASSERT_EQ(board.Invoke("TPX_TRIG_ABORT"), 0U);
    board.Advance(10 * kShutter + 10 * kGapTicks);
    EXPECT_EQ(board.m_engine.Tpx2FrameCounts().read_out, 10U);
    EXPECT_TRUE(board.Transfers(65536).empty());
}

TEST(Tpx2Frames, EdgeTriggerOpensAndClosesTheShutterWhileArmed) {
    Tpx2Board board;
    board.Power();
    ASSERT_EQ(board.SetState("TPX_SHUT_DUR", 0), 0U);
    EXPECT_EQ(board.Invoke("TPX_TRIG_SINGLE"), kNotConfigured);  // no duration
    EXPECT_EQ(board.Invoke("TPX_SHUT_EXT", {2}), kBadValue);
    ASSERT_EQ(board.Invoke("TPX_SHUT_EXT", {1}), 0U);
    EXPECT_EQ(board.Invoke("TPX_TRIG_CONT"), kChipBusyWord);

    board.m_engine.PulseTriggerInput(std::chrono::microseconds(10));  // opens
    board.Advance(40000);
    board.m_engine.PulseTriggerInput(std::chrono::microseconds(10));  // closes
    board.m_engine.PulseTriggerInput(std::chrono::microseconds(10));  // opens the next
    board.Advance(400);
    board.m_engine.SetTriggerInput(true);  // closes it
    board.m_engine.SetTriggerInput(false);
    const auto log = board.m_engine.Tpx2FrameLog();
    ASSERT_EQ(log.size(), 2U);
    EXPECT_EQ(log[0].close_tick - log[0].open_tick, 400U + 40000U);
    EXPECT_EQ(log[1].close_tick - log[1].open_tick, 400U + 400U);

    ASSERT_EQ(board.Invoke("TPX_SHUT_EXT", {0}), 0U);
    board.m_engine.PulseTriggerInput(std::chrono::microseconds(10));
    board.m_engine.PulseTriggerInput(std::chrono::microseconds(10));
    EXPECT_EQ(board.m_engine.Tpx2FrameCounts().read_out, 2U);
}

TEST(Tpx2Frames, DamagedFramesLeaveCutPaddedOrSplitAndTheSplitOneReassembles) {
    Tpx2Board board;
    board.Power();
    board.m_engine.SetHitModel({.background_rate = 1e5, .seed = 3});
    using Kind = Tpx2FrameFault::Kind;
    board.m_engine.InjectTpx2FrameFault({Kind::kCut, 100});
    const Tpx2Frame cut = board.Single(4000);
    board.m_engine.InjectTpx2FrameFault({Kind::kPadded, 7});
    board.Single(4000);
    board.m_engine.InjectTpx2FrameFault({Kind::kSplit, 1000});
    const Tpx2Frame split = board.Single(4000);
    const Tpx2Frame clean = board.Single(4000);
    EXPECT_EQ(cut.fault, (Tpx2FrameFault{Kind::kCut, 100}));
    EXPECT_EQ(clean.fault, Tpx2FrameFault{});

    const std::vector<Bytes> transfers = board.Transfers(65536);
    ASSERT_EQ(transfers.size(), 6U);
    EXPECT_EQ(transfers[0], Bytes(cut.pixels.begin(), cut.pixels.end() - 100));
    EXPECT_EQ(transfers[1].size(), 65536U);
    EXPECT_EQ(transfers[2], Bytes(7, 0xA5));
    ASSERT_EQ(transfers[3].size(), 1000U);
    Bytes joined = transfers[3];
    joined.insert(joined.end(), transfers[4].begin(), transfers[4].end());
    EXPECT_EQ(joined, Bytes(split.pixels.begin(), split.pixels.end()));
    EXPECT_EQ(transfers[5], Bytes(clean.pixels.begin(), clean.pixels.end()));
}

}  // namespace
}  // namespace ovex::vboard::test
