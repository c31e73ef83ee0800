#pragma once

#include <memory>
#include <string_view>
#include <system_error>

#include "sdk_device.hpp"

namespace ovex::sdk {

// One power unit of a board: its name and the name of its power script in the library.
struct PowerUnitRecipe {
    const char* name;
    std::string_view script;
};

// What every board has, whatever its chip board: the USB link, its USB properties and the
// AXI-Lite bus from the start; item sets and two power units, the backend's first, once the
// board is open. The board classes name the units and their scripts.
class OvexBoard : public SdkDevice {
public:
    // Throws std::invalid_argument for a null device.
    OvexBoard(std::shared_ptr<usb::device::UsbDevice> usb_device, usb::device::DeviceInfo info,
              PowerUnitRecipe backend, PowerUnitRecipe frontend);

    std::error_code LoadItems(LuaState& lua) override;
    std::error_code Epilogue() override;

protected:
    // What the board adds once a unit's script has powered it up: the modules that exist only
    // behind that unit. Called at every power-up of the unit; a unit that the open finds on
    // already gets it then. A failure fails the power-up.
    virtual std::error_code BackendPoweredUp() { return {}; }
    virtual std::error_code FrontendPoweredUp() { return {}; }

private:
    PowerUnitRecipe m_units[2];
};

}  // namespace ovex::sdk
