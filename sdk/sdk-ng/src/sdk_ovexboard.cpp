#include "sdk_ovexboard.hpp"

#include <stdexcept>

#include "modules/axi_lite.hpp"
#include "modules/power_module.hpp"
#include "modules/usb_device_props.hpp"
#include "modules/usb_link.hpp"
#include "ovex/log/log.hpp"
#include "ovex/lua_scripts/scripts.hpp"
#include "sdk_dev_item_sets.hpp"

namespace ovex::sdk {

namespace {

std::shared_ptr<usb::device::UsbDevice> Required(std::shared_ptr<usb::device::UsbDevice> device) {
    if (!device) {
        throw std::invalid_argument("BUG: USB device must not be nullptr");
    }
    return device;
}

}  // namespace

OvexBoard::OvexBoard(std::shared_ptr<usb::device::UsbDevice> usb_device,
                     usb::device::DeviceInfo info, PowerUnitRecipe backend,
                     PowerUnitRecipe frontend)
    : SdkDevice(Required(std::move(usb_device)), std::move(info)), m_units{backend, frontend} {
    AddModule<IDeviceConnection>(std::make_unique<UsbLink>(m_usb_device));
    AddModule<UsbDeviceProperties>(std::make_unique<UsbDeviceProperties>(m_usb_device));
    AddModule<IAxiLite>(std::make_unique<AxiLite>(m_usb_device));
}

std::error_code OvexBoard::LoadItems(LuaState& lua) {
    try {
        m_commands = std::make_unique<UsbCommands>(*m_usb_device);
        m_states = std::make_unique<UsbStates>(*m_usb_device);
        m_monitors = std::make_unique<UsbMonitors>(*m_usb_device);
        m_versions = std::make_unique<UsbVersions>(*m_usb_device);
    } catch (const std::exception& e) {
        OVEX_LOG_ERROR("Failed to load device item sets: %s.", e.what());
        return std::make_error_code(std::errc::io_error);
    }
    OVEX_LOG_INFO("Device items loaded: %zu commands, %zu states, %zu monitors, %zu versions.",
                  m_commands->Names().size(), m_states->Names().size(), m_monitors->Names().size(),
                  m_versions->Names().size());

    try {
        const PowerModule::PostPowerUp callbacks[] = {[this] { return BackendPoweredUp(); },
                                                      [this] { return FrontendPoweredUp(); }};
        for (std::size_t index = 0; index < std::size(m_units); ++index) {
            const auto& unit = m_units[index];
            const auto text = lua_scripts::Find(unit.script);
            OVEX_CHECK(text.has_value(), "BUG: Power script '%.*s' is not in the library.",
                       static_cast<int>(unit.script.size()), unit.script.data());
            AddModule<IPowerControl>(std::make_unique<PowerModule>(unit.script, *text, lua,
                                                                   unit.name, callbacks[index],
                                                                   GetModule<IDeviceConnection>()));
        }
    } catch (const std::exception& e) {
        OVEX_LOG_ERROR("Failed to initialize power module - %s", e.what());
        return std::make_error_code(std::errc::no_such_device);
    }
    return {};
}

// The asynchronous monitors are built on the item sets: without them the items never loaded, and
// the close that follows fails, keeping the device.
std::error_code OvexBoard::Epilogue() {
    if (!m_commands || !m_states || !m_monitors || !m_versions) {
        OVEX_LOG_WARN("Async monitors unavailable, skipping attempt to stop them.");
        return std::make_error_code(std::errc::invalid_argument);
    }
    return {};
}

}  // namespace ovex::sdk
