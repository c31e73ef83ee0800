// Items on their way from a producer, such as a data callback, to a consumer thread. The queue
// holds at most its capacity in bytes: a producer that gets that far ahead waits for room, so
// that memory stays bounded and nothing is dropped, except that an item larger than the whole
// capacity still goes into an empty queue, alone. A consumer that gives up (Abandon) frees a
// waiting producer; what is pushed from then on is dropped.
#pragma once

#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <deque>
#include <mutex>
#include <optional>
#include <utility>

namespace ovex {

// `SizeOf{}(item)` tells an item's bytes.
template <typename Item, typename SizeOf>
class ByteQueue {
public:
    explicit ByteQueue(std::size_t capacity) : m_capacity(capacity) {}

    // Adds an item, waiting while the queue is full. False when the queue was abandoned: the
    // item is dropped.
    bool Push(Item item) {
        std::unique_lock lock(m_mutex);
        const std::size_t bytes = SizeOf{}(item);
        m_changed.wait(lock, [&] {
            return m_abandoned || m_items.empty() || m_bytes + bytes <= m_capacity;
        });
        if (m_abandoned) {
            return false;
        }
        m_bytes += bytes;
        m_items.push_back(std::move(item));
        m_changed.notify_all();
        return true;
    }

    // The oldest item, waiting for one; nothing once the queue is closed and empty.
    std::optional<Item> Pop() {
        std::unique_lock lock(m_mutex);
        m_changed.wait(lock, [&] { return !m_items.empty() || m_closed; });
        return TakeLocked();
    }

    enum class Status { kItem, kEnd, kWaiting };
    struct Popped {
        Status status;
        std::optional<Item> item;
    };
    // As Pop, waiting at most `wait`: kWaiting when it passed with neither an item nor the end.
    Popped PopFor(std::chrono::milliseconds wait) {
        std::unique_lock lock(m_mutex);
        if (!m_changed.wait_for(lock, wait, [&] { return !m_items.empty() || m_closed; })) {
            return {Status::kWaiting, std::nullopt};
        }
        std::optional<Item> item = TakeLocked();
        return {item ? Status::kItem : Status::kEnd, std::move(item)};
    }

    // No more items come: Pop empties the queue, then answers nothing.
    void Close() {
        std::lock_guard lock(m_mutex);
        m_closed = true;
        m_changed.notify_all();
    }

    // Drops what is queued, frees a waiting producer and drops every later Push.
    void Abandon() {
        std::deque<Item> dropped;
        {
            std::lock_guard lock(m_mutex);
            m_abandoned = true;
            dropped.swap(m_items);
            m_bytes = 0;
            m_changed.notify_all();
        }
    }

    std::size_t QueuedBytes() const {
        std::lock_guard lock(m_mutex);
        return m_bytes;
    }

    // The share of the capacity in use, 0 to 1 (more with an oversized item).
    double Fill() const {
        return static_cast<double>(QueuedBytes()) / static_cast<double>(m_capacity);
    }

private:
    std::optional<Item> TakeLocked() {
        if (m_items.empty()) {
            return std::nullopt;
        }
        Item item = std::move(m_items.front());
        m_items.pop_front();
        m_bytes -= SizeOf{}(item);
        m_changed.notify_all();
        return item;
    }

    const std::size_t m_capacity;
    mutable std::mutex m_mutex;
    std::condition_variable m_changed;
    std::deque<Item> m_items;
    std::size_t m_bytes = 0;
    bool m_closed = false;
    bool m_abandoned = false;
};

}  // namespace ovex
