#pragma once

// What the chip functions of the older interface share.

#include <cstdint>

#include "legacy/legacy_core.hpp"

namespace ovex::sdk::legacy {

// Describes the chips into the handle's chip infos and gives how many were filled. A board
// without chip gives OVEX_ERR_HANDLE.
std::int32_t ReadChipInfos(LegacyContext* ctx, std::uint8_t& count);

}  // namespace ovex::sdk::legacy
