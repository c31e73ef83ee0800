// The queue between the data callback and the Python thread: order, the byte bound that makes
// the callback wait, the end, and giving up with a callback still waiting.

#include <gtest/gtest.h>

#include <chrono>
#include <future>
#include <thread>

#include "block_queue.hpp"

namespace ovex::python {
namespace {

using std::chrono::milliseconds;

Block BlockOf(std::size_t bytes, std::uint64_t tag) {
    Block block;
    block.values = Buffer(bytes);
    block.rows = tag;
    return block;
}

TEST(BlockQueue, GivesBlocksInOrderThenTheEnd) {
    BlockQueue queue(1000);
    ASSERT_TRUE(queue.Push(BlockOf(10, 1)));
    ASSERT_TRUE(queue.Push(BlockOf(20, 2)));
    EXPECT_EQ(queue.QueuedBytes(), 30u);
    queue.Finish();
    for (std::uint64_t tag : {1, 2}) {
        BlockQueue::Popped popped = queue.Pop(milliseconds(0));
        ASSERT_EQ(popped.status, BlockQueue::Status::kBlock);
        EXPECT_EQ(popped.block->rows, tag);
    }
    EXPECT_EQ(queue.Pop(milliseconds(0)).status, BlockQueue::Status::kEnd);
    EXPECT_EQ(queue.QueuedBytes(), 0u);
}

TEST(BlockQueue, NothingYetIsWaitingNotTheEnd) {
    BlockQueue queue(1000);
    EXPECT_EQ(queue.Pop(milliseconds(0)).status, BlockQueue::Status::kWaiting);
}

TEST(BlockQueue, AFullQueueHoldsTheProducerUntilABlockIsTaken) {
    BlockQueue queue(100);
    ASSERT_TRUE(queue.Push(BlockOf(80, 1)));
    std::promise<void> pushing;
    auto second = std::async(std::launch::async, [&] {
        pushing.set_value();
        return queue.Push(BlockOf(80, 2));  // 160 bytes would exceed the bound: waits
    });
    pushing.get_future().wait();
    EXPECT_EQ(queue.QueuedBytes(), 80u) << "the second block got in past the bound";
    EXPECT_EQ(queue.Pop(milliseconds(0)).block->rows, 1u);
    EXPECT_TRUE(second.get());
    EXPECT_EQ(queue.Pop(milliseconds(1000)).block->rows, 2u);
}

TEST(BlockQueue, ABlockLargerThanTheBoundGoesIntoAnEmptyQueue) {
    BlockQueue queue(10);
    ASSERT_TRUE(queue.Push(BlockOf(50, 1)));
    EXPECT_EQ(queue.QueuedBytes(), 50u);
}

TEST(BlockQueue, AbandonFreesAWaitingProducerAndDropsWhatComes) {
    BlockQueue queue(100);
    ASSERT_TRUE(queue.Push(BlockOf(100, 1)));
    auto waiting = std::async(std::launch::async, [&] { return queue.Push(BlockOf(10, 2)); });
    queue.Abandon();
    EXPECT_FALSE(waiting.get());
    EXPECT_FALSE(queue.Push(BlockOf(1, 3)));
    EXPECT_EQ(queue.QueuedBytes(), 0u);
    queue.Finish();
    EXPECT_EQ(queue.Pop(milliseconds(0)).status, BlockQueue::Status::kEnd);
}

}  // namespace
}  // namespace ovex::python
