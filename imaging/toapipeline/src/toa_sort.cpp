#include "tpx3_pipeline/toa_sort.hpp"

#include <algorithm>
#include <array>
#include <bit>
#include <cstdint>
#include <cstring>
#include <utility>
#include <vector>

namespace tpx3_pipeline {

using tpx3_toa_extension::ToaTotRecord;

namespace {

// Below this size a radix pass costs more than plain insertions.
constexpr std::size_t kRadixFrom = 256;
// Neighbouring pairs sampled to judge the disorder, and the share of steps back above which
// the radix sort wins (measured on real-disorder and few-late streams).
constexpr std::size_t kSamplePairs = 256;
constexpr std::size_t kSplitWhileStepsBackBelow = kSamplePairs / 8;
// How far back among the ordered run SplitSortByTime looks before it sets a record aside.
constexpr std::size_t kInsertReach = 16;
// The records set aside take up to this share of a block without making the scratch grow.
constexpr std::size_t kAsideRoomShare = 4;

constexpr unsigned kDigitBits = 11;
constexpr std::size_t kBuckets = std::size_t{1} << kDigitBits;
constexpr unsigned kMaxPasses = (64 + kDigitBits - 1) / kDigitBits;

// At least n records, and twice as many as before when it has to grow: a block a little larger
// than the largest so far doesn't make the scratch grow again.
ToaTotRecord* RecordsFor(SortScratch& scratch, std::size_t n) {
    if (scratch.records.size() < n) {
        scratch.records.resize(std::max(n, 2 * scratch.records.size()));
    }
    return scratch.records.data();
}

bool LooksNearlyOrdered(const ToaTotRecord* first, std::size_t n) noexcept {
    const std::size_t stride = std::max<std::size_t>(1, (n - 1) / kSamplePairs);
    std::size_t steps_back = 0;
    for (std::size_t i = 1; i < n; i += stride) {
        steps_back += first[i].time < first[i - 1].time;
    }
    return steps_back < kSplitWhileStepsBackBelow;
}

// One scatter pass of the radix sort, stable.
void Scatter(const ToaTotRecord* from, ToaTotRecord* to, std::size_t n, std::uint64_t low,
             unsigned shift, std::uint32_t* count) noexcept {
    std::uint32_t offset = 0;
    for (std::size_t b = 0; b < kBuckets; ++b) {
        offset += std::exchange(count[b], offset);
    }
    for (std::size_t i = 0; i < n; ++i) {
        to[count[((from[i].time - low) >> shift) & (kBuckets - 1)]++] = from[i];
    }
}

}  // namespace

void InsertionSortByTime(ToaTotRecord* first, ToaTotRecord* last) noexcept {
    if (first == last) {
        return;
    }
    for (ToaTotRecord* it = first + 1; it != last; ++it) {
        if (it->time >= it[-1].time) [[likely]] {
            continue;
        }
        const ToaTotRecord moving = *it;
        ToaTotRecord* hole = it;
        do {
            *hole = hole[-1];
            --hole;
        } while (hole != first && hole[-1].time > moving.time);
        *hole = moving;
    }
}

void RadixSortByTime(ToaTotRecord* first, ToaTotRecord* last, SortScratch& scratch) {
    const auto n = static_cast<std::size_t>(last - first);
    if (n < 2) {
        return;
    }
    if (n > UINT32_MAX) {  // far beyond any transfer; the counts are 32-bit
        std::sort(first, last,
                  [](const ToaTotRecord& a, const ToaTotRecord& b) { return a.time < b.time; });
        return;
    }
    // The counts of the two low digits are taken in the same read that finds the spread of
    // the times, relative to a guess of the least time; a block of USB size spans far less than
    // the 2^21 sixteenths on either side of its first record that the guess allows for.
    constexpr std::uint64_t kGuessBelow = std::uint64_t{1} << (2 * kDigitBits - 1);
    const std::uint64_t guess = first->time - std::min(first->time, kGuessBelow);
    std::vector<std::uint32_t>& counts = scratch.counts;
    counts.reserve(kMaxPasses * kBuckets);
    counts.assign(2 * kBuckets, 0);
    std::uint64_t low = first->time;
    std::uint64_t high = first->time;
    std::size_t steps_back = 0;
    for (std::size_t i = 0; i < n; ++i) {
        const std::uint64_t t = first[i].time;
        steps_back += i > 0 && t < first[i - 1].time;
        low = std::min(low, t);
        high = std::max(high, t);
        const std::uint64_t key = t - guess;
        ++counts[key & (kBuckets - 1)];
        ++counts[kBuckets + ((key >> kDigitBits) & (kBuckets - 1))];
    }
    if (steps_back == 0) {
        return;
    }
    std::uint64_t base = guess;
    unsigned passes = 2;
    if (low < guess || high - guess >= (std::uint64_t{1} << (2 * kDigitBits))) {
        // A wide spread: as many digits as it needs, counted anew from the least time.
        base = low;
        passes = (static_cast<unsigned>(std::bit_width(high - low)) + kDigitBits - 1) / kDigitBits;
        counts.assign(passes * kBuckets, 0);
        for (std::size_t i = 0; i < n; ++i) {
            const std::uint64_t key = first[i].time - low;
            for (unsigned p = 0; p < passes; ++p) {
                ++counts[p * kBuckets + ((key >> (p * kDigitBits)) & (kBuckets - 1))];
            }
        }
    }
    ToaTotRecord* from = first;
    ToaTotRecord* to = RecordsFor(scratch, n);
    for (unsigned p = 0; p < passes; ++p) {
        std::uint32_t* count = counts.data() + p * kBuckets;
        if (std::find(count, count + kBuckets, static_cast<std::uint32_t>(n)) != count + kBuckets) {
            continue;  // every record has the same digit here: the pass would change nothing
        }
        Scatter(from, to, n, base, p * kDigitBits, count);
        std::swap(from, to);
    }
    if (from != first) {
        std::memcpy(first, from, n * sizeof(ToaTotRecord));
    }
}

void SplitSortByTime(ToaTotRecord* first, ToaTotRecord* last, SortScratch& scratch) {
    if (last - first < 2) {
        return;
    }
    std::vector<ToaTotRecord>& far = scratch.aside;
    far.clear();
    far.reserve(static_cast<std::size_t>(last - first) / kAsideRoomShare);
    // The ordered run grows at the front of the array, over the places of the records read.
    ToaTotRecord* run_end = first + 1;
    for (ToaTotRecord* it = first + 1; it != last; ++it) {
        const ToaTotRecord record = *it;
        if (record.time >= run_end[-1].time) [[likely]] {
            *run_end++ = record;
            continue;
        }
        const std::size_t reach = std::min(kInsertReach, static_cast<std::size_t>(run_end - first));
        ToaTotRecord* hole = run_end - 1;
        while (hole != run_end - reach && hole[-1].time > record.time) {
            --hole;
        }
        if (hole != first && hole[-1].time > record.time) {
            far.push_back(record);
            continue;
        }
        std::memmove(hole + 1, hole, static_cast<std::size_t>(run_end - hole) * sizeof *hole);
        *hole = record;
        ++run_end;
    }
    if (far.empty()) {
        return;
    }
    if (far.size() < kRadixFrom) {
        InsertionSortByTime(far.data(), far.data() + far.size());
    } else {
        RadixSortByTime(far.data(), far.data() + far.size(), scratch);
    }
    // Merge from the back: the run ends where the array ends less the records set aside.
    ToaTotRecord* out = last;
    ToaTotRecord* run = run_end;
    for (auto aside = far.end(); aside != far.begin();) {
        if (run != first && run[-1].time > aside[-1].time) {
            *--out = *--run;
        } else {
            *--out = *--aside;
        }
    }
}

void SortRecordsByTime(ToaTotRecord* first, ToaTotRecord* last, SortScratch& scratch) {
    const auto n = static_cast<std::size_t>(last - first);
    if (n < kRadixFrom) {
        InsertionSortByTime(first, last);
    } else if (LooksNearlyOrdered(first, n)) {
        SplitSortByTime(first, last, scratch);
    } else {
        RadixSortByTime(first, last, scratch);
    }
}

}  // namespace tpx3_pipeline
