#pragma once

#include <memory>
#include <system_error>

#include "modules/device_module.hpp"
#include "ovex/usb/device_info.hpp"

namespace ovex::usb::device {
class UsbDevice;
}

namespace ovex::sdk {

// Reads the device's USB identity. Every board has one; it is looked up by its own type.
class UsbDeviceProperties : public DeviceModule {
public:
    explicit UsbDeviceProperties(std::shared_ptr<usb::device::UsbDevice> device)
        : m_device(std::move(device)) {}

    const char* GetName() const override { return "Device properties"; }
    // Only an open device answers: the identity of a closed one may belong to another board by
    // now.
    virtual std::error_code ReadInfo(usb::device::DeviceInfo& info);

private:
    std::shared_ptr<usb::device::UsbDevice> m_device;
};

}  // namespace ovex::sdk
