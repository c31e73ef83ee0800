// The collections scripts use: names read once, items addressed by name, refusals without
// traffic for names the board doesn't have.

#include <gtest/gtest.h>

#include <array>
#include <stdexcept>

#include "board_fixture.hpp"
#include "log_capture.hpp"
#include "ovex/vboard/item_tables.hpp"
#include "ovex/vendor_cmd/item_collection.hpp"

namespace ovex::usb::vendor_cmd {
namespace {

using vboard::BoardKind;
using vboard::TablesOf;

class ItemCollectionTest : public testing::BoardFixture {
protected:
    device::UsbDevice& OpenWith(vboard::ItemTables tables) {
        vboard::VirtualBoard::Settings settings;
        settings.tables = std::move(tables);
        return OpenBoard(std::move(settings));
    }
};

TEST_F(ItemCollectionTest, NamesAreTheBoardsAndValuesAreAskedEachTime) {
    auto& device = OpenBoard();
    const auto& tables = TablesOf(BoardKind::kTimepix3);
    impl::States states(device);
    ASSERT_EQ(states.names().size(), tables.states.size());
    EXPECT_EQ(states.names().front(), tables.states.front().name);
    Forget();

    ASSERT_FALSE(states.set_value("BIAS", 42));
    int value = 0;
    ASSERT_FALSE(states.get_value("BIAS", value));
    EXPECT_EQ(value, 42);
    ASSERT_FALSE(states.get_value("BIAS", value));
    EXPECT_EQ(NewRequests().size(), 4u);  // set + last error, then two reads

    range::Range<int> limits;
    ASSERT_FALSE(states.get_limits("BIAS", limits));
    EXPECT_EQ(limits, range::Range<int>(-300, 300));

    impl::Monitors monitors(device);
    float temperature = 0;
    ASSERT_FALSE(monitors.get_value("FPGA_TEMP", temperature));
    EXPECT_FLOAT_EQ(temperature, 45.0f);
    range::Range<float> range;
    ASSERT_FALSE(monitors.get_range("FPGA_TEMP", range));
    EXPECT_EQ(range, range::Range<float>(-40.0f, 125.0f));

    impl::Versions versions(device);
    std::string text;
    ASSERT_FALSE(versions.get_value("FX3_FW", text));
    EXPECT_EQ(text, "0.24.3-TPX3");

    impl::Commands commands(device);
    std::array<std::uint8_t, 8> info{};
    ASSERT_FALSE(commands.invoke_in("TPX_CHIP_INFO", info));
    EXPECT_FALSE(commands.invoke("TPX_INIT"));
}

TEST_F(ItemCollectionTest, UnknownNamesAreRefusedWithoutTraffic) {
    auto tables = TablesOf(BoardKind::kTimepix3);
    tables.commands.clear();
    auto& device = OpenWith(std::move(tables));
    impl::Commands commands(device);
    impl::States states(device);
    impl::Monitors monitors(device);
    impl::Versions versions(device);
    EXPECT_TRUE(commands.names().empty());
    Forget();

    ovex::testing::LogCapture log;
    EXPECT_EQ(commands.invoke("TPX_INIT"), std::errc::invalid_argument);
    int value = 0;
    EXPECT_EQ(states.get_value("X", value), std::errc::invalid_argument);
    float measured = 0;
    EXPECT_EQ(monitors.get_value("fpga_temp", measured), std::errc::invalid_argument);
    std::string text;
    EXPECT_EQ(versions.get_value("", text), std::errc::invalid_argument);
    EXPECT_TRUE(NewRequests().empty());
    EXPECT_TRUE(log.Contains(log::kError, "Command 'TPX_INIT' is not recognized by the device."));
    EXPECT_TRUE(log.Contains(log::kError, "State 'X' is not recognized by the device."));
    EXPECT_TRUE(log.Contains(log::kError, "Monitor 'fpga_temp' is not recognized by the device."));
    EXPECT_TRUE(log.Contains(log::kError, "Component '' is not recognized by the device."));
}

TEST_F(ItemCollectionTest, FirstOfTwoEqualNamesIsUsedAndAnEmptySpanIsAZeroLengthRequest) {
    auto tables = TablesOf(BoardKind::kTimepix3);
    tables.commands = {{"A", {}}, {"TWIN", {}}, {"TWIN", {1, 2}}};
    auto& device = OpenWith(std::move(tables));
    impl::Commands commands(device);
    Forget();

    EXPECT_FALSE(commands.invoke_in("TWIN", {}));
    const auto requests = NewRequests();
    ASSERT_FALSE(requests.empty());
    EXPECT_EQ(requests[0].bmRequestType, 0xC0);
    EXPECT_EQ(requests[0].wIndex, 1);
    EXPECT_EQ(requests[0].wLength, 0);
}

TEST_F(ItemCollectionTest, NameReadTimingOutFailsTheConstruction) {
    auto& device = OpenBoard();
    Firmware().IgnoreNext({0x01, 1, 3});
    try {
        impl::Commands commands(device);
        FAIL() << "the collection was made";
    } catch (const std::runtime_error& e) {
        EXPECT_STREQ(e.what(), "transfer: timeout");
    }
}

}  // namespace
}  // namespace ovex::usb::vendor_cmd
