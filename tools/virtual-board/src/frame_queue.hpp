#pragma once

// The back end's FIFO of frames on the data endpoint, whatever the chip: each frame is a list of
// parts, and each part leaves in a transfer of its own that it ends (short, or by filling it).
// A frame starts only at the start of a transfer. It holds kFrameFifoDepth frames; the chip's
// readout decides what to do with one that doesn't fit.

#include <cstdint>
#include <deque>
#include <optional>
#include <span>
#include <vector>

#include "ovex/vboard/data_source.hpp"

namespace ovex::vboard {

class FrameQueue {
public:
    using Part = std::vector<std::uint8_t>;

    // `mark_full_end`: a part that ends exactly at the end of a transfer is followed by an empty
    // transfer, for hosts that can't tell a frame's end from its size.
    explicit FrameQueue(bool mark_full_end) : m_mark_full_end(mark_full_end) {}

    bool Full() const;
    void Push(std::vector<Part> parts);
    // Every frame dropped, a part under way included: what held them is gone.
    void Clear();

    // Fills `out` from the oldest part; nullopt while nothing waits. `mid_transfer` ends the
    // transfer under way first.
    std::optional<Produced> Send(std::span<std::uint8_t> out, bool mid_transfer);

private:
    bool m_mark_full_end;
    std::deque<std::vector<Part>> m_frames;
    std::size_t m_part = 0;  // of the oldest frame
    std::size_t m_sent = 0;  // of that part
    bool m_end_due = false;  // the next transfer ends empty
};

}  // namespace ovex::vboard
