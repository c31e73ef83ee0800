// Perpetual transfers against the virtual board: complete, ordered data; every way of stopping.

#include <gtest/gtest.h>

#include <thread>

#include "log_capture.hpp"
#include "ovex/usb/usb_context.hpp"
#include "ovex/usb/usb_device.hpp"
#include "ovex/usb/usb_error.hpp"
#include "test_producer.hpp"
#include "virtual_board_test.hpp"

namespace ovex::usb::device {
namespace {

using testing::CountingProducer;

constexpr std::uint32_t kArenaBlock = 983040;
constexpr std::uint32_t kInFlight = 16;

class PerpetualTest : public vboard::VirtualBoardTest {
protected:
    void OpenBoard() {
        m_context.emplace();
        auto devices = m_context->EnumerateDevices(0x1209, 0xAD0E);
        ASSERT_EQ(devices.size(), 1u);
        m_device.emplace(std::move(devices[0]));
        ASSERT_FALSE(m_device->Open());
        m_bulk = m_device->FindEndpoint<UsbBulkEp>(0x81);
        ASSERT_NE(m_bulk, nullptr);
    }

    void TearDown() override {
        m_device.reset();
        m_context.reset();
        VirtualBoardTest::TearDown();
    }

    AsyncState Start(const std::shared_ptr<CountingProducer>& producer,
                     std::uint32_t size = kArenaBlock, std::uint32_t queue = kInFlight) {
        auto started = m_bulk->ReadPerpetual(queue, size, producer, 0.0);
        if (auto* error = std::get_if<std::error_code>(&started)) {
            ADD_FAILURE() << error->message();
        }
        return std::move(std::get<AsyncState>(started));
    }

    static void AwaitDeliveries(const CountingProducer& producer, std::size_t count) {
        while (producer.Deliveries() < count) {
            std::this_thread::yield();
        }
    }

