#pragma once

#include <cstddef>

#include "tpx3_toa_extension/dd_toa_tot/logic.hpp"

namespace tpx3_pipeline {

// Sorts records by time, ascending; records with equal times stand in any order. Cheap on
// the input that the ToA extension gives: records in order but for a few late ones, which
// cost O(n + k log k) for k late records. Input with much disorder falls back to an
// O(n log n) sort.
void SortRecordsByTime(tpx3_toa_extension::ToaTotRecord* first,
                       tpx3_toa_extension::ToaTotRecord* last);

}  // namespace tpx3_pipeline
