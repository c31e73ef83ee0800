#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <string_view>
#include <system_error>

#include "ovex/log/log.hpp"
#include "sdk_device.hpp"

namespace ovex::sdk {

// One power unit of a board: its name and the name of its power script in the library.
struct PowerUnitRecipe {
    const char* name;
    std::string_view script;
};

// One monitor of a board's table: the firmware's name and its value type (1 integer, 2 float).
struct MonitorRow {
    const char* name;
    std::uint8_t type;
};

// What the legacy interface calls a monitor.
struct LegacyMonitorName {
    const char* monitor;
    const char* legacy;
};

// A temperature controller: the state that sets it, the monitor that measures it (null: none)
// and its unit (1 degrees Celsius, 2 percent).
struct TemperatureRecipe {
    const char* state;
    const char* monitor;
    std::uint8_t unit;
};

// A board's housekeeping, in static tables of the board class: its monitors, its temperature
// controllers and its bias supply.
struct HousekeepingRecipe {
    std::span<const MonitorRow> monitors;
    std::span<const LegacyMonitorName> legacy_names;
    std::span<const TemperatureRecipe> temperatures;
    const char* bias_state;
    const char* bias_monitor;
};

// How a board family words its open and close: the verbosity of the item count, the line of a
// power unit that can't be made (one "%s", the reason), and the warning of a close that finds no
// monitor control.
struct BoardWording {
    int items_loaded;
    const char* power_module_failure;
    const char* monitors_missing;
};

inline constexpr BoardWording kBoardWording{log::kInfo, "Failed to initialize power module - %s",
                                            "Async monitors unavailable, skipping attempt to stop "
                                            "them."};

// What every board has, whatever its chip board: the USB link, its USB properties and the
// AXI-Lite bus from the start; once the board is open its item sets, its monitor control,
// temperature and bias controllers, and two power units, the backend's first. The board classes
// name the units, their scripts and the housekeeping tables.
class OvexBoard : public SdkDevice {
public:
    // Throws std::invalid_argument for a null device.
    OvexBoard(std::shared_ptr<usb::device::UsbDevice> usb_device, usb::device::DeviceInfo info,
              PowerUnitRecipe backend, PowerUnitRecipe frontend, HousekeepingRecipe housekeeping,
              BoardWording wording = kBoardWording);

    std::error_code LoadItems(LuaState& lua) override;
    // Stops a readout still running, then the monitor stream.
    std::error_code Epilogue() override;

protected:
    // What the board adds once a unit's script has powered it up: the modules that exist only
    // behind that unit. Called at every power-up of the unit; a unit that the open finds on
    // already gets it then. A failure fails the power-up.
    virtual std::error_code BackendPoweredUp() { return {}; }
    virtual std::error_code FrontendPoweredUp() { return {}; }

    // Starts the monitor stream unless it runs; a failure is logged and doesn't stop the caller.
    void StartMonitors();
    // The chip type that the board reports behind its frontend in its chip information record;
    // nothing, logged, if the record can't be read or came short.
    std::optional<std::uint8_t> ReadChipType();

    // The modules that every board has from its construction on.
    static constexpr std::size_t kConstructorModules = 5;

private:
    std::error_code AddHousekeeping();

    PowerUnitRecipe m_units[2];
    HousekeepingRecipe m_housekeeping;
    BoardWording m_wording;
};

}  // namespace ovex::sdk
