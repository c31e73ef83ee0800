#pragma once

// What the pipeline hands every step when it builds it: the two queues and the settings of
// the acquisition. Each step takes what it needs.

#include <cstdint>

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

template <typename OutItem>
struct StepContext {
    BlockingQueue<common::DataEntry>& in;
    BlockingQueue<OutItem>& out;
    const PipelineOptions& options;
};

}  // namespace tpx3_pipeline
