#pragma once

// The Timepix2 boards' frames on the data endpoint: the pipeline packs each frame the chip read
// out at the depth PIPELINE_BPP chose and queues it in the back end's FIFO; one that finds it
// full is lost and counted. The host's transfer is one frame (at 14 bits, one part), so a frame
// that fills it needs no mark of its end. A log of the newest frames and the counters are there
// for tests, and the next frame can be damaged on purpose.

#include <cstdint>
#include <span>
#include <vector>

#include "frame_queue.hpp"
#include "logged_frame_fifo.hpp"
#include "ovex/vboard/tpx2_frames.hpp"

namespace ovex::vboard {

// The frame's pixels (host order) as the pipeline sends them at `depth` (8, 10 or 14 bits), one
// entry per part:
// - 8 bits: byte i is pixel i;
// - 10 bits: one stream of 10-bit values, least significant bit first: pixel i is bits 10i to
//   10i + 9 of the bytes read as a little-endian number;
// - 14 bits: the chip's 14-bit readout shifts its pixels out last first, so the p-th value is
//   pixel 65535 − p (only at this depth: the 8- and 10-bit readouts go first pixel first);
//   the low 10 bits of each value as the 10-bit stream, then the high 4 bits as a second part,
//   two values a byte, low nibble first.
std::vector<FrameQueue::Part> Tpx2WireParts(std::span<const std::uint16_t> pixels, Tpx2Depth depth);

class Tpx2FrameFifo : public LoggedFrameFifo<Tpx2Frame, Tpx2FrameFault> {
public:
    Tpx2FrameFifo() : LoggedFrameFifo(false) {}

    // Packs and queues `frame` (its index and fault are set here), or loses it to a full FIFO.
    void ReadOut(Tpx2Frame frame);
};

}  // namespace ovex::vboard
