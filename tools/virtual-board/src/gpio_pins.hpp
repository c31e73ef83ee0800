#pragma once

// The board's general-purpose pins: a fixed set, each low or high, all low at power-on.

#include <array>
#include <cstdint>
#include <span>

#include "ovex/vboard/firmware_model.hpp"

namespace ovex::vboard {

class GpioPins {
public:
    static constexpr std::size_t kPinCount = 16;

    // Get: IN, 4 bytes, 1 for high. Set: OUT with no data, the level in wValue (non-zero: high).
    // The pin is in wIndex.
    ControlReply Handle(const SetupPacket& setup, std::span<const std::uint8_t> out);
    void PowerOn() { m_high.fill(false); }

private:
    std::array<bool, kPinCount> m_high{};
};

}  // namespace ovex::vboard
