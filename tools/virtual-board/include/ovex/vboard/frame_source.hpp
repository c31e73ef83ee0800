#pragma once

// Frames the board pushes without being asked, one frame per IN transfer, in the order they were
// queued: the interrupt endpoint's source.

#include <cstdint>
#include <deque>
#include <mutex>
#include <vector>

#include "ovex/vboard/data_source.hpp"

namespace ovex::vboard {

class FrameSource final : public IDataSource {
public:
    void Push(std::vector<std::uint8_t> frame);
    std::size_t Queued() const;

    // A frame longer than the transfer is cut; the rest is lost as on the wire.
    Produced Produce(std::span<std::uint8_t> out, Clock::time_point now) override;

private:
    mutable std::mutex m_mutex;
    std::deque<std::vector<std::uint8_t>> m_frames;
};

}  // namespace ovex::vboard
