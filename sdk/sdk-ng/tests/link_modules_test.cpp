// The modules every board gets from its USB device alone: the link, the USB properties and the
// AXI-Lite bus, against a virtual board through the real libusb.

#include <gtest/gtest.h>

#include "board_fixture.hpp"
#include "modules/axi_lite.hpp"
#include "modules/usb_device_props.hpp"
#include "modules/usb_link.hpp"
#include "ovex/usb/usb_device.hpp"

namespace ovex::sdk {
namespace {

class LinkModulesTest : public usb::vendor_cmd::testing::BoardFixture {
protected:
    void SetUp() override {
        BoardFixture::SetUp();
        OpenBoard();
    }

    std::size_t RequestCount() { return Firmware().RequestLog().size(); }
};

TEST_F(LinkModulesTest, OpenOnAnOpenLinkIsRefusedAndLeavesItOpen) {
    UsbLink link(SharedDevice());
    EXPECT_EQ(link.Open(), std::errc::device_or_resource_busy);
    bool open = false;
    ASSERT_FALSE(link.IsOpen(open));
    EXPECT_TRUE(open);
    EXPECT_TRUE(Device().IsOpen());
}

TEST_F(LinkModulesTest, ClosedLinkAnswersWithoutTouchingTheBusAndOpensAgain) {
    UsbLink link(SharedDevice());
    ASSERT_FALSE(link.Close());
    const auto before = RequestCount();
    bool open = true;
    ASSERT_FALSE(link.IsOpen(open));
    EXPECT_FALSE(open);
    EXPECT_EQ(RequestCount(), before);

    ASSERT_FALSE(link.Open());
    ASSERT_FALSE(link.IsOpen(open));
    EXPECT_TRUE(open);
    EXPECT_GT(RequestCount(), before);  // the open link asked the board
}

TEST_F(LinkModulesTest, UnpluggedBoardCountsAsClosedWithoutAnError) {
    UsbLink link(SharedDevice());
    Board().Usb().Unplug();
    bool open = true;
    EXPECT_FALSE(link.IsOpen(open));
    EXPECT_FALSE(open);
}

TEST_F(LinkModulesTest, PropertiesAreReadFromAnOpenDeviceOnly) {
    UsbDeviceProperties properties(SharedDevice());
    usb::device::DeviceInfo info;
    ASSERT_FALSE(properties.ReadInfo(info));
    EXPECT_EQ(info.product, "OvexBoard Timepix3");
    EXPECT_EQ(info.version, "3.03");

    ASSERT_FALSE(Device().Close());
    usb::device::DeviceInfo closed;
    EXPECT_EQ(properties.ReadInfo(closed), std::errc::io_error);
    EXPECT_TRUE(closed.product.empty());
}

TEST_F(LinkModulesTest, AxiLiteWritesAndReadsBackARegister) {
    AxiLite axi(SharedDevice());
    constexpr std::uint32_t kAddress = 0x40000004;  // the scratch register
    ASSERT_FALSE(axi.Write(kAddress, 0xA5A50F0F));
    std::uint32_t value = 0;
    ASSERT_FALSE(axi.Read(kAddress, value));
    EXPECT_EQ(value, 0xA5A50F0Fu);
}

TEST_F(LinkModulesTest, AxiLiteReadOutsideTheMapKeepsTheValueAndNamesTheError) {
    AxiLite axi(SharedDevice());
    std::uint32_t value = 7;
    const auto ec = axi.Read(0x10, value);
    EXPECT_TRUE(ec);
    EXPECT_STREQ(ec.category().name(), "axi");
    EXPECT_EQ(value, 7u);
}

}  // namespace
}  // namespace ovex::sdk
