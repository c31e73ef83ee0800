// The device's item sets over a virtual board: names from the board, the set's own log lines,
// integer views of monitors, and a set that can't be loaded.

#include <gtest/gtest.h>

#include <array>
#include <limits>
#include <stdexcept>

#include "board_fixture.hpp"
#include "ovex/vboard/item_tables.hpp"
#include "sdk_dev_item_sets.hpp"
#include "support/log_capture.hpp"

namespace ovex::sdk {
namespace {

using vboard::BoardKind;
using vboard::TablesOf;

std::uint16_t IdOfState(const vboard::ItemTables& tables, const std::string& name) {
    for (std::size_t i = 0; i < tables.states.size(); ++i) {
        if (tables.states[i].name == name) {
            return static_cast<std::uint16_t>(i);
        }
    }
    return 0xFFFF;
}

class ItemSetsTest : public usb::vendor_cmd::testing::BoardFixture {
protected:
    usb::device::UsbDevice& OpenWith(vboard::ItemTables tables) {
        vboard::VirtualBoard::Settings settings;
        settings.tables = std::move(tables);
        return OpenBoard(std::move(settings));
    }
    testing::LogCapture m_log;
};

TEST_F(ItemSetsTest, SetsCarryTheBoardsNamesAndLogTheirWrites) {
    auto& device = OpenBoard();
    UsbCommands commands(device);
    UsbStates states(device);
    UsbMonitors monitors(device);
    UsbVersions versions(device);
    const auto& tables = TablesOf(BoardKind::kTimepix3);
    ASSERT_EQ(commands.Names().size(), tables.commands.size());
    ASSERT_EQ(states.Names().size(), tables.states.size());
    ASSERT_EQ(monitors.Names().size(), tables.monitors.size());
    ASSERT_EQ(versions.Names().size(), tables.versions.size());
    EXPECT_EQ(*states.IndexOf("BIAS"), IdOfState(tables, "BIAS"));

    m_log.Clear();
    EXPECT_FALSE(commands.Invoke("TPX_INIT"));
    std::array<std::uint8_t, 8> info{};
    EXPECT_FALSE(commands.Invoke("TPX_CHIP_INFO", std::span<std::uint8_t>(info)));
    EXPECT_FALSE(states.Set("BIAS", -7));
    std::vector<testing::CapturedLine> lines;
    for (const auto& line : m_log.Messages()) {
        if (line.verbosity <= log::kInfo) {  // the transport logs each transfer at debug level
            lines.push_back(line);
        }
    }
    ASSERT_EQ(lines.size(), 3u);
    EXPECT_EQ(lines[0], (testing::CapturedLine{log::kInfo, "Command TPX_INIT invoked."}));
    EXPECT_EQ(lines[1], (testing::CapturedLine{log::kInfo, "Command TPX_CHIP_INFO invoked."}));
    EXPECT_EQ(lines[2], (testing::CapturedLine{log::kInfo, "State BIAS set to -7."}));
    EXPECT_EQ(Board().Engine().StateValue("BIAS"), -7);

    int value = 0;
    ASSERT_FALSE(states.Get("BIAS", value));
    EXPECT_EQ(value, -7);
    std::string text;
    ASSERT_FALSE(versions.Get("FX3_FW", text));
    EXPECT_EQ(text, "0.24.3-TPX3");
}

TEST_F(ItemSetsTest, UnknownItemIsRefusedWithTheSetsWord) {
    auto& device = OpenBoard();
    UsbStates states(device);
    Forget();
    m_log.Clear();
    EXPECT_EQ(states.Set("X", 1), std::errc::invalid_argument);
    EXPECT_TRUE(NewRequests().empty());
    EXPECT_TRUE(m_log.Contains(log::kError, "state 'X' is not recognized by the device."));
}

TEST_F(ItemSetsTest, MonitorsTruncateTowardsZeroForIntegerReaders) {
    auto tables = TablesOf(BoardKind::kTimepix3);
    tables.monitors = {{"NEG", -2.7f, -3.9f, 3.9f}};
    auto& device = OpenWith(std::move(tables));
    UsbMonitors monitors(device);
    int value = 0;
    ASSERT_FALSE(monitors.Get("NEG", value));
    EXPECT_EQ(value, -2);
    range::Range<int> range;
    ASSERT_FALSE(monitors.GetRange("NEG", range));
    EXPECT_EQ(range, range::Range<int>(-3, 3));
    float exact = 0;
    ASSERT_FALSE(monitors.Get("NEG", exact));
    EXPECT_FLOAT_EQ(exact, -2.7f);
}

TEST_F(ItemSetsTest, SetThatCannotBeLoadedThrowsMessageThenCategory) {
    auto& device = OpenBoard();
    Firmware().StallNext({0x05, 0, 0}, 1, 0x00000040);
    try {
        UsbMonitors monitors(device);
        FAIL() << "the set was made";
    } catch (const std::runtime_error& e) {
        EXPECT_STREQ(e.what(), "one or more parameters to a function are invalid: firmware");
    }
}

TEST(TruncateToIntTest, HoldsNanAndHugeValuesInsideIntsRange) {
    EXPECT_EQ(TruncateToInt(3.99f), 3);
    EXPECT_EQ(TruncateToInt(-0.5f), 0);
    EXPECT_EQ(TruncateToInt(std::numeric_limits<float>::quiet_NaN()), 0);
    EXPECT_EQ(TruncateToInt(1e20f), std::numeric_limits<int>::max());
    EXPECT_EQ(TruncateToInt(-std::numeric_limits<float>::infinity()),
              std::numeric_limits<int>::min());
}

}  // namespace
}  // namespace ovex::sdk
