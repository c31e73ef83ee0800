// The data providers against the virtual board's counting stream: every byte checked, a consumer
// that falls behind, stopping with transfers in flight, an unplug, and refused input.

#include <gtest/gtest.h>

#include <latch>
#include <memory>
#include <thread>

#include "impl/acquisition/consumer_queue.hpp"
#include "impl/acquisition/usb_vector_provider.hpp"
#include "support/log_capture.hpp"
#include "usb_provider_fixture.hpp"

namespace ovex::sdk::acquisition {
namespace {

using ovex::sdk::testing::LogCapture;
using testing::ItemShape;
using testing::StreamCheck;
using testing::UsbProviderTest;
using Consumer = testing::VectorConsumer;

TEST_F(UsbProviderTest, VectorStreamArrivesWholeInTransferSizedItemsThenNull) {
    constexpr std::uint64_t kTotal = 41 * 4096;
    Open({.total_bytes = kTotal});
    LogCapture log;
    UsbVectorProvider provider(m_device);
    EXPECT_FALSE(provider.Configure(std::uint16_t{2}));
    EXPECT_EQ(provider.QueueSize(), 2);
    Consumer consumer(provider);
    ASSERT_FALSE(provider.Start(4096));
    EXPECT_TRUE(provider.IsRunning());
    consumer.AwaitBytes(kTotal);
    EXPECT_FALSE(provider.Stop());
    EXPECT_FALSE(provider.IsRunning());
    const StreamCheck& check = consumer.Finish();
    EXPECT_EQ(check.offset, kTotal);
    EXPECT_EQ(check.faults, 0u);
    EXPECT_EQ(consumer.Shapes(), std::vector<ItemShape>(41, {4096, false}));
    EXPECT_TRUE(log.Contains(log::kInfo, "Total received bytes of data: 167936."));
    EXPECT_TRUE(log.Contains(log::kInfo, "USB data provider stopped."));
    EXPECT_EQ(provider.Refused(), 0u);
}

TEST_F(UsbProviderTest, SlowConsumerGetsEveryLeftoverInOrderAfterStop) {
    constexpr std::uint64_t kTotal = 64 * 4096;
    Open({.total_bytes = kTotal});
    LogCapture log;
    UsbVectorProvider provider(m_device);
    std::latch hold(1);
    Consumer consumer(provider, &hold);
    ASSERT_FALSE(provider.Start(4096));
    while (provider.Queued() < 64) {
        std::this_thread::yield();  // the handler thread goes on without the consumer
    }
    EXPECT_FALSE(provider.Stop());
    EXPECT_TRUE(log.Contains(log::kWarning, "Unconsumed buffers remaining: 64."));
    // Stopping again leaves the queue alone.
    EXPECT_EQ(provider.Stop(), std::errc::operation_canceled);
    EXPECT_TRUE(log.Contains(log::kWarning, "Already stopped, skipping USB transfer abort."));
    EXPECT_EQ(provider.Queued(), 65u);
    hold.count_down();
    const StreamCheck& check = consumer.Finish();
    EXPECT_EQ(check.offset, kTotal);
    EXPECT_EQ(check.items, 64u);
    EXPECT_EQ(check.faults, 0u);
}

TEST_F(UsbProviderTest, StopWithTransfersInFlightLosesNothingAndRestarts) {
    Open();
    LogCapture log;
    UsbVectorProvider provider(m_device);
    for (const std::uint64_t after : {0u, 1u << 20}) {
        Consumer consumer(provider);
        ASSERT_FALSE(provider.Start(16384));
        consumer.AwaitBytes(after);
        EXPECT_FALSE(provider.Stop()) << after;
        const StreamCheck& check = consumer.Finish();
        // Every byte the transfers received reached the consumer.
        EXPECT_TRUE(log.Contains(
            log::kInfo, "Total received bytes of data: " + std::to_string(check.offset) + "."))
            << after;
        if (after == 0) {
            EXPECT_EQ(check.faults, 0u);
        }
    }
}

TEST_F(UsbProviderTest, UnplugEndsTheRunWithOneEndItem) {
    Open();
    UsbVectorProvider provider(m_device);
    ExpectUnplugEndsTheRun<Consumer>(provider, "Total received bytes of data: ");
}

TEST_F(UsbProviderTest, RefusedStartsAndSettings) {
    Open();
    LogCapture log;
    UsbVectorProvider provider(m_device);
    EXPECT_EQ(provider.Configure(std::any{}), std::errc::invalid_argument);
    EXPECT_EQ(provider.Configure(4), std::errc::invalid_argument);
    EXPECT_EQ(log.Count(log::kError, "BUG: Invalid configuration parameter type."), 2);
    EXPECT_EQ(provider.QueueSize(), 4);
    EXPECT_EQ(provider.Start(0), std::errc::invalid_argument);
    EXPECT_FALSE(provider.IsRunning());

    ASSERT_FALSE(provider.Start(4096));
    EXPECT_EQ(provider.Start(4096), std::errc::device_or_resource_busy);
    EXPECT_TRUE(log.Contains(log::kWarning, "Already started, skipping USB transfer creation."));
    EXPECT_FALSE(provider.Stop());

    EXPECT_FALSE(m_device->Close());
    EXPECT_EQ(provider.Start(4096), std::errc::no_such_device);
    EXPECT_TRUE(log.Contains(log::kError, "BUG: The USB device is not open."));
    UsbVectorProvider nothing(nullptr);
    EXPECT_EQ(nothing.Start(4096), std::errc::no_such_device);
    EXPECT_TRUE(log.Contains(log::kError, "BUG: Starting USB data provider without a device."));
}

TEST(UsbVectorBufferProviderTest, EmptyUnknownAndOverflowingTransfers) {
    LogCapture log;
    detail::UsbVectorBufferProvider buffers;
    usb::device::XferBuffer buffer = buffers.Acquire(16);
    buffers.Deliver(buffer);  // nothing transferred
    EXPECT_EQ(buffers.Queued(), 0u);
    std::uint8_t stranger[16];
    buffers.Deliver({stranger, 16, 16});
    EXPECT_TRUE(log.Contains(log::kError, "BUG: Unknown buffer received from the device."));
    EXPECT_EQ(buffers.Queued(), 0u);
    buffers.Release(buffer);

    // A consumer that never comes: the queue fills, then each transfer is refused and counted.
    for (std::size_t i = 0; i <= detail::UsbVectorBufferProvider::kQueueCapacity; ++i) {
        buffer = buffers.Acquire(1);
        buffer.transferred = 1;
        buffers.Deliver(buffer);
        buffers.Release(buffer);
    }
    EXPECT_EQ(buffers.Queued(), detail::UsbVectorBufferProvider::kQueueCapacity);
    EXPECT_EQ(buffers.Refused(), 1u);
    EXPECT_TRUE(log.Contains(log::kError, "Consumer queue full, dropped a transfer of 1 bytes."));
    EXPECT_FALSE(buffers.PushEnd());
    EXPECT_TRUE(log.Contains(log::kError, "Potential deadlock: failed to unblock data consumer."));
    // The consumer still gets the end item, behind everything queued.
    for (std::size_t i = 0; i < detail::UsbVectorBufferProvider::kQueueCapacity; ++i) {
        ASSERT_NE(buffers.Pop(), nullptr);
    }
    EXPECT_EQ(buffers.Pop(), nullptr);
    EXPECT_TRUE(buffers.PushEnd());  // the run had its end item
    EXPECT_EQ(buffers.Queued(), 0u);
}

TEST(ConsumerQueueTest, EndOfAFullQueueFollowsItsItemsAndADiscardDropsIt) {
    detail::ConsumerQueue<std::unique_ptr<int>> queue(2);
    const auto fill = [&](int first) {
        for (int value : {first, first + 1}) {
            auto item = std::make_unique<int>(value);
            ASSERT_TRUE(queue.TryPush(item));
        }
    };
    fill(1);
    EXPECT_FALSE(queue.PushEnd());
    EXPECT_EQ(*queue.Pop(), 1);
    EXPECT_EQ(*queue.Pop(), 2);
    EXPECT_EQ(queue.Pop(), nullptr);
    EXPECT_TRUE(queue.PushEnd());  // the next run's end fits
    EXPECT_EQ(queue.Pop(), nullptr);

    // What a discard takes from a full queue includes the end it owed.
    fill(3);
    EXPECT_FALSE(queue.PushEnd());
    std::unique_ptr<int> item;
    while (queue.TryPop(item)) {
    }
    fill(5);
    EXPECT_EQ(*queue.Pop(), 5);
}

TEST(UsbVectorBufferProviderTest, RunEndsOnceWhenItsLastBufferComesBack) {
    detail::UsbVectorBufferProvider buffers;
    // The transfers end by themselves after they have started.
    buffers.Begin();
    usb::device::XferBuffer first = buffers.Acquire(8);
    usb::device::XferBuffer second = buffers.Acquire(8);
    buffers.Started();
    buffers.Release(first);
    EXPECT_FALSE(buffers.Ended());
    buffers.Release(second);
    EXPECT_TRUE(buffers.Ended());
    EXPECT_EQ(buffers.Queued(), 1u);
    EXPECT_TRUE(buffers.PushEnd());  // the stop that follows adds nothing
    EXPECT_EQ(buffers.Queued(), 1u);
    EXPECT_EQ(buffers.Pop(), nullptr);
    // They ended before the start was known: the end comes with it.
    buffers.Begin();
    buffers.Release(buffers.Acquire(8));
    EXPECT_EQ(buffers.Queued(), 0u);
    buffers.Started();
    EXPECT_EQ(buffers.Queued(), 1u);
}

}  // namespace
}  // namespace ovex::sdk::acquisition
