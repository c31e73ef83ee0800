#pragma once

// Faults a test puts on the hardware, and the particles it lets reach the sensor; they outlive
// resets and a change of firmware.

#include <cstdint>
#include <map>
#include <optional>
#include <set>
#include <string>

#include "ovex/vboard/frame_readout.hpp"

namespace ovex::vboard {

struct HardwareFaults {
    // By monitor name: a monitor of each failed rail, and the word a broken monitor's read gets.
    std::set<std::string, std::less<>> failed_rails;
    std::map<std::string, std::uint32_t, std::less<>> broken_monitors;
    // Pixels of the board's chip, by the index the host gives them, whose configuration reads
    // back stuck at the bits mapped to (Timepix3: the packet's 6 bits; Timepix2: the host's
    // pixel byte).
    std::map<std::uint32_t, std::uint8_t> stuck_pixels;
    // The word every TPX_PRC_BYPASS is refused with, if it is.
    std::optional<std::uint32_t> refused_prc_bypass;
    HitModel beam;
};

}  // namespace ovex::vboard
