// Readouts through the older interface on virtual boards: what the data callback reads through
// its acquisition record in each Timepix3 mode and from Timepix2 frames, against what the board
// sent; the record's life across begin, end and abort; and what bad input gets.

#include <gtest/gtest.h>

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <vector>

#include "support/legacy_session.hpp"
#include "support/log_capture.hpp"
#include "tpx3_stream/reference.hpp"

namespace ovex::sdk::testing {
namespace {

using namespace std::chrono_literals;
using tpx3_stream::ExpectedRecord;
using tpx3_stream::ReferencePixel;

// The address the chip sends for the host's pixel.
std::uint32_t AddressOf(std::uint32_t pixel) {
    const auto mirrored = static_cast<std::uint16_t>(65535 - pixel);
    return static_cast<std::uint16_t>(mirrored << 8 | mirrored >> 8);
}

// What the host's data callback read through the acquisition record, copied while it ran.
struct Seen {
    void WaitUntil(const std::function<bool()>& done) {
        std::unique_lock lock(mutex);
        changed.wait(lock, done);
    }

    ovex_ctx* ctx = nullptr;
    std::mutex mutex;
    std::condition_variable changed;
    int callbacks = 0;
    ovex_acq record{};           // as the last callback got it
    bool found_buffers = false;  // a callback found buffers of an earlier one
    bool raw_kept_apart = true;  // a second raw join gave the same bytes in a new buffer
    std::int32_t packet_count = 0, packets = 0, bin_count = 0, frame_count = 0, tdc_beyond = 0;
    std::vector<ExpectedRecord> records;
    std::vector<ovexsdk_acq_tpx3_itot_evcount> itot;
    std::vector<std::vector<ReferencePixel>> bins;  // each bin's records, cut by its descriptor
    std::vector<std::uint64_t> hitcounters, itots, rising, tdc0;
    std::uint32_t tdc_lists = 0;
    std::vector<std::vector<std::uint16_t>> frames;  // one joined buffer per callback
    std::uint64_t raw_bytes = 0;
};

void CopyPackets(ovex_acq* acq, Seen& seen) {
    std::uint32_t count = 0;
    const void* packets = nullptr;
    seen.packet_count = ovex_acq_tpx3_get_packet_count(acq, &count);
    seen.packets = ovex_acq_tpx3_get_packets(acq, &packets);
    if (seen.packet_count != OVEX_OK || seen.packets != OVEX_OK || count == 0) {
        return;
    }
    if (acq->chip_mode == IToTEvCountFBZS) {
        const auto* itot = static_cast<const ovexsdk_acq_tpx3_itot_evcount*>(packets);
        seen.itot.insert(seen.itot.end(), itot, itot + count);
    } else if (acq->processing_mode == BinCompletely) {
        const auto* pixels = static_cast<const ovexsdk_tpx3_pixel_bin_record*>(packets);
        std::uint32_t bins = 0;
        const ovex_bin_descriptor* descriptors = nullptr;
        seen.bin_count = ovex_acq_meta_get_bin_descriptor_count(acq, &bins);
        if (ovex_acq_meta_get_bin_descriptors(acq, &descriptors) != OVEX_OK) {
            return;
        }
        for (std::uint32_t b = 0; b < bins; ++b) {
            auto& bin = seen.bins.emplace_back();
            for (std::uint32_t i = 0; i < descriptors[b].count; ++i) {
                const auto& pixel = pixels[descriptors[b].first + i];
                bin.push_back({pixel.address, pixel.events, pixel.itot});
            }
        }
    } else {
        const auto* records = static_cast<const ovexsdk_acq_tpx3_toa_tot_record*>(packets);
        for (std::uint32_t i = 0; i < count; ++i) {
            seen.records.push_back({records[i].address, records[i].tot, records[i].toa});
        }
    }
}

void CopyMeta(ovex_acq* acq, Seen& seen) {
    std::uint64_t rising = 0;
    if (ovex_acq_meta_get_shutter_rising_time_ticks(acq, &rising) == OVEX_OK) {
        seen.rising.push_back(rising);
    }
    std::uint32_t count = 0;
    const std::uint64_t* stamps = nullptr;
    if (ovex_acq_meta_get_tdc_info(seen.ctx, &seen.tdc_lists) == OVEX_OK &&
        ovex_acq_meta_get_tdc_toas_count(acq, 0, &count) == OVEX_OK &&
        ovex_acq_meta_get_tdc_toas(acq, 0, &stamps) == OVEX_OK) {
        seen.tdc0.insert(seen.tdc0.end(), stamps, stamps + count);
    }
    seen.tdc_beyond = ovex_acq_meta_get_tdc_toas_count(acq, seen.tdc_lists, &count);
    const std::uint64_t* values = nullptr;
    if (ovex_acq_tpx3_get_binned_hitcounters_count(acq, &count) == OVEX_OK &&
        ovex_acq_tpx3_get_binned_hitcounters(acq, &values) == OVEX_OK) {
        seen.hitcounters.insert(seen.hitcounters.end(), values, values + count);
    }
    if (ovex_acq_tpx3_get_binned_itots_count(acq, &count) == OVEX_OK &&
        ovex_acq_tpx3_get_binned_itots(acq, &values) == OVEX_OK) {
        seen.itots.insert(seen.itots.end(), values, values + count);
    }
}

void CopyFramesAndRaw(ovex_acq* acq, Seen& seen) {
    std::uint32_t frames = 0;
    const std::uint16_t* pixels = nullptr;
    seen.frame_count = ovex_acq_tpx2_get_frame_count(acq, &frames);
    if (seen.frame_count == OVEX_OK && ovex_acq_tpx2_get_event_frames(acq, &pixels) == OVEX_OK) {
        seen.frames.emplace_back(pixels, pixels + std::size_t{frames} * 65536);
    }
    const std::uint8_t* raw = nullptr;
    std::uint64_t size = 0;
    if (ovex_acq_raw_get_data(acq, &raw, &size) != OVEX_OK) {
        return;
    }
    const std::vector<std::uint8_t> first(raw, raw + size);
    const std::uint8_t* again = nullptr;
    std::uint64_t again_size = 0;
    seen.raw_kept_apart &= ovex_acq_raw_get_data(acq, &again, &again_size) == OVEX_OK &&
                           again == acq->raw &&
                           std::vector<std::uint8_t>(again, again + again_size) == first;
    seen.raw_bytes += size;
}

void OnData(ovex_acq* acq, void* user) {
    auto& seen = *static_cast<Seen*>(user);
    std::lock_guard lock(seen.mutex);
    ++seen.callbacks;
    seen.record = *acq;
    seen.found_buffers |= acq->raw != nullptr || acq->frames != nullptr || acq->bins != nullptr;
    CopyPackets(acq, seen);
    CopyMeta(acq, seen);
    CopyFramesAndRaw(acq, seen);
    seen.changed.notify_all();
}

class LegacyAcquisition : public LegacySession {
protected:
    // A powered board of `kind` under a beam, its data endpoint sending only what the chip reads
    // out, and the host's callback set.
    void PowerUp(vboard::BoardKind kind) {
        OpenPowered(kind);
        if (kind == vboard::BoardKind::kTimepix3) {
            // The chip's reset turns its data channels on.
            ASSERT_EQ(ovexsdk_chip_configure(&m_ctx->context, 0), OVEXSDK_OK);
        }
        vboard::HitModel beam;
        beam.spot_x = 70;
        beam.spot_y = 180;
        beam.spot_sigma = 7;
        beam.spot_rate = 3e6;
        beam.background_rate = 20;
        beam.seed = 11;
        Engine().SetHitModel(beam);
        seen.ctx = m_ctx;
        ASSERT_EQ(ovex_acq_set_data_callback(m_ctx, "1", &OnData, &seen), OVEX_OK);
    }

