#pragma once

// The board's requests as scripts see them: the table Usb.VendorCmd with the free functions
// (axi_*, i2c_transfer_*, gpio_*), the item collections Commands, States, Monitors and Versions,
// SpiBus, Cypress and Nobe, and their value types. Needs the `Std` table and the `Usb` table of
// the USB device bindings in the state.

#include <system_error>

struct lua_State;

namespace ovex::usb::vendor_cmd {

// Sets Usb.VendorCmd. The types are registered once per state: a second call fails.
std::error_code AddLuaBindings(lua_State* L);

}  // namespace ovex::usb::vendor_cmd
