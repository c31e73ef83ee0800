// Listing boards and finding one by locator, against virtual boards through the real libusb.

#include <gtest/gtest.h>

#include <algorithm>
#include <set>
#include <string>
#include <vector>

#include "ovexsdk.h"
#include "support/log_capture.hpp"
#include "virtual_board_test.hpp"

namespace ovex::sdk {
namespace {

std::string SerialOf(int number) {
    return "OVX0000" + std::to_string(number);
}

class EnumerationTest : public vboard::VirtualBoardTest {
protected:
    // Adds boards behind those already there, numbering their serials on.
    void AddBoards(int count) {
        const int first = static_cast<int>(BoardCount()) + 1;
        for (int i = first; i < first + count; ++i) {
            vboard::VirtualBoard::Settings settings;
            settings.identity.serial = SerialOf(i);
            AddBoard(std::move(settings));
        }
    }

    std::vector<ovexsdk_enum_info> List(std::uint64_t capacity) {
        std::vector<ovexsdk_enum_info> infos(capacity + 1);
        std::uint64_t count = capacity;
        EXPECT_EQ(ovexsdk_enum_get_info(infos.data(), &count), OVEXSDK_OK);
        EXPECT_LE(count, capacity);
        infos.resize(count);
        return infos;
    }

    // Opens a context on the locator and answers the open's result.
    ovexsdk_err_code Open(const std::string& locator) {
        ovexsdk_dev_ctx ctx;
        EXPECT_EQ(ovexsdk_ctx_create(&ctx, locator.c_str()), OVEXSDK_OK);
        const auto result = ovexsdk_dev_open(&ctx);
        EXPECT_EQ(ovexsdk_ctx_release(&ctx), OVEXSDK_OK);
        return result;
    }

    bool Logged(int verbosity, const std::string& text) {
        const auto lines = m_log.Messages();
        return std::find(lines.begin(), lines.end(), testing::CapturedLine{verbosity, text}) !=
               lines.end();
    }

    std::size_t Warnings(const std::string& start) {
        std::size_t count = 0;
        for (const auto& line : m_log.Messages()) {
            count += line.verbosity == log::kWarning && line.message.rfind(start, 0) == 0;
        }
        return count;
    }

