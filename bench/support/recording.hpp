// The recording that the benchmarks of the data-driven chain replay through a virtual board:
// about two million hits in the real detector disorder, 40 M hits/s of chip time.
#pragma once

#include "tpx3_stream/generator.hpp"

namespace ovex::bench {

inline tpx3_stream::GeneratedStream RealDisorderRecording() {
    tpx3_stream::StreamSettings settings;
    settings.lines = 4;
    settings.line_ticks = 400'000;
    settings.flyback_ticks = 100'000;
    settings.hits_per_tick = 1.0;
    settings.keep_truth = false;
    return tpx3_stream::Generate(tpx3_stream::WithRealDisorder(settings));
}

}  // namespace ovex::bench
