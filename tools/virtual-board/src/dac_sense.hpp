#pragma once

// A Timepix chip's sense pin: the selected DAC's output, from 100 mV at its lowest code to
// 1300 mV at its highest.

#include "ovex/vboard/item_tables.hpp"

namespace ovex::vboard {

inline int SenseMillivolts(const StateItem& dac, int code) {
    constexpr int kOffsetMv = 100;
    constexpr int kSpanMv = 1200;
    return kOffsetMv + (code - dac.min) * kSpanMv / (dac.max - dac.min);
}

}  // namespace ovex::vboard
