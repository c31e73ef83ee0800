// The data providers against the virtual board's counting stream: every byte checked, a consumer
// that falls behind, stopping with transfers in flight, an unplug, and refused input.

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <latch>
#include <thread>

#include "impl/acquisition/usb_vector_provider.hpp"
#include "ovex/usb/usb_context.hpp"
#include "ovex/vboard/counting_source.hpp"
#include "support/log_capture.hpp"
#include "virtual_board_test.hpp"

namespace ovex::sdk::acquisition {
namespace {

using ovex::sdk::testing::LogCapture;
using Buffer = std::shared_ptr<std::vector<std::byte>>;

// Follows the counting stream across the consumer's items.
struct StreamCheck {
    void Take(const std::vector<std::byte>& data) {
        for (const std::byte byte : data) {
            if (std::to_integer<std::uint8_t>(byte) != vboard::CountingSource::ByteAt(offset)) {
                ++faults;
            }
            ++offset;
        }
        ++items;
    }
    std::uint64_t offset = 0;
    std::size_t faults = 0;
    std::size_t items = 0;
};

// Takes items until the provider's end, checking each; optionally waits for a latch first.
class Consumer {
public:
    explicit Consumer(IVectorDataProvider& provider, std::latch* hold = nullptr)
        : m_thread([this, &provider, hold] {
              if (hold != nullptr) {
                  hold->wait();
              }
              for (;;) {
                  Buffer data;
                  EXPECT_FALSE(provider.GetData(data));
                  if (!data) {
                      return;
                  }
                  EXPECT_FALSE(data->empty());
                  m_check.Take(*data);
                  m_sizes.push_back(data->size());
                  m_bytes.store(m_check.offset, std::memory_order_release);
              }
          }) {}

    void AwaitBytes(std::uint64_t bytes) const {
        while (m_bytes.load(std::memory_order_acquire) < bytes) {
            std::this_thread::yield();
        }
    }
    // After the end: what arrived.
    const StreamCheck& Finish() {
        m_thread.join();
        return m_check;
    }
    const std::vector<std::size_t>& Sizes() const { return m_sizes; }

private:
    StreamCheck m_check;
    std::vector<std::size_t> m_sizes;
    std::atomic<std::uint64_t> m_bytes{0};
    std::thread m_thread;
};

class UsbProviderTest : public vboard::VirtualBoardTest {
protected:
    void Open(vboard::CountingSource::Settings stream = {}) {
        vboard::VirtualBoard::Settings settings;
        settings.stream = stream;
        m_board = &AddBoard(std::move(settings));
        m_context.emplace();
        auto devices = m_context->EnumerateDevices(0x1209, 0xAD0E);
        ASSERT_EQ(devices.size(), 1u);
        m_device = std::make_shared<usb::device::UsbDevice>(std::move(devices[0]));
        ASSERT_FALSE(m_device->Open());
    }

    void TearDown() override {
        m_device.reset();
        m_context.reset();
        VirtualBoardTest::TearDown();
    }

    vboard::VirtualBoard* m_board = nullptr;
    std::optional<usb::device::UsbContext> m_context;
    std::shared_ptr<usb::device::UsbDevice> m_device;
};

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
    ASSERT_EQ(consumer.Sizes().size(), 41u);
    EXPECT_EQ(std::count(consumer.Sizes().begin(), consumer.Sizes().end(), 4096u), 41);
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

TEST_F(UsbProviderTest, UnplugEndsTheTransfersAndStopReportsIt) {
    Open();
    LogCapture log;
    UsbVectorProvider provider(m_device);
    Consumer consumer(provider);
    ASSERT_FALSE(provider.Start(16384));
    consumer.AwaitBytes(1 << 18);
    m_board->Usb().Unplug();
    EXPECT_EQ(provider.Stop(), std::errc::no_such_device);
    const StreamCheck& check = consumer.Finish();
    EXPECT_EQ(check.faults, 0u);
    EXPECT_TRUE(log.Contains(
        log::kInfo, "Total received bytes of data: " + std::to_string(check.offset) + "."));
    EXPECT_EQ(provider.Start(16384).value() != 0, true);  // a gone device is refused, no crash
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
    EXPECT_EQ(buffers.Discard(), detail::UsbVectorBufferProvider::kQueueCapacity);
    EXPECT_TRUE(buffers.PushEnd());
}

}  // namespace
}  // namespace ovex::sdk::acquisition
