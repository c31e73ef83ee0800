// Bias, temperature and monitor control on a virtual Timepix3 board: what reaches the board's
// states, what its monitors read, and the monitor stream from the interrupt endpoint to the
// callbacks.

#include <gtest/gtest.h>

#include <algorithm>
#include <condition_variable>
#include <cstring>
#include <mutex>
#include <vector>

#include "board_fixture.hpp"
#include "modules/bias_ctrl.hpp"
#include "modules/mon_ctrl.hpp"
#include "modules/temp_control.hpp"
#include "ovex/vboard/item_tables.hpp"
#include "sdk_dev_item_sets.hpp"
#include "support/log_capture.hpp"

namespace ovex::sdk {
namespace {

using Bytes = std::vector<std::uint8_t>;

// One record of the stream: id, flags, the value as a little-endian float, the time stamp.
void AddRecord(Bytes& frame, std::uint8_t id, std::uint8_t flags, float value,
               std::uint32_t timestamp) {
    std::uint32_t bits = 0;
    std::memcpy(&bits, &value, sizeof bits);
    frame.push_back(id);
    frame.push_back(flags);
    for (const std::uint32_t word : {bits, timestamp}) {
        for (int shift = 0; shift < 32; shift += 8) {
            frame.push_back(static_cast<std::uint8_t>(word >> shift));
        }
    }
}

// The board's monitors as Float rows, but "PG_1V8" as Integer, with two legacy names.
mon_metadata Timepix3Table() {
    mon_metadata table;
    for (const auto& monitor : vboard::TablesOf(vboard::BoardKind::kTimepix3).monitors) {
        table.regular_ids_to_types[monitor.name] = 2;
    }
    table.regular_ids_to_types["PG_1V8"] = 1;
    table.regular_ids_to_legacy_ids = {{"FPGA_TEMP", "T_FPGA"}, {"TSENS_TEMP", "T_SENS"}};
    table.legacy_ids_to_regular_ids = {{"T_FPGA", "FPGA_TEMP"}, {"T_SENS", "TSENS_TEMP"}};
    return table;
}

class BoardHousekeepingTest : public usb::vendor_cmd::testing::BoardFixture {
protected:
    void SetUp() override {
        BoardFixture::SetUp();
        if (IsSkipped()) {
            return;
        }
        OpenBoard();
        states.emplace(Device());
        monitors.emplace(Device());
    }
    void TearDown() override {
        monitors.reset();
        states.reset();
        BoardFixture::TearDown();
    }
    std::uint8_t IdOf(const std::string& monitor) const {
        return static_cast<std::uint8_t>(*monitors->IndexOf(monitor));
    }

