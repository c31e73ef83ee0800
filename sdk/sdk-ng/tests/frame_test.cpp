// The frame around every exported call: handle checks, announcement, exception barrier.

#include <gtest/gtest.h>

#include <cstring>
#include <source_location>
#include <stdexcept>

#include "api_internal.hpp"
#include "api_utils.hpp"
#include "context.hpp"
#include "ovexsdk.h"
#include "support/log_capture.hpp"

namespace ovex::sdk::testing {
namespace {

ovexsdk_err_code Throwing(Context&, int kind) {
    if (kind == 0) {
        throw std::runtime_error("vector range check failed");
    }
    throw 42;
}

ovexsdk_err_code ReportLocator(Context& context, std::string* out) {
    *out = context.Locator().Text();
    return OVEXSDK_OK;
}

class Frame : public ::testing::Test {
protected:
    void SetUp() override {
        ASSERT_EQ(ovexsdk_ctx_create(&m_record, "usb:sn:AB12CD34"), OVEXSDK_OK);
    }
    void TearDown() override { ovexsdk_ctx_release(&m_record); }
    ovexsdk_dev_ctx m_record{};
    LogCapture m_log;
};

TEST_F(Frame, ExceptionsBecomeFailedAndTheContextKeepsWorking) {
    auto& context = record::Get(&m_record);
    EXPECT_EQ(context.LastException(), "no error");

    EXPECT_EQ(api_call(&m_record, &Throwing, std::source_location::current(), 0),
              OVEXSDK_ERR_FAILED);
    EXPECT_EQ(context.LastException(), "vector range check failed");
    EXPECT_TRUE(m_log.Contains(
        ovex::log::kError, "SDK API call failed with an exception: vector range check failed."));

    EXPECT_EQ(api_call(&m_record, &Throwing, std::source_location::current(), 1),
              OVEXSDK_ERR_FAILED);
    EXPECT_EQ(context.LastException(), "unknown exception");
    EXPECT_TRUE(
        m_log.Contains(ovex::log::kError, "SDK API call failed with an unknown exception."));

    std::string locator;
    EXPECT_EQ(api_call(&m_record, &ReportLocator, std::source_location::current(), &locator),
              OVEXSDK_OK);
    EXPECT_EQ(locator, "usb:sn:AB12CD34");
}

TEST_F(Frame, CallsAreAnnouncedByTheirBareName) {
    bool open = true;
    m_log.Clear();
    ASSERT_EQ(ovexsdk_dev_is_open(&m_record, &open), OVEXSDK_OK);
    EXPECT_EQ(m_log.Messages().front(),
              (CapturedLine{ovex::log::kDebug, "Invoking SDK API 'ovexsdk_dev_is_open'."}));
}

TEST(BareFunctionName, IsTheWordBeforeTheParameterList) {
    using api_detail::BareFunctionName;
    EXPECT_EQ(BareFunctionName("ovexsdk_err_code ovexsdk_dev_open(ovexsdk_dev_ctx*)"),
              "ovexsdk_dev_open");
    EXPECT_EQ(BareFunctionName("void f()"), "f");
    EXPECT_EQ(BareFunctionName("main(int, char**)"), "main");
    EXPECT_EQ(BareFunctionName("std::pair<int, int> ns::g(int (*)(int))"), "ns::g");
}

TEST(BareFunctionNameDeathTest, TextWithoutParenthesisIsABug) {
    EXPECT_DEATH(api_detail::BareFunctionName("no call here"),
                 "CHECK FAILED:  paren != std::string_view::npos  BUG: Code location is not a "
                 "callable\\.");
}

// Every exported call refuses a null record and one without the magic, and logs nothing.
TEST(BadHandles, AreRefusedSilently) {
    LogCapture log;
    ovexsdk_dev_ctx garbage;
    std::memset(&garbage, 0xA5, sizeof garbage);
    bool flag = false;
    std::uint8_t count = 1;
    ovexsdk_enum_info info{};
    ovexsdk_dev_unit_info units[1]{};
    const ovexsdk_log_fmt format{true, true, true, true};
    for (ovexsdk_dev_ctx* handle : {static_cast<ovexsdk_dev_ctx*>(nullptr), &garbage}) {
        EXPECT_EQ(ovexsdk_ctx_release(handle), OVEXSDK_ERR_INVALID);
        EXPECT_EQ(ovexsdk_dev_open(handle), OVEXSDK_ERR_INVALID);
        EXPECT_EQ(ovexsdk_dev_close(handle), OVEXSDK_ERR_INVALID);
        EXPECT_EQ(ovexsdk_dev_is_open(handle, &flag), OVEXSDK_ERR_INVALID);
        EXPECT_EQ(ovexsdk_dev_get_info(handle, &info), OVEXSDK_ERR_INVALID);
        EXPECT_EQ(ovexsdk_dev_get_unit_count(handle, &count), OVEXSDK_ERR_INVALID);
        EXPECT_EQ(ovexsdk_dev_get_unit_info(handle, units, &count), OVEXSDK_ERR_INVALID);
        EXPECT_EQ(ovexsdk_dev_is_unit_powered(handle, 0, &flag), OVEXSDK_ERR_INVALID);
        EXPECT_EQ(ovexsdk_dev_power_up_unit(handle, 0), OVEXSDK_ERR_INVALID);
        EXPECT_EQ(ovexsdk_dev_power_down_unit(handle, 0), OVEXSDK_ERR_INVALID);
        EXPECT_EQ(ovexsdk_dev_is_powered(handle, &flag), OVEXSDK_ERR_INVALID);
        EXPECT_EQ(ovexsdk_dev_power_up(handle), OVEXSDK_ERR_INVALID);
        EXPECT_EQ(ovexsdk_dev_power_down(handle), OVEXSDK_ERR_INVALID);
        EXPECT_EQ(ovexsdk_log_set_cb(handle, nullptr, &format, nullptr), OVEXSDK_ERR_INVALID);
        EXPECT_EQ(ovexsdk_ctx_replace_locator(handle, "usb:ix:1"), OVEXSDK_ERR_INVALID);
    }
    EXPECT_EQ(ovexsdk_ctx_create(nullptr, "usb:ix:0"), OVEXSDK_ERR_INVALID);
    EXPECT_TRUE(log.Lines().empty());
}

TEST(ContextRecord, AReleasedRecordIsRefused) {
    ovexsdk_dev_ctx record{};
    ASSERT_EQ(ovexsdk_ctx_create(&record, "usb:ix:0"), OVEXSDK_OK);
    ASSERT_EQ(ovexsdk_ctx_release(&record), OVEXSDK_OK);
    EXPECT_EQ(ovexsdk_dev_open(&record), OVEXSDK_ERR_INVALID);
    EXPECT_EQ(ovexsdk_ctx_release(&record), OVEXSDK_ERR_INVALID);
}

TEST(ContextRecord, FitsARecordThatIsOnlyFourByteAligned) {
    // The record embedded behind a 4-byte tag, as the older interface keeps it.
    struct alignas(8) Legacy {
        std::uint32_t tag;
        ovexsdk_dev_ctx record;
    };
    auto legacy = std::make_unique<Legacy>();
    ASSERT_EQ(reinterpret_cast<std::uintptr_t>(&legacy->record) % 8, 4u);
    ASSERT_EQ(ovexsdk_ctx_create(&legacy->record, "usb:ix:3"), OVEXSDK_OK);
    std::string locator;
    EXPECT_EQ(api_call(&legacy->record, &ReportLocator, std::source_location::current(), &locator),
              OVEXSDK_OK);
    EXPECT_EQ(locator, "usb:ix:3");
    EXPECT_EQ(ovexsdk_ctx_release(&legacy->record), OVEXSDK_OK);
}

TEST(ContextCreation, LogsTheLocatorAndVersion) {
    LogCapture log;
    ovexsdk_dev_ctx record{};
    ASSERT_EQ(ovexsdk_ctx_create(&record, "usb:ix:0"), OVEXSDK_OK);
    EXPECT_TRUE(log.Contains(ovex::log::kInfo,
                             "Context for device 'usb:ix:0' created, SDK version 0.10.1"));
    ASSERT_EQ(ovexsdk_ctx_release(&record), OVEXSDK_OK);
    EXPECT_TRUE(log.Contains(ovex::log::kInfo, "Context released."));
}

TEST(ContextCreation, InvalidLocatorLeavesTheRecordUnusable) {
    LogCapture log;
    ovexsdk_dev_ctx record{};
    EXPECT_EQ(ovexsdk_ctx_create(&record, "usb:xx:1"), OVEXSDK_ERR_INVALID);
    EXPECT_TRUE(log.Contains(ovex::log::kError,
                             "Locator string parsing failed - string 'usb:xx:1' is not a valid "
                             "USB locator."));
    EXPECT_TRUE(log.Contains(ovex::log::kError, "Device locator 'usb:xx:1' is not valid."));
    EXPECT_EQ(ovexsdk_dev_open(&record), OVEXSDK_ERR_INVALID);
    EXPECT_EQ(ovexsdk_ctx_create(&record, nullptr), OVEXSDK_ERR_INVALID);
    EXPECT_TRUE(log.Contains(ovex::log::kError, "Parameter pointer 'locator' is invalid."));
}

TEST_F(Frame, ReplacingTheLocatorKeepsTheOldOneOnBadText) {
    std::string locator;
    EXPECT_EQ(ovexsdk_ctx_replace_locator(&m_record, "usb:ix:123"), OVEXSDK_ERR_INVALID);
    api_call(&m_record, &ReportLocator, std::source_location::current(), &locator);
    EXPECT_EQ(locator, "usb:sn:AB12CD34");
    EXPECT_EQ(ovexsdk_ctx_replace_locator(&m_record, "usb:ix:12"), OVEXSDK_OK);
    EXPECT_TRUE(m_log.Contains(ovex::log::kDebug, "Context USB locator changed to 'usb:ix:12'."));
    api_call(&m_record, &ReportLocator, std::source_location::current(), &locator);
    EXPECT_EQ(locator, "usb:ix:12");
}

TEST_F(Frame, EmptyIndexLocatorFailsOnlyAtOpen) {
    ASSERT_EQ(ovexsdk_ctx_replace_locator(&m_record, "usb:ix:"), OVEXSDK_OK);
    EXPECT_EQ(ovexsdk_dev_open(&m_record), OVEXSDK_ERR_FAILED);
    EXPECT_TRUE(m_log.Contains(ovex::log::kError,
                               "SDK API call failed with an exception: invalid stoul argument."));
    EXPECT_EQ(record::Get(&m_record).LastException(), "invalid stoul argument");
}

}  // namespace
}  // namespace ovex::sdk::testing
