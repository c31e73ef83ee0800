// The monitor stream against a virtual Timepix3 board through the real libusb: the board pushes a
// round of its readings when the test asks it to, and the test waits on the observer.

#include <gtest/gtest.h>

#include <stdexcept>
#include <string>

#include "board_fixture.hpp"
#include "log_capture.hpp"
#include "ovex/vboard/item_tables.hpp"
#include "ovex/vendor_cmd/monitor_stream.hpp"
#include "ovex/vendor_cmd/vendor_command.hpp"
#include "recording_observer.hpp"

namespace ovex::usb::vendor_cmd {
namespace {

using impl::UpdateReceiver;
using testing::Notice;
using testing::RecordingObserver;

constexpr std::uint8_t kMonitorEndpoint = 0x82;
constexpr double kTransferTimeout = 5.0;

std::uint16_t MonitorId(const std::string& name) {
    const auto& monitors = vboard::TablesOf(vboard::BoardKind::kTimepix3).monitors;
    for (std::size_t id = 0; id < monitors.size(); ++id) {
        if (monitors[id].name == name) {
            return static_cast<std::uint16_t>(id);
        }
    }
    throw std::out_of_range(name);
}

bool HasValue(const std::vector<Notice>& notices, const std::string& name, std::uint32_t round) {
    for (const Notice& notice : notices) {
        if (notice.name == name && notice.kind != Notice::kAvailability &&
            notice.timestamp == round) {
            return true;
        }
    }
    return false;
}

class MonitorStreamTest : public testing::BoardFixture {};

TEST_F(MonitorStreamTest, ObserverGetsTheBoardsReadingsUntilStop) {
    ovex::testing::LogCapture log(log::kWarning);
    OpenBoard();
    const auto observer = std::make_shared<RecordingObserver>();
    UpdateReceiver receiver(SharedDevice(), kMonitorEndpoint);
    const UpdateReceiver::TypeInfos types = {
        {MonitorId("FPGA_TEMP"), {"FPGA_TEMP", ValueType::Float}},
        {MonitorId("TSENS_TEMP"), {"TSENS_TEMP", ValueType::Integer}},
    };
    ASSERT_FALSE(receiver.Start(observer, types, kTransferTimeout));
    EXPECT_TRUE(receiver.IsRunning());
    // Start twice: refused, and the first stream runs on.
    EXPECT_EQ(receiver.Start(observer, types, kTransferTimeout),
              std::make_error_code(std::errc::operation_not_permitted));
    EXPECT_TRUE(receiver.IsRunning());

    Board().Engine().SetMonitorValue("TSENS_TEMP", 26.9F);
    ASSERT_EQ(Board().PushMonitorRound(), 5u);  // 26 records, 6 to a 64-byte packet
    observer->WaitUntil([](const auto& notices) { return HasValue(notices, "PG_5V", 1); });
    Board().Engine().BreakMonitor("FPGA_TEMP");
    Board().PushMonitorRound();
    observer->WaitUntil([](const auto& notices) { return HasValue(notices, "PG_5V", 2); });
    EXPECT_FALSE(receiver.Stop());
    EXPECT_FALSE(receiver.IsRunning());

    const auto temperature = observer->Of("FPGA_TEMP", Notice::kFloat);
    ASSERT_EQ(temperature.size(), 1u);
    EXPECT_EQ(std::get<float>(temperature[0].value), 45.0F);
    EXPECT_EQ(temperature[0].flags, 0x01);
    EXPECT_EQ(temperature[0].timestamp, 1u);
    const auto sensor = observer->Of("TSENS_TEMP", Notice::kInt);
    ASSERT_EQ(sensor.size(), 2u);
    EXPECT_EQ(std::get<std::int32_t>(sensor[0].value), 26);
    // Up with its first reading, down when it broke.
    const auto changes = observer->Of("FPGA_TEMP", Notice::kAvailability);
    ASSERT_EQ(changes.size(), 2u);
    EXPECT_TRUE((changes[0].flags == 0x01 && changes[1].flags == 0x04) ||
                (changes[0].flags == 0x04 && changes[1].flags == 0x01));
    // The DC/DC rails are off: their load currents are never available.
    EXPECT_TRUE(observer->Of("I_LOAD_DC_1V0", Notice::kAvailability).empty());
    EXPECT_TRUE(observer->Of("I_LOAD_DC_1V0", Notice::kFloat).empty());
    EXPECT_EQ(log.StartingWith("Device provides value ID").size(),
              vboard::TablesOf(vboard::BoardKind::kTimepix3).monitors.size() - types.size());
    EXPECT_EQ(log.StartingWith("Transfer completed with error").size(), 0u);

    // Stopped: refused again, and a new start reads the board anew.
    EXPECT_EQ(receiver.Stop(), std::make_error_code(std::errc::operation_not_permitted));
    ASSERT_FALSE(receiver.Start(observer, types, kTransferTimeout));
    // The endpoint runs one stream at a time.
    UpdateReceiver second(SharedDevice(), kMonitorEndpoint);
    EXPECT_EQ(second.Start(observer, types, kTransferTimeout),
              std::make_error_code(std::errc::device_or_resource_busy));
    EXPECT_FALSE(second.IsRunning());
    EXPECT_EQ(log.StartingWith("Failed to start asynchronous transfer - ").size(), 1u);

    Board().PushMonitorRound();
    observer->WaitUntil([](const auto& notices) { return HasValue(notices, "PG_5V", 3); });
}

TEST_F(MonitorStreamTest, TypeInformationIsMergedWithTheBoardsList) {
    ovex::testing::LogCapture log;
    OpenBoard();
    UpdateReceiver receiver(SharedDevice(), kMonitorEndpoint);
    const auto count =
        static_cast<std::uint16_t>(vboard::TablesOf(vboard::BoardKind::kTimepix3).monitors.size());
    const UpdateReceiver::TypeInfos types = {
        {MonitorId("VCC_INT"), {"", ValueType::Integer}},
        {MonitorId("VCC_AUX"), {"VCC_AUX", ValueType::Float}},
        {count, {"GHOST", ValueType::Float}},
    };
    const auto observer = std::make_shared<RecordingObserver>();
    ASSERT_FALSE(receiver.Start(observer, types, kTransferTimeout));

    const int vcc_int = MonitorId("VCC_INT");
    const int vcc_aux = MonitorId("VCC_AUX");
    EXPECT_TRUE(log.Contains(log::kWarning, "User provided type information for value ID" +
                                                std::to_string(count) +
                                                " (GHOST), which is not presented by the device."));
    EXPECT_TRUE(log.Contains(log::kWarning, "Monitor name ID" + std::to_string(vcc_int) +
                                                " mismatch - user: *EMPTY*, device: VCC_INT."));
    EXPECT_TRUE(log.Contains(log::kDebug, "Monitored value ID" + std::to_string(vcc_int) +
                                              " (VCC_INT) will be treated as signed integer."));
    EXPECT_TRUE(log.Contains(log::kDebug, "Monitored value ID" + std::to_string(vcc_aux) +
                                              " (VCC_AUX) will be treated as float."));
    EXPECT_EQ(log.StartingWith("Device provides value ID").size(), count - 2u);
    EXPECT_TRUE(
        log.Contains(log::kDebug, "New monitored value found: 'FPGA_TEMP', <-40.00; 125.00>."));

    Board().PushMonitorRound();
    observer->WaitUntil([](const auto& notices) { return HasValue(notices, "VCC_INT", 1); });
    const auto vcc = observer->Of("VCC_INT", Notice::kInt);
    ASSERT_EQ(vcc.size(), 1u);
    EXPECT_EQ(std::get<std::int32_t>(vcc[0].value), 1);
    // The destructor stops the running stream.
}

TEST_F(MonitorStreamTest, FailedReadOfTheMonitorListLeavesItStopped) {
    ovex::testing::LogCapture log;
    OpenBoard();
    UpdateReceiver receiver(SharedDevice(), kMonitorEndpoint);
    EXPECT_EQ(receiver.Stop(), std::make_error_code(std::errc::operation_not_permitted));
    const auto observer = std::make_shared<RecordingObserver>();

    Firmware().StallNext({request::kMonitor, 0, std::nullopt});
    EXPECT_TRUE(receiver.Start(observer, {}, kTransferTimeout));
    EXPECT_TRUE(
        log.Contains(log::kError, "Failed to retrieve monitor item count from the device."));
    Firmware().StallNext({request::kMonitor, 3, 2});
    EXPECT_TRUE(receiver.Start(observer, {}, kTransferTimeout));
    EXPECT_TRUE(log.Contains(log::kError, "Failed to retrieve range of monitor ID2."));
    EXPECT_FALSE(receiver.IsRunning());
}

TEST_F(MonitorStreamTest, ConstructionNeedsADeviceWithTheInterruptEndpoint) {
    OpenBoard();
    const auto refusal = [&](std::shared_ptr<device::UsbDevice> device, std::uint8_t endpoint) {
        try {
            UpdateReceiver receiver(std::move(device), endpoint);
        } catch (const std::invalid_argument& error) {
            return std::string(error.what());
        }
        return std::string("no refusal");
    };
    EXPECT_EQ(refusal(nullptr, kMonitorEndpoint), "Device pointer is invalid");
    EXPECT_EQ(refusal(SharedDevice(), 0x8A),
              "Device doesn't have interrupt endpoint with address 0x8A");
    // The bulk data endpoint is no interrupt endpoint.
    EXPECT_EQ(refusal(SharedDevice(), 0x81),
              "Device doesn't have interrupt endpoint with address 0x81");

    // A receiver whose device was closed since has no endpoint to read.
    UpdateReceiver receiver(SharedDevice(), kMonitorEndpoint);
    ASSERT_FALSE(Device().Close());
    EXPECT_EQ(receiver.Start(std::make_shared<RecordingObserver>(), {}, kTransferTimeout),
              std::make_error_code(std::errc::not_connected));
}

}  // namespace
}  // namespace ovex::usb::vendor_cmd
