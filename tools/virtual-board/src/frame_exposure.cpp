#include "frame_exposure.hpp"

#include <algorithm>
#include <cmath>

#include "sensor_model.hpp"

namespace ovex::vboard {
namespace {

constexpr std::size_t kSide = kSensorSide;
constexpr std::uint64_t kFineSteps = 16;  // fine ToA: sixteenths of a ToA tick

}  // namespace

std::vector<FrameHit> Expose(const HitModel& model, std::span<const std::uint8_t> masked,
                             const Exposure& exposure) {
    if (exposure.ticks == 0) {
        return {};  // a shutter that never was open saw nothing
    }
    SensorRandom random(model.seed * 0xD1B54A32D192ED03ULL + exposure.index);
    const double seconds = static_cast<double>(exposure.ticks) / kTicksPerSecond;
    const bool spot = model.spot_rate > 0.0 && model.spot_sigma > 0.0;
    const auto columns = SpotProfile(model.spot_x, spot ? model.spot_sigma : 1.0);
    const auto rows = SpotProfile(model.spot_y, spot ? model.spot_sigma : 1.0);
    const double background = std::max(model.background_rate, 0.0) * seconds;
    const double span = static_cast<double>(exposure.ticks * kFineSteps);

    std::vector<FrameHit> hits;
    if (model.flood) {
        hits.reserve(kSide * kSide);
    }
    for (std::size_t y = 0; y < kSide; ++y) {
        const double row = spot ? model.spot_rate * seconds * rows[y] : 0.0;
        for (std::size_t x = 0; x < kSide; ++x) {
            const std::size_t pixel = y * kSide + x;
            if (masked[pixel] != 0) {
                continue;
            }
            const std::uint64_t n = model.flood ? 1 : random.Poisson(background + row * columns[x]);
            if (n == 0) {
                continue;
            }
            FrameHit hit;
            hit.pixel = static_cast<std::uint32_t>(pixel);
            if (exposure.count_mode) {
                hit.count =
                    static_cast<std::uint16_t>(std::min<std::uint64_t>(n, exposure.max_count));
                hit.itot = random.ToTSum(n);
            } else {
                // The first of n arrivals spread evenly over the exposure.
                const double u = random.Uniform();
                const double first =
                    span * (1.0 - (n == 1 ? u : std::pow(u, 1.0 / static_cast<double>(n))));
                const auto offset =
                    std::min(static_cast<std::uint64_t>(first), exposure.ticks * kFineSteps - 1);
                hit.toa = exposure.open_toa * kFineSteps + offset;
                hit.tot = random.ToT();
            }
            hits.push_back(hit);
        }
    }
    return hits;
}

}  // namespace ovex::vboard
