#pragma once

// One virtual board, opened through the real libusb, and what the board saw of the host.

#include <memory>
#include <optional>
#include <thread>
#include <vector>

#include "ovex/usb/usb_context.hpp"
#include "ovex/usb/usb_device.hpp"
#include "virtual_board_test.hpp"

namespace ovex::usb::vendor_cmd::testing {

class BoardFixture : public vboard::VirtualBoardTest {
protected:
    void TearDown() override {
        m_device.reset();
        m_context.reset();
        VirtualBoardTest::TearDown();
    }

    device::UsbDevice& OpenBoard(vboard::VirtualBoard::Settings settings = {}) {
        AddBoard(std::move(settings));
        m_context.emplace();
        auto devices = m_context->EnumerateDevices(0x1209, 0xAD0E);
        m_device = std::make_shared<device::UsbDevice>(std::move(devices.at(0)));
        EXPECT_FALSE(m_device->Open());
        Forget();
        return *m_device;
    }

    vboard::FirmwareModel& Firmware() { return Board().Firmware(); }

    // The vendor requests the board received since the last call.
    std::vector<vboard::SetupPacket> NewRequests() {
        const auto log = Firmware().RequestLog();
        std::vector<vboard::SetupPacket> vendor;
        for (std::size_t i = m_seen; i < log.size(); ++i) {
            if (log[i].IsVendor()) {
                vendor.push_back(log[i]);
            }
        }
        m_seen = log.size();
        return vendor;
    }
    void Forget() { NewRequests(); }

    // Returns once the board has received a request with this bRequest since the last call.
    void AwaitRequest(std::uint8_t bRequest) {
        for (;;) {
            const auto log = Firmware().RequestLog();
            for (std::size_t i = m_seen; i < log.size(); ++i) {
                if (log[i].IsVendor() && log[i].bRequest == bRequest) {
                    return;
                }
            }
            std::this_thread::yield();
        }
    }

    device::UsbDevice& Device() { return *m_device; }
    // The same device for owners that share it, as the SDK's modules do.
    const std::shared_ptr<device::UsbDevice>& SharedDevice() { return m_device; }

private:
    std::optional<device::UsbContext> m_context;
    std::shared_ptr<device::UsbDevice> m_device;
    std::size_t m_seen = 0;
};

}  // namespace ovex::usb::vendor_cmd::testing