    vboard::FirmwareEngine& Engine() { return Board().Engine(); }

    // What the chip mode selection of the older interface leaves behind.
    void SelectMode(ovexsdk_chip_mode chip, ovexsdk_acq_process_mode processing) {
        ASSERT_EQ(ovexsdk_chip_set_mode(&m_ctx->context, chip), OVEXSDK_OK);
        ASSERT_EQ(ovexsdk_acq_select_processing(&m_ctx->context, processing), OVEXSDK_OK);
        m_ctx->chip_mode = chip;
        m_ctx->processing_mode = processing;
    }

    // One shutter of the single internal trigger, read out on `channel` and ended.
    void TakeShutter(const char* channel, float seconds) {
        ASSERT_EQ(ovex_trigger_mode_select(m_ctx, "software-start-shutter-duration"), OVEX_OK);
        ASSERT_EQ(ovex_trigger_set_shutter_duration(m_ctx, seconds), OVEX_OK);
        const int before = seen.callbacks;
        ASSERT_EQ(ovex_acq_begin(m_ctx, channel), OVEX_OK);
        ASSERT_EQ(ovex_trigger(m_ctx), OVEX_OK);
        Engine().AdvanceTime(std::chrono::duration<double>(seconds));
        seen.WaitUntil([&] { return seen.callbacks > before; });
        ASSERT_EQ(ovex_acq_end(m_ctx, channel), OVEX_OK);
        EXPECT_EQ(m_ctx->acquisition, nullptr);
    }

