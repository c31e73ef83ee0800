// The transport against the virtual board, through the real libusb.

#include <gtest/gtest.h>
#include <unistd.h>

#include <array>
#include <cstdio>
#include <string>
#include <thread>
#include <vector>

#include "log_capture.hpp"
#include "ovex/usb/usb_context.hpp"
#include "ovex/usb/usb_device.hpp"
#include "ovex/usb/usb_error.hpp"
#include "virtual_board_test.hpp"

namespace ovex::usb::device {
namespace {

using vboard::ControlReply;
using vboard::CountingSource;

constexpr std::uint16_t kVid = 0x1209;
constexpr std::uint16_t kPid = 0xAD0E;
constexpr std::uint8_t kEchoRequest = 0x42;

class UsbDeviceTest : public vboard::VirtualBoardTest {
protected:
    // Opens the first board found.
    UsbDevice OpenOne(UsbContext& context) {
        auto devices = context.EnumerateDevices(kVid, kPid);
        EXPECT_EQ(devices.size(), 1u);
        UsbDevice device = std::move(devices.at(0));
        EXPECT_FALSE(device.Open());
        return device;
    }

    // A vendor request that keeps what the host writes and reads it back.
    void InstallEcho(vboard::VirtualBoard& board) {
        board.Firmware().SetVendorRequest(
            kEchoRequest, [this](const vboard::SetupPacket& setup, auto out) {
                if (!setup.IsIn()) {
                    m_echo.assign(out.begin(), out.end());
                    return ControlReply{};
                }
                return ControlReply{ControlReply::Kind::kAnswer, m_echo};
            });
    }

    // Returns once the board holds a request of the host's that it hasn't answered.
    static void AwaitUrbInFlight(vboard::VirtualBoard& board) {
        while (board.Usb().UrbsInFlight() == 0) {
            std::this_thread::yield();
        }
    }

    std::vector<std::uint8_t> m_echo;
};

std::size_t Count(const ovex::testing::LogCapture& log, const std::string& start) {
    return log.StartingWith(start).size();
}

// Takes what the process writes to its standard error, from construction to Finish.
class StderrCapture {
public:
    StderrCapture() {
        EXPECT_EQ(pipe(m_pipe), 0);
        std::fflush(stderr);
        m_saved = dup(STDERR_FILENO);
        dup2(m_pipe[1], STDERR_FILENO);
        close(m_pipe[1]);
    }
    StderrCapture(const StderrCapture&) = delete;
    StderrCapture& operator=(const StderrCapture&) = delete;

