#pragma once

// The hits of one exposure of the sensor, Timepix3 or Timepix2: what each pixel records while
// the shutter is open, under the particles of a `HitModel`. Deterministic: the model's seed and the
// frame's index give the same hits every time.

#include <cstdint>
#include <span>
#include <vector>

#include "ovex/vboard/frame_readout.hpp"

namespace ovex::vboard {

struct Exposure {
    std::uint64_t ticks = 0;         // how long the shutter was open
    std::uint64_t open_toa = 0;      // the opening on the chip's ToA clock, in ToA ticks
    std::uint64_t index = 0;         // the frame's index: one random sequence per frame
    bool count_mode = false;         // iToT+event count (else ToA+ToT)
    std::uint16_t max_count = 1023;  // where the event counter saturates
};

// The pixels hit during `exposure`, in host pixel order; `masked` holds a non-zero byte for
// every masked host pixel (65536 bytes), which records nothing.
std::vector<FrameHit> Expose(const HitModel& model, std::span<const std::uint8_t> masked,
                             const Exposure& exposure);

}  // namespace ovex::vboard