    Seen seen;
    LogCapture m_log;
};

TEST_F(LegacyAcquisition, FrameModesHandTheBoardsHitsThroughTheRecordAndFreeItsBuffers) {
    PowerUp(vboard::BoardKind::kTimepix3);
    SelectMode(ToAToTFBZS, DefaultProcessing);
    TakeShutter("1", 0.01f);
    const vboard::ReadoutFrame toa_tot = Engine().FrameLog().back();
    ASSERT_GT(toa_tot.hits.size(), 100U);
    ASSERT_EQ(seen.records.size(), toa_tot.hits.size());
    for (std::size_t i = 0; i < toa_tot.hits.size(); ++i) {
        const auto& hit = toa_tot.hits[i];
        ASSERT_EQ(seen.records[i],
                  (ExpectedRecord{AddressOf(hit.pixel), hit.tot, hit.toa & 0xFFFFF}))
            << "hit " << i;
    }
    EXPECT_EQ(seen.record.context, &m_ctx->context);
    EXPECT_EQ(seen.record.flags, 3U);
    EXPECT_EQ(seen.record.chip_mode, static_cast<std::uint32_t>(ToAToTFBZS));
    // The raw bytes joined: the hits and the closing CTRL packet.
    EXPECT_EQ(seen.raw_bytes, (toa_tot.hits.size() + 1) * 6);
    EXPECT_TRUE(seen.raw_kept_apart);
    // A frame has neither TDC lists nor bins, and it is no Timepix2 frame.
    EXPECT_EQ(seen.tdc_lists, 0U);
    EXPECT_EQ(seen.tdc_beyond, OVEX_ERR_UNAVAILABLE);
    EXPECT_EQ(seen.frame_count, OVEX_ERR_UNAVAILABLE);
    EXPECT_TRUE(seen.hitcounters.empty());

    SelectMode(IToTEvCountFBZS, DefaultProcessing);
    TakeShutter("1", 0.01f);
    const vboard::ReadoutFrame itot = Engine().FrameLog().back();
    ASSERT_EQ(seen.itot.size(), itot.hits.size());
    for (std::size_t i = 0; i < itot.hits.size(); ++i) {
        ASSERT_EQ(seen.itot[i].address, AddressOf(itot.hits[i].pixel)) << "hit " << i;
        ASSERT_EQ(seen.itot[i].events, itot.hits[i].count) << "hit " << i;
        ASSERT_EQ(seen.itot[i].itot, itot.hits[i].itot) << "hit " << i;
    }
    EXPECT_EQ(seen.bin_count, 0) << "never asked outside the complete binning";
    EXPECT_FALSE(seen.found_buffers) << "each callback finds the buffers of the last one freed";
}

TEST_F(LegacyAcquisition, DataDrivenRecordsComeInStreamOrTimeOrderWithLineStartAndTdc) {
    PowerUp(vboard::BoardKind::kTimepix3);
    SelectMode(ToAToTDD, DefaultProcessing);
    // A level gate: its opening edge is a TDC stamp on channel 0.
    ASSERT_EQ(ovex_trigger_mode_select(m_ctx, "hardware-start-hardware-stop:level"), OVEX_OK);
    ASSERT_EQ(ovex_acq_begin(m_ctx, "1"), OVEX_OK);
    Engine().SetTriggerInput(true);
    Engine().AdvanceTime(3ms);
    Engine().SetTriggerInput(false);
    const vboard::StreamTruth gate = Engine().TakeStreamTruth();
    ASSERT_GT(gate.records.size(), 1000U);
    seen.WaitUntil([&] { return seen.records.size() >= gate.records.size(); });
    EXPECT_EQ(ovex_acq_abort(m_ctx, "1"), OVEX_OK);
    EXPECT_EQ(ovex_acq_end(m_ctx, "1"), OVEX_OK);
    EXPECT_EQ(seen.records, gate.records);
    ASSERT_FALSE(seen.rising.empty());
    EXPECT_EQ(seen.rising.front(), gate.line_starts[0] / 16);
    EXPECT_EQ(seen.tdc_lists, 3U);
    EXPECT_EQ(seen.tdc0, gate.tdc[0]);
    ASSERT_EQ(seen.tdc0.size(), 1U);
    EXPECT_EQ(seen.tdc_beyond, OVEX_ERR_HANDLE);

    seen.records.clear();
    SelectMode(ToAToTDD, SortByToa);
    TakeShutter("1", 0.004f);
    const vboard::StreamTruth line = Engine().TakeStreamTruth();
    EXPECT_NE(line.records, tpx3_stream::SortedByTime(line)) << "the chip sends out of order";
    EXPECT_EQ(seen.records, tpx3_stream::SortedByTime(line));
    EXPECT_FALSE(seen.found_buffers);
}

TEST_F(LegacyAcquisition, CompleteBinningDescribesWhereEachBinsRecordsLie) {
    PowerUp(vboard::BoardKind::kTimepix3);
    SelectMode(ToAToTDD, BinCompletely);
    // Three lines of 40 bins of 2.5 µs, one per pulse on the trigger input.
    m_ctx->params.scan = {40, 3, 2500};
    const double line_seconds = 40 * 2.5e-6;
    ASSERT_EQ(ovex_trigger_mode_select(m_ctx, "hardware-start-shutter-duration"), OVEX_OK);
    ASSERT_EQ(ovex_trigger_set_shutter_duration(m_ctx, static_cast<float>(line_seconds)), OVEX_OK);
    ASSERT_EQ(ovex_acq_begin(m_ctx, "1"), OVEX_OK);
    for (int line = 0; line < 3; ++line) {
        Engine().PulseTriggerInput(1us);
        Engine().AdvanceTime(std::chrono::duration<double>(2 * line_seconds));
    }
    ASSERT_EQ(ovex_acq_end(m_ctx, "1"), OVEX_OK);
    const auto reference = tpx3_stream::BinLines(Engine().TakeStreamTruth(), 2500 * 16 / 25, 40);
    ASSERT_EQ(reference.pixels.size(), 120U);
    EXPECT_EQ(seen.bin_count, OVEX_OK);
    EXPECT_EQ(seen.bins, reference.pixels);
    EXPECT_EQ(seen.hitcounters, reference.counts);
    EXPECT_EQ(seen.itots, reference.itots);
    EXPECT_FALSE(seen.found_buffers);
}

TEST_F(LegacyAcquisition, Timepix2FramesAreJoinedSixteenBitsAPixelAndTheRawChannelHasNone) {
    PowerUp(vboard::BoardKind::kTimepix2Cb);
    SelectMode(EvCount8Bit, DefaultProcessing);
    TakeShutter("1", 0.002f);
    const auto board = Engine().Tpx2FrameLog();
    ASSERT_EQ(board.size(), 1U);
    ASSERT_EQ(seen.frames.size(), 1U);
    EXPECT_EQ(seen.frames[0], board[0].pixels);
    EXPECT_EQ(seen.raw_bytes, 65536U) << "a byte a pixel";
    EXPECT_EQ(seen.packet_count, OVEX_ERR_UNAVAILABLE);

    // "raw" asks for the board's bytes alone.
    TakeShutter("raw", 0.002f);
    EXPECT_EQ(seen.record.flags, 1U);
    ASSERT_EQ(seen.frames.size(), 2U);
    EXPECT_TRUE(seen.frames[1].empty());
    EXPECT_EQ(seen.raw_bytes, 2 * 65536U);
    EXPECT_FALSE(seen.found_buffers);
}

TEST_F(LegacyAcquisition, TheRecordLivesFromBeginToEndAndARunningReadoutKeepsIt) {
    PowerUp(vboard::BoardKind::kTimepix3);
    SelectMode(ToAToTDD, DefaultProcessing);
    // No trigger yet: the refused start frees the record.
    EXPECT_EQ(ovex_acq_begin(m_ctx, "1"), OVEX_ERR_UNAVAILABLE);
    EXPECT_EQ(m_ctx->acquisition, nullptr);
    ASSERT_EQ(ovex_trigger_mode_select(m_ctx, "hardware-start-hardware-stop:edge"), OVEX_OK);

    ASSERT_EQ(ovex_acq_begin(m_ctx, "raw"), OVEX_OK);
    ovex_acq* const record = m_ctx->acquisition;
    ASSERT_NE(record, nullptr);
    EXPECT_EQ(ovex_acq_begin(m_ctx, "1"), OVEX_ERR_UNAVAILABLE);
    EXPECT_EQ(m_ctx->acquisition, record);
    EXPECT_TRUE(m_log.Contains(log::kError,
                               "Failed to start Timepix3 data-driven ToA+ToT acquisition, because "
                               "Timepix3 data-driven ToA+ToT acquisition is already running."));
    // Outside a callback the getters have nothing to read.
    std::uint32_t count = 0;
    EXPECT_EQ(ovex_acq_tpx3_get_packet_count(record, &count), OVEX_ERR_UNAVAILABLE);
    EXPECT_EQ(ovex_acq_abort(m_ctx, "2"), OVEX_ERR_INVALID);
    EXPECT_EQ(ovex_acq_abort(m_ctx, "1"), OVEX_OK);
    EXPECT_EQ(ovex_acq_end(m_ctx, "raw"), OVEX_OK);
    EXPECT_EQ(m_ctx->acquisition, nullptr);

    // An unknown channel: the start refuses no channel at all; the end frees without waiting.
    EXPECT_EQ(ovex_acq_begin(m_ctx, "2"), OVEX_ERR_INVALID);
    EXPECT_EQ(m_ctx->acquisition, nullptr);
    ASSERT_EQ(ovex_acq_begin(m_ctx, "1"), OVEX_OK);
    EXPECT_EQ(ovex_acq_end(m_ctx, "2"), OVEX_ERR_INVALID);
    EXPECT_EQ(m_ctx->acquisition, nullptr);
    EXPECT_EQ(ovex_acq_abort(m_ctx, "1"), OVEX_OK);
    EXPECT_EQ(ovex_acq_end(m_ctx, "1"), OVEX_OK);

    // Channels, and the callback's.
    ASSERT_EQ(ovex_acq_ch_count(m_ctx, &count), OVEX_OK);
    EXPECT_EQ(count, 2U);
    const char* id = nullptr;
    ASSERT_EQ(ovex_acq_ch_id(m_ctx, 0, &id), OVEX_OK);
    EXPECT_STREQ(id, "raw");
    ASSERT_EQ(ovex_acq_ch_id(m_ctx, 1, &id), OVEX_OK);
    EXPECT_STREQ(id, "1");
    EXPECT_EQ(ovex_acq_ch_id(m_ctx, 2, &id), OVEX_ERR_HANDLE);
    EXPECT_EQ(ovex_acq_set_data_callback(m_ctx, "2", &OnData, nullptr), OVEX_ERR_INVALID);
    EXPECT_EQ(ovex_acq_set_data_callback(m_ctx, "raw", nullptr, nullptr), OVEX_ERR_HANDLE);
    EXPECT_EQ(m_ctx->data_user, &seen) << "a refused callback leaves the last one";
    EXPECT_EQ(seen.callbacks, 0);
}

TEST_F(LegacyAcquisition, BadHandlesAndPointersAreRefusedBeforeTheLibraryIsAsked) {
    New();
    // A handle that ovex_ctx_delete released has its magic cleared; a record of the current
    // interface starts with its own.
    const auto released = std::make_unique<ovex_ctx>();
    auto* current = reinterpret_cast<ovex_ctx*>(&m_ctx->context);
    m_log.Clear();
    std::uint32_t count = 0;
    const char* text = nullptr;
    for (ovex_ctx* bad : {static_cast<ovex_ctx*>(nullptr), released.get(), current}) {
        EXPECT_EQ(ovex_acq_ch_count(bad, &count), OVEX_ERR_HANDLE);
        EXPECT_EQ(ovex_acq_ch_id(bad, 0, &text), OVEX_ERR_HANDLE);
        EXPECT_EQ(ovex_acq_set_data_callback(bad, "1", &OnData, nullptr), OVEX_ERR_HANDLE);
        EXPECT_EQ(ovex_acq_begin(bad, "1"), OVEX_ERR_HANDLE);
        EXPECT_EQ(ovex_acq_end(bad, "1"), OVEX_ERR_HANDLE);
        EXPECT_EQ(ovex_acq_abort(bad, "1"), OVEX_ERR_HANDLE);
        EXPECT_EQ(ovex_acq_meta_get_tdc_info(bad, &count), OVEX_ERR_HANDLE);
        EXPECT_EQ(ovex_acq_get_last_error(bad, &text), OVEX_ERR_HANDLE);
    }
    EXPECT_EQ(ovex_acq_ch_count(m_ctx, nullptr), OVEX_ERR_HANDLE);
    EXPECT_EQ(ovex_acq_begin(m_ctx, nullptr), OVEX_ERR_HANDLE);
    EXPECT_EQ(ovex_acq_get_last_error(m_ctx, nullptr), OVEX_ERR_HANDLE);
    EXPECT_EQ(ovex_acq_get_last_error(m_ctx, &text), OVEX_ERR_UNAVAILABLE);

    // The getters' record and outputs, and the getters that are not available.
    ovex_acq record{};
    const void* packets = nullptr;
    const std::uint8_t* raw = nullptr;
    const std::uint16_t* frames = nullptr;
    const std::uint64_t* values = nullptr;
    const ovex_bin_descriptor* bins = nullptr;
    std::uint64_t size = 0;
    EXPECT_EQ(ovex_acq_raw_get_data(nullptr, &raw, &size), OVEX_ERR_HANDLE);
    EXPECT_EQ(ovex_acq_raw_get_data(&record, &raw, nullptr), OVEX_ERR_HANDLE);
    EXPECT_EQ(ovex_acq_tpx2_get_event_frames(&record, nullptr), OVEX_ERR_HANDLE);
    EXPECT_EQ(ovex_acq_tpx3_get_packets(nullptr, &packets), OVEX_ERR_HANDLE);
    EXPECT_EQ(ovex_acq_tpx3_get_binned_itots(&record, nullptr), OVEX_ERR_HANDLE);
    EXPECT_EQ(ovex_acq_meta_get_tdc_toas(nullptr, 0, &values), OVEX_ERR_HANDLE);
    EXPECT_EQ(ovex_acq_meta_get_bin_descriptors(&record, nullptr), OVEX_ERR_HANDLE);
    // The mode decides before the library is asked: the zeroed record has none.
    EXPECT_EQ(ovex_acq_meta_get_bin_descriptors(&record, &bins), OVEX_ERR_UNAVAILABLE);
    EXPECT_EQ(ovex_acq_tpx3_get_packet_count(&record, &count), OVEX_ERR_UNAVAILABLE);
    EXPECT_EQ(ovex_acq_tpx2_get_toa_frames(&record, &frames), OVEX_ERR_UNAVAILABLE);
    EXPECT_EQ(ovex_acq_tpx2_get_tot_frames(nullptr, &frames), OVEX_ERR_HANDLE);
    EXPECT_EQ(ovex_acq_tpx3_get_toa_vec(&record, nullptr), OVEX_ERR_HANDLE);
    EXPECT_EQ(ovex_acq_tpx3_get_toa_vec(&record, &values), OVEX_ERR_UNAVAILABLE);
    EXPECT_EQ(ovex_acq_tpx3_get_vec_length(&record, &count), OVEX_ERR_UNAVAILABLE);
    EXPECT_EQ(ovex_acq_tpx_get_frames(&record, &frames), OVEX_ERR_UNAVAILABLE);
    EXPECT_TRUE(m_log.Messages().empty());

    // Without a device the start's -19 is a handle error, and the record goes again.
    EXPECT_EQ(ovex_acq_begin(m_ctx, "1"), OVEX_ERR_HANDLE);
    EXPECT_EQ(m_ctx->acquisition, nullptr);
}

}  // namespace
}  // namespace ovex::sdk::testing
