#include "block_queue.hpp"

namespace ovex::python {

bool BlockQueue::Push(Block block) {
    std::unique_lock lock(m_mutex);
    const std::size_t bytes = block.bytes();
    m_room.wait(lock,
                [&] { return m_abandoned || m_blocks.empty() || m_bytes + bytes <= m_capacity; });
    if (m_abandoned) {
        return false;
    }
    m_bytes += bytes;
    m_blocks.push_back(std::move(block));
    m_filled.notify_one();
    return true;
}

void BlockQueue::Finish() {
    std::lock_guard lock(m_mutex);
    m_finished = true;
    m_filled.notify_all();
}

void BlockQueue::Abandon() {
    std::deque<Block> dropped;
    {
        std::lock_guard lock(m_mutex);
        m_abandoned = true;
        dropped.swap(m_blocks);
        m_bytes = 0;
    }
    m_room.notify_all();
}

BlockQueue::Popped BlockQueue::Pop(std::chrono::milliseconds wait) {
    std::unique_lock lock(m_mutex);
    if (!m_filled.wait_for(lock, wait, [&] { return !m_blocks.empty() || m_finished; })) {
        return {Status::kWaiting, std::nullopt};
    }
    if (m_blocks.empty()) {
        return {Status::kEnd, std::nullopt};
    }
    Block block = std::move(m_blocks.front());
    m_blocks.pop_front();
    m_bytes -= block.bytes();
    m_room.notify_all();
    return {Status::kBlock, std::move(block)};
}

std::size_t BlockQueue::QueuedBytes() const {
    std::lock_guard lock(m_mutex);
    return m_bytes;
}

}  // namespace ovex::python
