#include "frame_exposure.hpp"

#include <algorithm>
#include <array>
#include <cmath>
#include <numbers>
#include <random>

namespace ovex::vboard {
namespace {

constexpr std::size_t kSide = 256;
constexpr std::uint16_t kMaxToT = 1023;    // 10 bits
constexpr std::uint16_t kMaxCount = 1023;  // 10 bits
constexpr std::uint16_t kMaxIToT = 16383;  // 14 bits
constexpr std::uint64_t kFineSteps = 16;   // fine ToA: sixteenths of a ToA tick

// The ToT spectrum of a monochromatic source, in ToA ticks: a photopeak, and below it a flat
// continuum of the hits that left only part of their energy in the pixel.
constexpr double kPeakShare = 0.7;
constexpr double kPeakToT = 120.0;
constexpr double kPeakWidth = 10.0;
constexpr double kContinuumLow = 10.0;
constexpr double kContinuumHigh = 110.0;
// The spectrum's mean and variance, for the sum of many hits.
constexpr double kContinuumMean = (kContinuumLow + kContinuumHigh) / 2;
constexpr double kContinuumVariance =
    (kContinuumHigh - kContinuumLow) * (kContinuumHigh - kContinuumLow) / 12;
constexpr double kSpectrumMean = kPeakShare * kPeakToT + (1 - kPeakShare) * kContinuumMean;
constexpr double kSpectrumVariance =
    kPeakShare * (kPeakToT * kPeakToT + kPeakWidth * kPeakWidth) +
    (1 - kPeakShare) * (kContinuumMean * kContinuumMean + kContinuumVariance) -
    kSpectrumMean * kSpectrumMean;
// Above these the sums are drawn from their normal limit rather than hit by hit.
constexpr double kPoissonNormalFrom = 30.0;
constexpr std::uint64_t kSumNormalFrom = 32;

class Random {
public:
    explicit Random(std::uint64_t seed) : m_engine(seed) {}
    // Uniform in (0, 1].
    double Uniform() { return static_cast<double>((m_engine() >> 11) + 1) * 0x1.0p-53; }
    double Gauss() {
        return std::sqrt(-2.0 * std::log(Uniform())) * std::cos(2.0 * std::numbers::pi * Uniform());
    }
    // Poisson-distributed with mean `mean`: by inversion while small, else its normal limit.
    std::uint64_t Poisson(double mean) {
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
    std::uint16_t ToT() {
        double tot = 0.0;
        if (Uniform() <= kPeakShare) {
            tot = kPeakToT + kPeakWidth * Gauss();
        } else {
            tot = kContinuumLow + (kContinuumHigh - kContinuumLow) * Uniform();
        }
        return static_cast<std::uint16_t>(std::clamp(std::round(tot), 1.0, double{kMaxToT}));
    }
    // The summed ToT of `hits` hits, saturating at 14 bits.
    std::uint16_t ToTSum(std::uint64_t hits) {
        double sum = 0.0;
        if (hits >= kSumNormalFrom) {
            const auto n = static_cast<double>(hits);
            sum = n * kSpectrumMean + std::sqrt(n * kSpectrumVariance) * Gauss();
        } else {
            for (std::uint64_t i = 0; i < hits; ++i) {
                sum += ToT();
            }
        }
        return static_cast<std::uint16_t>(std::clamp(std::round(sum), 0.0, double{kMaxIToT}));
    }

private:
    std::mt19937_64 m_engine;
};

// The spot's density along one axis at each pixel's centre, per pixel.
std::array<double, kSide> Profile(double centre, double sigma) {
    std::array<double, kSide> profile{};
    const double norm = 1.0 / (std::sqrt(2.0 * std::numbers::pi) * sigma);
    for (std::size_t i = 0; i < kSide; ++i) {
        const double d = (static_cast<double>(i) - centre) / sigma;
        profile[i] = norm * std::exp(-0.5 * d * d);
    }
    return profile;
}

}  // namespace

std::vector<FrameHit> Expose(const HitModel& model, std::span<const std::uint8_t> masked,
                             const Exposure& exposure) {
    if (exposure.ticks == 0) {
        return {};  // a shutter that never was open saw nothing
    }
    Random random(model.seed * 0x9E3779B97F4A7C15ULL + exposure.index);
    const double seconds = static_cast<double>(exposure.ticks) / kTicksPerSecond;
    const bool spot = model.spot_rate > 0.0 && model.spot_sigma > 0.0;
    const auto columns = Profile(model.spot_x, spot ? model.spot_sigma : 1.0);
    const auto rows = Profile(model.spot_y, spot ? model.spot_sigma : 1.0);
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
                hit.count = static_cast<std::uint16_t>(std::min<std::uint64_t>(n, kMaxCount));
                hit.itot = random.ToTSum(n);
            } else {
                // The first of n arrivals spread evenly over the exposure.
                const double first =
                    span * (1.0 - std::pow(random.Uniform(), 1.0 / static_cast<double>(n)));
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
