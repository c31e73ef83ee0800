#include "frame_queue.hpp"

#include <algorithm>

#include "ovex/vboard/frame_readout.hpp"

namespace ovex::vboard {

bool FrameQueue::Full() const {
    return m_frames.size() >= kFrameFifoDepth;
}

void FrameQueue::Push(std::vector<Part> parts) {
    m_frames.push_back(std::move(parts));
}

void FrameQueue::Clear() {
    m_frames.clear();
    m_part = 0;
    m_sent = 0;
    m_end_due = false;
}

std::optional<Produced> FrameQueue::Send(std::span<std::uint8_t> out, bool mid_transfer) {
    if (m_end_due) {
        m_end_due = false;
        return Produced{0, true};
    }
    if (m_frames.empty()) {
        return std::nullopt;
    }
    if (mid_transfer) {
        return Produced{0, true};
    }
    const Part& part = m_frames.front()[m_part];
    const std::size_t count = std::min(out.size(), part.size() - m_sent);
    std::copy_n(part.begin() + static_cast<std::ptrdiff_t>(m_sent), count, out.begin());
    m_sent += count;
    if (m_sent < part.size()) {
        return Produced{count, false};
    }
    m_sent = 0;
    if (++m_part == m_frames.front().size()) {
        m_frames.pop_front();
        m_part = 0;
    }
    const bool filled = count == out.size();
    m_end_due = filled && m_mark_full_end;
    return Produced{count, !filled};
}

}  // namespace ovex::vboard
