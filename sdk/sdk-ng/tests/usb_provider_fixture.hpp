#pragma once

// The data providers' tests against the virtual board's counting stream: a board and its open
// device, and a consumer thread that checks every byte of what it takes.

#include <gtest/gtest.h>

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <latch>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <thread>
#include <vector>

#include <log_capture.hpp>
#include "impl/acquisition/data_provider.hpp"
#include "ovex/usb/usb_context.hpp"
#include "ovex/usb/usb_device.hpp"
#include "ovex/vboard/counting_source.hpp"
#include "virtual_board_test.hpp"

namespace ovex::sdk::acquisition::testing {

// Follows the counting stream across the consumer's items.
struct StreamCheck {
    void Take(std::span<const std::uint8_t> data) {
        for (const std::uint8_t byte : data) {
            if (byte != vboard::CountingSource::ByteAt(offset)) {
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

struct ItemShape {
    std::size_t size = 0;
    bool ended_short = false;
    friend bool operator==(const ItemShape&, const ItemShape&) = default;
};

inline ItemShape ShapeOf(const std::vector<std::byte>& data) {
    return {data.size(), false};
}
inline ItemShape ShapeOf(const ArenaData& data) {
    return {data.data.size(), data.ended_short};
}
inline std::span<const std::uint8_t> BytesOf(const std::vector<std::byte>& data) {
    return {reinterpret_cast<const std::uint8_t*>(data.data()), data.size()};
}
inline std::span<const std::uint8_t> BytesOf(const ArenaData& data) {
    return data.data;
}

// Takes items until the provider's end item, checking each; optionally waits for a latch first.
// `Data` is the item that the provider's GetData gives.
template <typename Data>
class Consumer {
public:
    template <typename Provider>
    explicit Consumer(Provider& provider, std::latch* hold = nullptr)
        : m_thread([this, &provider, hold] {
              if (hold != nullptr) {
                  hold->wait();
              }
              for (;;) {
                  Data data;
                  EXPECT_FALSE(provider.GetData(data));
                  if (!data) {
                      return;
                  }
                  m_check.Take(BytesOf(*data));
                  m_shapes.push_back(ShapeOf(*data));
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
    const std::vector<ItemShape>& Shapes() const { return m_shapes; }

private:
    StreamCheck m_check;
    std::vector<ItemShape> m_shapes;
    std::atomic<std::uint64_t> m_bytes{0};
    std::thread m_thread;
};

using VectorConsumer = Consumer<std::shared_ptr<std::vector<std::byte>>>;
using ArenaConsumer = Consumer<std::unique_ptr<ArenaData>>;

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

    // Unplugs the board once a stream has begun: the consumer gets its end item without a
    // Stop, the provider no longer runs, and Stop reports the disconnect without a second end
    // item. `total_line` is the line that Stop logs with the bytes received, without them.
    template <typename ConsumerOf, typename Provider>
    void ExpectUnplugEndsTheRun(Provider& provider, const std::string& total_line) {
        ovex::testing::LogCapture log;
        ConsumerOf consumer(provider);
        ASSERT_FALSE(provider.Start(16384));
        consumer.AwaitBytes(1 << 18);
        m_board->Usb().Unplug();
        const StreamCheck& check = consumer.Finish();
        EXPECT_EQ(check.faults, 0u);
        EXPECT_FALSE(provider.IsRunning());
        EXPECT_EQ(provider.Stop(), std::errc::no_such_device);
        EXPECT_EQ(provider.Queued(), 0u);
        EXPECT_TRUE(log.Contains(log::kInfo, total_line + std::to_string(check.offset) + "."));
        // A gone device is refused, and the process goes on.
        EXPECT_NE(provider.Start(16384).value(), 0);
    }

    vboard::VirtualBoard* m_board = nullptr;
    std::optional<usb::device::UsbContext> m_context;
    std::shared_ptr<usb::device::UsbDevice> m_device;
};

}  // namespace ovex::sdk::acquisition::testing
