// The arena provider: span arithmetic on the buffer provider alone, then against the virtual
// board's counting stream: finite and at a rate, held consumers, an unplug, arenas running out,
// and refused input.

#include <gtest/gtest.h>

#include <latch>
#include <new>
#include <thread>

#include "impl/acquisition/usb_arena_provider.hpp"
#include "support/log_capture.hpp"
#include "usb_provider_fixture.hpp"

namespace ovex::sdk::acquisition {
namespace {

using ovex::sdk::testing::LogCapture;
using testing::ItemShape;
using testing::StreamCheck;
using testing::UsbProviderTest;
using tpx3_pipeline::Arena;
using usb::device::XferBuffer;
using Consumer = testing::ArenaConsumer;

// Two blocks fit an arena.
constexpr Arena::Settings kLarge{983040, 1966080};
// Four blocks of a size that the virtual board fills quickly.
constexpr std::uint64_t kBlock = 24576;
constexpr Arena::Settings kSmall{kBlock, 4 * kBlock};

// An arena factory that fails after `limit` arenas.
detail::UsbArenaBufferProvider::ArenaFactory FailingAfter(int limit) {
    return [made = 0, limit](const Arena::Settings& settings) mutable {
        if (++made > limit) {
            throw std::bad_alloc();
        }
        return std::make_unique<Arena>(settings);
    };
}

class ArenaBuffers {
public:
    explicit ArenaBuffers(detail::UsbArenaBufferProvider::ArenaFactory make = {})
        : m_buffers(std::move(make)) {
        m_buffers.Configure(kLarge);
    }
    XferBuffer Acquire() {
        const XferBuffer buffer = m_buffers.Acquire(kLarge.block_size);
        EXPECT_NE(buffer.buffer, nullptr);
        return buffer;
    }
    void Deliver(XferBuffer buffer, std::uint32_t transferred) {
        buffer.transferred = transferred;
        m_buffers.Deliver(buffer);
    }
    // The next item queued: where it starts, and its shape.
    std::pair<const std::uint8_t*, ItemShape> Take() {
        const std::unique_ptr<ArenaData> item = m_buffers.Pop();
        if (!item) {
            return {};
        }
        return {item->data.data(), {item->data.size(), item->ended_short}};
    }
    // The only item queued.
    std::pair<const std::uint8_t*, ItemShape> Single() {
        EXPECT_EQ(m_buffers.Queued(), 1u);
        return Take();
    }
    detail::UsbArenaBufferProvider& operator*() { return m_buffers; }

private:
    detail::UsbArenaBufferProvider m_buffers;
};

using Span = std::pair<const std::uint8_t*, ItemShape>;

TEST(UsbArenaBufferProviderTest, SpansEndWithFullArenasShortTransfersAndGaps) {
    LogCapture log;
    ArenaBuffers buffers;
    EXPECT_EQ((*buffers).FreeArenas(), detail::UsbArenaBufferProvider::kReservedArenas);
    // Two full blocks fill an arena and give one span; the third transfer lands in a new arena.
    const XferBuffer a = buffers.Acquire();
    const XferBuffer b = buffers.Acquire();
    const XferBuffer c = buffers.Acquire();
    EXPECT_EQ(b.buffer, a.buffer + kLarge.block_size);
    EXPECT_NE(c.buffer, b.buffer + kLarge.block_size);
    buffers.Deliver(a, 983040);
    EXPECT_EQ((*buffers).Queued(), 0u);
    buffers.Deliver(b, 983040);
    EXPECT_EQ(buffers.Single(), Span(a.buffer, {1966080, false}));

    // A short first block is a span of its own; the next span starts one block on.
    const XferBuffer d = buffers.Acquire();
    EXPECT_EQ(d.buffer, c.buffer + kLarge.block_size);
    buffers.Deliver(c, 600);
    EXPECT_EQ(buffers.Single(), Span(c.buffer, {600, true}));
    buffers.Deliver(d, 983040);
    EXPECT_EQ(buffers.Single(), Span(d.buffer, {983040, false}));

    // An empty short transfer that is also the arena's last block: one span, of the block
    // before it, and the arena is done with.
    const XferBuffer e = buffers.Acquire();
    const XferBuffer f = buffers.Acquire();
    buffers.Deliver(e, 983040);
    buffers.Deliver(f, 0);
    EXPECT_EQ(buffers.Single(), Span(e.buffer, {983040, true}));
    const XferBuffer g = buffers.Acquire();
    buffers.Deliver(g, 0);
    EXPECT_EQ(buffers.Single(), Span(g.buffer, {0, true}));

    // Transfers that never delivered (g's neighbour, l) end the span before them, if any.
    buffers.Acquire();
    const XferBuffer i = buffers.Acquire();
    const XferBuffer j = buffers.Acquire();
    const XferBuffer k = buffers.Acquire();
    buffers.Acquire();
    const XferBuffer m = buffers.Acquire();
    const XferBuffer n = buffers.Acquire();
    for (const XferBuffer& full : {i, j, k, m, n}) {
        buffers.Deliver(full, 983040);
    }
    ASSERT_EQ((*buffers).Queued(), 3u);
    EXPECT_EQ(buffers.Take(), Span(i.buffer, {1966080, false}));
    EXPECT_EQ(buffers.Take(), Span(k.buffer, {983040, true}));
    EXPECT_EQ(buffers.Take(), Span(m.buffer, {1966080, false}));

    // Buffers that were not lent, or were delivered already, change nothing.
    std::uint8_t stranger[16];
    (*buffers).Deliver({stranger, 16, 16});
    buffers.Deliver(a, 983040);
    EXPECT_EQ(log.Count(log::kError, "BUG: Unknown buffer received from the device."), 2);
    EXPECT_EQ((*buffers).Queued(), 0u);
}

TEST(UsbArenaBufferProviderTest, PoolStaysWhileTheSettingsStayAndArenasRunOutInOrder) {
    LogCapture log;
    ArenaBuffers buffers(FailingAfter(17));
    const XferBuffer first = buffers.Acquire();
    (*buffers).Discard();  // its arena goes back
    (*buffers).Configure(kLarge);
    EXPECT_EQ(buffers.Acquire().buffer, first.buffer);
    const std::string changed = "Arena settings have been changed, initializing a new arena pool.";
    EXPECT_EQ(log.Count(log::kDebug, changed), 1);

    // 16 arenas in the pool and one more from the factory, then no more: a null buffer.
    for (int block = 1; block < 34; ++block) {
        buffers.Acquire();
    }
    EXPECT_EQ((*buffers).Acquire(kLarge.block_size).buffer, nullptr);
    EXPECT_TRUE(log.Contains(
        log::kError, "No arena block of 983040 bytes for a USB transfer - std::bad_alloc."));

    // Other settings make a new pool.
    (*buffers).Discard();
    (*buffers).Configure({kLarge.block_size, 2 * kLarge.capacity});
    EXPECT_EQ(log.Count(log::kDebug, changed), 2);
    EXPECT_EQ((*buffers).FreeArenas(), detail::UsbArenaBufferProvider::kReservedArenas);
}

TEST_F(UsbProviderTest, FiniteStreamArrivesInArenaSpansAfterStopThenNull) {
    // Two full arenas, then three blocks and a short end.
    constexpr std::uint64_t kTotal = 11 * kBlock + 1000;
    Open({.total_bytes = kTotal});
    LogCapture log;
    UsbArenaProvider provider(m_device);
    ASSERT_FALSE(provider.Configure(kSmall));
    std::latch hold(1);
    Consumer consumer(provider, &hold);
    ASSERT_FALSE(provider.Start(0));
    EXPECT_TRUE(provider.IsRunning());
    while (provider.Queued() < 3) {
        std::this_thread::yield();  // the consumer waits; the transfers go on
    }
    EXPECT_FALSE(provider.Stop());
    EXPECT_TRUE(log.Contains(log::kWarning, "Unconsumed buffers remaining: 3."));
    EXPECT_TRUE(log.Contains(log::kInfo, "Total received raw bytes of data: 271336."));
    EXPECT_EQ(log.Count(log::kDebug, "Reset bulk endpoint, attempt 1 of 5."), 1);
    EXPECT_FALSE(log.Contains(log::kDebug, "Reset bulk endpoint, attempt 2 of 5."));
    // Stopping again leaves the queue alone.
    EXPECT_EQ(provider.Stop(), std::errc::operation_canceled);
    EXPECT_TRUE(log.Contains(log::kWarning, "Already stopped, skipping USB transfer abort."));
    EXPECT_EQ(provider.Queued(), 4u);
    hold.count_down();
    const StreamCheck& check = consumer.Finish();
    EXPECT_EQ(check.offset, kTotal);
    EXPECT_EQ(check.faults, 0u);
    EXPECT_EQ(consumer.Shapes(),
              (std::vector<ItemShape>{
                  {4 * kBlock, false}, {4 * kBlock, false}, {3 * kBlock + 1000, true}}));
}

TEST_F(UsbProviderTest, StreamAtARateArrivesWholeInBlocksAcrossArenasUntilStop) {
    Open({.bytes_per_second = 40e6, .total_bytes = std::nullopt});
    LogCapture log;
    UsbArenaProvider provider(m_device);
    ASSERT_FALSE(provider.Configure(kSmall));
    Consumer consumer(provider);
    ASSERT_FALSE(provider.Start(0));
    consumer.AwaitBytes(8 * kSmall.capacity);
    EXPECT_FALSE(provider.Stop());
    const StreamCheck& check = consumer.Finish();
    EXPECT_EQ(check.faults, 0u);
    // What the transfers received reached the consumer, the last span at the stop.
    EXPECT_TRUE(log.Contains(
        log::kInfo, "Total received raw bytes of data: " + std::to_string(check.offset) + "."));
    for (const ItemShape& shape : consumer.Shapes()) {
        EXPECT_TRUE(shape.ended_short || shape.size % kBlock == 0) << shape.size;
        EXPECT_LE(shape.size, kSmall.capacity);
    }
}

TEST_F(UsbProviderTest, ArenaUnplugEndsTheRunWithOneEndItem) {
    Open();
    UsbArenaProvider provider(m_device);
    ASSERT_FALSE(provider.Configure(kSmall));
    ExpectUnplugEndsTheRun<Consumer>(provider, "Total received raw bytes of data: ");
}

TEST_F(UsbProviderTest, ArenasThatRunOutEndTheRunInOrder) {
    Open();
    LogCapture log;
    // The 16 arenas of the pool and one more, all held by the items the consumer hasn't taken.
    UsbArenaProvider provider(m_device, FailingAfter(17));
    ASSERT_FALSE(provider.Configure(kSmall));
    std::latch hold(1);
    Consumer consumer(provider, &hold);
    ASSERT_FALSE(provider.Start(0));
    while (provider.IsRunning()) {
        std::this_thread::yield();
    }
    EXPECT_TRUE(log.Contains(log::kError,
                             "No arena block of 24576 bytes for a USB transfer - std::bad_alloc."));
    hold.count_down();
    const StreamCheck& check = consumer.Finish();  // the end item came without a stop
    EXPECT_EQ(check.faults, 0u);
    EXPECT_GE(check.offset, 13 * kSmall.capacity);  // all but the last transfers in flight
    EXPECT_FALSE(provider.Stop());
    EXPECT_TRUE(log.Contains(
        log::kInfo, "Total received raw bytes of data: " + std::to_string(check.offset) + "."));
    EXPECT_EQ(provider.Queued(), 0u);
}

TEST_F(UsbProviderTest, ArenaProviderRefusesBadSettingsAndStartsAndResetsOnlyWhenStopped) {
    Open();
    LogCapture log;
    {
        UsbArenaProvider provider(m_device);
        EXPECT_EQ(provider.Configure(std::any{}), std::errc::invalid_argument);
        EXPECT_EQ(provider.Configure(4), std::errc::invalid_argument);
        EXPECT_EQ(log.Count(log::kError, "BUG: Invalid configuration parameter type."), 2);
        EXPECT_EQ(provider.Configure(Arena::Settings{7, 70}), std::errc::invalid_argument);
        EXPECT_TRUE(log.Contains(log::kError,
                                 "Invalid arena settings (block size 7, capacity 70): Arena block "
                                 "size is not divisible by arena alignment."));
        EXPECT_EQ(provider.Configure(Arena::Settings{6ull << 32, 6ull << 32}),
                  std::errc::invalid_argument);
        EXPECT_EQ(provider.Start(0), std::errc::invalid_argument);
        EXPECT_TRUE(log.Contains(
            log::kError,
            "BUG: Starting the arena data provider before its arenas are configured."));

        ASSERT_FALSE(provider.Configure(kSmall));
        ASSERT_FALSE(provider.Start(0));
        EXPECT_EQ(provider.Start(0), std::errc::device_or_resource_busy);
        EXPECT_EQ(provider.Configure(kLarge), std::errc::device_or_resource_busy);
        while (provider.Queued() == 0) {
            std::this_thread::yield();
        }
        provider.Reset();
        EXPECT_TRUE(log.Contains(log::kWarning, "BUG: Attempted to reset running provider."));
        EXPECT_NE(provider.Queued(), 0u);
        EXPECT_FALSE(provider.Stop());
        // What nobody took, and the end item.
        provider.Reset();
        EXPECT_EQ(provider.Queued(), 0u);
        EXPECT_TRUE(log.Contains(log::kDebug, "Discarding empty buffer."));
        EXPECT_EQ(log.StartingWith("Discarded ").size(), 1u);
        EXPECT_FALSE(log.Contains(log::kDebug, "Provider destroyed."));
    }
    EXPECT_TRUE(log.Contains(log::kDebug, "Provider destroyed."));

    EXPECT_FALSE(m_device->Close());
    UsbArenaProvider closed(m_device);
    ASSERT_FALSE(closed.Configure(kSmall));
    EXPECT_EQ(closed.Start(0), std::errc::no_such_device);
    EXPECT_TRUE(log.Contains(log::kError, "BUG: The USB device is present, but not open."));
    UsbArenaProvider nothing(nullptr);
    EXPECT_EQ(nothing.Start(0), std::errc::no_such_device);
    EXPECT_TRUE(log.Contains(log::kError, "BUG: Starting USB data provider without a device."));
}

}  // namespace
}  // namespace ovex::sdk::acquisition
