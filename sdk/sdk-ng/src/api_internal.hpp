#pragma once

// Functions of the exported layer that the library uses itself but doesn't export.

#include "ovex/usb/device_info.hpp"
#include "ovexsdk.h"

namespace ovex::sdk {

// Replaces the context's locator if the text is valid; the device already built stays.
ovexsdk_err_code ovexsdk_ctx_replace_locator(ovexsdk_dev_ctx* ctx, const char* locator);

// Writes the address of the context's Lua interpreter state, which stays valid while the
// context lives.
ovexsdk_err_code ovexsdk_get_script_state(ovexsdk_dev_ctx* ctx, void** state);

// Fills an identity record from a device's USB texts.
void FillEnumInfo(const usb::device::DeviceInfo& info, ovexsdk_enum_info& record);

}  // namespace ovex::sdk
