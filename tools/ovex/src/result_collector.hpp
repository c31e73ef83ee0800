// The data callback of a run: counts what each result brings and copies what the files need
// into the queue, as the results are valid only during the callback. The library calls it on
// one of its threads at a time; the counts are read by the host's thread as they grow.
#pragma once

#include <atomic>
#include <cstdint>

#include "acquire_options.hpp"
#include "chunk_queue.hpp"

namespace ovex::cli {

class ResultCollector {
public:
    // `queue` takes the results when `keep_results`, the raw buffers when `keep_raw`.
    ResultCollector(const AcquireOptions& options, ChunkQueue& queue, bool keep_results,
                    bool keep_raw);

    // The function and its user pointer for ovexsdk_acq_start.
    static void OnData(ovexsdk_dev_ctx* ctx, void* user);

    // Hit records, iToT pixels, scan bin values or Timepix2 frames, as the mode brings them.
    std::uint64_t Records() const { return m_records.load(std::memory_order_relaxed); }
    // The hits they stand for: records, events, the event counts of bins or Timepix2 counts;
    // 0 where the values are sums of ToT (itot-image, itot10, itot14).
    std::uint64_t Hits() const { return m_hits.load(std::memory_order_relaxed); }
    std::uint64_t FailedReads() const { return m_failed_reads.load(std::memory_order_relaxed); }
    // A scan whose every bin has come.
    bool ScanComplete() const;

private:
    void Take(ovexsdk_dev_ctx* ctx);
    void TakeRaw(ovexsdk_dev_ctx* ctx);
    bool TakeHits(ovexsdk_dev_ctx* ctx);
    bool TakeItotPixels(ovexsdk_dev_ctx* ctx);
    bool TakeScanValues(ovexsdk_dev_ctx* ctx);
    bool TakeFrames(ovexsdk_dev_ctx* ctx);
    void Keep(const void* data, std::uint64_t bytes);
    void Count(std::uint64_t records, std::uint64_t hits);

    const ResultKind m_kind;
    const ovexsdk_acq_process_mode m_processing;
    const bool m_counts_are_hits;  // Timepix2: event counts rather than sums of ToT
    const std::uint64_t m_scan_bins;
    ChunkQueue& m_queue;
    const bool m_keep_results;
    const bool m_keep_raw;
    std::atomic<std::uint64_t> m_records{0};
    std::atomic<std::uint64_t> m_hits{0};
    std::atomic<std::uint64_t> m_failed_reads{0};
};

}  // namespace ovex::cli
