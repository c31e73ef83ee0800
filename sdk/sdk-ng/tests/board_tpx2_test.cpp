// Frames of the Timepix2 boards through the exported interface: every chip mode and depth gives
// the frames the board read out, pixel for pixel and the right way up; continuous shutters and
// the edges of the trigger input give their frames in order, on the chip board and the NoBE
// board; frames that the board splits, pads or cuts short; the chip's matrix as the board holds
// it; and the bad input of a depth that doesn't match the mode or a bypass the board refuses.

#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <mutex>
#include <string>
#include <vector>

#include "context.hpp"
#include "modules/acquisition.hpp"
#include "modules/timepix_chip.hpp"
#include "ovex/vboard/tpx2_frames.hpp"
#include "support/chip_session.hpp"

namespace ovex::sdk::testing {
namespace {

using namespace std::chrono_literals;
using vboard::Tpx2Depth;
using vboard::Tpx2FrameFault;
using Pixels = std::vector<std::uint16_t>;

constexpr double kShutter = 0.002;
constexpr std::uint64_t kShutterTicks = 80000;
// The beam spot's centre, off every axis of symmetry of the sensor.
constexpr int kSpotX = 200;
constexpr int kSpotY = 30;

// Pixels at `max` in the 5 x 5 square around column x, row y of a frame laid out row by row.
int SaturatedAround(const Pixels& frame, int x, int y, std::uint16_t max) {
    int saturated = 0;
    for (int row = y - 2; row <= y + 2; ++row) {
        for (int column = x - 2; column <= x + 2; ++column) {
            saturated += frame[static_cast<std::size_t>(row * 256 + column)] == max ? 1 : 0;
        }
    }
    return saturated;
}

// What the data callback received; the test's thread waits on it.
struct Received {
    void Wait(std::size_t count) {
        std::unique_lock lock(mutex);
        changed.wait(lock, [&] { return frames.size() >= count; });
    }

    std::mutex mutex;
    std::condition_variable changed;
    std::vector<Pixels> frames;
    std::vector<std::size_t> raw_buffers;  // per callback
    std::size_t frames_per_callback = 0;   // the most
    ovexsdk_err_code wrong_getter = OVEXSDK_OK;
};

void OnFrames(ovexsdk_dev_ctx* ctx, void* user) {
    auto& received = *static_cast<Received*>(user);
    const ovexsdk_acq_tpx2_frame* frames = nullptr;
    std::uint64_t count = 0;
    const auto result = ovexsdk_acq_get_tpx2_frames(ctx, &frames, &count);
    ovexsdk_acq_tpx3_acq_toa_tot records{};
    const auto wrong = ovexsdk_acq_get_tpx3_toa_tot_packets(ctx, &records);
    const ovexsdk_acq_raw_data* raw = nullptr;
    std::uint64_t buffers = 0;
    ovexsdk_acq_get_raw_data(ctx, &raw, &buffers);
    std::lock_guard lock(received.mutex);
    received.wrong_getter = wrong;
    received.raw_buffers.push_back(buffers);
    if (result == OVEXSDK_OK) {
        received.frames_per_callback = std::max<std::size_t>(received.frames_per_callback, count);
        for (std::uint64_t f = 0; f < count; ++f) {
            received.frames.emplace_back(frames[f].pixels, frames[f].pixels + frames[f].count);
        }
    }
    received.changed.notify_all();
}

// A powered Timepix2 board whose clock the test moves, its sensor under a beam whose spot
// saturates every depth's counters, over a background that reaches most pixels.
class Tpx2Session : public ChipSession {
protected:
    void OpenPoweredKind(vboard::BoardKind kind) {
        ASSERT_EQ(OpenQuiet(kind), OVEXSDK_OK);
        ASSERT_EQ(ovexsdk_dev_power_up(&m_ctx), OVEXSDK_OK);
        vboard::HitModel beam;
        beam.spot_x = kSpotX;
        beam.spot_y = kSpotY;
        beam.spot_sigma = 3;
        beam.spot_rate = 2e9;
        beam.background_rate = 2000;
        beam.seed = 11;
        Engine().SetHitModel(beam);
    }
    void SetUp() override {
        ChipSession::SetUp();
        OpenPoweredKind(vboard::BoardKind::kTimepix2Cb);
    }

