// The monitor stream's receiver without a device: frames go in through the producer as the
// endpoint's handler thread hands them over, and the receiver runs until the producer is gone,
// so that every notification has finished when a test looks at them.

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <optional>
#include <stdexcept>
#include <thread>
#include <vector>

#include "bitmanip/bitmanip.hpp"
#include "log_capture.hpp"
#include "ovex/vendor_cmd/impl/monitor_receiver.hpp"
#include "recording_observer.hpp"

namespace ovex::usb::vendor_cmd {
namespace {

using impl::MetaData;
using testing::Notice;
using testing::RecordingObserver;

constexpr std::uint8_t kAvailable = 0x01;

std::vector<std::uint8_t> RecordOf(std::uint8_t id, std::uint8_t flags, float value,
                                   std::uint32_t timestamp) {
    std::vector<std::uint8_t> record(10);
    record[0] = id;
    record[1] = flags;
    bitmanip::float_to_span_le(value, std::span(record).subspan(2, 4));
    bitmanip::u32_to_span_le(timestamp, std::span(record).subspan(6, 4));
    return record;
}

std::vector<std::uint8_t> FrameOf(std::initializer_list<std::vector<std::uint8_t>> records) {
    std::vector<std::uint8_t> frame;
    for (const auto& record : records) {
        frame.insert(frame.end(), record.begin(), record.end());
    }
    return frame;
}

// Id 0 "TEMP", a float in 0..100; id 1 "COUNT", an integer in 0..10.
MetaData TwoMonitors() {
    return {{0, {"TEMP", ValueType::Float, {0.0F, 100.0F}}},
            {1, {"COUNT", ValueType::Integer, {0.0F, 10.0F}}}};
}

class Receiver {
public:
    Receiver(std::weak_ptr<monitor::IValueObserver> observer, MetaData metadata = TwoMonitors())
        : m_receiver(
              [this, observer, metadata] { impl::RunReceiver(m_queue, observer, metadata); }) {}

    // As the endpoint delivers a transfer: into a buffer the producer lent.
    void Send(const std::vector<std::uint8_t>& frame) {
        const device::XferBuffer buffer = m_producer->Acquire(64);
        ASSERT_LE(frame.size(), buffer.size);
        std::copy(frame.begin(), frame.end(), buffer.buffer);
        m_producer->Deliver({buffer.buffer, buffer.size, static_cast<std::uint32_t>(frame.size())});
    }

