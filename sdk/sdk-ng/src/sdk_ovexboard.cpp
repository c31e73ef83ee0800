#include "sdk_ovexboard.hpp"

#include <optional>
#include <stdexcept>
#include <string>

#include "modules/acquisition.hpp"
#include "modules/axi_lite.hpp"
#include "modules/bias_ctrl.hpp"
#include "modules/chip_support.hpp"
#include "modules/eeprom_24CS512.hpp"
#include "modules/mon_ctrl.hpp"
#include "modules/power_module.hpp"
#include "modules/temp_control.hpp"
#include "modules/usb_device_props.hpp"
#include "modules/usb_link.hpp"
#include "ovex/log/log.hpp"
#include "ovex/lua_scripts/scripts.hpp"
#include "sdk_dev_item_sets.hpp"

namespace ovex::sdk {

namespace {

// The interrupt endpoint on which a board pushes its monitor values.
constexpr std::uint8_t kMonitorEndpoint = 0x82;

// The I2C bus addresses of the board's EEPROM and of its security area.
constexpr std::uint8_t kEepromAddress = 80;
constexpr std::uint8_t kSecureEepromAddress = 88;

std::shared_ptr<usb::device::UsbDevice> Required(std::shared_ptr<usb::device::UsbDevice> device) {
    if (!device) {
        throw std::invalid_argument("BUG: USB device must not be nullptr");
    }
    return device;
}

}  // namespace

OvexBoard::OvexBoard(std::shared_ptr<usb::device::UsbDevice> usb_device,
                     usb::device::DeviceInfo info, PowerUnitRecipe backend,
                     PowerUnitRecipe frontend, HousekeepingRecipe housekeeping,
                     BoardWording wording)
    : SdkDevice(Required(std::move(usb_device)), std::move(info)),
      m_units{backend, frontend},
      m_housekeeping(housekeeping),
      m_wording(wording) {
    AddModule<IDeviceConnection>(std::make_unique<UsbLink>(m_usb_device));
    AddModule<UsbDeviceProperties>(std::make_unique<UsbDeviceProperties>(m_usb_device));
    AddModule<IAxiLite>(std::make_unique<AxiLite>(m_usb_device));
    AddModule<IEepromControl>(
        std::make_unique<Eeprom24CS512>(m_usb_device, kEepromAddress, "i2c0-eeprom"));
    AddModule<IEepromControl>(std::make_unique<Eeprom24CS512Secure>(
        m_usb_device, kSecureEepromAddress, "i2c0-eeprom-security"));
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
    OVEX_LOG(m_wording.items_loaded,
             "Device items loaded: %zu commands, %zu states, %zu monitors, %zu versions.",
             m_commands->Names().size(), m_states->Names().size(), m_monitors->Names().size(),
             m_versions->Names().size());

    if (const auto ec = AddHousekeeping()) {
        return ec;
    }
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
        OVEX_LOG_ERROR(m_wording.power_module_failure, e.what());
        return std::make_error_code(std::errc::no_such_device);
    }
    return {};
}

// The monitor control, the temperature controllers in the board's order, and the bias supply.
std::error_code OvexBoard::AddHousekeeping() {
    mon_metadata metadata;
    for (const auto& row : m_housekeeping.monitors) {
        metadata.regular_ids_to_types.emplace(row.name, row.type);
    }
    for (const auto& name : m_housekeeping.legacy_names) {
        metadata.regular_ids_to_legacy_ids.emplace(name.monitor, name.legacy);
        metadata.legacy_ids_to_regular_ids.emplace(name.legacy, name.monitor);
    }
    try {
        AddModule<IMonitorControl>(std::make_unique<MonitorControl>(
            m_usb_device, kMonitorEndpoint, m_monitors.get(), std::move(metadata)));
    } catch (const std::invalid_argument& e) {
        OVEX_LOG_ERROR("Failed to create the monitor control: %s.", e.what());
        return std::make_error_code(std::errc::no_such_device);
    }
    for (const auto& temperature : m_housekeeping.temperatures) {
        std::optional<std::string> monitor;
        if (temperature.monitor != nullptr) {
            monitor = temperature.monitor;
        }
        AddModule<TemperatureControl>(std::make_unique<TemperatureControl>(
            m_states.get(), m_monitors.get(),
            std::make_unique<DefaultTempElement>(temperature.state, std::move(monitor),
                                                 temperature.unit)));
    }
    AddModule<IBiasControl>(std::make_unique<BiasCtrl>(
        m_states.get(), m_monitors.get(), m_housekeeping.bias_state, m_housekeeping.bias_monitor));
    return {};
}

void OvexBoard::StartMonitors() {
    std::error_code ec;
    if (auto* monitors = GetModule<IMonitorControl>(); monitors == nullptr) {
        OVEX_LOG_WARN(
            "Async monitors not available, skipping asynchronous monitors initialization.");
        ec = std::make_error_code(std::errc::invalid_argument);
    } else if (!monitors->IsRunning()) {
        ec = monitors->Start();
        if (ec) {
            OVEX_LOG_EC(ovex::log::kError,
                        "Failed to start asynchronous monitor processing: - %s: %s.", ec);
        }
    }
    if (ec) {
        OVEX_LOG_EC(ovex::log::kError, "Failed to start asynchronous monitors: - %s: %s.", ec);
    }
}

std::optional<std::uint8_t> OvexBoard::ReadChipType() {
    std::optional<ChipRecord> record;
    if (!m_commands || !m_states || FetchChipRecord(*m_commands, record) || !record) {
        OVEX_LOG_ERROR("Failed to build a device after power up. Cannot fetch a chip info.");
        return std::nullopt;
    }
    return record->chip_type;
}

std::error_code OvexBoard::Epilogue() {
    // A readout still running ends before the board goes: its transfers stop in order, and its
    // Consumer hands on what had arrived.
    for (auto* readout : GetModules<acquisition::IAcquisition>()) {
        if (readout->IsRunning()) {
            OVEX_LOG_WARN("Stopping %s before the device closes.", readout->GetName());
            readout->Abort(acquisition::IAcquisition::kAbortFromInside);
        }
    }
    auto* monitors = GetModule<IMonitorControl>();
    if (monitors == nullptr) {
        OVEX_LOG_WARN("%s", m_wording.monitors_missing);
        return std::make_error_code(std::errc::invalid_argument);
    }
    if (monitors->IsRunning()) {
        if (const auto ec = monitors->Stop()) {
            OVEX_LOG_EC(ovex::log::kError,
                        "Failed to stop asynchronous monitor processing: - %s: %s.", ec);
            return ec;
        }
    }
    return {};
}

}  // namespace ovex::sdk
