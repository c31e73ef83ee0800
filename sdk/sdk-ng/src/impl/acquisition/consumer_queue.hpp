#pragma once

// The queue from a provider's transfers to its consumer: items, and at the end of each run one
// null end item. The end item reaches the consumer even when the queue was full as the run
// ended: it then follows what fills the queue, so a consumer that falls behind never waits for
// an end that was lost.

#include <atomic>
#include <cstddef>

#include "tpx3_pipeline/blocking_queue.hpp"

namespace ovex::sdk::acquisition::detail {

template <typename Item>
class ConsumerQueue {
public:
    explicit ConsumerQueue(std::size_t capacity) : m_items(capacity) {}

    // Moves the item in unless the queue is full; a refused item stays with the caller.
    bool TryPush(Item& item) { return m_items.TryPush(item); }
    // False if the queue is full: the consumer then gets the end item once it has emptied it.
    bool PushEnd() {
        Item end{};
        if (m_items.TryPush(end)) {
            return true;
        }
        m_end_owed.store(true, std::memory_order_release);
        return false;
    }
    // Blocks until an item is there; a null item is the end of a run.
    Item Pop() {
        Item item{};
        if (!m_items.PopUnless(item, m_end_owed)) {
            m_end_owed.store(false);
        }
        return item;
    }
    // Takes an item without waiting; an end item that is owed is dropped once the queue is empty.
    bool TryPop(Item& item) {
        if (m_items.TryPop(item)) {
            return true;
        }
        m_end_owed.store(false);
        return false;
    }
    std::size_t Size() const { return m_items.Size(); }

private:
    tpx3_pipeline::BlockingQueue<Item> m_items;
    std::atomic<bool> m_end_owed{false};
};

}  // namespace ovex::sdk::acquisition::detail
