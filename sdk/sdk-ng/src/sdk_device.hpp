#pragma once

#include <memory>
#include <system_error>

#include "impl/item_set.hpp"
#include "impl/modular.hpp"
#include "modules/device_module.hpp"
#include "ovex/usb/device_info.hpp"

namespace ovex::usb::device {
class UsbDevice;
}

namespace ovex::sdk {

class LuaState;

// What the modules of a device point to: its USB device and item sets. A base that stands in
// front of the modules' holder, so that it is destroyed after every module.
struct DeviceResources {
    DeviceResources(std::shared_ptr<usb::device::UsbDevice> usb_device,
                    usb::device::DeviceInfo info)
        : m_usb_device(std::move(usb_device)), m_info(std::move(info)) {}

    // Declared in reverse order of release: the item sets go before the USB device.
    std::shared_ptr<usb::device::UsbDevice> m_usb_device;
    usb::device::DeviceInfo m_info;
    std::unique_ptr<Commands> m_commands;
    std::unique_ptr<Monitors> m_monitors;
    std::unique_ptr<Versions> m_versions;
    std::unique_ptr<States> m_states;
};

// One board: a recipe of modules over the board's USB device and item sets.
class SdkDevice : protected DeviceResources, public impl::Modular<DeviceModule> {
public:
    SdkDevice(std::shared_ptr<usb::device::UsbDevice> usb_device, usb::device::DeviceInfo info)
        : DeviceResources(std::move(usb_device), std::move(info)) {}

    // Builds the item sets and the modules that depend on them.
    virtual std::error_code LoadItems(LuaState& lua) = 0;
    virtual Versions* GetVersions() { return m_versions.get(); }
    // What the device does once its items are loaded, with the connection open.
    virtual std::error_code Prologue() { return {}; }
    // What the device stops before the connection ends.
    virtual std::error_code Epilogue() = 0;

    const usb::device::DeviceInfo& Info() const noexcept { return m_info; }
};

}  // namespace ovex::sdk
