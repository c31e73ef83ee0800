// The data-driven modes of a powered virtual Timepix3 board through the exported interface: what
// each processing mode hands the host's callback against what the board sent (every record with
// its extended time, in stream or time order, every bin of every line), the readout's life
// (end by the shutter or the scan, abort, a slow host, a board that goes away, a corrupt stream)
// and what bad input gets.

#include <gtest/gtest.h>

#include <array>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <functional>
#include <mutex>
#include <numeric>
#include <thread>
#include <vector>

#include "support/chip_session.hpp"
#include "tpx3_stream/reference.hpp"

namespace ovex::sdk::testing {
namespace {

using namespace std::chrono_literals;
using tpx3_stream::ExpectedRecord;
using tpx3_stream::ReferencePixel;

constexpr double kTicksPerSecond = 4e7;

// What the host's callbacks received, copied out while each ran.
struct Delivered {
    std::mutex mutex;
    std::condition_variable changed;
    int callbacks = 0;
    // The result of each getter, per callback.
    std::vector<ovexsdk_err_code> toa_tot, itot, evcount, bins;
    std::vector<ExpectedRecord> records;
    std::vector<std::uint64_t> rising;  // of each callback with records
    std::array<std::vector<std::uint64_t>, 3> tdc;
    std::vector<std::uint64_t> counts, itots;
    std::vector<std::vector<ReferencePixel>> pixels;
    std::uint64_t raw_bytes = 0;
    bool hold = false;  // while set, the callback waits: a slow host

    void WaitUntil(const std::function<bool()>& done) {
        std::unique_lock lock(mutex);
        changed.wait(lock, done);
    }
    void Hold(bool on) {
        std::lock_guard lock(mutex);
        hold = on;
        changed.notify_all();
    }
};

void OnResult(ovexsdk_dev_ctx* ctx, void* user) {
    auto& seen = *static_cast<Delivered*>(user);
    ovexsdk_acq_tpx3_acq_toa_tot toa_tot{};
    ovexsdk_acq_tpx3_itot_fragment itot{};
    ovexsdk_acq_tpx3_evcount_fragment evcount{};
    ovexsdk_tpx3_acq_itot_evcount_bins bins{};
    const ovexsdk_acq_raw_data* raw = nullptr;
    std::uint64_t buffers = 0;
    std::unique_lock lock(seen.mutex);
    ++seen.callbacks;
    seen.toa_tot.push_back(ovexsdk_acq_get_tpx3_toa_tot_packets(ctx, &toa_tot));
    seen.itot.push_back(ovexsdk_acq_get_tpx3_itot_fragment(ctx, &itot));
    seen.evcount.push_back(ovexsdk_acq_get_tpx3_evcount_fragment(ctx, &evcount));
    seen.bins.push_back(ovexsdk_acq_get_tpx3_itot_evcount_bins(ctx, &bins));
    if (seen.toa_tot.back() == OVEXSDK_OK) {
        for (std::uint64_t i = 0; i < toa_tot.count; ++i) {
            const auto& record = toa_tot.records[i];
            seen.records.push_back({record.address, record.tot, record.toa});
        }
        seen.rising.push_back(toa_tot.shutter_rising_time_ticks);
        for (std::uint64_t list = 0; list < toa_tot.tdc_list_count && list < 3; ++list) {
            const auto& stamps = toa_tot.tdc_lists[list];
            seen.tdc[list].insert(seen.tdc[list].end(), stamps.stamps,
                                  stamps.stamps + stamps.count);
        }
    }
    if (seen.itot.back() == OVEXSDK_OK) {
        seen.itots.insert(seen.itots.end(), itot.itots, itot.itots + itot.count);
    }
    if (seen.evcount.back() == OVEXSDK_OK) {
        seen.counts.insert(seen.counts.end(), evcount.events, evcount.events + evcount.count);
    }
    if (seen.bins.back() == OVEXSDK_OK) {
        for (std::uint64_t b = 0; b < bins.bin_count; ++b) {
            auto& pixels = seen.pixels.emplace_back();
            for (std::uint64_t p = 0; p < bins.bins[b].count; ++p) {
                const auto& pixel = bins.bins[b].pixels[p];
                pixels.push_back({pixel.address, pixel.events, pixel.itot});
            }
        }
    }
    if (ovexsdk_acq_get_raw_data(ctx, &raw, &buffers) == OVEXSDK_OK) {
        for (std::uint64_t i = 0; i < buffers; ++i) {
            seen.raw_bytes += raw[i].size;
        }
    }
    seen.changed.notify_all();
    seen.changed.wait(lock, [&] { return !seen.hold; });
}

class DataDrivenSession : public ChipSession {
protected:
    void SetUp() override {
        ChipSession::SetUp();
        OpenPowered();
        ASSERT_EQ(ovexsdk_chip_configure(&m_ctx, 0), OVEXSDK_OK);
        ASSERT_EQ(ovexsdk_chip_set_mode(&m_ctx, ToAToTDD), OVEXSDK_OK);
        Beam(3e6);
    }

