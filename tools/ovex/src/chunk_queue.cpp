#include "chunk_queue.hpp"

namespace ovex::cli {

void ChunkQueue::Push(Chunk chunk) {
    std::unique_lock lock(m_mutex);
    m_changed.wait(lock,
                   [&] { return m_chunks.empty() || m_bytes + chunk.bytes.size() <= m_capacity; });
    m_bytes += chunk.bytes.size();
    m_chunks.push_back(std::move(chunk));
    m_changed.notify_all();
}

std::optional<Chunk> ChunkQueue::Pop() {
    std::unique_lock lock(m_mutex);
    m_changed.wait(lock, [&] { return !m_chunks.empty() || m_closed; });
    if (m_chunks.empty()) {
        return std::nullopt;
    }
    Chunk chunk = std::move(m_chunks.front());
    m_chunks.pop_front();
    m_bytes -= chunk.bytes.size();
    m_changed.notify_all();
    return chunk;
}

void ChunkQueue::Close() {
    std::lock_guard lock(m_mutex);
    m_closed = true;
    m_changed.notify_all();
}

double ChunkQueue::Fill() const {
    std::lock_guard lock(m_mutex);
    return static_cast<double>(m_bytes) / static_cast<double>(m_capacity);
}

}  // namespace ovex::cli
