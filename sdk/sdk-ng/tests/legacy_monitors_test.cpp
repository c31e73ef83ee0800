// The monitor functions of the older interface on a virtual NoBE board, whose monitors run from
// the open and have both value types: ids, types, values as their bits, and the callbacks fed by
// the board's monitor stream with the handle's event records.

#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <cstring>
#include <deque>
#include <mutex>
#include <string>
#include <vector>

#include "support/legacy_session.hpp"

namespace ovex::sdk::testing {
namespace {

template <class To, class From>
To Bits(From from) {
    To to{};
    std::memcpy(&to, &from, sizeof to);
    return to;
}

// What one event held in a callback, read through the ovex_mon_event_* functions.
struct Seen {
    const ovex_mon_event* event;
    std::string id;
    std::string type;
    std::vector<int32_t> flags;  // available, warning, error
    float value;
    int32_t value_bits;
};

// The calls that one callback registration received, from the stream's tasks.
struct Calls {
    std::mutex mutex;
    std::condition_variable changed;
    std::vector<Seen> seen;

    static void Take(ovex_mon_event* event, void* user) {
        auto& self = *static_cast<Calls*>(user);
        Seen one{event, {}, {}, std::vector<int32_t>(3, -1), 0, 0};
        const char* id = "<unread>";
        const char* type = "<unread>";
        ovex_mon_event_id(event, &id);
        ovex_mon_event_datatype(event, &type);
        ovex_mon_event_is_available(event, &one.flags[0]);
        ovex_mon_event_is_warning_condition_met(event, &one.flags[1]);
        ovex_mon_event_is_error_condition_met(event, &one.flags[2]);
        ovex_mon_event_get_value_as_float(event, &one.value);
        ovex_mon_event_get_value_as_int(event, &one.value_bits);
        one.id = id;
        one.type = type;
        const std::lock_guard lock(self.mutex);
        self.seen.push_back(one);
        self.changed.notify_all();
    }
    // Waits until `count` calls came; the bound only keeps a broken stream from hanging the test.
    bool WaitFor(std::size_t count) {
        std::unique_lock lock(mutex);
        return changed.wait_for(lock, std::chrono::seconds(30),
                                [&] { return seen.size() >= count; });
    }
    std::vector<Seen> Snapshot() {
        const std::lock_guard lock(mutex);
        return seen;
    }
};

class LegacyMonitors : public LegacySession {
protected:
    void SetUp() override {
        LegacySession::SetUp();
        if (IsSkipped()) {
            return;
        }
        ASSERT_EQ(AddAndOpen(vboard::BoardKind::kNobe), OVEX_OK);
        ASSERT_EQ(ovexsdk_mon_legacy_id_to_idx(&m_ctx->context, "T_FPGA_BE", &m_fpga), OVEXSDK_OK);
    }

    // Closes the board: the stream stops and every callback has returned.
    void Close() { ASSERT_EQ(ovex_dev_close(m_ctx), OVEX_OK); }
    vboard::FirmwareEngine& Engine() { return Board().Engine(); }

