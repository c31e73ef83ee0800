// Frames from a powered virtual Timepix3 board through the exported interface: the shutter's
// triggers, the frames' content against the hits the board made, the readout's life (abort,
// wait, restart, a slow host, a board that goes away) and what bad input gets.

#include <gtest/gtest.h>

#include <chrono>
#include <cmath>
#include <condition_variable>
#include <cstdint>
#include <mutex>
#include <string>
#include <vector>

#include "support/chip_session.hpp"

namespace ovex::sdk::testing {
namespace {

using namespace std::chrono_literals;

// The address the chip sends for the host's pixel, as its configuration read-back does.
std::uint32_t AddressOf(std::uint32_t pixel) {
    const auto mirrored = static_cast<std::uint16_t>(65535 - pixel);
    return static_cast<std::uint16_t>(mirrored << 8 | mirrored >> 8);
}

// One frame as the host's callback saw it.
struct HostFrame {
    std::vector<ovexsdk_acq_tpx3_toa_tot_record> toa_tot;
    std::vector<ovexsdk_acq_tpx3_itot_evcount> itot;
    std::uint64_t raw_bytes = 0;
    ovexsdk_err_code wrong_getter = OVEXSDK_OK;
};

// What the data callback received; the test's thread waits on it.
struct Received {
    void Wait(std::size_t count) {
        std::unique_lock lock(mutex);
        changed.wait(lock, [&] { return frames.size() >= count; });
    }
    std::size_t Count() {
        std::lock_guard lock(mutex);
        return frames.size();
    }

    std::mutex mutex;
    std::condition_variable changed;
    std::vector<HostFrame> frames;
    // While set, the callback waits until it is cleared: a slow host.
    bool hold = false;
};

void OnFrame(ovexsdk_dev_ctx* ctx, void* user) {
    auto& received = *static_cast<Received*>(user);
    HostFrame frame;
    ovexsdk_acq_tpx3_acq_toa_tot toa_tot{};
    if (ovexsdk_acq_get_tpx3_toa_tot_packets(ctx, &toa_tot) == OVEXSDK_OK) {
        frame.toa_tot.assign(toa_tot.records, toa_tot.records + toa_tot.count);
        const ovexsdk_acq_tpx3_itot_evcount* records = nullptr;
        std::uint64_t count = 0;
        frame.wrong_getter = ovexsdk_acq_get_tpx3_itot_evcount_packets(ctx, &records, &count);
    } else {
        const ovexsdk_acq_tpx3_itot_evcount* records = nullptr;
        std::uint64_t count = 0;
        if (ovexsdk_acq_get_tpx3_itot_evcount_packets(ctx, &records, &count) == OVEXSDK_OK) {
            frame.itot.assign(records, records + count);
        }
    }
    const ovexsdk_acq_raw_data* raw = nullptr;
    std::uint64_t buffers = 0;
    if (ovexsdk_acq_get_raw_data(ctx, &raw, &buffers) == OVEXSDK_OK) {
        for (std::uint64_t i = 0; i < buffers; ++i) {
            frame.raw_bytes += raw[i].size;
        }
    }
    std::unique_lock lock(received.mutex);
    received.frames.push_back(std::move(frame));
    received.changed.notify_all();
    received.changed.wait(lock, [&] { return !received.hold; });
}

class FrameSession : public ChipSession {
protected:
    void SetUp() override {
        ChipSession::SetUp();
        OpenPowered();
        // The chip's reset turns its data channels on: no frame leaves it without.
        ASSERT_EQ(ovexsdk_chip_configure(&m_ctx, 0), OVEXSDK_OK);
        vboard::HitModel beam;
        beam.spot_x = 60;
        beam.spot_y = 190;
        beam.spot_sigma = 6;
        beam.spot_rate = 2e5;
        beam.background_rate = 20;
        beam.seed = 7;
        Engine().SetHitModel(beam);
    }

