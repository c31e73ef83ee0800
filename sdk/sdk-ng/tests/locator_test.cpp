#include <gtest/gtest.h>

#include <string>

#include "support/log_capture.hpp"
#include "usb_locator.hpp"

namespace ovex::sdk::testing {
namespace {

TEST(UsbLocator, AcceptsIndexAndSerialForms) {
    struct Case {
        const char* text;
        UsbLocator::Kind kind;
        const char* value;
    };
    for (const Case& c : {Case{"usb:ix:0", UsbLocator::Kind::Index, "0"},
                          Case{"usb:ix:99", UsbLocator::Kind::Index, "99"},
                          Case{"usb:ix:", UsbLocator::Kind::Index, ""},
                          Case{"usb:sn:AB12CD34", UsbLocator::Kind::SerialNumber, "AB12CD34"},
                          Case{"usb:sn:usb:ix:0", UsbLocator::Kind::SerialNumber, "usb:ix:0"}}) {
        const auto parsed = ParseUsbLocator(c.text);
        ASSERT_TRUE(parsed) << c.text;
        EXPECT_EQ(parsed->Text(), c.text);
        EXPECT_EQ(parsed->GetKind(), c.kind) << c.text;
        EXPECT_EQ(parsed->Value(), c.value) << c.text;
    }
}

TEST(UsbLocator, RefusesEverythingElseWithItsText) {
    for (const char* text : {"", "usb:ix", "usb:ix:100", "usb:ix:1a", "usb:ix:-1", "usb:sn:1234567",
                             "usb:sn:123456789", "USB:IX:0", "usb:xx:1", " usb:ix:0"}) {
        LogCapture log;
        EXPECT_FALSE(ParseUsbLocator(text)) << text;
        EXPECT_TRUE(log.Contains(ovex::log::kError, std::string("Locator string parsing failed - "
                                                                "string '") +
                                                        text + "' is not a valid USB locator."))
            << text;
    }
}

TEST(UsbLocator, CopiesKeepTheirOwnValueView) {
    std::optional<UsbLocator> copy;
    {
        auto parsed = ParseUsbLocator("usb:sn:XYZ98765");
        ASSERT_TRUE(parsed);
        copy = *parsed;
    }
    EXPECT_EQ(copy->Value(), "XYZ98765");
    UsbLocator assigned = *ParseUsbLocator("usb:ix:5");
    assigned = *copy;
    EXPECT_EQ(assigned.Value(), "XYZ98765");
}

}  // namespace
}  // namespace ovex::sdk::testing
