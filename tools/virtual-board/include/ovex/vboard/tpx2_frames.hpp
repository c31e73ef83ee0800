#pragma once

// What the Timepix2 boards' frame readout shows a test bed: each frame the chip read out when its
// shutter closed, pixel by pixel in host order, with the depth it left the board at, and the
// damage a test can do to the next frame on the wire. The particles come from the same
// `HitModel` as the Timepix3's (frame_readout.hpp).

#include <cstddef>
#include <cstdint>
#include <vector>

namespace ovex::vboard {

inline constexpr std::size_t kTpx2Pixels = 65536;

// PIPELINE_BPP: the bits per pixel of the pipeline, the byte the host writes. 4 bits is the
// configuration path's depth: frames leave at 8, 10 or 14 bits only.
enum class Tpx2Depth : std::uint8_t { k4Bit = 0, k8Bit = 1, k10Bit = 2, k14Bit = 3 };

// The largest count a pixel reports at `depth`: 15, 255, 1023 or 16383.
constexpr std::uint16_t Tpx2MaxValue(Tpx2Depth depth) {
    switch (depth) {
        case Tpx2Depth::k4Bit:
            return 15;
        case Tpx2Depth::k8Bit:
            return 255;
        case Tpx2Depth::k10Bit:
            return 1023;
        case Tpx2Depth::k14Bit:
            break;
    }
    return 16383;
}

// The bytes of a whole frame on the wire: 32768, 65536, 81920, or 114688 (81920 + 32768 in two
// parts).
constexpr std::size_t Tpx2FrameBytes(Tpx2Depth depth) {
    switch (depth) {
        case Tpx2Depth::k4Bit:
            return kTpx2Pixels / 2;
        case Tpx2Depth::k8Bit:
            return kTpx2Pixels;
        case Tpx2Depth::k10Bit:
            return kTpx2Pixels * 10 / 8;
        case Tpx2Depth::k14Bit:
            break;
    }
    return kTpx2Pixels * 14 / 8;
}

// Deliberate damage to the next frame sent, for the host's bad-input tests.
struct Tpx2FrameFault {
    enum class Kind : std::uint8_t {
        kNone,
        kCut,     // its last `bytes` bytes never leave; the transfer ends short
        kPadded,  // `bytes` bytes of 0xA5 follow it in its last transfer
        kSplit,   // its first `bytes` bytes leave in a transfer of their own, ending short
    };
    Kind kind = Kind::kNone;
    std::size_t bytes = 0;
    bool operator==(const Tpx2FrameFault&) const = default;
};

// One frame the chip read out.
struct Tpx2Frame {
    std::uint64_t index = 0;  // frames read out before it on this board
    std::uint8_t opmode = 0;  // the TPX_OPMODE byte it was taken in
    Tpx2Depth depth = Tpx2Depth::k8Bit;
    // The exposure on the board's clock, in 40 MHz ticks since the board came up.
    std::uint64_t open_tick = 0;
    std::uint64_t close_tick = 0;
    // Event counts or summed ToT, saturated at the depth's maximum; host order (row · 256 +
    // column).
    std::vector<std::uint16_t> pixels;
    Tpx2FrameFault fault;
    bool lost = false;  // the FIFO was full: the host never sees it
};

}  // namespace ovex::vboard
