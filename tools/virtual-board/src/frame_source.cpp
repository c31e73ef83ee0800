#include "ovex/vboard/frame_source.hpp"

#include <algorithm>

namespace ovex::vboard {

void FrameSource::Push(std::vector<std::uint8_t> frame) {
    std::lock_guard lock(m_mutex);
    m_frames.push_back(std::move(frame));
}

std::size_t FrameSource::Queued() const {
    std::lock_guard lock(m_mutex);
    return m_frames.size();
}

Produced FrameSource::Produce(std::span<std::uint8_t> out, Clock::time_point) {
    std::lock_guard lock(m_mutex);
    if (m_frames.empty()) {
        return {};
    }
    const std::vector<std::uint8_t> frame = std::move(m_frames.front());
    m_frames.pop_front();
    const std::size_t count = std::min(frame.size(), out.size());
    std::copy_n(frame.begin(), count, out.begin());
    return {count, true};
}

}  // namespace ovex::vboard