    ovexsdk_err_code SetTrigger(ovexsdk_trigger_mode mode, float seconds) {
        const ovexsdk_trigger_config config{mode, seconds};
        return ovexsdk_trigger_configure(&m_ctx, &config);
    }
    ovexsdk_err_code Start(int flags = OVEXSDK_ACQ_PROCESSED) {
        return ovexsdk_acq_start(&m_ctx, &OnFrame, static_cast<ovexsdk_acq_mode_flag>(flags),
                                 nullptr, &received);
    }
    // One frame of the single internal trigger: start, shutter, the board's time on, wait.
    void TakeFrame(double seconds) {
        const std::size_t before = received.Count();
        ASSERT_EQ(Start(OVEXSDK_ACQ_PROCESSED | OVEXSDK_ACQ_RAW), OVEXSDK_OK);
        ASSERT_EQ(ovexsdk_trigger_now(&m_ctx), OVEXSDK_OK);
        Engine().AdvanceTime(std::chrono::duration<double>(seconds));
        received.Wait(before + 1);
        ASSERT_EQ(ovexsdk_acq_await_end(&m_ctx), OVEXSDK_OK);
    }
    vboard::ReadoutFrame LastBoardFrame() {
        const auto log = Engine().FrameLog();
        return log.empty() ? vboard::ReadoutFrame{} : log.back();
    }

