#pragma once

#include <memory>
#include <system_error>

#include "modules/device_module.hpp"

namespace ovex::usb::device {
class UsbDevice;
}

namespace ovex::sdk {

// The connection of a board over USB. The connection state is the USB device's own.
class UsbLink final : public IDeviceConnection {
public:
    explicit UsbLink(std::shared_ptr<usb::device::UsbDevice> device)
        : m_device(std::move(device)) {}

    const char* GetName() const override { return "USB link"; }
    // A second open is refused with device_or_resource_busy and changes nothing.
    std::error_code Open() override;
    std::error_code Close() override;
    // Asks the bus, not only the handle: a board that has left the bus counts as closed.
    std::error_code IsOpen(bool& is_open) override;

private:
    std::shared_ptr<usb::device::UsbDevice> m_device;
};

}  // namespace ovex::sdk
