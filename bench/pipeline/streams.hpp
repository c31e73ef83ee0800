#pragma once

// The streams that the benchmarks run on: detector-rate hits (85 M/s, 2.125 per 25 ns tick),
// USB-sized blocks, in one of two kinds of disorder.

#include <cstdint>
#include <string>

#include "tpx3_stream/generator.hpp"

namespace tpx3_bench {

enum class Profile : int {
    RealDisorder = 0,  // column bursts: a quarter of the hits step back, by up to 18,000 ticks
    FewLate = 1,       // 5 % of the hits late by up to 2000 ticks, the rest in order
};

inline const char* ProfileName(Profile profile) {
    return profile == Profile::RealDisorder ? "real_disorder" : "few_late";
}

inline tpx3_stream::StreamSettings LineRateStream(std::uint32_t lines, Profile profile) {
    tpx3_stream::StreamSettings s;
    s.seed = 42;
    s.hits_per_tick = 2.125;
    s.late_fraction = 0.05;
    s.max_late_ticks = 2000;
    s.line_ticks = 100'000;
    s.flyback_ticks = 40'000;
    s.lines = lines;
    s.tdc_channels = 0b001;
    s.tdc_per_tick = 0.0001;
    s.block_bytes = 983'040;
    s.keep_truth = false;
    return profile == Profile::RealDisorder ? tpx3_stream::WithRealDisorder(s) : s;
}

// Bins of the binned modes: 250 bins of 10 us over the 2.5 ms scan part of a line.
inline constexpr std::uint64_t kBinWidth = 10'000 * 16 / 25;
inline constexpr std::uint32_t kBinsPerLine = 250;

}  // namespace tpx3_bench
