#pragma once

// The board's frame FIFO on the data endpoint: each frame the Timepix3 chip reads out, as a block
// of 6-byte packets closed by a CTRL packet with the shutter's closing time, goes out as a
// transfer of its own that ends short. Frames wait in order; one that finds the FIFO full is lost
// and counted. A log of the newest frames and the counters are there for tests, and the next
// frame can be damaged on purpose.

#include "logged_frame_fifo.hpp"
#include "ovex/vboard/frame_readout.hpp"

namespace ovex::vboard {

class FrameFifo : public LoggedFrameFifo<ReadoutFrame, FrameFault> {
public:
    FrameFifo() : LoggedFrameFifo(true) {}  // a frame's size doesn't tell the host where it ends

    // Encodes `frame` (its index is set here) in its mode's packets and queues it, or loses it
    // to a full FIFO. A frame that ends exactly at the end of a transfer is followed by an
    // empty one.
    void ReadOut(ReadoutFrame frame);
};

}  // namespace ovex::vboard
