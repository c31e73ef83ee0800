#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "tpx3_toa_extension/dd_toa_tot/logic.hpp"

namespace tpx3_pipeline {

// Room that the sorts work in. It grows to what the largest block needs and is kept, so that
// a sort with the same scratch allocates nothing once it has seen the largest block.
struct SortScratch {
    std::vector<tpx3_toa_extension::ToaTotRecord> records;
    std::vector<tpx3_toa_extension::ToaTotRecord> aside;
    std::vector<std::uint32_t> counts;
};

// Sorts records by time, ascending; records with equal times stand in any order. A sample of
// neighbouring records tells how disordered the input is: nearly ordered input is split into
// its ordered run and the few records far behind it, anything else is radix sorted, which
// costs three linear passes whatever the disorder.
void SortRecordsByTime(tpx3_toa_extension::ToaTotRecord* first,
                       tpx3_toa_extension::ToaTotRecord* last, SortScratch& scratch);

// The ways SortRecordsByTime can take, each a complete sort.

// LSD radix sort on the time less the least time.
void RadixSortByTime(tpx3_toa_extension::ToaTotRecord* first,
                     tpx3_toa_extension::ToaTotRecord* last, SortScratch& scratch);
// Records that stand a little behind the running maximum are inserted where they belong; those
// further back are set aside, sorted on their own and merged back in. Linear when few are far.
void SplitSortByTime(tpx3_toa_extension::ToaTotRecord* first,
                     tpx3_toa_extension::ToaTotRecord* last, SortScratch& scratch);
// Insertion from the back: linear on small or nearly ordered input.
void InsertionSortByTime(tpx3_toa_extension::ToaTotRecord* first,
                         tpx3_toa_extension::ToaTotRecord* last) noexcept;

}  // namespace tpx3_pipeline
