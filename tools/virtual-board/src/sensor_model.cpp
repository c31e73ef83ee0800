#include "sensor_model.hpp"

namespace ovex::vboard {
namespace {

// A photopeak, and below it a flat continuum of the hits that left only part of their energy
// in the pixel; in ToA ticks.
constexpr double kPeakShare = 0.7;
constexpr double kPeakToT = 120.0;
constexpr double kPeakWidth = 10.0;
constexpr double kContinuumLow = 10.0;
constexpr double kContinuumHigh = 110.0;
// Above these the sums are drawn from their normal limit rather than hit by hit.
constexpr double kPoissonNormalFrom = 30.0;
constexpr std::uint64_t kSumNormalFrom = 32;

}  // namespace

const TotSpectrum& SourceSpectrum() {
    static const TotSpectrum spectrum = [] {
        const auto share_below = [](double tot) {
            const double peak = 0.5 * std::erfc(-(tot - kPeakToT) / (kPeakWidth * std::sqrt(2.0)));
            const double continuum =
                std::clamp((tot - kContinuumLow) / (kContinuumHigh - kContinuumLow), 0.0, 1.0);
            return kPeakShare * peak + (1 - kPeakShare) * continuum;
        };
        TotSpectrum table;
        std::uint16_t tot = 1;
        double sum = 0.0;
        double squares = 0.0;
        for (std::size_t i = 0; i < TotSpectrum::kQuantiles; ++i) {
            const double share = (static_cast<double>(i) + 0.5) / TotSpectrum::kQuantiles;
            while (tot < kMaxToT && share_below(tot + 0.5) < share) {
                ++tot;
            }
            table.quantiles[i] = tot;
            sum += tot;
            squares += static_cast<double>(tot) * tot;
        }
        table.mean = sum / TotSpectrum::kQuantiles;
        table.variance = squares / TotSpectrum::kQuantiles - table.mean * table.mean;
        return table;
    }();
    return spectrum;
}

std::array<double, kSensorSide> SpotProfile(double centre, double sigma) {
    std::array<double, kSensorSide> profile{};
    const double norm = 1.0 / (std::sqrt(2.0 * std::numbers::pi) * sigma);
    for (std::size_t i = 0; i < kSensorSide; ++i) {
        const double d = (static_cast<double>(i) - centre) / sigma;
        profile[i] = norm * std::exp(-0.5 * d * d);
    }
    return profile;
}

std::uint64_t SensorRandom::Poisson(double mean) {
    if (mean <= 0.0) {
        return 0;
    }
    if (mean >= kPoissonNormalFrom) {
        return static_cast<std::uint64_t>(
            std::max(0.0, std::round(mean + std::sqrt(mean) * Gauss())));
    }
    double probability = std::exp(-mean);
    double cumulative = probability;
    const double u = Uniform();
    std::uint64_t k = 0;
    while (u > cumulative && probability > 0.0) {
        ++k;
        probability *= mean / static_cast<double>(k);
        cumulative += probability;
    }
    return k;
}

std::uint16_t SensorRandom::ToTSum(std::uint64_t hits) {
    double sum = 0.0;
    if (hits >= kSumNormalFrom) {
        const TotSpectrum& spectrum = SourceSpectrum();
        const auto n = static_cast<double>(hits);
        sum = n * spectrum.mean + std::sqrt(n * spectrum.variance) * Gauss();
    } else {
        for (std::uint64_t i = 0; i < hits; ++i) {
            sum += ToT();
        }
    }
    return static_cast<std::uint16_t>(std::clamp(std::round(sum), 0.0, double{kMaxIToT}));
}

}  // namespace ovex::vboard
