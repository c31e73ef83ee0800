// Allocation failures inside USB requests, swept over every allocation that a request makes: a
// failed request reports it, frees its endpoint and transfer, and the device still closes.

#include <gtest/gtest.h>

#include <array>
#include <future>
#include <memory>
#include <optional>
#include <vector>

#include "failing_allocator.hpp"
#include "log_capture.hpp"
#include "ovex/usb/usb_context.hpp"
#include "ovex/usb/usb_device.hpp"
#include "test_producer.hpp"
#include "virtual_board_test.hpp"

namespace ovex::usb::device {
namespace {

using testing::ArmAllocationFailure;
using testing::CountingProducer;
using testing::DisarmAllocationFailure;

constexpr std::size_t kMostAllocations = 1000;

class AllocationFailureTest : public vboard::VirtualBoardTest {
protected:
    // Opens the board, runs `step` for n = 1, 2, ..., closes it again. The step makes its n-th
    // allocation fail and tells whether that allocation came; the sweep ends after the first run
    // that made fewer than n.
    template <typename Step>
    void Sweep(Step step) {
        UsbContext context;
        auto devices = context.EnumerateDevices(0x1209, 0xAD0E);
        ASSERT_EQ(devices.size(), 1u);
        UsbDevice& device = devices[0];
        for (std::size_t n = 1; n <= kMostAllocations; ++n) {
            ASSERT_FALSE(device.Open()) << n;
            const bool injected = step(device, n);
            EXPECT_FALSE(device.Close()) << n;
            EXPECT_FALSE(device.IsOpen()) << n;
            if (!injected) {
                EXPECT_GT(n, 1u) << "no allocation failed";
                return;
            }
        }
        FAIL() << "the step makes more than " << kMostAllocations << " allocations";
    }

    // Each failed request reports the failure; the same request then works without waiting for
    // the endpoint (a busy endpoint refuses once the request's timeout has passed). `prepare`
    // makes what one request uses, before the failure is armed.
    template <typename Prepare, typename Request>
    void SweepRequest(Prepare prepare, Request request) {
        Sweep([&](UsbDevice& device, std::size_t n) {
            auto input = prepare();
            ArmAllocationFailure(n);
            const std::error_code failed = request(device, input);
            const bool injected = DisarmAllocationFailure();
            // A log line that cannot be formed is dropped and the request goes on.
            EXPECT_TRUE(!failed || (injected && failed == std::errc::not_enough_memory))
                << n << ": " << failed.message();
            auto again = prepare();
            EXPECT_FALSE(request(device, again)) << n;
            return injected;
        });
    }

    // Starts a stream on the bulk IN endpoint and returns its result.
    static std::error_code Stream(UsbDevice& device, std::shared_ptr<CountingProducer> producer,
                                  double timeout, bool abort) {
        auto started = device.FindEndpoint<UsbBulkEp>(0x81)->ReadPerpetual(
            2, 4096, std::move(producer), timeout);
        if (auto* error = std::get_if<std::error_code>(&started)) {
            return *error;
        }
        auto& state = std::get<AsyncState>(started);
        if (abort) {
            (void)state.Abort();
        }
        std::future<UsbResult> result;
        try {
            result = state.Future();
        } catch (const std::bad_alloc&) {
            // The state aborts and collects by itself as it goes.
            return std::make_error_code(std::errc::not_enough_memory);
        }
        return result.get().error;
    }

    ovex::testing::LogCapture m_log;  // debug lines are formed, so their allocations fail too
};

TEST_F(AllocationFailureTest, ControlRequestFreesTheEndpointWhateverAllocationFails) {
    AddBoard();
    SweepRequest([] { return std::array<std::uint8_t, 4>{}; },
                 [](UsbDevice& device, std::array<std::uint8_t, 4>& word) {
                     return device.GetControlEndpoint().ControlIn(
                         {0xC0, vboard::kLastErrorRequest, 0, 0, 0}, word, 0.0);
                 });
}

TEST_F(AllocationFailureTest, BulkReadFreesTheEndpointWhateverAllocationFails) {
    AddBoard();
    SweepRequest([] { return std::vector<std::uint8_t>(4096); },
                 [](UsbDevice& device, std::vector<std::uint8_t>& data) {
                     return device.FindEndpoint<UsbBulkEp>(0x81)->Read(data, 0.0);
                 });
}

TEST_F(AllocationFailureTest, StreamStartAndAbortFreeTheEndpointWhateverAllocationFails) {
    vboard::VirtualBoard::Settings settings;
    settings.stream.total_bytes = 0;  // the transfers wait until they are cancelled
    AddBoard(settings);
    SweepRequest([] { return std::make_shared<CountingProducer>(2, 4096); },
                 [](UsbDevice& device, std::shared_ptr<CountingProducer>& producer) {
                     return Stream(device, producer, 0.0, true);
                 });
}

TEST_F(AllocationFailureTest, StreamThatTimesOutAndRunsDryEndsWhateverAllocationFails) {
    vboard::VirtualBoard::Settings settings;
    settings.stream.total_bytes = 0;  // every transfer times out empty and is resubmitted
    AddBoard(settings);
    // The completion thread logs each time-out, then the producer's end and the cancellation.
    SweepRequest([] { return std::make_shared<CountingProducer>(3, 4096, 4); },
                 [](UsbDevice& device, std::shared_ptr<CountingProducer>& producer) {
                     return Stream(device, producer, 0.01, false);
                 });
}

TEST_F(AllocationFailureTest, CloseAndReleaseEndThreadsAndFreeTransfersWhateverAllocationFails) {
    AddBoard();
    for (std::size_t n = 1; n <= kMostAllocations; ++n) {
        std::error_code closed;
        bool injected = false;
        {
            std::optional<UsbContext> context(std::in_place);
            auto devices = context->EnumerateDevices(0x1209, 0xAD0E);
            ASSERT_EQ(devices.size(), 1u);
            ASSERT_FALSE(devices[0].Open());
            // A transfer was pooled: closing frees it with its endpoint.
            std::array<std::uint8_t, 4> word{};
            ASSERT_FALSE(devices[0].GetControlEndpoint().ControlIn(
                {0xC0, vboard::kLastErrorRequest, 0, 0, 0}, word, 0.0));
            ArmAllocationFailure(n);
            closed = devices[0].Close();
            devices.clear();
            context.reset();  // the last owner of the event thread joins it
            injected = DisarmAllocationFailure();
        }
        EXPECT_FALSE(closed) << n;
        if (!injected) {
            EXPECT_GT(n, 1u) << "no allocation failed";
            return;
        }
    }
    FAIL() << "close and release make more than " << kMostAllocations << " allocations";
}

TEST_F(AllocationFailureTest, LibusbLineThatCannotBeFormedIsDroppedInsideLibusb) {
    auto& board = AddBoard();
    UsbContext context;
    auto devices = context.EnumerateDevices(0x1209, 0xAD0E);
    ASSERT_EQ(devices.size(), 1u);
    board.Usb().RemoveDeviceNode();  // libusb logs the failed open itself
    ArmAllocationFailure(1);         // the first allocation forms libusb's first line
    const std::error_code opened = devices[0].Open();
    EXPECT_TRUE(DisarmAllocationFailure());
    EXPECT_EQ(opened, std::errc::no_such_device);
    EXPECT_TRUE(m_log.StartingWith("libusb - [get_usbfs_fd] File doesn't exist").empty());
    EXPECT_EQ(m_log.StartingWith("libusb - [get_usbfs_fd] libusb couldn't open").size(), 1u);
}

}  // namespace
}  // namespace ovex::usb::device
