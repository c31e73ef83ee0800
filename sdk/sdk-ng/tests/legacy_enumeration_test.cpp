// Listing and describing boards through the older interface, and its log function.

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <mutex>
#include <string>
#include <vector>

#include "support/legacy_session.hpp"

namespace ovex::sdk::testing {
namespace {

// One board as the ovex_enum_* functions describe it, its instance path told by presence.
void Describe(const ovexsdk_enum_info* element, void* user) {
    const char* texts[5] = {};
    std::uint16_t vid = 0;
    std::uint16_t pid = 0;
    std::int32_t high = -1;
    std::int32_t super = -1;
    const bool read = ovex_enum_get_connection_string(element, &texts[0]) == OVEX_OK &&
                      ovex_enum_get_product(element, &texts[1]) == OVEX_OK &&
                      ovex_enum_get_serial_number(element, &texts[2]) == OVEX_OK &&
                      ovex_enum_get_manufacturer(element, &texts[3]) == OVEX_OK &&
                      ovex_enum_usb_get_instance_path(element, &texts[4]) == OVEX_OK &&
                      ovex_enum_usb_get_vid_pid(element, &vid, &pid) == OVEX_OK &&
                      ovex_enum_usb_is_high_speed(element, &high) == OVEX_OK &&
                      ovex_enum_usb_is_super_speed(element, &super) == OVEX_OK;
    ASSERT_TRUE(read);
    static_cast<std::vector<std::string>*>(user)->push_back(
        std::string(texts[0]) + " " + texts[1] + " " + texts[2] + " " + texts[3] + " " +
        (std::strlen(texts[4]) > 0 ? "path " : "") + std::to_string(vid) + ":" +
        std::to_string(pid) + " " + std::to_string(high) + std::to_string(super));
}

// The lines a host's log function received, with their severities.
struct LegacyHostLog {
    std::mutex mutex;
    std::vector<std::string> lines;