    testing::LogCapture m_log;
};

constexpr const char* kCannotFit = "Cannot fit all device information structs into the array";

TEST_F(EnumerationTest, OneBoardFillsEveryField) {
    AddBoards(1);
    const auto infos = List(1);
    ASSERT_EQ(infos.size(), 1u);
    EXPECT_STREQ(infos[0].serial_number, "OVX00001");
    EXPECT_STREQ(infos[0].product, "OvexBoard Timepix3");
    EXPECT_STREQ(infos[0].connection_string, "usb:sn:OVX00001");
    EXPECT_GT(std::string(infos[0].instance_path).size(), 0u);
    EXPECT_EQ(Warnings(kCannotFit), 0u);
}

TEST_F(EnumerationTest, ListsEveryBoardOnceAndCutsAtCapacityWithAWarning) {
    for (const int boards : {0, 1, 3}) {
        AddBoards(boards - static_cast<int>(BoardCount()));
        for (const std::uint64_t capacity : {0u, 1u, 2u, 5u}) {
            SCOPED_TRACE(std::to_string(boards) + " boards, capacity " + std::to_string(capacity));
            m_log.Clear();
            const auto infos = List(capacity);
            ASSERT_EQ(infos.size(), std::min<std::uint64_t>(capacity, boards));
            const bool cut = static_cast<std::uint64_t>(boards) > capacity;
            EXPECT_EQ(Warnings(kCannotFit), cut ? 1u : 0u);
            if (cut) {
                EXPECT_TRUE(Logged(log::kWarning, std::string(kCannotFit) +
                                                      ": provided array of size " +
                                                      std::to_string(capacity) + ", got " +
                                                      std::to_string(boards) + " elements"));
            }
            std::set<std::string> serials;
            for (const auto& info : infos) {
                serials.insert(info.serial_number);
            }
            EXPECT_EQ(serials.size(), infos.size());
        }
    }
}

TEST_F(EnumerationTest, BoardThatCannotBeReadIsSkipped) {
    AddBoards(3);
    const auto before = List(3);
    ASSERT_EQ(before.size(), 3u);
    const std::string middle = before[1].serial_number;
    Board(std::stoi(middle.substr(3)) - 1).Usb().RemoveDeviceNode();
    m_log.Clear();
    const auto after = List(3);
    ASSERT_EQ(after.size(), 2u);
    EXPECT_STREQ(after[0].serial_number, before[0].serial_number);
    EXPECT_STREQ(after[1].serial_number, before[2].serial_number);
    EXPECT_TRUE(Logged(log::kWarning, "Unable to read device information, device skipped"));
    EXPECT_EQ(Warnings(kCannotFit), 0u);
}

TEST_F(EnumerationTest, ConnectionStringOfASerialNotEightLongIsListedWithAWarning) {
    for (const std::string serial : {"OVX1", "OVX000000012"}) {
        vboard::VirtualBoard::Settings settings;
        settings.identity.serial = serial;
        AddBoard(std::move(settings));
    }
    m_log.Clear();
    const auto infos = List(2);
    ASSERT_EQ(infos.size(), 2u);
    for (const auto& info : infos) {
        EXPECT_TRUE(Logged(log::kWarning, "Serial number '" + std::string(info.serial_number) +
                                              "' of device '" + info.instance_path +
                                              "' is not 8 characters long: its connection "
                                              "string is no locator, open the device by its "
                                              "index."));
    }
    // Four characters make no locator; twelve don't fit and are cut to another serial's.
    ovexsdk_dev_ctx ctx;
    EXPECT_EQ(ovexsdk_ctx_create(&ctx, "usb:sn:OVX1"), OVEXSDK_ERR_INVALID);
    EXPECT_EQ(Open("usb:sn:OVX00000"), OVEXSDK_ERR_NO_DEVICE);
    EXPECT_EQ(Open("usb:ix:1"), OVEXSDK_OK);
}

TEST_F(EnumerationTest, NullArgumentsAreRefused) {
    std::uint64_t count = 1;
    ovexsdk_enum_info info;
    EXPECT_EQ(ovexsdk_enum_get_info(nullptr, &count), OVEXSDK_ERR_INVALID);
    EXPECT_TRUE(Logged(log::kError, "Parameter pointer 'infos' is invalid."));
    EXPECT_EQ(ovexsdk_enum_get_info(&info, nullptr), OVEXSDK_ERR_INVALID);
    EXPECT_TRUE(Logged(log::kError, "Parameter pointer 'info_count' is invalid."));
}

// Discovery reaches the board named by the locator, inspects it and opens it.
TEST_F(EnumerationTest, EachBoardIsFoundByItsConnectionString) {
    AddBoards(3);
    for (const auto& info : List(3)) {
        m_log.Clear();
        EXPECT_EQ(Open(info.connection_string), OVEXSDK_OK);
        EXPECT_TRUE(Logged(log::kInfo, "Using device OvexBoard Timepix3, version: 3.03, s/n: " +
                                           std::string(info.serial_number) + "."));
    }
}

TEST_F(EnumerationTest, IndexLocatorFollowsTheListsOrder) {
    AddBoards(3);
    const auto infos = List(3);
    ASSERT_EQ(infos.size(), 3u);
    m_log.Clear();
    Open("usb:ix:2");
    EXPECT_TRUE(Logged(log::kInfo, "Using device OvexBoard Timepix3, version: 3.03, s/n: " +
                                       std::string(infos[2].serial_number) + "."));
}

TEST_F(EnumerationTest, LocatorsThatFindNothing) {
    AddBoards(1);
    EXPECT_EQ(Open("usb:ix:99"), OVEXSDK_ERR_NO_DEVICE);
    EXPECT_TRUE(Logged(log::kError, "USB device unavailable."));
    EXPECT_EQ(Open("usb:sn:OVX00009"), OVEXSDK_ERR_NO_DEVICE);

    m_log.Clear();
    EXPECT_EQ(Open("usb:ix:"), OVEXSDK_ERR_FAILED);
    EXPECT_TRUE(
        Logged(log::kError, "SDK API call failed with an exception: invalid stoul argument."));
}

TEST_F(EnumerationTest, BoardThatVanishesBetweenListingAndOpen) {
    AddBoards(2);
    ASSERT_EQ(List(2).size(), 2u);
    Board(1).Usb().Unplug();
    m_log.Clear();
    EXPECT_EQ(Open("usb:sn:" + SerialOf(2)), OVEXSDK_ERR_NO_DEVICE);
    EXPECT_TRUE(Logged(log::kError, "USB device unavailable."));
    const auto left = List(2);
    ASSERT_EQ(left.size(), 1u);
    EXPECT_STREQ(left[0].serial_number, "OVX00001");
}

TEST_F(EnumerationTest, PairUnknownToTheLibraryFailsInspection) {
    vboard::VirtualBoard::Settings settings;
    settings.identity.serial = SerialOf(1);
    settings.identity.bcd_device = 0x0304;
    AddBoard(std::move(settings));
    EXPECT_EQ(Open("usb:ix:0"), OVEXSDK_ERR_FAILED);
    EXPECT_TRUE(Logged(log::kError,
                       "Device 'TPX3EFE', version 3.04 is not supported by this version of SDK."));
    const auto no_device = std::make_error_code(std::errc::no_such_device);
    EXPECT_TRUE(Logged(log::kError,
                       "Failed to inspect the device: - generic: " + no_device.message() + "."));
}

TEST_F(EnumerationTest, EarlyBoardVersionsAreRefused) {
    auto tables = vboard::TablesOf(vboard::BoardKind::kTimepix3);
    tables.board_id = "OVBD";
    tables.bcd_device = 0x0302;
    vboard::VirtualBoard::Settings settings;
    settings.identity.serial = SerialOf(1);
    settings.tables = std::move(tables);
    AddBoard(std::move(settings));
    EXPECT_EQ(Open("usb:ix:0"), OVEXSDK_ERR_INVALID);
    EXPECT_TRUE(Logged(log::kError, "Unsupported ovexboard PCB version"));
}

}  // namespace
}  // namespace ovex::sdk