    void Beam(double spot_rate, double background_rate = 5) {
        vboard::HitModel beam;
        beam.spot_x = 70;
        beam.spot_y = 180;
        beam.spot_sigma = 7;
        beam.spot_rate = spot_rate;
        beam.background_rate = background_rate;
        beam.seed = 11;
        Engine().SetHitModel(beam);
    }

    ovexsdk_err_code SetTrigger(ovexsdk_trigger_mode mode, float seconds) {
        const ovexsdk_trigger_config config{mode, seconds};
        return ovexsdk_trigger_configure(&m_ctx, &config);
    }
    ovexsdk_err_code Start(ovexsdk_acq_process_mode mode,
                           const ovexsdk_acq_params* params = nullptr,
                           int flags = OVEXSDK_ACQ_PROCESSED | OVEXSDK_ACQ_RAW) {
        EXPECT_EQ(ovexsdk_acq_select_processing(&m_ctx, mode), OVEXSDK_OK);
        return ovexsdk_acq_start(&m_ctx, &OnResult, static_cast<ovexsdk_acq_mode_flag>(flags),
                                 params, &seen);
    }
    // One line of the single internal shutter: start, open, the board's time on, await the end.
    void RunLine(ovexsdk_acq_process_mode mode, double seconds) {
        ASSERT_EQ(SetTrigger(InternalStartShutterDuration, static_cast<float>(seconds)),
                  OVEXSDK_OK);
        ASSERT_EQ(Start(mode), OVEXSDK_OK);
        ASSERT_EQ(ovexsdk_trigger_now(&m_ctx), OVEXSDK_OK);
        Engine().AdvanceTime(std::chrono::duration<double>(seconds));
        ASSERT_EQ(ovexsdk_acq_await_end(&m_ctx), OVEXSDK_OK);
    }
    // Waits until the host's records number as many as the board sent hits.
    void AwaitRecords(std::size_t count) {
        seen.WaitUntil([&] { return seen.records.size() >= count; });
    }