    std::optional<UsbContext> m_context;
    std::optional<UsbDevice> m_device;
    UsbBulkEp* m_bulk = nullptr;
};

TEST_F(PerpetualTest, GigabyteArrivesCompleteAndInOrderUntilTheProducerRunsDry) {
    AddBoard();
    OpenBoard();
    // Enough buffers for all in flight and the resubmits; the stream ends when they run out.
    constexpr std::size_t kAcquires = (std::size_t{1} << 30) / kArenaBlock + 1 + kInFlight + 1;
    auto producer = std::make_shared<CountingProducer>(kInFlight + 4, kArenaBlock, kAcquires);
    AsyncState state = Start(producer);
    const UsbResult result = state.Future().get();
    EXPECT_FALSE(result.error) << result.error.message();
    EXPECT_GE(result.bytes, std::uint64_t{1} << 30);
    EXPECT_EQ(result.bytes, producer->Received());
    EXPECT_EQ(result.bytes, producer->Deliveries() * std::uint64_t{kArenaBlock});
    EXPECT_EQ(producer->Faults(), 0u);
    EXPECT_EQ(producer->Lent(), 0u);  // every buffer came back
}

TEST_F(PerpetualTest, ProducerCallsNeverOverlapWhileTheFirstBuffersAreLent) {
    AddBoard();
    OpenBoard();
    // Small transfers complete while the starting thread still lends the first buffers.
    for (int round = 0; round < 20; ++round) {
        auto producer = std::make_shared<CountingProducer>(kInFlight + 4, 512, 200);
        AsyncState state = Start(producer, 512);
        EXPECT_FALSE(state.Future().get().error);
        EXPECT_EQ(producer->Overlaps(), 0u) << round;
        EXPECT_EQ(producer->Lent(), 0u);
    }
}

TEST_F(PerpetualTest, AbortAtAnyMomentReturnsEveryBufferAndFreesTheEndpoint) {
    AddBoard();
    OpenBoard();
    std::uint64_t total = 0;
    for (const std::size_t after : {0u, 1u, 7u, 40u}) {
        auto producer = std::make_shared<CountingProducer>(kInFlight + 2, 65536);
        AsyncState state = Start(producer, 65536);
        AwaitDeliveries(*producer, after);
        EXPECT_FALSE(state.Abort());
        const UsbResult result = state.Future().get();
        EXPECT_FALSE(result.error) << after << ": " << result.error.message();
        EXPECT_EQ(result.bytes, producer->Received()) << after;
        EXPECT_EQ(producer->Lent(), 0u) << after;
        total += result.bytes;
        // The board's stream goes on where this one stopped, so only the first starts at 0.
        if (total == result.bytes) {
            EXPECT_EQ(producer->Faults(), 0u) << after;
        }
    }
    std::vector<std::uint8_t> data(512);
    EXPECT_FALSE(m_bulk->Read(data, 1.0));  // the endpoint is free again
}

TEST_F(PerpetualTest, SecondStreamOnARunningEndpointIsBusyAndBadRequestsAreRefused) {
    AddBoard();
    OpenBoard();
    ovex::testing::LogCapture log;
    auto producer = std::make_shared<CountingProducer>(4, 4096);
    AsyncState state = Start(producer, 4096, 2);
    auto second = m_bulk->ReadPerpetual(2, 4096, std::make_shared<CountingProducer>(4, 4096), 0.0);
    EXPECT_EQ(std::get<std::error_code>(second), std::errc::device_or_resource_busy);
    EXPECT_FALSE(state.Abort());
    EXPECT_FALSE(state.Future().get().error);

    auto none = m_bulk->ReadPerpetual(0, 4096, producer, 0.0);
    EXPECT_EQ(std::get<std::error_code>(none), std::errc::invalid_argument);
    EXPECT_TRUE(
        log.Contains(log::kError, "Cannot create bulk endpoint transfer with 0 libusb transfers."));
    auto* out = m_device->FindEndpoint<UsbBulkEp>(0x01);
    EXPECT_EQ(std::get<std::error_code>(out->ReadPerpetual(2, 4096, producer, 0.0)),
              std::errc::not_supported);
    auto nobody = m_bulk->ReadPerpetual(2, 4096, nullptr, 0.0);
    EXPECT_EQ(std::get<std::error_code>(nobody), std::errc::invalid_argument);
    std::vector<std::uint8_t> data(512);
    EXPECT_FALSE(m_bulk->Read(data, 1.0));  // the refused starts left the endpoint free
}

TEST_F(PerpetualTest, UnplugMidStreamEndsWithDisconnectAndNoHang) {
    auto& board = AddBoard();
    OpenBoard();
    ovex::testing::LogCapture log;
    auto producer = std::make_shared<CountingProducer>(kInFlight + 2, 65536);
    AsyncState state = Start(producer, 65536);
    AwaitDeliveries(*producer, 5);
    board.Usb().Unplug();
    const UsbResult result = state.Future().get();
    EXPECT_EQ(result.error, std::errc::no_such_device);
    EXPECT_EQ(result.error, error::MakeTransferError(LIBUSB_TRANSFER_NO_DEVICE));
    EXPECT_EQ(result.bytes, producer->Received());
    EXPECT_EQ(producer->Faults(), 0u);
    EXPECT_EQ(producer->Lent(), 0u);
    EXPECT_FALSE(log.StartingWith("Perpetual transfer n.").empty());
    EXPECT_FALSE(m_device->Close());
}

TEST_F(PerpetualTest, StallMidStreamEndsWithTheStallAfterBuffersCameBack) {
    auto& board = AddBoard();
    OpenBoard();
    auto producer = std::make_shared<CountingProducer>(kInFlight + 2, 65536);
    AsyncState state = Start(producer, 65536);
    AwaitDeliveries(*producer, 3);
    board.Firmware().Halt(0x81);
    const UsbResult result = state.Future().get();
    EXPECT_EQ(result.error, error::MakeTransferError(LIBUSB_TRANSFER_STALL));
    EXPECT_EQ(producer->Lent(), 0u);
    EXPECT_EQ(producer->Faults(), 0u);
}

TEST_F(PerpetualTest, ClosingTheDeviceEndsARunningStreamFirst) {
    AddBoard();
    OpenBoard();
    auto producer = std::make_shared<CountingProducer>(kInFlight + 2, 65536);
    AsyncState state = Start(producer, 65536);
    AwaitDeliveries(*producer, 2);
    EXPECT_FALSE(m_device->Close());
    EXPECT_EQ(producer->Lent(), 0u);
    const UsbResult result = state.Future().get();  // still collectable, the endpoint is gone
    EXPECT_FALSE(result.error);
    EXPECT_EQ(result.bytes, producer->Received());
    // The state outlives device and context: its pooled transfers keep libusb alive till the end.
    m_device.reset();
    m_context.reset();
}

TEST_F(PerpetualTest, DroppedStateAbortsAndFreesTheEndpoint) {
    AddBoard();
    OpenBoard();
    auto producer = std::make_shared<CountingProducer>(kInFlight + 2, 65536);
    {
        AsyncState state = Start(producer, 65536);
        AwaitDeliveries(*producer, 1);
    }
    EXPECT_EQ(producer->Lent(), 0u);
    std::vector<std::uint8_t> data(512);
    EXPECT_FALSE(m_bulk->Read(data, 1.0));
}

TEST_F(PerpetualTest, InterruptStreamDeliversEachFrameOnce) {
    auto& board = AddBoard();
    OpenBoard();
    auto* interrupt = m_device->FindEndpoint<UsbInterruptEp>(0x82);
    for (std::uint8_t i = 1; i <= 3; ++i) {
        board.Frames().Push(std::vector<std::uint8_t>(10, i));
    }
    auto producer = std::make_shared<CountingProducer>(2, 64);
    auto started = interrupt->ReadPerpetual(1, 64, producer, 0.0);
    auto& state = std::get<AsyncState>(started);
    AwaitDeliveries(*producer, 3);
    EXPECT_FALSE(state.Abort());
    const UsbResult result = state.Future().get();
    EXPECT_FALSE(result.error);
    EXPECT_EQ(result.bytes, 30u);
    EXPECT_EQ(producer->Deliveries(), 3u);
}

}  // namespace
}  // namespace ovex::usb::device
