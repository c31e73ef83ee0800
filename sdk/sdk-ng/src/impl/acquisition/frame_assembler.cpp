#include "impl/acquisition/frame_assembler.hpp"

#include "ovex/log/log.hpp"

namespace ovex::sdk::acquisition {

void FrameAssembler::Reset(std::size_t frame_bytes) {
    m_frame_bytes = frame_bytes;
    m_pending.clear();
    m_pending_done = false;
    m_dropped = 0;
}

std::span<const std::byte> FrameAssembler::Add(std::span<const std::byte> transfer) {
    if (m_pending_done) {
        m_pending.clear();
        m_pending_done = false;
    }
    if (m_pending.size() + transfer.size() > m_frame_bytes) {
        // The pending bytes ended with a transfer and yet are no whole frame.
        if (!m_pending.empty()) {
            Drop(m_pending.size(), "an incomplete frame");
            m_pending.clear();
        }
        if (transfer.size() > m_frame_bytes) {
            Drop(transfer.size(), "a transfer longer than a frame");
            return {};
        }
    }
    if (m_pending.empty() && transfer.size() == m_frame_bytes) {
        return transfer;
    }
    m_pending.insert(m_pending.end(), transfer.begin(), transfer.end());
    if (m_pending.size() < m_frame_bytes) {
        return {};
    }
    m_pending_done = true;
    return m_pending;
}

std::size_t FrameAssembler::DropPending() {
    const std::size_t pending = m_pending_done ? 0 : m_pending.size();
    if (pending > 0) {
        Drop(pending, "an unfinished frame");
    }
    m_pending.clear();
    m_pending_done = false;
    return pending;
}

void FrameAssembler::Drop(std::size_t bytes, const char* what) {
    m_dropped += bytes;
    OVEX_LOG_WARN("Dropped %zu bytes of %s (frames of %zu bytes); %llu bytes dropped so far.",
                  bytes, what, m_frame_bytes, static_cast<unsigned long long>(m_dropped));
}

}  // namespace ovex::sdk::acquisition
