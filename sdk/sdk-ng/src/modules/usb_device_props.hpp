#pragma once

#include <system_error>

#include "modules/device_module.hpp"
#include "ovex/usb/device_info.hpp"

namespace ovex::sdk {

// Reads the device's USB identity. Every board has one; it is looked up by its own type.
class UsbDeviceProperties : public DeviceModule {
public:
    const char* GetName() const override { return "Device properties"; }
    virtual std::error_code ReadInfo(usb::device::DeviceInfo& info) = 0;
};

}  // namespace ovex::sdk
