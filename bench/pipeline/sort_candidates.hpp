#pragma once

// Sorts of one block that the pre-sort stage might use, measured side by side with the one
// that it uses (SortRecordsByTime, a radix sort) on both kinds of disorder.

#include <algorithm>
#include <vector>

#include "tpx3_toa_extension/dd_toa_tot/logic.hpp"

namespace tpx3_bench {

using tpx3_toa_extension::ToaTotRecord;

inline bool EarlierTime(const ToaTotRecord& a, const ToaTotRecord& b) noexcept {
    return a.time < b.time;
}

// The sort that the pre-sort stage used before: split off the records behind the running
// maximum, sort them and merge them back; with more than `late_limit_share` of the block late,
// put them back and sort the whole block through a comparator that the compiler can't inline.
// A limit of 1 keeps splitting at any disorder.
inline void SplitAndMerge(ToaTotRecord* first, ToaTotRecord* last,
                          bool (*compare)(const ToaTotRecord&, const ToaTotRecord&),
                          double late_limit_share) {
    const auto n = static_cast<std::size_t>(last - first);
    if (n < 128) {
        std::sort(first, last, compare);
        return;
    }
    thread_local std::vector<ToaTotRecord> late;
    late.clear();
    const auto late_limit = static_cast<std::size_t>(static_cast<double>(n) * late_limit_share);
    ToaTotRecord* kept_end = first + 1;
    for (ToaTotRecord* it = first + 1; it != last; ++it) {
        if (it->time >= kept_end[-1].time) [[likely]] {
            *kept_end++ = *it;
        } else {
            late.push_back(*it);
            if (late.size() > late_limit) [[unlikely]] {
                std::copy(late.begin(), late.end(), kept_end);
                std::sort(first, last, compare);
                return;
            }
        }
    }
    std::sort(late.begin(), late.end(), EarlierTime);
    ToaTotRecord* out = last;
    ToaTotRecord* kept = kept_end;
    auto late_it = late.end();
    while (late_it != late.begin()) {
        if (kept != first && kept[-1].time > late_it[-1].time) {
            *--out = *--kept;
        } else {
            *--out = *--late_it;
        }
    }
}

}  // namespace tpx3_bench