    // The producer's end stops the receiver, which returns once its notifications are done.
    void Finish() {
        m_producer.reset();
        m_receiver.join();
    }

private:
    std::shared_ptr<impl::FrameQueue> m_queue = impl::MakeFrameQueue();
    std::optional<impl::BufferProducer> m_producer{std::in_place, m_queue};
    std::thread m_receiver;
};

TEST(MonitorReceiver, FirstRecordTellsAvailabilityAndValueAndBadFramesChangeNothing) {
    ovex::testing::LogCapture log;
    const auto observer = std::make_shared<RecordingObserver>();
    Receiver receiver(observer);
    receiver.Send({});
    receiver.Send(std::vector<std::uint8_t>(15, kAvailable));
    receiver.Send(FrameOf({RecordOf(0, kAvailable, 21.5F, 7)}));
    receiver.Finish();

    const auto notices = observer->Notices();
    ASSERT_EQ(notices.size(), 2u);
    const auto available = observer->Of("TEMP", Notice::kAvailability);
    ASSERT_EQ(available.size(), 1u);
    EXPECT_EQ(available[0].flags, kAvailable);
    EXPECT_EQ(available[0].timestamp, 7u);
    const auto values = observer->Of("TEMP", Notice::kFloat);
    ASSERT_EQ(values.size(), 1u);
    EXPECT_EQ(std::get<float>(values[0].value), 21.5F);
    EXPECT_EQ(log.Count(log::kError, "Monitor data frame received from the device is incomplete."),
              1);
    EXPECT_EQ(log.Count(log::kError, "Buffer sent by the transfer is empty."), 0);
    EXPECT_TRUE(log.Contains(log::kInfo, "Empty buffer received, terminating."));
}

TEST(MonitorReceiver, LaterRecordOfAnIdWinsWithinAFrame) {
    ovex::testing::LogCapture log;
    const auto observer = std::make_shared<RecordingObserver>();
    Receiver receiver(observer);
    receiver.Send(FrameOf({RecordOf(0, kAvailable, 1.0F, 1), RecordOf(0, kAvailable, 2.0F, 2)}));
    receiver.Finish();

    const auto values = observer->Of("TEMP", Notice::kFloat);
    ASSERT_EQ(values.size(), 1u);
    EXPECT_EQ(std::get<float>(values[0].value), 2.0F);
    EXPECT_EQ(values[0].timestamp, 2u);
    EXPECT_TRUE(
        log.Contains(log::kWarning, "Duplicate value of monitor ID0 within same update frame."));
}

TEST(MonitorReceiver, IntegerMonitorsTruncateAndOutOfRangeValuesStillArrive) {
    ovex::testing::LogCapture log;
    const auto observer = std::make_shared<RecordingObserver>();
    Receiver receiver(observer);
    receiver.Send(FrameOf({RecordOf(1, kAvailable, 2.9F, 1)}));
    receiver.Send(FrameOf({RecordOf(1, kAvailable, -2.9F, 2),
                           RecordOf(0, kAvailable, std::numeric_limits<float>::quiet_NaN(), 2)}));
    receiver.Finish();

    // Each notification runs as its own task, so the two values may arrive in either order.
    std::vector<std::int32_t> integers;
    for (const auto& notice : observer->Of("COUNT", Notice::kInt)) {
        integers.push_back(std::get<std::int32_t>(notice.value));
    }
    std::sort(integers.begin(), integers.end());
    EXPECT_EQ(integers, (std::vector<std::int32_t>{-2, 2}));
    const auto floats = observer->Of("TEMP", Notice::kFloat);
    ASSERT_EQ(floats.size(), 1u);
    EXPECT_TRUE(std::isnan(std::get<float>(floats[0].value)));
    EXPECT_TRUE(log.Contains(
        log::kWarning, "Received value -2 of monitor COUNT is out of expected range [0; 10]."));
    EXPECT_TRUE(log.Contains(
        log::kWarning, "Received value nan of monitor TEMP is out of expected range [0; 100]."));
    EXPECT_EQ(log.StartingWith("Received value 2 ").size(), 0u);
}

TEST(MonitorReceiver, LosingAvailabilityIsToldOnceWithoutAValue) {
    const auto observer = std::make_shared<RecordingObserver>();
    Receiver receiver(observer);
    receiver.Send(FrameOf({RecordOf(0, kAvailable, 5.0F, 1)}));
    receiver.Send(FrameOf({RecordOf(0, 0x04, 99.0F, 2)}));
    receiver.Send(FrameOf({RecordOf(0, 0x04, 99.0F, 3)}));
    receiver.Finish();

    const auto changes = observer->Of("TEMP", Notice::kAvailability);
    ASSERT_EQ(changes.size(), 2u);
    std::vector<std::uint8_t> flags = {changes[0].flags, changes[1].flags};
    std::sort(flags.begin(), flags.end());
    EXPECT_EQ(flags, (std::vector<std::uint8_t>{kAvailable, 0x04}));
    EXPECT_EQ(observer->Of("TEMP", Notice::kFloat).size(), 1u);
}

TEST(MonitorReceiver, UnknownIdIsSkippedAndTheStreamGoesOn) {
    ovex::testing::LogCapture log;
    const auto observer = std::make_shared<RecordingObserver>();
    Receiver receiver(observer);
    receiver.Send(FrameOf({RecordOf(9, kAvailable, 1.0F, 1), RecordOf(0, kAvailable, 3.0F, 1)}));
    receiver.Finish();

    EXPECT_EQ(observer->Notices().size(), 2u);
    EXPECT_EQ(observer->Of("TEMP", Notice::kFloat).size(), 1u);
    EXPECT_TRUE(
        log.Contains(log::kWarning, "Value update received for unknown monitor ID9, ignoring it."));
}

TEST(MonitorReceiver, GoneObserverLeavesTheValuesToTheLog) {
    ovex::testing::LogCapture log;
    auto observer = std::make_shared<RecordingObserver>();
    Receiver receiver(observer);
    observer.reset();
    receiver.Send(
        FrameOf({RecordOf(0, kAvailable, 2.5F, 7), RecordOf(1, kAvailable | 0x02, 3.0F, 7)}));
    receiver.Send(FrameOf({RecordOf(0, kAvailable | 0x04, 4.0F, 8)}));
    receiver.Finish();

    EXPECT_TRUE(log.Contains(log::kInfo, "Availability of 'TEMP' changed to '+available+' at 7."));
    EXPECT_TRUE(log.Contains(log::kInfo, "Value of 'TEMP' changed to 2.500 at 7."));
    EXPECT_TRUE(log.Contains(log::kWarning, "Value of 'COUNT' changed to 3 at 7."));
    EXPECT_TRUE(log.Contains(log::kError, "Value of 'TEMP' changed to 4.000 at 8."));
    for (const auto& line : log.Lines()) {
        if (line.verbosity <= log::kError) {
            EXPECT_EQ(line.message, "Value of 'TEMP' changed to 4.000 at 8.");
        }
    }
}

class ThrowingObserver final : public monitor::IValueObserver {
public:
    void OnAvailabilityChange(std::string_view, monitor::Flags, std::uint32_t) override {}
    void OnIntUpdate(std::string_view, monitor::Flags, std::int32_t, std::uint32_t) override {
        throw 42;
    }
    void OnFloatUpdate(std::string_view, monitor::Flags, float, std::uint32_t) override {
        throw std::runtime_error("sensor gone");
    }
};

TEST(MonitorReceiver, ObserverExceptionsAreLoggedAndTheStreamGoesOn) {
    ovex::testing::LogCapture log;
    const auto observer = std::make_shared<ThrowingObserver>();
    Receiver receiver(observer);
    receiver.Send(FrameOf({RecordOf(0, kAvailable, 1.0F, 1), RecordOf(1, kAvailable, 1.0F, 1)}));
    receiver.Send(FrameOf({RecordOf(0, kAvailable, 1.0F, 2)}));
    receiver.Finish();

    EXPECT_EQ(
        log.Count(log::kError, "Exception thrown during value change notification: 'sensor gone'."),
        2);
    EXPECT_EQ(log.Count(log::kError, "Unknown exception thrown during value change notification."),
              1);
}

}  // namespace
}  // namespace ovex::usb::vendor_cmd