    ovexsdk_err_code SetTrigger(ovexsdk_trigger_mode mode, float seconds) {
        const ovexsdk_trigger_config config{mode, seconds};
        return ovexsdk_trigger_configure(&m_ctx, &config);
    }
    ovexsdk_err_code Start() {
        return ovexsdk_acq_start(
            &m_ctx, &OnFrames,
            static_cast<ovexsdk_acq_mode_flag>(OVEXSDK_ACQ_PROCESSED | OVEXSDK_ACQ_RAW), nullptr,
            &received);
    }
    // One frame of the single internal trigger, the whole readout awaited.
    void TakeFrame() {
        const std::size_t before = received.frames.size();
        ASSERT_EQ(SetTrigger(InternalStartShutterDuration, static_cast<float>(kShutter)),
                  OVEXSDK_OK);
        ASSERT_EQ(Start(), OVEXSDK_OK);
        ASSERT_EQ(ovexsdk_trigger_now(&m_ctx), OVEXSDK_OK);
        Engine().AdvanceTime(std::chrono::duration<double>(kShutter));
        received.Wait(before + 1);
        ASSERT_EQ(ovexsdk_acq_await_end(&m_ctx), OVEXSDK_OK);
    }
    // The board's frames read out so far, oldest first.
    std::vector<vboard::Tpx2Frame> BoardFrames() { return Engine().Tpx2FrameLog(); }
    // Moves the board's clock over one shutter of a continuous run and its readout gap.
    void NextContinuousShutter() {
        Engine().AdvanceTime(std::chrono::duration<double>(kShutter + 0.001));
    }
    // The board read out `count` frames of `ticks` each, and the host got every one whole, in
    // the board's order.
    void ExpectEveryFrameArrived(std::size_t count, std::uint64_t ticks) {
        const auto board = BoardFrames();
        ASSERT_EQ(board.size(), count);
        std::lock_guard lock(received.mutex);
        ASSERT_EQ(received.frames.size(), count);
        for (std::size_t f = 0; f < count; ++f) {
            EXPECT_EQ(board[f].index, f);
            EXPECT_EQ(board[f].close_tick - board[f].open_tick, ticks) << "frame " << f;
            EXPECT_TRUE(received.frames[f] == board[f].pixels) << "frame " << f;
        }
    }

    template <typename Module>
    Module& The() {
        auto* module = record::Get(&m_ctx).Device()->GetModule<Module>();
        EXPECT_NE(module, nullptr);
        return *module;
    }