    int m_fpga = -1;  // the index of "T_FPGA_BE", the back end's FPGA temperature
};

TEST_F(LegacyMonitors, MonitorsGoByTheirOlderNamesAndGiveTheirValuesBits) {
    uint32_t count = 0;
    ASSERT_EQ(ovex_mon_count(m_ctx, &count), OVEX_OK);
    ASSERT_EQ(count, 43u);
    const char* id = nullptr;
    ASSERT_EQ(ovex_mon_id(m_ctx, static_cast<uint32_t>(m_fpga), &id), OVEX_OK);
    EXPECT_STREQ(id, "T_FPGA_BE");
    ASSERT_EQ(ovex_mon_id(m_ctx, 29, &id), OVEX_OK);
    EXPECT_STREQ(id, "PG_USB_3V3");  // no older name: its own
    EXPECT_EQ(ovex_mon_id(m_ctx, count, &id), OVEX_ERR_HANDLE);

    const char* type = nullptr;
    ASSERT_EQ(ovex_mon_datatype(m_ctx, "FPGA_TEMP_0", &type), OVEX_OK);  // its regular name
    EXPECT_STREQ(type, "float");
    ASSERT_EQ(ovex_mon_datatype(m_ctx, "PG_USB_3V3", &type), OVEX_OK);
    EXPECT_STREQ(type, "int");

    Engine().SetMonitorValue("FPGA_TEMP_0", 40.25f);
    float value = 0;
    int32_t integer = 0;
    ASSERT_EQ(ovex_mon_fetch_value_float(m_ctx, "T_FPGA_BE", &value), OVEX_OK);
    EXPECT_EQ(value, 40.25f);
    ASSERT_EQ(ovex_mon_fetch_value_int(m_ctx, "T_FPGA_BE", &integer), OVEX_OK);
    EXPECT_EQ(integer, Bits<int32_t>(40.25f));
    ASSERT_EQ(ovex_mon_fetch_value_int(m_ctx, "PG_USB_3V3", &integer), OVEX_OK);
    EXPECT_EQ(integer, 1);
    ASSERT_EQ(ovex_mon_fetch_value_float(m_ctx, "PG_USB_3V3", &value), OVEX_OK);
    EXPECT_EQ(Bits<int32_t>(value), 1);

    const auto event = [](ovex_mon_event*, void*) {};
    EXPECT_EQ(ovex_mon_datatype(m_ctx, "T_NOWHERE", &type), OVEX_ERR_HANDLE);
    EXPECT_EQ(ovex_mon_fetch_value_float(m_ctx, "t_fpga_be", &value), OVEX_ERR_HANDLE);
    EXPECT_EQ(ovex_mon_event_set_onvaluechanged(m_ctx, "T_NOWHERE", event, nullptr),
              OVEX_ERR_HANDLE);
    EXPECT_EQ(Bits<int32_t>(value), 1);
}

TEST_F(LegacyMonitors, ValueEventsCarryTheValueAndTheThreeFlagsInTheirPlaces) {
    ovexsdk_mon_info info{};
    ASSERT_EQ(ovexsdk_mon_get_info(&m_ctx->context, static_cast<uint32_t>(m_fpga), &info),
              OVEXSDK_OK);
    Calls temperature;
    Calls power_good;
    ASSERT_EQ(ovex_mon_event_set_onvaluechanged(m_ctx, "T_FPGA_BE", &Calls::Take, &temperature),
              OVEX_OK);
    ASSERT_EQ(ovex_mon_event_set_onvaluechanged(m_ctx, "PG_USB_3V3", &Calls::Take, &power_good),
              OVEX_OK);
    Engine().SetMonitorValue("FPGA_TEMP_0", 40.25f);
    Board().PushMonitorRound();
    ASSERT_TRUE(temperature.WaitFor(1));
    ASSERT_TRUE(power_good.WaitFor(1));
    // A value beyond the monitor's range comes with the warning flag.
    const float beyond = info.maximum.f + 10.0f;
    Engine().SetMonitorValue("FPGA_TEMP_0", beyond);
    Board().PushMonitorRound();
    ASSERT_TRUE(temperature.WaitFor(2));
    Close();

    const auto seen = temperature.Snapshot();
    ASSERT_EQ(seen.size(), 2u);
    EXPECT_EQ(seen[0].event, &m_ctx->value_events[m_fpga]);
    EXPECT_EQ(seen[1].event, seen[0].event);
    EXPECT_EQ(seen[0].id, "T_FPGA_BE");
    EXPECT_EQ(seen[0].type, "float");
    EXPECT_EQ(seen[0].value, 40.25f);
    EXPECT_EQ(seen[0].flags, (std::vector<int32_t>{1, 0, 0}));
    EXPECT_EQ(seen[1].value, beyond);
    EXPECT_EQ(seen[1].flags, (std::vector<int32_t>{1, 1, 0}));
    const auto integers = power_good.Snapshot();
    ASSERT_FALSE(integers.empty());
    EXPECT_EQ(integers[0].id, "PG_USB_3V3");
    EXPECT_EQ(integers[0].type, "int");
    EXPECT_EQ(integers[0].value_bits, 1);
}

TEST_F(LegacyMonitors, AvailabilityEventsHoldTheNotificationsWholeFlagsByte) {
    Calls changes;
    ASSERT_EQ(ovex_mon_event_set_onavailabilitychanged(m_ctx, "T_FPGA_BE", &Calls::Take, &changes),
              OVEX_OK);
    Board().PushMonitorRound();
    ASSERT_TRUE(changes.WaitFor(1));
    Engine().BreakMonitor("FPGA_TEMP_0");
    Board().PushMonitorRound();
    ASSERT_TRUE(changes.WaitFor(2));
    Close();

    const auto seen = changes.Snapshot();
    ASSERT_EQ(seen.size(), 2u);
    EXPECT_EQ(seen[0].event, &m_ctx->availability_events[m_fpga]);
    EXPECT_EQ(seen[0].id, "T_FPGA_BE");
    EXPECT_EQ(seen[0].flags, (std::vector<int32_t>{1, 0, 0}));
    // Not available, with the error bit; the value's flags stay as they were.
    EXPECT_EQ(seen[1].flags, (std::vector<int32_t>{4, 0, 0}));
}

TEST_F(LegacyMonitors, ASecondCallbackForAMonitorReplacesTheFirstInTheSameRecord) {
    Calls first;
    Calls second;
    ASSERT_EQ(ovex_mon_event_set_onvaluechanged(m_ctx, "T_FPGA_BE", &Calls::Take, &first), OVEX_OK);
    Board().PushMonitorRound();
    ASSERT_TRUE(first.WaitFor(1));
    // By its regular name: the same monitor.
    ASSERT_EQ(ovex_mon_event_set_onvaluechanged(m_ctx, "FPGA_TEMP_0", &Calls::Take, &second),
              OVEX_OK);
    Board().PushMonitorRound();
    Board().PushMonitorRound();
    ASSERT_TRUE(second.WaitFor(2));
    Close();

    const auto before = first.Snapshot();
    const auto after = second.Snapshot();
    EXPECT_EQ(before.size(), 1u);
    ASSERT_EQ(after.size(), 2u);
    EXPECT_EQ(after[0].event, before[0].event);
    EXPECT_EQ(after[1].event, before[0].event);
    EXPECT_EQ(after[0].id, "T_FPGA_BE");
}

TEST_F(LegacyMonitors, EveryMonitorsCallbacksGetItsOwnRecordWhileTheyRunTogether) {
    uint32_t count = 0;
    ASSERT_EQ(ovex_mon_count(m_ctx, &count), OVEX_OK);
    std::deque<Calls> calls(count);
    std::vector<std::string> ids;
    for (uint32_t index = 0; index < count; ++index) {
        const char* id = nullptr;
        ASSERT_EQ(ovex_mon_id(m_ctx, index, &id), OVEX_OK);
        ids.emplace_back(id);
        ASSERT_EQ(ovex_mon_event_set_onvaluechanged(m_ctx, id, &Calls::Take, &calls[index]),
                  OVEX_OK);
    }
    // The stream brings values of the monitors that are available, which the board tells.
    std::vector<bool> available(count);
    const auto round = Engine().MonitorRound();
    for (std::size_t record = 0; record + 10 <= round.size(); record += 10) {
        available.at(round[record]) = (round[record + 1] & 1) != 0;
    }
    ASSERT_GT(std::count(available.begin(), available.end(), true), 10);
    constexpr std::size_t kRounds = 4;
    for (std::size_t pushed = 0; pushed < kRounds; ++pushed) {
        Board().PushMonitorRound();
    }
    for (uint32_t index = 0; index < count; ++index) {
        if (available[index]) {
            ASSERT_TRUE(calls[index].WaitFor(kRounds)) << ids[index];
        }
    }
    Close();

    for (uint32_t index = 0; index < count; ++index) {
        SCOPED_TRACE(ids[index]);
        const auto seen = calls[index].Snapshot();
        EXPECT_EQ(seen.size(), available[index] ? kRounds : 0u);
        for (const Seen& one : seen) {
            EXPECT_EQ(one.event, &m_ctx->value_events[index]);
            EXPECT_EQ(one.id, ids[index]);
        }
    }
}

}  // namespace
}  // namespace ovex::sdk::testing
