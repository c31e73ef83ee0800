#pragma once

// What the chips' frame FIFOs share: each frame read out gets the next index and the fault
// waiting for it, then is queued as the parts its chip's encoding makes of it or, finding the
// FIFO full, lost and counted. A log of the newest frames (kFrameLogDepth) and the counters are
// there for tests, and the next frame can be damaged on purpose. `Frame` has the fields index,
// fault and lost; `Fault{}` is no damage.

#include <cstdint>
#include <deque>
#include <optional>
#include <span>
#include <utility>
#include <vector>

#include "frame_queue.hpp"
#include "ovex/vboard/data_source.hpp"
#include "ovex/vboard/frame_readout.hpp"

namespace ovex::vboard {

template <class Frame, class Fault>
class LoggedFrameFifo {
public:
    // The index the next frame read out gets.
    std::uint64_t NextIndex() const { return m_counters.read_out; }
    bool Full() const { return m_queue.Full(); }
    // Fills `out` from the oldest frame; nullopt while no frame waits. A frame starts only at
    // the start of a transfer: `mid_transfer` ends the transfer under way first.
    std::optional<Produced> Send(std::span<std::uint8_t> out, bool mid_transfer) {
        return m_queue.Send(out, mid_transfer);
    }

    // The queued frames dropped unsent; the log and the counters stay.
    void Empty() { m_queue.Clear(); }
    void InjectFault(Fault fault) { m_fault = fault; }
    const std::deque<Frame>& Log() const { return m_log; }
    FrameCounters Counters() const { return m_counters; }

protected:
    // `mark_full_end` as for FrameQueue.
    explicit LoggedFrameFifo(bool mark_full_end) : m_queue(mark_full_end) {}

    // Numbers `frame`, gives it the fault waiting and queues `encode(frame)` (its parts), or
    // loses it to a full FIFO; logs it either way.
    template <class Encode>
    void Queue(Frame frame, Encode encode) {
        frame.index = m_counters.read_out++;
        frame.fault = std::exchange(m_fault, Fault{});
        frame.lost = m_queue.Full();
        if (frame.lost) {
            ++m_counters.overflowed;
        } else {
            m_queue.Push(encode(frame));
        }
        m_log.push_back(std::move(frame));
        if (m_log.size() > kFrameLogDepth) {
            m_log.pop_front();
        }
    }

private:
    FrameQueue m_queue;
    Fault m_fault{};
    std::deque<Frame> m_log;
    FrameCounters m_counters;
};

}  // namespace ovex::vboard
