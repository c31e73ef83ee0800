// What the data callback copies out, on its way to the writer thread. The queue holds at most
// its capacity in bytes: a writer that falls that far behind makes the callback wait for room,
// and the library then reports the loss of what it can't hand on.
#pragma once

#include <condition_variable>
#include <cstddef>
#include <deque>
#include <mutex>
#include <optional>
#include <vector>

namespace ovex::cli {

struct Chunk {
    enum Kind { kRaw, kResult };
    Kind kind;
    std::vector<std::byte> bytes;
};

class ChunkQueue {
public:
    explicit ChunkQueue(std::size_t capacity) : m_capacity(capacity) {}

    // Waits while the queue is full, unless it is empty: a chunk larger than the capacity
    // still goes in, alone.
    void Push(Chunk chunk);
    // The oldest chunk; nothing once the queue is closed and empty.
    std::optional<Chunk> Pop();
    // No more chunks come; Pop empties the queue, then answers nothing.
    void Close();

    // The share of the capacity in use, 0 to 1 (more with an oversized chunk).
    double Fill() const;

private:
    const std::size_t m_capacity;
    mutable std::mutex m_mutex;
    std::condition_variable m_changed;
    std::deque<Chunk> m_chunks;
    std::size_t m_bytes = 0;
    bool m_closed = false;
};

}  // namespace ovex::cli
