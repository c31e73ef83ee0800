// The byte-bounded queue: order, the bound that holds the producer, the oversized item, the end,
// a timed wait, and a consumer that gives up with the producer still waiting.

#include "ovex/byte_queue.hpp"

#include <gtest/gtest.h>

#include <chrono>
#include <future>
#include <thread>
#include <vector>

namespace ovex {
namespace {

using std::chrono::milliseconds;

struct Item {
    std::size_t bytes;
    int tag;
};
struct SizeOfItem {
    std::size_t operator()(const Item& item) const { return item.bytes; }
};
using Queue = ByteQueue<Item, SizeOfItem>;

TEST(ByteQueue, AProducerWaitsForRoomAndTheConsumerGetsEveryItemInOrder) {
    Queue queue(8);
    constexpr int kItems = 1000;
    std::thread producer([&queue] {
        for (int i = 0; i < kItems; ++i) {
            ASSERT_TRUE(queue.Push({3, i}));
        }
        queue.Close();
    });
    int taken = 0;
    while (const auto item = queue.Pop()) {
        EXPECT_LE(queue.Fill(), 1.0) << "a push went past the capacity";
        EXPECT_EQ(item->tag, taken) << "out of order";
        ++taken;
    }
    producer.join();
    EXPECT_EQ(taken, kItems);
    EXPECT_EQ(queue.QueuedBytes(), 0u);
}

TEST(ByteQueue, AnItemLargerThanTheCapacityGoesIntoAnEmptyQueueAlone) {
    Queue queue(2);
    ASSERT_TRUE(queue.Push({5, 1}));
    EXPECT_DOUBLE_EQ(queue.Fill(), 2.5);
    queue.Close();
    EXPECT_EQ(queue.Pop()->tag, 1);
    EXPECT_FALSE(queue.Pop().has_value());
}

TEST(ByteQueue, ATimedPopTellsWaitingFromTheEnd) {
    Queue queue(10);
    EXPECT_EQ(queue.PopFor(milliseconds(0)).status, Queue::Status::kWaiting);
    ASSERT_TRUE(queue.Push({1, 7}));
    queue.Close();
    const Queue::Popped popped = queue.PopFor(milliseconds(0));
    ASSERT_EQ(popped.status, Queue::Status::kItem);
    EXPECT_EQ(popped.item->tag, 7);
    EXPECT_EQ(queue.PopFor(milliseconds(0)).status, Queue::Status::kEnd);
}

TEST(ByteQueue, AbandonFreesAWaitingProducerAndDropsWhatComes) {
    Queue queue(100);
    ASSERT_TRUE(queue.Push({100, 1}));
    auto waiting = std::async(std::launch::async, [&] { return queue.Push({10, 2}); });
    queue.Abandon();
    EXPECT_FALSE(waiting.get()) << "the waiting item went in after all";
    EXPECT_FALSE(queue.Push({1, 3}));
    EXPECT_EQ(queue.QueuedBytes(), 0u);
    queue.Close();
    EXPECT_EQ(queue.PopFor(milliseconds(0)).status, Queue::Status::kEnd);
}

}  // namespace
}  // namespace ovex