    Delivered seen;
};

TEST_F(DataDrivenSession, RecordsAreTheBoardsHitsWithTheirTimesInStreamOrTimeOrder) {
    RunLine(DefaultProcessing, 0.004);
    const vboard::StreamTruth line = Engine().TakeStreamTruth();
    ASSERT_EQ(line.line_starts.size(), 1U);
    ASSERT_GT(line.records.size(), 10'000U);
    EXPECT_EQ(seen.records, line.records) << "every hit once, with its extended time, as sent";
    EXPECT_EQ(seen.rising.front(), line.line_starts[0] / 16);
    EXPECT_EQ(seen.raw_bytes, Engine().StreamCounts().bytes_sent);
    EXPECT_TRUE(m_log.Contains(log::kInfo, "Starting Timepix3 data-driven ToA+ToT acquisition."));

    // The same again sorted; the module is ready for the next readout at once.
    seen.records.clear();
    RunLine(SortByToa, 0.004);
    const vboard::StreamTruth sorted = Engine().TakeStreamTruth();
    ASSERT_GT(sorted.records.size(), 10'000U);
    EXPECT_NE(sorted.records, tpx3_stream::SortedByTime(sorted)) << "the chip sends out of order";
    EXPECT_EQ(seen.records, tpx3_stream::SortedByTime(sorted));
    EXPECT_EQ(Engine().StreamCounts().hits_lost, 0U);
}

TEST_F(DataDrivenSession, BinnedModesBinEveryLineOfTheScanAsTheBoardSentIt) {
    // Three lines of 40 bins of 2.5 µs, one per pulse on the trigger input.
    ovexsdk_acq_params scan{};
    scan.scan = {40, 3, 2500};
    const std::uint64_t bin_width = 2500 * 16 / 25;
    const double line_seconds = 40 * 2.5e-6;
    ASSERT_EQ(SetTrigger(ExternalStartShutterDuration, static_cast<float>(line_seconds)),
              OVEXSDK_OK);
    for (const auto mode : {BinEvcountImage, BinItotImage, BinCompletely}) {
        seen.counts.clear();
        seen.itots.clear();
        seen.pixels.clear();
        ASSERT_EQ(Start(mode, &scan), OVEXSDK_OK);
        for (int line = 0; line < 3; ++line) {
            Engine().PulseTriggerInput(1us);
            Engine().AdvanceTime(std::chrono::duration<double>(2 * line_seconds));
        }
        // The third line ends the readout.
        ASSERT_EQ(ovexsdk_acq_await_end(&m_ctx), OVEXSDK_OK) << mode;
        const vboard::StreamTruth truth = Engine().TakeStreamTruth();
        ASSERT_EQ(truth.line_starts.size(), 3U);
        const auto reference = tpx3_stream::BinLines(truth, bin_width, 40);
        ASSERT_GT(std::accumulate(reference.counts.begin(), reference.counts.end(), 0ULL), 500U);
        if (mode != BinItotImage) {
            EXPECT_EQ(seen.counts, reference.counts) << mode;
        }
        if (mode != BinEvcountImage) {
            EXPECT_EQ(seen.itots, reference.itots) << mode;
        }
        if (mode == BinCompletely) {
            EXPECT_EQ(seen.pixels, reference.pixels);
        }
    }
    EXPECT_TRUE(m_log.Contains(log::kDebug, "Full scan data received."));
}

TEST_F(DataDrivenSession, LongLevelGateCrossesTheTickPageAndTriggerEdgesArriveAsTdc) {
    // A faint beam for 110 s, past 2^32 ticks of the ToA clock, in one line. The records come
    // as the blocks do: a sort would hold the newest back until a later line or the stop.
    Beam(1500, 0);
    ASSERT_EQ(SetTrigger(ExternalStartExternalStopLevel, 0), OVEXSDK_OK);
    ASSERT_EQ(Start(DefaultProcessing), OVEXSDK_OK);
    Engine().SetTriggerInput(true);
    Engine().AdvanceTime(110s);
    Engine().SetTriggerInput(false);
    const vboard::StreamTruth truth = Engine().TakeStreamTruth();
    AwaitRecords(truth.records.size());
    EXPECT_EQ(ovexsdk_acq_abort(&m_ctx), OVEXSDK_OK);
    EXPECT_EQ(ovexsdk_acq_await_end(&m_ctx), OVEXSDK_OK);
    ASSERT_EQ(truth.tdc[0].size(), 1U) << "the edge that opened the line";
    EXPECT_EQ(seen.tdc[0], truth.tdc[0]);
    EXPECT_EQ(seen.records, truth.records);
    ASSERT_FALSE(seen.records.empty());
    EXPECT_GT(seen.records.back().time >> 4, std::uint64_t{1} << 32);
}

TEST_F(DataDrivenSession, SlowHostGetsEveryHitAfterTheBoardSentThemAll) {
    // About a million hits, in several of the host's transfers, while the callback waits.
    Beam(2.5e8, 0);
    seen.Hold(true);
    ASSERT_EQ(SetTrigger(InternalStartShutterDuration, 0.004f), OVEXSDK_OK);
    ASSERT_EQ(Start(DefaultProcessing), OVEXSDK_OK);
    ASSERT_EQ(ovexsdk_trigger_now(&m_ctx), OVEXSDK_OK);
    Engine().AdvanceTime(4ms);
    seen.WaitUntil([&] { return seen.callbacks >= 1; });
    while (Engine().StreamCounts().fifo_bytes != 0) {
        std::this_thread::yield();  // the host's transfers drain the board meanwhile
    }
    seen.Hold(false);
    ASSERT_EQ(ovexsdk_acq_await_end(&m_ctx), OVEXSDK_OK);
    const vboard::StreamTruth truth = Engine().TakeStreamTruth();
    EXPECT_GT(truth.records.size(), 800'000U);
    EXPECT_EQ(seen.records.size(), truth.records.size());
    EXPECT_TRUE(seen.records == truth.records);
}

TEST_F(DataDrivenSession, StartsAbortsAndWaitsInAnyOrderLeaveTheNextReadoutWhole) {
    ASSERT_EQ(SetTrigger(ExternalStartExternalStopLevel, 0), OVEXSDK_OK);
    for (int round = 0; round < 3; ++round) {
        // Abort before any data, during a line, after its end; await after each.
        ASSERT_EQ(Start(SortByToa), OVEXSDK_OK);
        if (round > 0) {
            Engine().SetTriggerInput(true);
            Engine().AdvanceTime(1ms);
        }
        if (round > 1) {
            Engine().SetTriggerInput(false);
        }
        EXPECT_EQ(ovexsdk_acq_abort(&m_ctx), OVEXSDK_OK);
        EXPECT_EQ(ovexsdk_acq_await_end(&m_ctx), OVEXSDK_OK);
        EXPECT_EQ(ovexsdk_acq_abort(&m_ctx), OVEXSDK_OK) << "a second abort changes nothing";
        Engine().SetTriggerInput(false);
    }
    Engine().TakeStreamTruth();
    seen.records.clear();
    RunLine(DefaultProcessing, 0.002);
    EXPECT_EQ(seen.records, Engine().TakeStreamTruth().records);
}

TEST_F(DataDrivenSession, BoardThatGoesAwayMidStreamEndsTheReadout) {
    ASSERT_EQ(SetTrigger(ExternalStartExternalStopLevel, 0), OVEXSDK_OK);
    ASSERT_EQ(Start(DefaultProcessing), OVEXSDK_OK);
    Engine().SetTriggerInput(true);
    Engine().AdvanceTime(2ms);
    Board().Usb().Unplug();
    EXPECT_EQ(ovexsdk_acq_await_end(&m_ctx), OVEXSDK_ERR_FAILED);
    EXPECT_NE(ovexsdk_acq_abort(&m_ctx), OVEXSDK_OK);
    ovexsdk_dev_close(&m_ctx);
}

TEST_F(DataDrivenSession, CorruptStreamEndsThePipelineAndTheHostHearsOfIt) {
    tpx3_stream::StreamSettings settings;
    settings.lines = 1;
    settings.hits_per_tick = 0.2;
    settings.block_bytes = 6 * 1000;
    settings.cfg_packet_block = 3;
    settings.fault_type_unknown = true;
    const auto stream = tpx3_stream::Generate(settings);
    vboard::ReplayStream replay;
    replay.bytes = stream.bytes;
    replay.packets_per_second = 1e7;
    Engine().SetReplay(std::move(replay));
    RunLine(DefaultProcessing, 0.002);
    EXPECT_TRUE(m_log.Contains(log::kError,
                               "Pipeline terminated with exception: Encountered Timepix3 packet "
                               "with unsupported header UNKNOWN."));
    EXPECT_LT(seen.records.size(), Engine().StreamCounts().hits_sent);
}

TEST_F(DataDrivenSession, EachProcessingModeAnswersItsGettersOnly) {
    ovexsdk_acq_params scan{};
    scan.scan = {20, 3, 1000};
    ASSERT_EQ(SetTrigger(ExternalStartExternalStopLevel, 0), OVEXSDK_OK);
    const auto start_and_abort = [&](ovexsdk_acq_process_mode mode, const ovexsdk_acq_params* p) {
        seen.toa_tot.clear();
        seen.itot.clear();
        seen.evcount.clear();
        seen.bins.clear();
        seen.callbacks = 0;
        ASSERT_EQ(Start(mode, p), OVEXSDK_OK);
        EXPECT_EQ(ovexsdk_acq_abort(&m_ctx), OVEXSDK_OK);
        EXPECT_EQ(ovexsdk_acq_await_end(&m_ctx), OVEXSDK_OK);
    };
    // Without data the record modes have nothing to give; the Stop of a scan still gives its
    // last, empty fragment.
    for (const auto mode : {DefaultProcessing, SortByToa}) {
        start_and_abort(mode, nullptr);
        EXPECT_EQ(seen.callbacks, 0) << mode;
    }
    start_and_abort(BinEvcountImage, &scan);
    ASSERT_EQ(seen.callbacks, 1);
    EXPECT_EQ(seen.evcount[0], OVEXSDK_OK);
    EXPECT_EQ(seen.itot[0], OVEXSDK_ERR_FAILED);
    EXPECT_EQ(seen.toa_tot[0], OVEXSDK_ERR_FAILED);
    EXPECT_TRUE(m_log.Contains(log::kError, "BUG: Invalid acquisition data variant."));
    start_and_abort(BinItotImage, &scan);
    ASSERT_EQ(seen.callbacks, 1);
    EXPECT_EQ(seen.itot[0], OVEXSDK_OK);
    EXPECT_EQ(seen.evcount[0], OVEXSDK_ERR_FAILED);
    // The complete binning answers all three of its getters.
    start_and_abort(BinCompletely, &scan);
    ASSERT_EQ(seen.callbacks, 1);
    EXPECT_EQ(seen.bins[0], OVEXSDK_OK);
    EXPECT_EQ(seen.itot[0], OVEXSDK_OK);
    EXPECT_EQ(seen.evcount[0], OVEXSDK_OK);
    EXPECT_EQ(seen.toa_tot[0], OVEXSDK_ERR_FAILED);
}

TEST_F(DataDrivenSession, ScansNeedTheirParametersAndOneReadoutRunsAtATime) {
    ASSERT_EQ(SetTrigger(ExternalStartExternalStopLevel, 0), OVEXSDK_OK);
    EXPECT_EQ(Start(BinCompletely), OVEXSDK_ERR_INVALID);
    EXPECT_TRUE(m_log.Contains(log::kError, "No scan parameters provided."));
    ovexsdk_acq_params zero{};
    zero.scan = {20, 0, 1000};
    EXPECT_EQ(Start(BinCompletely, &zero), OVEXSDK_ERR_INVALID);
    EXPECT_TRUE(
        m_log.Contains(log::kError, "One or more of the scan parameters is missing/set to zero."));

    // A second start while the first runs is refused, naming both.
    ASSERT_EQ(Start(SortByToa), OVEXSDK_OK);
    EXPECT_EQ(Start(SortByToa), OVEXSDK_ERR_BUSY);
    EXPECT_TRUE(m_log.Contains(log::kError,
                               "Failed to start Timepix3 data-driven sorted ToA+ToT acquisition, "
                               "because Timepix3 data-driven sorted ToA+ToT acquisition is already "
                               "running."));
    EXPECT_EQ(ovexsdk_acq_abort(&m_ctx), OVEXSDK_OK);
    EXPECT_EQ(ovexsdk_acq_await_end(&m_ctx), OVEXSDK_OK);

    // The fragment getters outside a callback.
    ovexsdk_acq_tpx3_itot_fragment itot{};
    EXPECT_EQ(ovexsdk_acq_get_tpx3_itot_fragment(&m_ctx, &itot), OVEXSDK_ERR_FAILED);
    EXPECT_EQ(ovexsdk_acq_get_tpx3_itot_fragment(&m_ctx, nullptr), OVEXSDK_ERR_INVALID);
    EXPECT_EQ(ovexsdk_acq_get_tpx3_itot_evcount_bins(&m_ctx, nullptr), OVEXSDK_ERR_INVALID);
    EXPECT_EQ(ovexsdk_acq_get_tpx3_evcount_fragment(nullptr, nullptr), OVEXSDK_ERR_INVALID);
}

}  // namespace
}  // namespace ovex::sdk::testing
