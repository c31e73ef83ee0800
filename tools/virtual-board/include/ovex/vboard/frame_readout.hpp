#pragma once

// What the Timepix3 board's frame readout shows a test bed: the particles that reach the
// sensor (a beam spot over a flat background, or a flood that hits every pixel once), and each
// frame the chip read out when its shutter closed, hit by hit as it went on the wire.

#include <cstddef>
#include <cstdint>
#include <vector>

namespace ovex::vboard {

// The board's clock and the chip's time of arrival count in ticks of 40 MHz.
inline constexpr double kTicksPerSecond = 4e7;
// Frames wait in the board's FIFO until the host takes them; a frame that finds it full is lost.
inline constexpr std::size_t kFrameFifoDepth = 8;
// The frame log keeps the newest frames read out, lost ones included.
inline constexpr std::size_t kFrameLogDepth = 16;

// The particles that reach the sensor, in host coordinates (column x, row y; pixel y·256 + x).
// Each pixel's hits during an exposure are Poisson-distributed around the rate it sees times the
// exposure; the same seed gives the same frames. The default sees nothing.
struct HitModel {
    double spot_x = 127.5;  // the beam spot's centre, in pixels
    double spot_y = 127.5;
    double spot_sigma = 8.0;       // its Gaussian width, in pixels (> 0)
    double spot_rate = 0.0;        // hits per second in the whole spot
    double background_rate = 0.0;  // hits per second on each pixel
    // Every unmasked pixel is hit exactly once per frame, whatever the rates: full frames.
    bool flood = false;
    std::uint64_t seed = 1;
};

// One pixel of a frame as its DATA packet carries it.
struct FrameHit {
    std::uint32_t pixel = 0;  // host pixel index, row · 256 + column
    // ToA+ToT mode: the first hit's time of arrival in sixteenths of a ToA tick since the chip's
    // last T0 sync (the packet carries its low 20 bits: coarse ToA and fine ToA), and its ToT.
    std::uint64_t toa = 0;
    std::uint16_t tot = 0;
    // iToT+event count mode: the hits counted (10 bits, saturating) and their summed ToT
    // (14 bits, saturating).
    std::uint16_t count = 0;
    std::uint16_t itot = 0;
};

// Deliberate damage to the next frame read out, for the host's bad-input tests.
enum class FrameFault : std::uint8_t {
    kNone,
    kTruncated,  // the frame's last packet is cut after three bytes
    kCorrupted,  // a configuration (CFG) packet stands in front of its first packet
};

// One frame the chip read out.
struct ReadoutFrame {
    std::uint64_t index = 0;  // frames read out before it on this board
    std::uint8_t mode = 0;    // the operating mode it was read out in: 0 ToA+ToT, 2 iToT+count
    // The exposure on the board's clock, in ticks since the board came up.
    std::uint64_t open_tick = 0;
    std::uint64_t close_tick = 0;
    // The close on the chip's ToA clock: what the frame's closing CTRL packet carries (low 32
    // bits).
    std::uint64_t close_toa = 0;
    std::vector<FrameHit> hits;  // in the order of their packets
    FrameFault fault = FrameFault::kNone;
    bool lost = false;  // the FIFO was full: the host never sees it
};

struct FrameCounters {
    std::uint64_t read_out = 0;    // frames read out by the chip, lost ones included
    std::uint64_t overflowed = 0;  // of those, lost to a full FIFO
};

}  // namespace ovex::vboard
