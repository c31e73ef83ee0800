#pragma once

// The queue at each end of the pipeline: one producer, one consumer, fixed capacity. A full
// queue makes the producer spin, which is how back-pressure travels upstream; an empty one puts
// the consumer to sleep.

#include <atomic>
#include <chrono>
#include <cstddef>
#include <thread>
#include <utility>

#include <readerwriterqueue/readerwritercircularbuffer.h>

namespace tpx3_pipeline {

template <typename T>
class BlockingQueue {
public:
    static constexpr std::size_t kCapacity = 5000;

    explicit BlockingQueue(std::size_t capacity = kCapacity) : m_items(capacity) {}

    // Moves the item in, spinning while the queue is full.
    void Push(T item) {
        while (!m_items.try_enqueue(std::move(item))) {
            std::this_thread::yield();
        }
    }

    // Moves the item in unless the queue is full; a refused item stays with the caller.
    bool TryPush(T& item) { return m_items.try_enqueue(std::move(item)); }

    // Blocks until an item is there and moves it out.
    T Pop() {
        T item;
        m_items.wait_dequeue(item);
        return item;
    }

    bool TryPop(T& item) { return m_items.try_dequeue(item); }

    // Like Pop, but gives up once `abandoned` is set and the queue is empty: false then.
    bool PopUnless(T& item, const std::atomic<bool>& abandoned) {
        while (!m_items.wait_dequeue_timed(item, kAbandonCheck)) {
            if (abandoned.load(std::memory_order_acquire)) {
                return m_items.try_dequeue(item);
            }
        }
        return true;
    }

    std::size_t Size() const { return m_items.size_approx(); }
    std::size_t Capacity() const { return m_items.max_capacity(); }

private:
    static constexpr std::chrono::milliseconds kAbandonCheck{20};

    moodycamel::BlockingReaderWriterCircularBuffer<T> m_items;
};

}  // namespace tpx3_pipeline
