#pragma once

// The board's frame FIFO on the data endpoint: each frame the Timepix3 chip reads out, as a block
// of 6-byte packets closed by a CTRL packet with the shutter's closing time, goes out as a
// transfer of its own that ends short. Frames wait in order; one that finds the FIFO full is lost
// and counted. A log of the newest frames and the counters are there for tests, and the next
// frame can be damaged on purpose.

#include <cstdint>
#include <deque>
#include <optional>
#include <span>
#include <vector>

#include "frame_queue.hpp"
#include "ovex/vboard/data_source.hpp"
#include "ovex/vboard/frame_readout.hpp"

namespace ovex::vboard {

class FrameFifo {
public:
    // Encodes `frame` (its index is set here) in its mode's packets and queues it, or loses it
    // to a full FIFO.
    void ReadOut(ReadoutFrame frame);
    // The index the next frame read out gets.
    std::uint64_t NextIndex() const { return m_counters.read_out; }

    // Fills `out` from the oldest frame; nullopt while no frame waits. A frame starts only at
    // the start of a transfer: `mid_transfer` ends the transfer under way first. A frame that
    // ends exactly at the end of a transfer is followed by an empty one.
    std::optional<Produced> Send(std::span<std::uint8_t> out, bool mid_transfer) {
        return m_queue.Send(out, mid_transfer);
    }

    void InjectFault(FrameFault fault) { m_fault = fault; }
    const std::deque<ReadoutFrame>& Log() const { return m_log; }
    FrameCounters Counters() const { return m_counters; }

private:
    FrameQueue m_queue{true};  // a frame's size doesn't tell the host where it ends
    FrameFault m_fault = FrameFault::kNone;
    std::deque<ReadoutFrame> m_log;
    FrameCounters m_counters;
};

}  // namespace ovex::vboard
