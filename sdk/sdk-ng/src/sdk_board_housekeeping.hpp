#pragma once

// The housekeeping tables of the board classes: monitors with their types and legacy names, the
// temperature controllers and the bias supply of each board.

#include "sdk_ovexboard.hpp"

namespace ovex::sdk {

HousekeepingRecipe Tpx3Housekeeping();
HousekeepingRecipe Tpx2CbHousekeeping();
HousekeepingRecipe Tpx4CbHousekeeping();
HousekeepingRecipe NobeHousekeeping();

}  // namespace ovex::sdk