    Received received;
};

void ExpectSameToaTot(const vboard::ReadoutFrame& board, const HostFrame& host) {
    ASSERT_EQ(host.toa_tot.size(), board.hits.size());
    for (std::size_t i = 0; i < board.hits.size(); ++i) {
        const auto& hit = board.hits[i];
        EXPECT_EQ(host.toa_tot[i].address, AddressOf(hit.pixel)) << "hit " << i;
        EXPECT_EQ(host.toa_tot[i].tot, hit.tot) << "hit " << i;
        EXPECT_EQ(host.toa_tot[i].toa, hit.toa & 0xFFFFF) << "hit " << i;
    }
}

TEST_F(FrameSession, InternalShutterFramesCarryTheBoardsHitsPixelByPixel) {
    ASSERT_EQ(ovexsdk_chip_set_mode(&m_ctx, ToAToTFBZS), OVEXSDK_OK);
    ASSERT_EQ(SetTrigger(InternalStartShutterDuration, 0.01f), OVEXSDK_OK);
    // The float's 0.01 s is a little less, and the ticks are truncated.
    constexpr std::uint64_t kTicks = 399999;
    EXPECT_EQ(State("TPX_SHUT_DUR"), static_cast<int>(kTicks));
    for (int frame = 0; frame < 3; ++frame) {
        TakeFrame(0.01);
        const auto board = LastBoardFrame();
        EXPECT_EQ(board.index, static_cast<std::uint64_t>(frame));
        EXPECT_EQ(board.close_tick - board.open_tick, kTicks);
        EXPECT_GT(board.hits.size(), 100u);
        ASSERT_EQ(received.frames.size(), static_cast<std::size_t>(frame + 1));
        const HostFrame& host = received.frames.back();
        ExpectSameToaTot(board, host);
        // The raw block: the hits and the closing CTRL packet.
        EXPECT_EQ(host.raw_bytes, (board.hits.size() + 1) * 6);
        EXPECT_EQ(host.wrong_getter, OVEXSDK_ERR_FAILED);
    }
    EXPECT_EQ(Engine().FrameCounts().overflowed, 0u);
    EXPECT_TRUE(m_log.Contains(log::kError, "BUG: Invalid acquisition data variant."));
    // Outside the callback there is nothing to read, but the raw list stays.
    ovexsdk_acq_tpx3_acq_toa_tot after{};
    EXPECT_EQ(ovexsdk_acq_get_tpx3_toa_tot_packets(&m_ctx, &after), OVEXSDK_ERR_FAILED);
    EXPECT_TRUE(m_log.Contains(log::kError, "There are no acquisition data."));
    const ovexsdk_acq_raw_data* raw = nullptr;
    std::uint64_t buffers = 0;
    EXPECT_EQ(ovexsdk_acq_get_raw_data(&m_ctx, &raw, &buffers), OVEXSDK_OK);
    EXPECT_EQ(buffers, 1u);
}

TEST_F(FrameSession, ItotFramesCountEventsAndMaskedPixelsStayDark) {
    // A flood hits every pixel that isn't masked: a full frame, in one transfer.
    vboard::HitModel flood;
    flood.flood = true;
    Engine().SetHitModel(flood);
    Bytes mask(kPixels);
    for (std::size_t y = 0; y < 256; ++y) {
        mask[y * 256 + 40] = 1;
    }
    const ovexsdk_chip_pixel_mask user_mask{mask.data(), mask.size()};
    ASSERT_EQ(ovexsdk_chip_set_pixel_mask(&m_ctx, 0, &user_mask), OVEXSDK_OK);
    ASSERT_EQ(ovexsdk_chip_set_mode(&m_ctx, IToTEvCountFBZS), OVEXSDK_OK);
    ASSERT_EQ(SetTrigger(InternalStartShutterDuration, 0.001f), OVEXSDK_OK);
    TakeFrame(0.001);

    const auto board = LastBoardFrame();
    EXPECT_EQ(board.mode, 2);
    ASSERT_EQ(board.hits.size(), kPixels - 256);
    ASSERT_EQ(received.frames.size(), 1u);
    const auto& host = received.frames[0].itot;
    ASSERT_EQ(host.size(), board.hits.size());
    for (std::size_t i = 0; i < host.size(); ++i) {
        EXPECT_NE(board.hits[i].pixel % 256, 40u);
        ASSERT_EQ(host[i].address, AddressOf(board.hits[i].pixel)) << "hit " << i;
        ASSERT_EQ(host[i].events, board.hits[i].count) << "hit " << i;
        ASSERT_EQ(host[i].itot, board.hits[i].itot) << "hit " << i;
    }
}

TEST_F(FrameSession, ExternalTriggersOpenTheShutterOnTheBoardsInput) {
    ASSERT_EQ(ovexsdk_chip_set_mode(&m_ctx, ToAToTFBZS), OVEXSDK_OK);
    ovexsdk_trigger_mode modes[8];
    std::uint64_t count = 8;
    ASSERT_EQ(ovexsdk_trigger_list(&m_ctx, modes, &count), OVEXSDK_OK);
    EXPECT_EQ(std::vector<ovexsdk_trigger_mode>(modes, modes + count),
              (std::vector<ovexsdk_trigger_mode>{
                  InternalStartShutterDuration, ExternalStartShutterDuration,
                  ExternalStartExternalStopLevel, ExternalStartExternalStopEdge}));

    // Each external readout runs until the host aborts it. Configuring an external trigger
    // makes the input active high again, or the pulses below would open at their ends.
    ovexsdk_extsync_option active_low[] = {OVEXSDK_EXTSYNC_INPUT_ACTIVE_LOW};
    ASSERT_EQ(ovexsdk_extsync_configure(&m_ctx, active_low, 1), OVEXSDK_OK);
    ASSERT_EQ(State("SYNC_IO_ACT_LOW") & 1, 1);
    ASSERT_EQ(SetTrigger(ExternalStartShutterDuration, 0.002f), OVEXSDK_OK);
    EXPECT_EQ(State("SYNC_IO_ACT_LOW") & 1, 0);
    EXPECT_EQ(ovexsdk_trigger_now(&m_ctx), OVEXSDK_ERR_INVALID);
    ASSERT_EQ(Start(), OVEXSDK_OK);
    Engine().PulseTriggerInput(100us);
    Engine().AdvanceTime(2ms);
    Engine().PulseTriggerInput(100us);
    Engine().AdvanceTime(2ms);
    received.Wait(2);
    auto log = Engine().FrameLog();
    ASSERT_EQ(log.size(), 2u);
    EXPECT_EQ(log[1].close_tick - log[1].open_tick, 80000u);

    EXPECT_EQ(ovexsdk_acq_abort(&m_ctx), OVEXSDK_OK);
    ASSERT_EQ(SetTrigger(ExternalStartExternalStopLevel, 0), OVEXSDK_OK);
    ASSERT_EQ(Start(), OVEXSDK_OK);
    Engine().SetTriggerInput(true);
    Engine().AdvanceTime(3ms);
    Engine().SetTriggerInput(false);
    received.Wait(3);
    log = Engine().FrameLog();
    EXPECT_EQ(log.back().close_tick - log.back().open_tick, 120000u);

    EXPECT_EQ(ovexsdk_acq_abort(&m_ctx), OVEXSDK_OK);
    ASSERT_EQ(SetTrigger(ExternalStartExternalStopEdge, 0), OVEXSDK_OK);
    ASSERT_EQ(Start(), OVEXSDK_OK);
    Engine().PulseTriggerInput(10us);
    Engine().AdvanceTime(5ms);
    Engine().PulseTriggerInput(10us);
    received.Wait(4);
    log = Engine().FrameLog();
    EXPECT_EQ(log.back().close_tick - log.back().open_tick, 200000u + 400u);
    EXPECT_EQ(ovexsdk_acq_abort(&m_ctx), OVEXSDK_OK);
    EXPECT_EQ(ovexsdk_acq_await_end(&m_ctx), OVEXSDK_OK);
    ASSERT_EQ(received.frames.size(), 4u);
    ExpectSameToaTot(log.back(), received.frames.back());
}

TEST_F(FrameSession, AbortMidFrameLeavesTheNextReadoutItsOwnFrame) {
    ASSERT_EQ(ovexsdk_chip_set_mode(&m_ctx, ToAToTFBZS), OVEXSDK_OK);
    ASSERT_EQ(SetTrigger(InternalStartShutterDuration, 0.5f), OVEXSDK_OK);
    ASSERT_EQ(Start(), OVEXSDK_OK);
    ASSERT_EQ(ovexsdk_trigger_now(&m_ctx), OVEXSDK_OK);
    Engine().AdvanceTime(0.1s);
    EXPECT_EQ(ovexsdk_acq_abort(&m_ctx), OVEXSDK_OK);
    EXPECT_EQ(ovexsdk_acq_await_end(&m_ctx), OVEXSDK_OK);
    const std::size_t after_abort = received.Count();

    // A restart reads out the shutter it opens, not what the abort left behind.
    ASSERT_EQ(SetTrigger(InternalStartShutterDuration, 0.01f), OVEXSDK_OK);
    TakeFrame(0.01);
    ASSERT_EQ(received.frames.size(), after_abort + 1);
    ExpectSameToaTot(LastBoardFrame(), received.frames.back());

    // A wait without a frame ends at the shutter time and 0.1 s, and stops the readout.
    ASSERT_EQ(Start(), OVEXSDK_OK);
    EXPECT_EQ(ovexsdk_acq_await_end(&m_ctx), OVEXSDK_OK);
    EXPECT_TRUE(m_log.Contains(
        log::kWarning, "Timepix3 frame-based ToA+ToT acquisition timed-out after 0.11 seconds."));
    ASSERT_EQ(Start(), OVEXSDK_OK);
    EXPECT_EQ(ovexsdk_acq_abort(&m_ctx), OVEXSDK_OK);
}

TEST_F(FrameSession, SlowHostGetsEveryFrameInOrder) {
    ASSERT_EQ(ovexsdk_chip_set_mode(&m_ctx, ToAToTFBZS), OVEXSDK_OK);
    ASSERT_EQ(SetTrigger(ExternalStartShutterDuration, 0.001f), OVEXSDK_OK);
    {
        std::lock_guard lock(received.mutex);
        received.hold = true;
    }
    ASSERT_EQ(Start(), OVEXSDK_OK);
    constexpr std::size_t kFrames = 6;
    for (std::size_t i = 0; i < kFrames; ++i) {
        Engine().PulseTriggerInput(10us);
        Engine().AdvanceTime(1ms);
    }
    received.Wait(1);  // the host sits in its first callback while the board goes on
    {
        std::lock_guard lock(received.mutex);
        received.hold = false;
        received.changed.notify_all();
    }
    received.Wait(kFrames);
    EXPECT_EQ(ovexsdk_acq_abort(&m_ctx), OVEXSDK_OK);
    const auto log = Engine().FrameLog();
    ASSERT_EQ(log.size(), kFrames);
    EXPECT_EQ(Engine().FrameCounts().overflowed, 0u);
    ASSERT_EQ(received.frames.size(), kFrames);
    for (std::size_t i = 0; i < kFrames; ++i) {
        ExpectSameToaTot(log[i], received.frames[i]);
    }
}

TEST_F(FrameSession, DamagedFramesAreReportedNotDelivered) {
    ASSERT_EQ(ovexsdk_chip_set_mode(&m_ctx, ToAToTFBZS), OVEXSDK_OK);
    ASSERT_EQ(SetTrigger(InternalStartShutterDuration, 0.01f), OVEXSDK_OK);
    // A frame cut in its closing packet: the ragged end is logged. The walk takes the packets in
    // pairs at the end, so behind an odd number of hits the lone last one goes with the tail.
    Engine().InjectFrameFault(vboard::FrameFault::kTruncated);
    TakeFrame(0.01);
    auto cut = LastBoardFrame();
    if (cut.hits.size() % 2 != 0) {
        cut.hits.pop_back();
    }
    ExpectSameToaTot(cut, received.frames.back());
    EXPECT_TRUE(m_log.Contains(log::kError, "Data block not divisible by packet size"));

    // A frame with a packet that has no place there ends the readout with an error.
    Engine().InjectFrameFault(vboard::FrameFault::kCorrupted);
    ASSERT_EQ(Start(), OVEXSDK_OK);
    ASSERT_EQ(ovexsdk_trigger_now(&m_ctx), OVEXSDK_OK);
    Engine().AdvanceTime(0.01s);
    EXPECT_EQ(ovexsdk_acq_await_end(&m_ctx), OVEXSDK_ERR_FAILED);
    EXPECT_TRUE(m_log.Contains(log::kError,
                               "Timepix3 frame-based ToA+ToT acquisition reported error - "
                               "generic: Bad message."));
    EXPECT_EQ(received.frames.size(), 1u);
    // And the next readout is whole again.
    TakeFrame(0.01);
    ExpectSameToaTot(LastBoardFrame(), received.frames.back());
}

TEST_F(FrameSession, BoardThatGoesAwayEndsTheReadout) {
    ASSERT_EQ(ovexsdk_chip_set_mode(&m_ctx, ToAToTFBZS), OVEXSDK_OK);
    ASSERT_EQ(SetTrigger(ExternalStartExternalStopLevel, 0), OVEXSDK_OK);
    ASSERT_EQ(Start(), OVEXSDK_OK);
    Board().Usb().Unplug();
    // The readout ends with the stream, though the trigger would wait a year.
    EXPECT_EQ(ovexsdk_acq_await_end(&m_ctx), OVEXSDK_ERR_FAILED);
    EXPECT_NE(ovexsdk_acq_abort(&m_ctx), OVEXSDK_OK);
    ovexsdk_dev_close(&m_ctx);
}

TEST_F(FrameSession, CloseDuringAReadoutStopsItBeforeTheBoardGoes) {
    ASSERT_EQ(ovexsdk_chip_set_mode(&m_ctx, IToTEvCountFBZS), OVEXSDK_OK);
    ASSERT_EQ(SetTrigger(ExternalStartShutterDuration, 0.001f), OVEXSDK_OK);
    ASSERT_EQ(Start(), OVEXSDK_OK);
    Engine().PulseTriggerInput(10us);
    Engine().AdvanceTime(1ms);
    received.Wait(1);
    EXPECT_EQ(ovexsdk_dev_close(&m_ctx), OVEXSDK_OK);
    EXPECT_TRUE(
        m_log.Contains(log::kWarning,
                       "Stopping Timepix3 frame-based integrated time over threshold acquisition "
                       "before the device closes."));
    EXPECT_TRUE(m_log
                    .StartingWith("Timepix3 frame-based integrated time over threshold "
                                  "acquisition ended without a stop")
                    .empty());
    EXPECT_EQ(received.Count(), 1u);
}

TEST_F(FrameSession, BadStartsAndSettingsAreRefused) {
    // Nothing configured yet.
    EXPECT_EQ(Start(), OVEXSDK_ERR_BUSY);
    EXPECT_TRUE(m_log.Contains(log::kError,
                               "Missing acquisition module for selected mode. Is chip and/or "
                               "processing mode selected correctly?"));
    ASSERT_EQ(ovexsdk_chip_set_mode(&m_ctx, ToAToTFBZS), OVEXSDK_OK);
    EXPECT_EQ(Start(), OVEXSDK_ERR_FAILED);
    EXPECT_TRUE(m_log.Contains(log::kError, "Chip mode and/or trigger not configured."));
    EXPECT_EQ(Start(0), OVEXSDK_ERR_INVALID);

    EXPECT_EQ(SetTrigger(InternalStartContinuous, 0.1f), OVEXSDK_ERR_INVALID);
    EXPECT_TRUE(m_log.Contains(log::kError, "Unsupported trigger mode (2)."));
    EXPECT_EQ(ovexsdk_trigger_configure(&m_ctx, nullptr), OVEXSDK_ERR_INVALID);
    // A shutter that isn't a number or is negative is refused; one too long for the board's
    // counter becomes the longest it can count, where it would wrap to a short one.
    EXPECT_EQ(SetTrigger(InternalStartShutterDuration, std::nanf("")), OVEXSDK_ERR_INVALID);
    EXPECT_EQ(SetTrigger(ExternalStartShutterDuration, -1.0f), OVEXSDK_ERR_INVALID);
    EXPECT_TRUE(m_log.Contains(log::kError, "Invalid shutter duration -1 s."));
    EXPECT_EQ(SetTrigger(InternalStartShutterDuration, 200.0f), OVEXSDK_OK);
    EXPECT_EQ(static_cast<std::uint32_t>(State("TPX_SHUT_DUR")), 0xFFFFFFFFu);
    EXPECT_TRUE(m_log.Contains(log::kWarning,
                               "Specified shutter duration exceeds allowed maximum of "
                               "4294967295[1/40000000]s. Setting shutter to maximum."));
    EXPECT_EQ(ovexsdk_acq_select_processing(&m_ctx, static_cast<ovexsdk_acq_process_mode>(9)),
              OVEXSDK_ERR_INVALID);

    // Frame-based data have no sorted processing.
    ASSERT_EQ(SetTrigger(InternalStartShutterDuration, 0.01f), OVEXSDK_OK);
    ASSERT_EQ(ovexsdk_acq_select_processing(&m_ctx, SortByToa), OVEXSDK_OK);
    EXPECT_EQ(Start(), OVEXSDK_ERR_BUSY);
    ASSERT_EQ(ovexsdk_acq_select_processing(&m_ctx, DefaultProcessing), OVEXSDK_OK);

    ASSERT_EQ(Start(), OVEXSDK_OK);
    EXPECT_EQ(Start(), OVEXSDK_ERR_BUSY);
    EXPECT_TRUE(m_log.Contains(log::kError,
                               "Failed to start Timepix3 frame-based ToA+ToT acquisition, because "
                               "Timepix3 frame-based ToA+ToT acquisition is already running."));
    EXPECT_EQ(ovexsdk_acq_abort(&m_ctx), OVEXSDK_OK);

    // External sync options: an invalid one in the list is skipped, the others applied.
    ovexsdk_extsync_option options[] = {OVEXSDK_EXTSYNC_TRIGGER_OUT_EDGE,
                                        static_cast<ovexsdk_extsync_option>(40),
                                        OVEXSDK_EXTSYNC_READY_IN_YES};
    EXPECT_EQ(ovexsdk_extsync_configure(&m_ctx, options, 3), OVEXSDK_OK);
    EXPECT_TRUE(m_log.Contains(
        log::kWarning, "Value '40' is not valid external synchronization option, value ignored."));
    EXPECT_EQ(Engine().Invocations("TRIG_O_EDGE").size(), 1u);
    EXPECT_EQ(State("READY_IO_EN") & 1, 1);
    // The first option that fails ends the list: the clock can't switch under a powered
    // detector.
    ovexsdk_extsync_option clock_first[] = {OVEXSDK_EXTSYNC_CLOCK_INPUT_INTERNAL_200_MHZ,
                                            OVEXSDK_EXTSYNC_TRIGGER_OUT_LEVEL};
    EXPECT_EQ(ovexsdk_extsync_configure(&m_ctx, clock_first, 2), OVEXSDK_ERR_FAILED);
    EXPECT_TRUE(m_log.Contains(log::kError,
                               "Failed to apply external synchronization option '15' - generic: "
                               "Operation not permitted"));
    EXPECT_TRUE(Engine().Invocations("TRIG_O_LEVEL").empty());
}

}  // namespace
}  // namespace ovex::sdk::testing