    testing::LogCapture log;
    std::optional<UsbStates> states;
    std::optional<UsbMonitors> monitors;
};

TEST_F(BoardHousekeepingTest, BiasAndPeltierReachTheBoardsStatesAndReadItsMonitors) {
    BiasCtrl bias(&*states, &*monitors, "BIAS", "U_BIAS");
    TemperatureControl peltier(&*states, &*monitors,
                               std::make_unique<DefaultTempElement>("PELTIER", "TSENS_TEMP"));
    std::pair<float, float> limits;
    ASSERT_FALSE(bias.GetLimits(limits));
    EXPECT_EQ(limits, std::make_pair(-300.0F, 300.0F));
    ASSERT_FALSE(bias.SetDesired(-12.5F));
    EXPECT_EQ(Board().Engine().StateValue("BIAS"), -13);
    Board().Engine().SetMonitorValue("U_BIAS", -12.75F);
    float volts = 0.0F;
    ASSERT_FALSE(bias.GetActual(volts));
    EXPECT_EQ(volts, -12.75F);
    Forget();
    EXPECT_EQ(bias.SetDesired(300.5F), std::errc::argument_out_of_domain);
    EXPECT_EQ(NewRequests().size(), 1u);  // the limits, and no write

    ASSERT_FALSE(peltier.GetLimits(limits));
    EXPECT_EQ(limits, std::make_pair(0.0F, 60.0F));
    ASSERT_FALSE(peltier.SetDesired(25.05F));
    EXPECT_EQ(Board().Engine().StateValue("PELTIER"), 250);
    float degrees = 0.0F;
    ASSERT_FALSE(peltier.GetActual(degrees));
    EXPECT_EQ(degrees, 26.0F);
}

TEST_F(BoardHousekeepingTest, StreamReachesTheCallbacksOfEachMonitorWithTheirRecords) {
    MonitorControl control(SharedDevice(), vboard::kMonitorEndpoint, &*monitors, Timepix3Table());
    EXPECT_STREQ(control.GetName(), "Synchronous and asynchronous monitor control");
    EXPECT_EQ(control.Stop(), std::errc::operation_not_permitted);

    struct Seen {
        std::string what;
        std::uint8_t flags;
        std::uint32_t tag;
        float value;
        std::uint32_t timestamp;
        void* user;
        bool float_range;
        bool operator==(const Seen&) const = default;
    };
    std::mutex mutex;
    std::condition_variable arrived;
    std::vector<Seen> seen;
    const auto record = [&](Seen entry) {
        std::lock_guard lock(mutex);
        seen.push_back(entry);
        arrived.notify_all();
    };
    int user = 0;
    const auto on_value = [&](const MonitorValue& value, void* pointer) {
        record({value.info->name + " value", value.flags, value.tag,
                value.tag == MonitorValue::kInt ? static_cast<float>(value.value.i) : value.value.f,
                value.timestamp, pointer,
                std::holds_alternative<range::Range<float>>(value.info->range)});
    };
    const auto on_availability = [&](const MonitorAvailability& change, void* pointer) {
        record({change.info->name + " availability", change.flags, 0, 0.0F, change.timestamp,
                pointer, std::holds_alternative<range::Range<float>>(change.info->range)});
    };
    ASSERT_FALSE(control.SetOnValueChange("TSENS_TEMP", on_value, &user));
    ASSERT_FALSE(control.SetOnValueChange("PG_1V8", on_value, &user));
    ASSERT_FALSE(control.SetOnAvailabilityChange("U_BIAS", on_availability, &user));

    ASSERT_FALSE(control.Start());
    EXPECT_TRUE(control.IsRunning());
    EXPECT_EQ(control.Start(), std::errc::operation_not_permitted);
    EXPECT_TRUE(control.IsRunning());

    Bytes frame;
    AddRecord(frame, IdOf("TSENS_TEMP"), 0x03, 36.5F, 100);
    AddRecord(frame, IdOf("PG_1V8"), 0x01, 1.9F, 101);
    AddRecord(frame, IdOf("U_BIAS"), 0x01, 5.0F, 102);
    AddRecord(frame, IdOf("I_BIAS"), 0x01, 0.5F, 103);  // no callbacks
    Board().Frames().Push(frame);
    {
        std::unique_lock lock(mutex);
        arrived.wait(lock, [&] { return seen.size() >= 3; });
    }
    // Stop waits for every notification, so that nothing more can come.
    ASSERT_FALSE(control.Stop());
    EXPECT_FALSE(control.IsRunning());
    std::sort(seen.begin(), seen.end(),
              [](const Seen& a, const Seen& b) { return a.what < b.what; });
    const std::vector<Seen> expected{
        {"PG_1V8 value", 0x01, MonitorValue::kInt, 1.0F, 101, &user, false},
        {"TSENS_TEMP value", 0x03, MonitorValue::kFloat, 36.5F, 100, &user, true},
        {"U_BIAS availability", 0x01, 0, 0.0F, 102, &user, true},
    };
    EXPECT_EQ(seen, expected);
}

TEST_F(BoardHousekeepingTest, ValuesRangesAndLegacyNamesOnRequest) {
    Board().Engine().SetMonitorValue("TSENS_TEMP", 36.9F);
    MonitorControl control(SharedDevice(), vboard::kMonitorEndpoint, &*monitors, Timepix3Table());
    EXPECT_EQ(control.GetIds(), monitors->Names());
    int whole = 0;
    ASSERT_FALSE(control.GetValue("TSENS_TEMP", whole));
    EXPECT_EQ(whole, 36);
    range::Range<float> range;
    ASSERT_FALSE(control.GetRange("TSENS_TEMP", range));
    EXPECT_EQ(range, range::Range<float>(-40.0F, 125.0F));
    ValueType type{};
    ASSERT_FALSE(control.GetType("PG_1V8", type));
    EXPECT_EQ(type, ValueType::Integer);

    EXPECT_EQ(control.ToLegacyId("TSENS_TEMP"), "T_SENS");
    EXPECT_EQ(control.FromLegacyId("T_FPGA"), "FPGA_TEMP");
    log.Clear();
    // A known name without a conversion comes back as the module's own text.
    const std::string vcc_int = "VCC_INT";
    const std::string& same = control.ToLegacyId(vcc_int);
    EXPECT_EQ(same, vcc_int);
    EXPECT_NE(&same, &vcc_int);
    EXPECT_EQ(control.FromLegacyId("VCC_INT"), "VCC_INT");
    EXPECT_EQ(control.FromLegacyId("T_NOWHERE"), "T_NOWHERE");
    EXPECT_EQ(log.Messages(), (std::vector<testing::CapturedLine>{
                                  {log::kDebug,
                                   "\"Regular monitor ID\"->\"legacy monitor ID\" conversion not "
                                   "possible,using regular monitor ID instead."},
                                  {log::kDebug,
                                   "\"Legacy monitor ID\"->\"regular monitor ID\" conversion not "
                                   "possible,using legacy monitor ID instead."},
                                  {log::kDebug,
                                   "\"Legacy monitor ID\"->\"regular monitor ID\" conversion not "
                                   "possible,using legacy monitor ID instead."},
                                  {log::kError,
                                   "BUG: Requested type of unrecognized legacy monitor "
                                   "'T_NOWHERE'."}}));
}

TEST_F(BoardHousekeepingTest, CallbacksForUnknownMonitorsOrMonitorsWithoutRangeAreDropped) {
    auto table = Timepix3Table();
    table.regular_ids_to_types["GHOST"] = 2;
    MonitorControl control(SharedDevice(), vboard::kMonitorEndpoint, &*monitors, table);
    log.Clear();
    const auto ignore = [](const MonitorValue&, void*) {};
    EXPECT_EQ(control.SetOnValueChange("NOPE", ignore, nullptr), std::errc::invalid_argument);
    EXPECT_EQ(control.SetOnValueChange("GHOST", ignore, nullptr), std::errc::invalid_argument);
    const std::string cause = "generic: Invalid argument.";
    const std::vector<testing::CapturedLine> expected{
        {log::kError, "Monitor with id \"NOPE\" has not been recognized."},
        {log::kError, "Failed to retrieve the type of monitor NOPE - " + cause},
        {log::kError, "monitor 'GHOST' is not recognized by the device."},
        {log::kError, "Failed to retrieve the range of monitor GHOST - " + cause}};
    std::vector<testing::CapturedLine> lines;
    for (const auto& line : log.Messages()) {
        if (line.verbosity <= log::kError) {
            lines.push_back(line);
        }
    }
    EXPECT_EQ(lines, expected);
}

TEST_F(BoardHousekeepingTest, NoStreamRunsOnATableThatDiffersFromTheFirmwaresMonitors) {
    const std::size_t count = monitors->Names().size();
    auto shorter = Timepix3Table();
    shorter.regular_ids_to_types.erase("PG_FE_5V");
    MonitorControl short_control(SharedDevice(), vboard::kMonitorEndpoint, &*monitors, shorter);
    EXPECT_EQ(short_control.Start(), std::errc::not_supported);
    EXPECT_FALSE(short_control.IsRunning());
    EXPECT_TRUE(log.Contains(
        log::kError,
        "BUG: Number of monitors does not match number of records inside of \"id -> type\" "
        "table (" +
            std::to_string(count) + " != " + std::to_string(count - 1) + ")"));

    auto renamed = shorter;
    renamed.regular_ids_to_types["PG_FE_6V"] = 2;
    MonitorControl renamed_control(SharedDevice(), vboard::kMonitorEndpoint, &*monitors, renamed);
    EXPECT_TRUE(log.Contains(
        log::kError,
        "Item collection of monitors doesn't contain 'PG_FE_6V' required by the module."));
    EXPECT_EQ(renamed_control.Start(), std::errc::not_supported);
    EXPECT_FALSE(renamed_control.IsRunning());
    EXPECT_TRUE(log.Contains(log::kError,
                             "BUG: Number of monitors does not match number of records inside "
                             "of UpdateReceiver::TypeInfos table (" +
                                 std::to_string(count) + " != " + std::to_string(count - 1) + ")"));
}

}  // namespace
}  // namespace ovex::sdk
