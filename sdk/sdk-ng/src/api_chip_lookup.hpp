#pragma once

// How the exported chip functions find the chip that a call names.

#include <cstdint>

#include "context.hpp"
#include "modules/timepix_chip.hpp"
#include "ovex/log/log.hpp"

namespace ovex::sdk {

// The chip functions and the threshold functions word the refusal of a chip id differently.
enum class ChipFamily { kChip, kThreshold };

// The chip of this index among the device's chips, or null after logging the refusal.
inline ITimepixChip* FindChip(Context& context, std::uint8_t chip,
                              ChipFamily family = ChipFamily::kChip) {
    auto* module = context.Device()->GetModule<ITimepixChip>(chip);
    if (module == nullptr) {
        if (family == ChipFamily::kChip) {
            OVEX_LOG_ERROR("Value '%d' is not a valid Timepix chip ID.", chip);
        } else {
            OVEX_LOG_ERROR("Value '%d' is not a valid chip ID.", chip);
        }
    }
    return module;
}

}  // namespace ovex::sdk
