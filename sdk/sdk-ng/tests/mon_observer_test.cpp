// The monitor callbacks' observer: each notification reaches the callback of its monitor and
// kind with the records it should carry, and callbacks can be replaced while notifications run.

#include <gtest/gtest.h>

#include <atomic>
#include <thread>
#include <variant>
#include <vector>

#include "modules/mon_ctrl.hpp"

namespace ovex::sdk::testing {
namespace {

using usb::vendor_cmd::monitor::Flags;

struct Seen {
    std::string callback;
    std::string name;
    std::uint8_t flags;
    std::uint32_t tag;
    float value;
    std::uint32_t timestamp;
    void* user;
    bool operator==(const Seen&) const = default;
};

TEST(AsyncMonitorObserver, EachNotificationReachesOnlyItsMonitorsCallbackOfItsKind) {
    AsyncMonitorObserver observer;
    std::vector<Seen> seen;
    std::vector<MonitorInfo> infos;
    int a_user = 0;
    int b_user = 0;
    const auto on_value = [&](const MonitorValue& record, void* user) {
        const float value =
            record.tag == MonitorValue::kInt ? static_cast<float>(record.value.i) : record.value.f;
        seen.push_back(
            {"value", record.info->name, record.flags, record.tag, value, record.timestamp, user});
        infos.push_back(*record.info);
    };
    const auto on_availability = [&](const MonitorAvailability& record, void* user) {
        seen.push_back(
            {"availability", record.info->name, record.flags, 0, 0.0F, record.timestamp, user});
    };
    observer.SetOnValueChange("A", on_value, &a_user, {"A", range::Range<float>(-1.5F, 2.5F)});
    observer.SetOnAvailabilityChange("B", on_availability, &b_user, {"B", range::Range<int>(0, 9)});

    observer.OnAvailabilityChange("A", Flags{0x01}, 1);  // A has no availability callback
    observer.OnFloatUpdate("A", Flags{0x03}, 2.25F, 2);
    observer.OnIntUpdate("B", Flags{0x01}, 7, 3);  // B has no value callback
    observer.OnAvailabilityChange("B", Flags{0x00}, 4);
    observer.OnFloatUpdate("C", Flags{0x01}, 1.0F, 5);  // no entry
    // A value callback added to B leaves its availability callback as it was.
    observer.SetOnValueChange("B", on_value, &a_user, {"B", range::Range<int>(0, 9)});
    observer.OnIntUpdate("B", Flags{0x05}, -7, 6);
    observer.OnAvailabilityChange("B", Flags{0x01}, 7);

    const std::vector<Seen> expected{
        {"value", "A", 0x03, MonitorValue::kFloat, 2.25F, 2, &a_user},
        {"availability", "B", 0x00, 0, 0.0F, 4, &b_user},
        {"value", "B", 0x05, MonitorValue::kInt, -7.0F, 6, &a_user},
        {"availability", "B", 0x01, 0, 0.0F, 7, &b_user},
    };
    EXPECT_EQ(seen, expected);
    ASSERT_EQ(infos.size(), 2u);
    EXPECT_EQ(std::get<range::Range<float>>(infos[0].range), range::Range<float>(-1.5F, 2.5F));
    EXPECT_EQ(std::get<range::Range<int>>(infos[1].range), range::Range<int>(0, 9));
}

TEST(AsyncMonitorObserver, CallbacksReplacedWhileNotificationsRunEachNotificationCallsOne) {
    AsyncMonitorObserver observer;
    std::atomic<int> calls{0};
    const auto count = [&](const MonitorValue&, void*) { ++calls; };
    observer.SetOnValueChange("A", count, nullptr, {"A", range::Range<float>()});
    // A callback may replace callbacks itself: no lock is held while it runs.
    observer.SetOnAvailabilityChange("A",
                                     [&](const MonitorAvailability& record, void*) {
                                         observer.SetOnValueChange("A", count, nullptr,
                                                                   *record.info);
                                     },
                                     nullptr, {"A", range::Range<float>()});

    constexpr int kThreads = 3;
    constexpr int kPerThread = 2000;
    std::vector<std::thread> tasks;
    for (int t = 0; t < kThreads; ++t) {
        tasks.emplace_back([&] {
            for (int i = 0; i < kPerThread; ++i) {
                observer.OnFloatUpdate("A", Flags{0x01}, 1.0F, 0);
            }
        });
    }
    for (int i = 0; i < kPerThread; ++i) {
        observer.OnAvailabilityChange("A", Flags{0x01}, 0);
        observer.SetOnValueChange("B", count, nullptr, {"B", range::Range<int>()});
    }
    for (auto& task : tasks) {
        task.join();
    }
    EXPECT_EQ(calls.load(), kThreads * kPerThread);
}

}  // namespace
}  // namespace ovex::sdk::testing