    Received received;
};

TEST_F(Tpx2Session, EveryModeGivesTheBoardsFramePixelForPixelSaturatedCountersIncluded) {
    struct Case {
        ovexsdk_chip_mode mode;
        std::uint8_t opmode;
        Tpx2Depth depth;
        std::size_t buffers;
    };
    const Case cases[] = {{EvCount8Bit, 6, Tpx2Depth::k8Bit, 1},
                          {EvCount10Bit, 6, Tpx2Depth::k10Bit, 1},
                          {EvCount14Bit, 7, Tpx2Depth::k14Bit, 2},
                          {IToT10Bit, 10, Tpx2Depth::k10Bit, 1},
                          {IToT14Bit, 11, Tpx2Depth::k14Bit, 2}};
    for (const auto& c : cases) {
        SCOPED_TRACE(static_cast<int>(c.mode));
        ASSERT_EQ(ovexsdk_chip_set_mode(&m_ctx, c.mode), OVEXSDK_OK);
        TakeFrame();
        const auto board = BoardFrames().back();
        EXPECT_EQ(board.opmode, c.opmode);
        EXPECT_EQ(board.depth, c.depth);
        const std::uint16_t max = vboard::Tpx2MaxValue(c.depth);
        EXPECT_EQ(*std::max_element(board.pixels.begin(), board.pixels.end()), max);
        EXPECT_GT(std::count(board.pixels.begin(), board.pixels.end(), 0), 0);
        std::lock_guard lock(received.mutex);
        ASSERT_EQ(received.frames.back().size(), vboard::kTpx2Pixels);
        EXPECT_TRUE(received.frames.back() == board.pixels);
        EXPECT_EQ(received.frames.back().back(), board.pixels.back());
        EXPECT_EQ(received.raw_buffers.back(), c.buffers);
        // The spot stays where it is, not mirrored on either axis, both, or the diagonal.
        const Pixels& host = received.frames.back();
        EXPECT_EQ(SaturatedAround(host, kSpotX, kSpotY, max), 25);
        EXPECT_LT(SaturatedAround(host, 255 - kSpotX, 255 - kSpotY, max), 25);
        EXPECT_LT(SaturatedAround(host, 255 - kSpotX, kSpotY, max), 25);
        EXPECT_LT(SaturatedAround(host, kSpotX, 255 - kSpotY, max), 25);
        EXPECT_LT(SaturatedAround(host, kSpotY, kSpotX, max), 25);
    }
    EXPECT_EQ(received.frames_per_callback, 1U);
    EXPECT_EQ(received.wrong_getter, OVEXSDK_ERR_FAILED);
    EXPECT_TRUE(m_log.Contains(log::kError, "BUG: Invalid acquisition data variant."));
}

TEST_F(Tpx2Session, ContinuousShuttersGiveTheirFramesInOrderWhateverTheBoardDoesToThem) {
    ASSERT_EQ(ovexsdk_chip_set_mode(&m_ctx, IToT10Bit), OVEXSDK_OK);
    ASSERT_EQ(SetTrigger(InternalStartContinuous, static_cast<float>(kShutter)), OVEXSDK_OK);
    ASSERT_EQ(Start(), OVEXSDK_OK);
    ASSERT_EQ(ovexsdk_trigger_now(&m_ctx), OVEXSDK_OK);
    // Split inside a pixel group and at a packet's edge, a frame padded, then one cut short: the
    // padding and the cut frame are dropped and counted, every other frame arrives whole.
    const Tpx2FrameFault faults[] = {
        {Tpx2FrameFault::Kind::kSplit, 1001}, {Tpx2FrameFault::Kind::kSplit, 512},
        {Tpx2FrameFault::Kind::kPadded, 7},   {},
        {Tpx2FrameFault::Kind::kCut, 100},    {}};
    std::size_t expected = 0;
    for (const auto& fault : faults) {
        Engine().InjectTpx2FrameFault(fault);
        NextContinuousShutter();
        if (fault.kind != Tpx2FrameFault::Kind::kCut) {
            received.Wait(++expected);
        }
    }
    ASSERT_EQ(ovexsdk_acq_abort(&m_ctx), OVEXSDK_OK);
    ASSERT_EQ(ovexsdk_acq_await_end(&m_ctx), OVEXSDK_OK);
    const auto board = BoardFrames();
    ASSERT_EQ(board.size(), std::size(faults));
    std::lock_guard lock(received.mutex);
    ASSERT_EQ(received.frames.size(), std::size(faults) - 1);
    for (std::size_t f = 0, host = 0; f < board.size(); ++f) {
        EXPECT_EQ(board[f].index, f);
        if (board[f].fault.kind != Tpx2FrameFault::Kind::kCut) {
            EXPECT_TRUE(received.frames[host++] == board[f].pixels) << "frame " << f;
        }
    }
    EXPECT_TRUE(m_log.Contains(log::kWarning,
                               "Dropped 7 bytes of an incomplete frame (frames of "
                               "81920 bytes); 7 bytes dropped so far."));
    EXPECT_TRUE(m_log.Contains(log::kWarning,
                               "Dropped 81820 bytes of an incomplete frame (frames "
                               "of 81920 bytes); 81827 bytes dropped so far."));
}

TEST_F(Tpx2Session, EachPairOfEdgesOnTheTriggerInputGivesAFrameInOrder) {
    ASSERT_EQ(ovexsdk_chip_set_mode(&m_ctx, EvCount14Bit), OVEXSDK_OK);
    ovexsdk_trigger_mode modes[8]{};
    std::uint64_t count = 8;
    ASSERT_EQ(ovexsdk_trigger_list(&m_ctx, modes, &count), OVEXSDK_OK);
    EXPECT_EQ(
        std::vector<ovexsdk_trigger_mode>(modes, modes + count),
        (std::vector<ovexsdk_trigger_mode>{InternalStartShutterDuration, InternalStartContinuous,
                                           ExternalStartExternalStopEdge}));
    ASSERT_EQ(SetTrigger(ExternalStartExternalStopEdge, 0), OVEXSDK_OK);
    EXPECT_EQ(ovexsdk_trigger_now(&m_ctx), OVEXSDK_ERR_INVALID);
    ASSERT_EQ(Start(), OVEXSDK_OK);
    // A rising edge opens the shutter, the next one closes it.
    constexpr std::size_t kFrames = 3;
    for (std::size_t f = 0; f < kFrames; ++f) {
        Engine().PulseTriggerInput(10us);
        Engine().AdvanceTime(2ms);
        Engine().PulseTriggerInput(10us);
        received.Wait(f + 1);
    }
    ASSERT_EQ(ovexsdk_acq_abort(&m_ctx), OVEXSDK_OK);
    ASSERT_EQ(ovexsdk_acq_await_end(&m_ctx), OVEXSDK_OK);
    ExpectEveryFrameArrived(kFrames, kShutterTicks + 400);
}

// The same session on a NoBE board, whose front end carries the Timepix2 chip.
class NobeTpx2Session : public Tpx2Session {
protected:
    void SetUp() override {
        ChipSession::SetUp();
        OpenPoweredKind(vboard::BoardKind::kNobe);
    }
};

TEST_F(NobeTpx2Session, ContinuousShuttersGiveEveryFrameWholeAndInOrder) {
    ASSERT_EQ(ovexsdk_chip_set_mode(&m_ctx, EvCount8Bit), OVEXSDK_OK);
    ASSERT_EQ(SetTrigger(InternalStartContinuous, static_cast<float>(kShutter)), OVEXSDK_OK);
    ASSERT_EQ(Start(), OVEXSDK_OK);
    ASSERT_EQ(ovexsdk_trigger_now(&m_ctx), OVEXSDK_OK);
    constexpr std::size_t kFrames = 4;
    for (std::size_t f = 0; f < kFrames; ++f) {
        NextContinuousShutter();
        received.Wait(f + 1);
    }
    ASSERT_EQ(ovexsdk_acq_abort(&m_ctx), OVEXSDK_OK);
    ASSERT_EQ(ovexsdk_acq_await_end(&m_ctx), OVEXSDK_OK);
    ExpectEveryFrameArrived(kFrames, kShutterTicks);
}

TEST_F(Tpx2Session, FramesOfAnotherDepthThanTheModeNeverPassAsFrames) {
    ASSERT_EQ(ovexsdk_chip_set_mode(&m_ctx, EvCount8Bit), OVEXSDK_OK);
    // The host reads 10-bit frames while the board packs them in 8 bits.
    ASSERT_FALSE(The<acquisition::IAcquisition>().SetPixelDepth(acquisition::Bit10Depth));
    ASSERT_EQ(SetTrigger(InternalStartContinuous, static_cast<float>(kShutter)), OVEXSDK_OK);
    ASSERT_EQ(Start(), OVEXSDK_OK);
    ASSERT_EQ(ovexsdk_trigger_now(&m_ctx), OVEXSDK_OK);
    for (int shutter = 0; shutter < 3; ++shutter) {
        NextContinuousShutter();
    }
    ASSERT_EQ(ovexsdk_acq_abort(&m_ctx), OVEXSDK_OK);
    ASSERT_EQ(ovexsdk_acq_await_end(&m_ctx), OVEXSDK_OK);
    EXPECT_EQ(BoardFrames().size(), 3U);
    EXPECT_TRUE(received.frames.empty());
    EXPECT_TRUE(m_log.Contains(log::kWarning,
                               "Dropped 65536 bytes of an incomplete frame (frames "
                               "of 81920 bytes); 65536 bytes dropped so far."));
}

TEST_F(Tpx2Session, MatrixGoesDownAsOneBlockAndReadsBackMergedWithTheMaskKept) {
    Bytes matrix(kPixels);
    for (std::size_t i = 0; i < kPixels; ++i) {
        matrix[i] = static_cast<std::uint8_t>((i * 37 + i / 256) & 0x7F);
    }
    auto& chip = The<ITimepixChip>();
    ASSERT_FALSE(chip.WriteMatrix(matrix));
    EXPECT_EQ(Engine().Tpx2Matrix(), matrix);
    Bytes back;
    ASSERT_FALSE(chip.ReadMatrix(back));
    ASSERT_EQ(back.size(), kPixels);
    for (std::size_t i = 0; i < kPixels; ++i) {
        ASSERT_EQ(back[i], matrix[i]) << "pixel " << i;
    }
    // A user mask adds its pixels to the matrix the board holds.
    Bytes mask(kPixels);
    mask[0] = mask[kPixels - 1] = 1;
    const ovexsdk_chip_pixel_mask user_mask{mask.data(), mask.size()};
    ASSERT_EQ(ovexsdk_chip_set_pixel_mask(&m_ctx, 0, &user_mask), OVEXSDK_OK);
    EXPECT_EQ(Engine().Tpx2Matrix()[0], matrix[0] | 2);
    EXPECT_EQ(Engine().Tpx2Matrix()[kPixels - 1], matrix[kPixels - 1] | 2);
    EXPECT_EQ(Engine().Tpx2Matrix()[1], matrix[1]);

    // A stuck pixel shows in the digital test.
    Engine().StickPixel(4097, 0x03);
    std::vector<std::uint32_t> bad;
    ASSERT_FALSE(chip.DigitalTest(bad));
    EXPECT_EQ(bad, std::vector<std::uint32_t>{4097});
}

TEST_F(Tpx2Session, BypassTheBoardRefusesFailsTheMatrixAndTheNextTransferSucceeds) {
    auto& chip = The<ITimepixChip>();
    const Bytes matrix(kPixels, 0x40);
    Engine().RefusePrcBypass();
    EXPECT_TRUE(chip.WriteMatrix(matrix));
    EXPECT_TRUE(m_log.Contains(log::kError,
                               "Failed to enable PRC bypass - firmware: failure due "
                               "to a non-specific system error."));
    Bytes back;
    EXPECT_TRUE(chip.ReadMatrix(back));
    Engine().ClearChipFaults();
    ASSERT_FALSE(chip.WriteMatrix(matrix));
    ASSERT_FALSE(chip.ReadMatrix(back));
    EXPECT_EQ(back, matrix);
}

}  // namespace
}  // namespace ovex::sdk::testing
