#pragma once

// What the pipeline hands every step when it builds it: the two queues and the settings of
// the acquisition. Each step takes what it needs.

#include <atomic>
#include <cstdint>
#include <exception>
#include <memory>
#include <mutex>
#include <string>

#include "tpx3_pipeline/blocking_queue.hpp"
#include "tpx3_pipeline/common.hpp"
#include "tpx3_toa_extension/utils/memory_allocator.hpp"

namespace tpx3_pipeline {

struct BinningParameters {
    std::uint64_t bin_width = 0;      // sixteenths of a ToA tick
    std::uint32_t bins_per_line = 0;  // bins in a scan line
    std::uint32_t lines = 0;          // scan lines in the readout
};

struct PipelineOptions {
    // The ring of the record arrays; the process-wide one unless a test brings its own.
    tpx3_toa_extension::ArenaAllocator* ring = nullptr;
    BinningParameters binning;
};

// The first failure of a run. A stage that throws doesn't unwind through oneTBB, which would
// abandon the items in flight: the failure is noted, the head stops taking entries, and every
// stage drops what still comes, so that each item is destroyed by its owner.
class RunFailure {
public:
    void Note(const char* what) {
        std::lock_guard lock(m_mutex);
        if (!m_failed.load(std::memory_order_relaxed)) {
            m_what = what;
            m_failed.store(true, std::memory_order_release);
        }
    }
    bool Failed() const noexcept { return m_failed.load(std::memory_order_acquire); }
    const std::atomic<bool>& Flag() const noexcept { return m_failed; }
    std::string What() const {
        std::lock_guard lock(m_mutex);
        return m_what;
    }
    // oneTBB hands items and serial-stage state from thread to thread in order, but through
    // synchronisation that a race detector can't see into. One acquire-release step on a shared
    // counter at each stage's start and end states the same order openly; it costs one atomic
    // operation per stage and block.
    void OrderStages() noexcept { m_stage_order.fetch_add(1, std::memory_order_acq_rel); }

    void Clear() {
        std::lock_guard lock(m_mutex);
        m_what.clear();
        m_failed.store(false, std::memory_order_release);
    }

private:
    mutable std::mutex m_mutex;
    std::atomic<bool> m_failed{false};
    std::atomic<std::uint64_t> m_stage_order{0};
    std::string m_what;
};

template <typename OutItem>
struct StepContext {
    BlockingQueue<common::DataEntry>& in;
    BlockingQueue<OutItem>& out;
    const PipelineOptions& options;
    RunFailure& failure;
};

// Items travel between stages as plain pointers into their recyclers, which oneTBB passes on
// as they are; each stage body takes ownership at once, and the item goes back to its recycler
// when the body is done with it. No exception leaves a body, so oneTBB never abandons an item
// in flight.
//
// A stage body that passes nothing on once the run has failed, and notes its own failure.
template <typename In, typename Out, typename Body>
auto Guarded(RunFailure& failure, Body body) {
    return [&failure, body = std::move(body)](In* raw) -> Out* {
        Pooled<In> item(raw);
        failure.OrderStages();
        Pooled<Out> result;
        if (item && !failure.Failed()) {
            try {
                result = body(std::move(item));
            } catch (const std::exception& error) {
                failure.Note(error.what());
            }
        }
        item.reset();
        failure.OrderStages();
        return result.release();
    };
}

// The same for the last stage, which passes nothing on.
template <typename In, typename Body>
auto GuardedSink(RunFailure& failure, Body body) {
    return [&failure, body = std::move(body)](In* raw) {
        Pooled<In> item(raw);
        failure.OrderStages();
        if (item && !failure.Failed()) {
            try {
                body(std::move(item));
            } catch (const std::exception& error) {
                failure.Note(error.what());
            }
        }
        item.reset();
        failure.OrderStages();
    };
}

}  // namespace tpx3_pipeline
