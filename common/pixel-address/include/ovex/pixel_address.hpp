// The pixel that a Timepix3 pixel address, as the chip sends it, stands for. The chip numbers its
// pixels as its configuration read-back does: the address with its two bytes swapped counts down
// from the last pixel of the host's 256 x 256 matrix, whose pixel k is column k % 256, row k / 256.
#pragma once

#include <cstdint>

namespace ovex::pixel {

inline constexpr std::uint32_t kTpx3Side = 256;

struct Pixel {
    std::uint16_t x;
    std::uint16_t y;
};

constexpr std::uint32_t PixelIndexOf(std::uint32_t address) {
    const std::uint32_t swapped = ((address & 0xFFu) << 8) | ((address >> 8) & 0xFFu);
    return (kTpx3Side * kTpx3Side - 1) - swapped;
}

constexpr Pixel PixelOf(std::uint32_t address) {
    // The index counted down is the address's complement: its high byte the column, its low byte
    // the row.
    const std::uint32_t down = ~address;
    return {static_cast<std::uint16_t>((down >> 8) & 0xFFu),
            static_cast<std::uint16_t>(down & 0xFFu)};
}

}  // namespace ovex::pixel
