// The colours of the tool's images: dark to bright through purple and orange to pale yellow, so
// that brightness alone orders the values, in colour or in grey.
#pragma once

#include <array>
#include <cstdint>
#include <span>
#include <vector>

namespace ovex::cli {

using Rgb = std::array<std::uint8_t, 3>;

// The colour at `t` in [0, 1] (clamped), between the map's control points.
Rgb ColourAt(double t);

// Each value as a colour on a square-root scale of the largest value: a value v shows as
// ColourAt(sqrt(v / largest)), 0 as black, so that the faint tails of a spot stay visible beside
// its centre. Three bytes a value, in the values' order.
std::vector<std::uint8_t> ColourImage(std::span<const std::uint64_t> values);

}  // namespace ovex::cli
