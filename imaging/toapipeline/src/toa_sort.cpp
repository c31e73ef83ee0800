#include "tpx3_pipeline/toa_sort.hpp"

#include <algorithm>
#include <vector>

namespace tpx3_pipeline {

using tpx3_toa_extension::ToaTotRecord;

namespace {

constexpr std::size_t kSmallInput = 128;

bool EarlierTime(const ToaTotRecord& a, const ToaTotRecord& b) noexcept {
    return a.time < b.time;
}

}  // namespace

void SortRecordsByTime(ToaTotRecord* first, ToaTotRecord* last) {
    const auto n = static_cast<std::size_t>(last - first);
    if (n < kSmallInput) {
        std::sort(first, last, EarlierTime);
        return;
    }
    // Split off the records that stand behind the running maximum; the rest is an ordered
    // run, compacted to the front. The late ones are sorted on their own and merged back in.
    // The scratch buffer stays with the worker thread, so steady state allocates nothing.
    thread_local std::vector<ToaTotRecord> late;
    late.clear();
    const std::size_t late_limit = n / 8;
    ToaTotRecord* kept_end = first + 1;
    for (ToaTotRecord* it = first + 1; it != last; ++it) {
        if (it->time >= kept_end[-1].time) [[likely]] {
            *kept_end++ = *it;
        } else {
            late.push_back(*it);
            if (late.size() > late_limit) [[unlikely]] {
                // Too much disorder for this strategy: put the records back and sort them all.
                std::copy(late.begin(), late.end(), kept_end);
                std::sort(first, last, EarlierTime);
                return;
            }
        }
    }
    if (late.empty()) {
        return;
    }
    std::sort(late.begin(), late.end(), EarlierTime);
    // Merge from the back: the kept run ends where the array ends minus the late count.
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

}  // namespace tpx3_pipeline
