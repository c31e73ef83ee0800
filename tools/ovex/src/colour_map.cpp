#include "colour_map.hpp"

#include <algorithm>
#include <cmath>

namespace ovex::cli {
namespace {

struct ControlPoint {
    double t;
    Rgb colour;
};

// Each step brighter than the one before it.
constexpr ControlPoint kControlPoints[] = {
    {0.00, {0, 0, 0}},      {0.25, {60, 15, 110}},   {0.50, {165, 40, 125}},
    {0.75, {245, 120, 60}}, {1.00, {252, 240, 150}},
};

std::uint8_t Mix(std::uint8_t from, std::uint8_t to, double share) {
    return static_cast<std::uint8_t>(std::lround(from + (to - from) * share));
}

}  // namespace

Rgb ColourAt(double t) {
    t = std::clamp(t, 0.0, 1.0);
    const auto* upper = std::find_if(std::begin(kControlPoints) + 1, std::end(kControlPoints) - 1,
                                     [t](const ControlPoint& point) { return t <= point.t; });
    const ControlPoint& lower = *(upper - 1);
    const double share = (t - lower.t) / (upper->t - lower.t);
    return {Mix(lower.colour[0], upper->colour[0], share),
            Mix(lower.colour[1], upper->colour[1], share),
            Mix(lower.colour[2], upper->colour[2], share)};
}

std::vector<std::uint8_t> ColourImage(std::span<const std::uint64_t> values) {
    const std::uint64_t largest =
        values.empty() ? 0 : *std::max_element(values.begin(), values.end());
    std::vector<std::uint8_t> rgb;
    rgb.reserve(values.size() * 3);
    for (const std::uint64_t value : values) {
        const Rgb colour =
            largest == 0
                ? Rgb{0, 0, 0}
                : ColourAt(std::sqrt(static_cast<double>(value) / static_cast<double>(largest)));
        rgb.insert(rgb.end(), colour.begin(), colour.end());
    }
    return rgb;
}

}  // namespace ovex::cli
