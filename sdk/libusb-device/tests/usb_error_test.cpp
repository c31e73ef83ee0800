#include <gtest/gtest.h>
#include <libusb.h>

#include "log_capture.hpp"
#include "ovex/usb/timeout.hpp"
#include "ovex/usb/usb_context.hpp"
#include "ovex/usb/usb_device.hpp"
#include "ovex/usb/usb_error.hpp"

namespace ovex::usb {
namespace {

TEST(UsbError, LibusbCodesCompareEqualToTheirGenericConditionsOnly) {
    const std::pair<int, std::errc> table[] = {
        {LIBUSB_ERROR_IO, std::errc::io_error},
        {LIBUSB_ERROR_INVALID_PARAM, std::errc::invalid_argument},
        {LIBUSB_ERROR_ACCESS, std::errc::permission_denied},
        {LIBUSB_ERROR_NO_DEVICE, std::errc::no_such_device},
        {LIBUSB_ERROR_NOT_FOUND, std::errc::argument_out_of_domain},
        {LIBUSB_ERROR_BUSY, std::errc::device_or_resource_busy},
        {LIBUSB_ERROR_TIMEOUT, std::errc::timed_out},
        {LIBUSB_ERROR_OVERFLOW, std::errc::value_too_large},
        {LIBUSB_ERROR_PIPE, std::errc::broken_pipe},
        {LIBUSB_ERROR_INTERRUPTED, std::errc::interrupted},
        {LIBUSB_ERROR_NO_MEM, std::errc::not_enough_memory},
        {LIBUSB_ERROR_NOT_SUPPORTED, std::errc::not_supported},
    };
    for (const auto& [value, condition] : table) {
        const auto code = error::MakeLibusbError(value);
        EXPECT_EQ(code, condition) << value;
        EXPECT_NE(code,
                  std::errc::io_error == condition ? std::errc::timed_out : std::errc::io_error)
            << value;
        EXPECT_STREQ(code.category().name(), "libusb");
        EXPECT_EQ(code.message(), libusb_strerror(value));
    }
    EXPECT_NE(error::MakeLibusbError(LIBUSB_ERROR_OTHER), std::errc::io_error);
    EXPECT_FALSE(error::MakeLibusbError(0));
    EXPECT_FALSE(error::MakeLibusbError(42));  // a byte count is success
    // A code never equals a code of another category, whatever its value.
    EXPECT_NE(error::MakeLibusbError(LIBUSB_ERROR_IO),
              std::error_code(-1, std::generic_category()));
}

TEST(UsbError, TransferStatesHaveTheirMessagesAndConditions) {
    EXPECT_FALSE(error::MakeTransferError(LIBUSB_TRANSFER_COMPLETED));
    EXPECT_STREQ(error::TransferCategory().name(), "transfer");
    const struct {
        int status;
        const char* message;
        std::optional<std::errc> condition;
    } table[] = {
        {0, "completed", std::nullopt},
        {1, "failed", std::errc::io_error},
        {2, "timeout", std::errc::timed_out},
        {3, "cancelled", std::errc::operation_canceled},
        {4, "halt condition/unsupported request", std::errc::io_error},
        {5, "device was disconnected", std::errc::no_such_device},
        {6, "device sent more data than requested.", std::errc::value_too_large},
        {7, "unknown error", std::nullopt},
    };
    for (const auto& row : table) {
        const auto code = error::MakeTransferError(row.status);
        EXPECT_EQ(code.message(), row.message);
        if (row.condition) {
            EXPECT_EQ(code, *row.condition) << row.status;
        }
        EXPECT_NE(code, std::errc::broken_pipe) << row.status;
    }
    EXPECT_NE(error::MakeTransferError(7), std::errc::io_error);
}

TEST(UsbTimeout, SecondsBecomeWholeMillisecondsCappedAt32Bits) {
    ovex::testing::LogCapture log;
    EXPECT_EQ(device::ToLibusbTimeout(0.0), 0u);
    EXPECT_EQ(device::ToLibusbTimeout(1.2345), 1234u);
    EXPECT_EQ(device::ToLibusbTimeout(-3.0), 0u);
    EXPECT_TRUE(log.Lines().empty());
    EXPECT_EQ(device::ToLibusbTimeout(5e6), 0xFFFFFFFFu);
    EXPECT_EQ(
        log.StartingWith("Timeout 5000000000 is larger then maximum libusb timeout value").size(),
        1u);
}

TEST(UsbContextLog, LibusbLinesKeepTheBracketedFunctionAndMessage) {
    using device::impl::RewriteLibusbLine;
    EXPECT_EQ(RewriteLibusbLine("[ 0.000010] [00001234] libusb: warning [op_open] no device\n"),
              "[op_open] no device");
    EXPECT_EQ(RewriteLibusbLine("plain text line\n"), "plain text line");
    EXPECT_EQ(RewriteLibusbLine("libusb: no bracket\n"), "");
    EXPECT_EQ(RewriteLibusbLine("short\n"), "short");
    EXPECT_EQ(RewriteLibusbLine("\n"), "");
}

TEST(UsbDeviceInfo, BcdVersionHasTwoMinorDigits) {
    EXPECT_EQ(device::VersionText(0x0109), "1.09");
    EXPECT_EQ(device::VersionText(0x0102), "1.02");
    EXPECT_EQ(device::VersionText(0x0112), "1.12");
    EXPECT_EQ(device::VersionText(0x0200), "2.00");
    EXPECT_EQ(device::VersionText(0x9999), "99.99");
}

}  // namespace
}  // namespace ovex::usb
