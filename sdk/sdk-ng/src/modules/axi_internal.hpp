#pragma once

// Register access on the board's AXI-Lite bus for the legacy interface, which hands the result
// on as it is. The library doesn't export these functions.

#include <cstdint>

#include "ovexsdk.h"

namespace ovex::sdk {

// A refused call gives the interface's result (-22 for a null context or pointer, -19 without a
// device, -14 without an AXI-Lite module or on an exception). An access that was made gives 0 on
// success and otherwise the value of its error code plus 100, so that a bus response such as the
// slave error 2 reads as 102; as such numbers lie outside ovexsdk_err_code, the result is an int.
int ovexsdk_axi_read(ovexsdk_dev_ctx* ctx, std::uint32_t address, std::uint32_t* value);
int ovexsdk_axi_write(ovexsdk_dev_ctx* ctx, std::uint32_t address, std::uint32_t value);

}  // namespace ovex::sdk