    // Gives the standard error back and returns what was written to it.
    std::string Finish() {
        std::fflush(stderr);
        dup2(m_saved, STDERR_FILENO);
        close(m_saved);
        std::string text;
        std::array<char, 256> chunk;
        for (ssize_t got; (got = read(m_pipe[0], chunk.data(), chunk.size())) > 0;) {
            text.append(chunk.data(), static_cast<std::size_t>(got));
        }
        close(m_pipe[0]);
        return text;
    }

private:
    int m_pipe[2] = {-1, -1};
    int m_saved = -1;
};

TEST_F(UsbDeviceTest, EnumerationFindsNoneOneOrTwoBoardsAndFiltersByIds) {
    {
        ovex::testing::LogCapture log;
        UsbContext context;
        EXPECT_TRUE(context.EnumerateDevices(kVid, kPid).empty());
        EXPECT_TRUE(log.Contains(log::kDebug, "Found 0 USB devices connected to the system."));
    }
    AddBoard();
    {
        UsbContext context;
        EXPECT_EQ(context.EnumerateDevices(kVid, kPid).size(), 1u);
        EXPECT_TRUE(context.EnumerateDevices(kVid, kPid + 1).empty());
    }
    vboard::VirtualBoard::Settings second;
    second.identity.serial = "OVX00002";
    AddBoard(second);
    ovex::testing::LogCapture log;
    UsbContext context;
    auto devices = context.EnumerateDevices(kVid, kPid);
    ASSERT_EQ(devices.size(), 2u);
    EXPECT_EQ(Count(log, "There are 2 USB devices matching predicate "), 1u);
    std::vector<std::string> serials;
    for (auto& device : devices) {
        DeviceInfo info;
        ASSERT_FALSE(device.GetInfo(info));
        EXPECT_FALSE(device.IsOpen());  // the temporary handle is gone
        serials.push_back(info.serial);
    }
    std::sort(serials.begin(), serials.end());
    EXPECT_EQ(serials, (std::vector<std::string>{"OVX00001", "OVX00002"}));
}

TEST_F(UsbDeviceTest, InfoReportsIdentityAndPath) {
    AddBoard();
    UsbContext context;
    auto devices = context.EnumerateDevices(kVid, kPid);
    ASSERT_EQ(devices.size(), 1u);
    DeviceInfo info;
    ASSERT_FALSE(devices[0].GetInfo(info));
    EXPECT_EQ(info.manufacturer, "Ovex Instruments");
    EXPECT_EQ(info.product, "OvexBoard Timepix3");
    EXPECT_EQ(info.serial, "OVX00001");
    EXPECT_EQ(info.version, "3.03");
    EXPECT_EQ(info.path, "1.1.2");
    EXPECT_EQ(devices[0].GetPath(), "1.1.2");
}

TEST_F(UsbDeviceTest, EventThreadRunsFromFirstOpenToLastClose) {
    AddBoard();
    vboard::VirtualBoard::Settings second;
    second.identity.serial = "OVX00002";
    AddBoard(second);
    ovex::testing::LogCapture log;
    UsbContext context;
    auto devices = context.EnumerateDevices(kVid, kPid);
    ASSERT_EQ(devices.size(), 2u);

    ASSERT_FALSE(devices[0].Open());
    EXPECT_EQ(devices[0].Open(), std::errc::device_or_resource_busy);
    ASSERT_FALSE(devices[1].Open());
    EXPECT_EQ(Count(log, "USB event handler n.1 started."), 1u);  // one thread for both
    ASSERT_FALSE(devices[0].Close());
    EXPECT_FALSE(devices[0].Close());  // closing a closed device is fine
    ASSERT_FALSE(devices[1].Close());
    // Reopening starts a fresh worker; the old one is joined on the way.
    ASSERT_FALSE(devices[0].Open());
    EXPECT_EQ(Count(log, "USB event handler n.1 started."), 2u);
    EXPECT_EQ(Count(log, "USB event handler n.1 terminated."), 1u);

    // The endpoint table: control first, then the board's three in descriptor order.
    const auto endpoints = devices[0].GetEndpoints();
    ASSERT_EQ(endpoints.size(), 4u);
    EXPECT_TRUE(std::holds_alternative<UsbControlEp>(endpoints[0]));
    EXPECT_EQ(std::get<UsbControlEp>(endpoints[0]).GetMaxPacketSize(), 64);
    EXPECT_EQ(std::get<UsbBulkEp>(endpoints[1]).GetAddress(), 0x81);
    EXPECT_EQ(std::get<UsbInterruptEp>(endpoints[2]).GetAddress(), 0x82);
    EXPECT_EQ(std::get<UsbBulkEp>(endpoints[3]).GetAddress(), 0x01);
    EXPECT_EQ(std::get<UsbBulkEp>(endpoints[1]).GetMaxTransferSize(), kUnlimitedTransferSize);
    EXPECT_TRUE(log.Contains(log::kDebug, "RAW_IO not supported for endpoint 0x81."));
    ASSERT_FALSE(devices[0].Close());
    EXPECT_TRUE(devices[0].GetEndpoints().empty());
}

TEST_F(UsbDeviceTest, IsochronousEndpointIsLeftOutOfTheTable) {
    vboard::VirtualBoard::Settings settings;
    settings.identity.endpoints.push_back({0x83, 0x01, 1024, 1});
    AddBoard(settings);
    ovex::testing::LogCapture log;
    UsbContext context;
    UsbDevice device = OpenOne(context);
    EXPECT_EQ(device.GetEndpoints().size(), 4u);
    EXPECT_EQ(device.FindEndpoint<UsbBulkEp>(0x83), nullptr);
    EXPECT_EQ(device.FindEndpoint<UsbInterruptEp>(0x83), nullptr);
    EXPECT_TRUE(log.Contains(log::kWarning, "Isochronous endpoints are not supported."));
    EXPECT_TRUE(log.Contains(log::kDebug, "Found 5 endpoints on device '1.1.2':"));
}

TEST_F(UsbDeviceTest, LibusbOwnMessagesReachTheLogOnceAndNotStderr) {
    auto& board = AddBoard();
    UsbContext context;
    auto devices = context.EnumerateDevices(kVid, kPid);
    ASSERT_EQ(devices.size(), 1u);
    board.Usb().RemoveDeviceNode();  // libusb reports the failed open of the node itself
    ovex::testing::LogCapture log;
    // As while a context's logger delivers: only fatal lines of our own go to stderr.
    const int stderr_verbosity = log::StderrVerbosity();
    log::SetStderrVerbosity(log::kCritical);
    StderrCapture captured;
    const std::error_code opened = devices[0].Open();
    const std::string written = captured.Finish();
    log::SetStderrVerbosity(stderr_verbosity);
    EXPECT_EQ(opened, std::errc::no_such_device);
    EXPECT_EQ(written.find("libusb"), std::string::npos) << written;
    const std::string line =
        "libusb - [get_usbfs_fd] libusb couldn't open USB device /dev/bus/usb/001/002, errno=2";
    EXPECT_TRUE(log.Contains(log::kError, line));
    EXPECT_EQ(Count(log, line), 1u);
}

TEST_F(UsbDeviceTest, DeviceOutlivesItsContextObject) {
    AddBoard();
    std::optional<UsbDevice> device;
    {
        UsbContext context;
        auto devices = context.EnumerateDevices(kVid, kPid);
        ASSERT_EQ(devices.size(), 1u);
        device.emplace(std::move(devices[0]));
    }
    ASSERT_FALSE(device->Open());
    DeviceInfo info;
    EXPECT_FALSE(device->GetInfo(info));
    EXPECT_EQ(info.serial, "OVX00001");
}

TEST_F(UsbDeviceTest, ControlTransfersAnswerStallAndKeepTheReason) {
    auto& board = AddBoard();
    InstallEcho(board);
    UsbContext context;
    UsbDevice device = OpenOne(context);
    auto& control = device.GetControlEndpoint();

    const std::array<std::uint8_t, 5> written = {1, 2, 3, 4, 5};
    ASSERT_FALSE(control.ControlOut({0x40, kEchoRequest, 0x1234, 0x5678, 0}, written, 1.0));
    std::array<std::uint8_t, 8> read{};
    std::size_t got = 0;
    ASSERT_FALSE(control.ControlIn({0x40, kEchoRequest, 0, 0, 0}, read, 1.0, &got));
    EXPECT_EQ(got, 5u);
    EXPECT_TRUE(std::equal(written.begin(), written.end(), read.begin()));
    // ControlIn set the direction bit and wLength; ControlOut cleared it.
    const auto requests = board.Firmware().RequestLog();
    ASSERT_GE(requests.size(), 2u);
    const auto& out = requests[requests.size() - 2];
    const auto& in = requests.back();
    EXPECT_EQ(out.bmRequestType, 0x40);
    EXPECT_EQ(out.wValue, 0x1234);
    EXPECT_EQ(out.wIndex, 0x5678);
    EXPECT_EQ(out.wLength, 5);
    EXPECT_EQ(in.bmRequestType, 0xC0);
    EXPECT_EQ(in.wLength, 8);

    // A refused request stalls endpoint 0, which works again at once, and the reason is kept.
    std::array<std::uint8_t, 4> word{};
    EXPECT_EQ(control.ControlIn({0xC0, 0x77, 0, 0, 0}, word, 1.0), std::errc::io_error);
    ASSERT_FALSE(control.ControlIn({0xC0, vboard::kLastErrorRequest, 0, 0, 0}, word, 1.0));
    EXPECT_EQ(word[0], vboard::kNotSupported);
    board.Firmware().StallNext(kEchoRequest);
    const auto stalled = control.ControlOut({0x40, kEchoRequest, 0, 0, 0}, written, 1.0);
    EXPECT_EQ(stalled, error::MakeTransferError(LIBUSB_TRANSFER_STALL));
    ASSERT_FALSE(control.ControlIn({0xC0, vboard::kLastErrorRequest, 0, 0, 0}, word, 1.0));
    EXPECT_EQ(word[0], vboard::kFailure);

    // Too much payload for one control transfer is refused before libusb.
    std::vector<std::uint8_t> big(kMaxControlPayload + 1);
    EXPECT_EQ(control.ControlOut({0x40, kEchoRequest, 0, 0, 0}, big, 1.0),
              std::errc::invalid_argument);
}

TEST_F(UsbDeviceTest, RequestWithoutAnswerTimesOutAndTheEndpointStaysUsable) {
    auto& board = AddBoard();
    InstallEcho(board);
    UsbContext context;
    UsbDevice device = OpenOne(context);
    auto& control = device.GetControlEndpoint();
    board.Firmware().IgnoreNext(kEchoRequest);
    std::array<std::uint8_t, 4> read{};
    EXPECT_EQ(control.ControlIn({0xC0, kEchoRequest, 0, 0, 0}, read, 0.05), std::errc::timed_out);
    EXPECT_FALSE(control.ControlIn({0xC0, vboard::kLastErrorRequest, 0, 0, 0}, read, 1.0));
}

TEST_F(UsbDeviceTest, EndpointHaltIsQueriedAndCleared) {
    auto& board = AddBoard();
    UsbContext context;
    UsbDevice device = OpenOne(context);
    auto* bulk = device.FindEndpoint<UsbBulkEp>(0x81);
    ASSERT_NE(bulk, nullptr);
    bool halted = true;
    ASSERT_FALSE(device.IsEndpointHalted(*bulk, halted));
    EXPECT_FALSE(halted);
    board.Firmware().Halt(0x81);
    ASSERT_FALSE(device.IsEndpointHalted(*bulk, halted));
    EXPECT_TRUE(halted);
    std::vector<std::uint8_t> data(512);
    EXPECT_EQ(bulk->Read(data, 1.0), error::MakeTransferError(LIBUSB_TRANSFER_STALL));
    ASSERT_FALSE(bulk->ClearHalt());
    ASSERT_FALSE(device.IsEndpointHalted(*bulk, halted));
    EXPECT_FALSE(halted);
    EXPECT_FALSE(bulk->Read(data, 1.0));

    // An endpoint of another device is not one of ours.
    UsbBulkEp& foreign = *bulk;
    ASSERT_FALSE(device.Close());
    EXPECT_EQ(device.IsEndpointHalted(foreign, halted), std::errc::not_connected);
}

TEST_F(UsbDeviceTest, SynchronousReadsDeliverTheStreamAndTimeOut) {
    auto& board = AddBoard();
    UsbContext context;
    UsbDevice device = OpenOne(context);
    auto* bulk = device.FindEndpoint<UsbBulkEp>(0x81);
    auto* out = device.FindEndpoint<UsbBulkEp>(0x01);
    auto* interrupt = device.FindEndpoint<UsbInterruptEp>(0x82);
    ASSERT_TRUE(bulk && out && interrupt);

    std::vector<std::uint8_t> data(1001);
    std::size_t got = 0;
    std::uint64_t offset = 0;
    for (int round = 0; round < 3; ++round) {
        ASSERT_FALSE(bulk->Read(data, 1.0, &got));
        ASSERT_EQ(got, data.size());
        for (std::size_t i = 0; i < got; ++i) {
            ASSERT_EQ(data[i], CountingSource::ByteAt(offset + i)) << round << ":" << i;
        }
        offset += got;
    }

    // Direction is checked before libusb sees anything.
    EXPECT_EQ(bulk->Write(data, 1.0), std::errc::not_supported);
    EXPECT_EQ(out->Read(data, 1.0), std::errc::not_supported);
    EXPECT_EQ(interrupt->Write(data, 1.0), std::errc::not_supported);

    const std::vector<std::uint8_t> config = {9, 8, 7, 6, 5, 4, 3, 2, 1, 0};
    ASSERT_FALSE(out->Write(config, 1.0));
    EXPECT_EQ(board.ConfigSink().Received(), config);

    // No frame queued: the interrupt read times out; one queued: it arrives whole.
    std::vector<std::uint8_t> frame(64);
    EXPECT_EQ(interrupt->Read(frame, 0.05), std::errc::timed_out);
    board.Frames().Push({0xAA, 0xBB, 0xCC});
    ASSERT_FALSE(interrupt->Read(frame, 1.0, &got));
    EXPECT_EQ(got, 3u);
    EXPECT_EQ(frame[2], 0xCC);
}

TEST_F(UsbDeviceTest, FiniteStreamEndsShortThenTimesOut) {
    vboard::VirtualBoard::Settings settings;
    settings.stream.total_bytes = 100;  // then the board has nothing more to send
    AddBoard(settings);
    UsbContext context;
    UsbDevice device = OpenOne(context);
    auto* bulk = device.FindEndpoint<UsbBulkEp>(0x81);
    std::vector<std::uint8_t> data(512);
    std::size_t got = 0;
    EXPECT_FALSE(bulk->Read(data, 0.05, &got));
    EXPECT_EQ(got, 100u);
    EXPECT_EQ(data[99], CountingSource::ByteAt(99));
    EXPECT_EQ(bulk->Read(data, 0.05, &got), std::errc::timed_out);
    EXPECT_EQ(got, 0u);
}

TEST_F(UsbDeviceTest, BusyEndpointSerialisesCallersAndRefusesAtTimeoutZero) {
    vboard::VirtualBoard::Settings settings;
    settings.stream.total_bytes = 0;
    auto& board = AddBoard(settings);
    UsbContext context;
    UsbDevice device = OpenOne(context);
    auto* interrupt = device.FindEndpoint<UsbInterruptEp>(0x82);
    // A reader that waits for a frame holds the endpoint.
    std::vector<std::uint8_t> frame(64);
    std::error_code first;
    std::thread reader([&] { first = interrupt->Read(frame, 10.0); });
    AwaitUrbInFlight(board);
    std::vector<std::uint8_t> other(64);
    EXPECT_EQ(interrupt->Read(other, 0.0), std::errc::device_or_resource_busy);
    board.Frames().Push({1});
    reader.join();
    EXPECT_FALSE(first);
}

TEST_F(UsbDeviceTest, UnplugEndsEveryCallWithANamedError) {
    vboard::VirtualBoard::Settings settings;
    settings.stream.total_bytes = 0;
    auto& board = AddBoard(settings);
    UsbContext context;
    UsbDevice device = OpenOne(context);
    auto* bulk = device.FindEndpoint<UsbBulkEp>(0x81);
    std::vector<std::uint8_t> data(4096);
    std::error_code pending;
    std::thread reader(
        [&] { pending = bulk->Read(data, 0.0); });  // no timeout: only the unplug ends it
    AwaitUrbInFlight(board);
    board.Usb().Unplug();
    reader.join();
    EXPECT_EQ(pending, std::errc::no_such_device);
    EXPECT_EQ(pending, error::MakeTransferError(LIBUSB_TRANSFER_NO_DEVICE));
    EXPECT_EQ(bulk->Read(data, 1.0), std::errc::no_such_device);
    EXPECT_EQ(
        device.GetControlEndpoint().ControlIn({0xC0, 0, 0, 0, 4}, std::span(data).first(4), 1.0),
        std::errc::no_such_device);
    EXPECT_FALSE(device.Close());
    EXPECT_TRUE(context.EnumerateDevices(kVid, kPid).empty());
    EXPECT_TRUE(device.Open());  // gone for good
    EXPECT_FALSE(device.IsOpen());

    // Back on the bus under a new address, it opens and works again.
    board.Usb().Replug();
    board.RestartStream({});
    auto devices = context.EnumerateDevices(kVid, kPid);
    ASSERT_EQ(devices.size(), 1u);
    ASSERT_FALSE(devices[0].Open());
    EXPECT_FALSE(devices[0].FindEndpoint<UsbBulkEp>(0x81)->Read(data, 1.0));
}

TEST_F(UsbDeviceTest, UnplugDuringAControlRequestEndsItWithNoDevice) {
    auto& board = AddBoard();
    InstallEcho(board);
    UsbContext context;
    UsbDevice device = OpenOne(context);
    auto& control = device.GetControlEndpoint();
    // The board takes the request and never answers: only the unplug ends the wait.
    board.Firmware().IgnoreNext(kEchoRequest);
    std::array<std::uint8_t, 4> read{};
    std::error_code pending;
    std::thread requester([&] {
        pending = control.ControlIn({0xC0, kEchoRequest, 0, 0, 0}, read, 0.0);
    });
    AwaitUrbInFlight(board);
    board.Usb().Unplug();
    requester.join();
    EXPECT_EQ(pending, std::errc::no_such_device);
    EXPECT_EQ(control.ControlIn({0xC0, vboard::kLastErrorRequest, 0, 0, 0}, read, 1.0),
              std::errc::no_such_device);
    EXPECT_FALSE(device.Close());
}

}  // namespace
}  // namespace ovex::usb::device
