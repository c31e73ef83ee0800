#pragma once

// The USB transport as scripts see it: the global table `Usb` with UsbContext, UsbDevice,
// DeviceInfo and bare vendor requests (CommandId, wValue, wIndex, wLength, VendorCommand,
// EgressCommand, IngressCommand). A request's timeout must lie within the limits of
// lua/core/wait_limits.hpp, else it is refused without a request. Needs the `Std` table in the
// state: results are ErrorCodes and payloads ByteSpans.

#include <memory>
#include <system_error>

struct lua_State;

namespace ovex::usb::device {

class UsbDevice;

// The most USB contexts that the scripts of the whole process may hold at once. A script's
// context lives on in the devices enumerated through it; past the limit, Usb.UsbContext.new()
// gives an ErrorCode (resource_unavailable_try_again) in place of a context.
inline constexpr int kMaxScriptContexts = 32;

// Sets the global `Usb`. The types are registered once per state: a second call fails.
std::error_code AddLuaBindings(lua_State* L);

// Pushes a UsbDevice userdata that shares the ownership of `device`, or nil for an empty owner
// or a state without the `Usb` bindings (logged).
void PushSharedDevice(lua_State* L, std::shared_ptr<UsbDevice> device);

// What a binding answers for a device that isn't open (never opened, or closed by a script):
// not_connected and a log line, as the transport itself would stop the process.
std::error_code RequireOpen(UsbDevice& device);

}  // namespace ovex::usb::device
