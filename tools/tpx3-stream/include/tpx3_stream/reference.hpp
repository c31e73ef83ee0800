#pragma once

// Plain computations of what the pipeline's sorted and binned modes must give, from the
// generator's truth alone.

#include <cstdint>
#include <vector>

#include "tpx3_stream/generator.hpp"

namespace tpx3_stream {

// All records in time order; the generator makes every time unique.
std::vector<ExpectedRecord> SortedByTime(const GeneratedStream& stream);

struct ReferencePixel {
    std::uint32_t address;
    std::uint32_t events;
    std::uint32_t itot;
    bool operator==(const ReferencePixel&) const = default;
};

// Per bin of every line, in order: the records whose time lies in the bin.
struct ReferenceBins {
    std::vector<std::uint64_t> counts;
    std::vector<std::uint64_t> itots;
    std::vector<std::vector<ReferencePixel>> pixels;  // first appearance in time order
};

ReferenceBins BinLines(const GeneratedStream& stream, std::uint64_t bin_width,
                       std::uint32_t bins_per_line);

}  // namespace tpx3_stream
