#include "result_collector.hpp"

#include <cstring>
#include <numeric>

namespace ovex::cli {

ResultCollector::ResultCollector(const AcquireOptions& options, ChunkQueue& queue,
                                 bool keep_results, bool keep_raw)
    : m_kind(ResultKindOf(options)),
      m_processing(options.processing),
      m_counts_are_hits(options.chip_mode == EvCount8Bit || options.chip_mode == EvCount10Bit ||
                        options.chip_mode == EvCount14Bit),
      m_scan_bins(std::uint64_t{options.lines} * options.bins),
      m_queue(queue),
      m_keep_results(keep_results),
      m_keep_raw(keep_raw) {}

void ResultCollector::OnData(ovexsdk_dev_ctx* ctx, void* user) {
    static_cast<ResultCollector*>(user)->Take(ctx);
}

bool ResultCollector::ScanComplete() const {
    return m_scan_bins != 0 && Records() >= m_scan_bins;
}

void ResultCollector::Take(ovexsdk_dev_ctx* ctx) {
    if (m_keep_raw) {
        TakeRaw(ctx);
    }
    bool read = false;
    switch (m_kind) {
        case ResultKind::kHits:
            read = TakeHits(ctx);
            break;
        case ResultKind::kItotPixels:
            read = TakeItotPixels(ctx);
            break;
        case ResultKind::kScanValues:
            read = TakeScanValues(ctx);
            break;
        case ResultKind::kTpx2Frames:
            read = TakeFrames(ctx);
            break;
    }
    if (!read) {
        m_failed_reads.fetch_add(1, std::memory_order_relaxed);
    }
}

// The buffers of one result as one chunk, in the order the board sent them.
void ResultCollector::TakeRaw(ovexsdk_dev_ctx* ctx) {
    const ovexsdk_acq_raw_data* buffers = nullptr;
    std::uint64_t count = 0;
    if (ovexsdk_acq_get_raw_data(ctx, &buffers, &count) != OVEXSDK_OK) {
        m_failed_reads.fetch_add(1, std::memory_order_relaxed);
        return;
    }
    std::uint64_t bytes = 0;
    for (std::uint64_t i = 0; i < count; ++i) {
        bytes += buffers[i].size;
    }
    if (bytes == 0) {
        return;
    }
    Chunk chunk{Chunk::kRaw, std::vector<std::byte>(bytes)};
    std::byte* end = chunk.bytes.data();
    for (std::uint64_t i = 0; i < count; ++i) {
        std::memcpy(end, buffers[i].data, buffers[i].size);
        end += buffers[i].size;
    }
    m_queue.Push(std::move(chunk));
}

bool ResultCollector::TakeHits(ovexsdk_dev_ctx* ctx) {
    ovexsdk_acq_tpx3_acq_toa_tot block;
    if (ovexsdk_acq_get_tpx3_toa_tot_packets(ctx, &block) != OVEXSDK_OK) {
        return false;
    }
    Keep(block.records, block.count * sizeof *block.records);
    Count(block.count, block.count);
    return true;
}

bool ResultCollector::TakeItotPixels(ovexsdk_dev_ctx* ctx) {
    const ovexsdk_acq_tpx3_itot_evcount* pixels = nullptr;
    std::uint64_t count = 0;
    if (ovexsdk_acq_get_tpx3_itot_evcount_packets(ctx, &pixels, &count) != OVEXSDK_OK) {
        return false;
    }
    Keep(pixels, count * sizeof *pixels);
    std::uint64_t events = 0;
    for (std::uint64_t i = 0; i < count; ++i) {
        events += pixels[i].events;
    }
    Count(count, events);
    return true;
}

// The iToT sums of the iToT image, otherwise the event counts, which the complete binning
// brings too.
bool ResultCollector::TakeScanValues(ovexsdk_dev_ctx* ctx) {
    const std::uint64_t* values = nullptr;
    std::uint64_t count = 0;
    if (m_processing == BinItotImage) {
        ovexsdk_acq_tpx3_itot_fragment fragment;
        if (ovexsdk_acq_get_tpx3_itot_fragment(ctx, &fragment) != OVEXSDK_OK) {
            return false;
        }
        values = fragment.itots;
        count = fragment.count;
    } else {
        ovexsdk_acq_tpx3_evcount_fragment fragment;
        if (ovexsdk_acq_get_tpx3_evcount_fragment(ctx, &fragment) != OVEXSDK_OK) {
            return false;
        }
        values = fragment.events;
        count = fragment.count;
    }
    Keep(values, count * sizeof *values);
    const bool hits = m_processing != BinItotImage;
    Count(count, hits ? std::accumulate(values, values + count, std::uint64_t{0}) : 0);
    return true;
}

bool ResultCollector::TakeFrames(ovexsdk_dev_ctx* ctx) {
    const ovexsdk_acq_tpx2_frame* frames = nullptr;
    std::uint64_t count = 0;
    if (ovexsdk_acq_get_tpx2_frames(ctx, &frames, &count) != OVEXSDK_OK) {
        return false;
    }
    std::uint64_t hits = 0;
    for (std::uint64_t f = 0; f < count; ++f) {
        Keep(frames[f].pixels, frames[f].count * sizeof *frames[f].pixels);
        if (m_counts_are_hits) {
            hits = std::accumulate(frames[f].pixels, frames[f].pixels + frames[f].count, hits);
        }
    }
    Count(count, hits);
    return true;
}

void ResultCollector::Keep(const void* data, std::uint64_t bytes) {
    if (!m_keep_results || (bytes == 0 && m_kind != ResultKind::kTpx2Frames)) {
        return;
    }
    const auto* begin = static_cast<const std::byte*>(data);
    m_queue.Push({Chunk::kResult, std::vector<std::byte>(begin, begin + bytes)});
}

void ResultCollector::Count(std::uint64_t records, std::uint64_t hits) {
    m_records.fetch_add(records, std::memory_order_relaxed);
    m_hits.fetch_add(hits, std::memory_order_relaxed);
}

}  // namespace ovex::cli