    static void Receive(const char* text, std::int32_t severity, void* user) {
        auto* self = static_cast<LegacyHostLog*>(user);
        std::lock_guard lock(self->mutex);
        self->lines.push_back(std::to_string(severity) + " " + text);
    }
};

class LegacyEnumeration : public LegacySession {
protected:
    // Releases the handle, which hands every queued line to the log function first.
    void Delete() {
        ASSERT_EQ(ovex_ctx_delete(m_ctx), OVEX_OK);
        m_ctx = nullptr;
    }
};

TEST_F(LegacyEnumeration, EachBoardGoesToTheCallbackWithTheFamilysConstants) {
    New();
    std::vector<std::string> boards;
    std::uint32_t count = 7;
    ASSERT_EQ(ovex_dev_enumerate(m_ctx, &Describe, &boards, &count), OVEX_OK);
    EXPECT_EQ(count, 0u);

    AddBoard();
    vboard::VirtualBoard::Settings nobe;
    nobe.kind = vboard::BoardKind::kNobe;
    nobe.identity.serial = "OVX00002";
    AddBoard(nobe);
    ASSERT_EQ(ovex_dev_enumerate(m_ctx, &Describe, &boards, &count), OVEX_OK);
    EXPECT_EQ(count, 2u);
    // The USB layer's order is its own. The boards' manufacturer text is not what is told.
    std::sort(boards.begin(), boards.end());
    EXPECT_EQ(boards,
              (std::vector<std::string>{
                  "usb:sn:OVX00001 OvexBoard Timepix3 OVX00001 Ovexlight path 4617:44302 01",
                  "usb:sn:OVX00002 NOBE OVX00002 Ovexlight path 4617:44302 01"}));

    // The count is optional, and the handle takes no part: a released one lists as well.
    std::memset(m_ctx->magic, 0, sizeof m_ctx->magic);
    EXPECT_EQ(ovex_dev_enumerate(m_ctx, &Describe, &boards, nullptr), OVEX_OK);
    EXPECT_EQ(boards.size(), 4u);
    std::memcpy(m_ctx->magic, legacy::kMagic, sizeof m_ctx->magic);
    EXPECT_EQ(ovex_dev_enumerate(nullptr, &Describe, &boards, &count), OVEX_ERR_HANDLE);
}

TEST_F(LegacyEnumeration, ElementFunctionsRefuseNullsAndTheLastErrorIsNotAvailable) {
    const ovexsdk_enum_info element{};
    const char* text = "kept";
    std::int32_t flag = 7;
    EXPECT_EQ(ovex_enum_get_connection_string(nullptr, &text), OVEX_ERR_HANDLE);
    EXPECT_EQ(ovex_enum_get_product(&element, nullptr), OVEX_ERR_HANDLE);
    EXPECT_EQ(ovex_enum_usb_get_vid_pid(&element, nullptr, nullptr), OVEX_ERR_HANDLE);
    EXPECT_EQ(ovex_enum_usb_is_super_speed(nullptr, &flag), OVEX_ERR_HANDLE);
    EXPECT_EQ(ovex_enum_get_last_error(&element, &text), OVEX_ERR_UNAVAILABLE);
    EXPECT_EQ(ovex_enum_get_last_error(nullptr, &text), OVEX_ERR_HANDLE);
    EXPECT_EQ(ovex_enum_get_last_error(&element, nullptr), OVEX_ERR_HANDLE);
    EXPECT_STREQ(text, "kept");
    EXPECT_EQ(flag, 7);
}

TEST_F(LegacyEnumeration, PropertiesReadTheOpenBoardIntoTheHandle) {
    AddBoard();
    New();
    const char* text = "kept";
    // Without an open board every property, a constant too, is "no device".
    EXPECT_EQ(ovex_dev_prop_get_serial_number(m_ctx, &text), OVEX_ERR_HANDLE);
    EXPECT_EQ(ovex_dev_prop_get_manufacturer(m_ctx, &text), OVEX_ERR_HANDLE);
    EXPECT_STREQ(text, "kept");

    ASSERT_EQ(ovex_dev_open(m_ctx, "usb:sn:OVX00001"), OVEX_OK);
    ASSERT_EQ(ovex_dev_prop_get_serial_number(m_ctx, &text), OVEX_OK);
    // The text lives in the handle, not in the call's frame.
    EXPECT_EQ(text, m_ctx->device_info.serial_number);
    EXPECT_STREQ(text, "OVX00001");
    ASSERT_EQ(ovex_dev_prop_get_connection_string(m_ctx, &text), OVEX_OK);
    EXPECT_STREQ(text, "usb:sn:OVX00001");
    ASSERT_EQ(ovex_dev_prop_get_product(m_ctx, &text), OVEX_OK);
    EXPECT_STREQ(text, "OvexBoard Timepix3");
    ASSERT_EQ(ovex_dev_prop_usb_get_instance_path(m_ctx, &text), OVEX_OK);
    EXPECT_EQ(text, m_ctx->device_info.instance_path);
    ASSERT_EQ(ovex_dev_prop_get_manufacturer(m_ctx, &text), OVEX_OK);
    EXPECT_STREQ(text, "Ovexlight");
    std::uint16_t ids[2] = {};
    std::int32_t speeds[2] = {-1, -1};
    ASSERT_EQ(ovex_dev_prop_usb_get_vid_pid(m_ctx, &ids[0], &ids[1]), OVEX_OK);
    ASSERT_EQ(ovex_dev_prop_usb_is_high_speed(m_ctx, &speeds[0]), OVEX_OK);
    ASSERT_EQ(ovex_dev_prop_usb_is_super_speed(m_ctx, &speeds[1]), OVEX_OK);
    EXPECT_EQ(ids[0], 0x1209);
    EXPECT_EQ(ids[1], 0xAD0E);
    EXPECT_EQ(speeds[0], 0);
    EXPECT_EQ(speeds[1], 1);
}

TEST_F(LegacyEnumeration, LogFunctionGetsEveryLineWithItsSeverityAndTheFormatAsked) {
    New();
    LegacyHostLog host;
    const ovexsdk_log_fmt message_only{false, false, false, true};
    ovex_log_set_func(m_ctx, &LegacyHostLog::Receive, &host, &message_only);
    EXPECT_EQ(ovex_script_run(m_ctx, "Log.error('e') Log.warn('w') Log.info('i') Log.debug('d')"),
              OVEX_OK);
    // Without a format, whole lines: the preamble comes ahead of the message.
    ovex_log_set_func(m_ctx, &LegacyHostLog::Receive, &host, nullptr);
    EXPECT_EQ(ovex_script_run(m_ctx, "Log.info('whole')"), OVEX_OK);
    Delete();
    const auto has = [&](const std::string& line) {
        return std::find(host.lines.begin(), host.lines.end(), line) != host.lines.end();
    };
    EXPECT_TRUE(has("-2 e\n") && has("-1 w\n") && has("0 i\n") && has("9 d\n"));
    EXPECT_TRUE(has("9 Invoking SDK API 'ovexsdk_script_execute'.\n"));
    EXPECT_FALSE(has("0 whole\n"));
    EXPECT_TRUE(std::any_of(host.lines.begin(), host.lines.end(), [](const std::string& line) {
        return line.starts_with("0 ") && line.ends_with("whole\n");
    }));
}

}  // namespace
}  // namespace ovex::sdk::testing
