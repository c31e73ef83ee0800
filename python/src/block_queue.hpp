// The blocks of one acquisition on their way from the library's data callback to the Python
// thread. The queue holds at most a given number of bytes: when the Python side falls behind,
// the callback waits, and the library keeps what the board sends meanwhile in its own buffers,
// so nothing is lost. Once the Python side gives up (Abandon), nothing waits any more and what
// still comes is dropped.
#pragma once

#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <deque>
#include <mutex>
#include <optional>

#include "result_blocks.hpp"

namespace ovex::python {

class BlockQueue {
public:
    explicit BlockQueue(std::size_t capacity_bytes) : m_capacity(capacity_bytes) {}

    // Adds a block, waiting while the queue is full; a block larger than the queue goes in once
    // the queue is empty. False when the queue was abandoned: the block is dropped.
    bool Push(Block block);

    // No block comes after those queued: Pop gives them, then the end.
    void Finish();

    // Drops what is queued, and from now on every Push at once.
    void Abandon();

    enum class Status { kBlock, kEnd, kWaiting };
    struct Popped {
        Status status;
        std::optional<Block> block;
    };
    // The oldest block; kEnd once Finish was called and every block taken; kWaiting when
    // `wait` passed without either.
    Popped Pop(std::chrono::milliseconds wait);

    std::size_t QueuedBytes() const;

private:
    const std::size_t m_capacity;
    mutable std::mutex m_mutex;
    std::condition_variable m_room;
    std::condition_variable m_filled;
    std::deque<Block> m_blocks;
    std::size_t m_bytes = 0;
    bool m_finished = false;
    bool m_abandoned = false;
};

}  // namespace ovex::python
