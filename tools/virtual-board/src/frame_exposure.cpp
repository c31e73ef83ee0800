#include "frame_exposure.hpp"

#include <algorithm>
#include <array>
#include <cmath>
#include <numbers>

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
// Above these the sums are drawn from their normal limit rather than hit by hit.
constexpr double kPoissonNormalFrom = 30.0;
constexpr std::uint64_t kSumNormalFrom = 32;

// The spectrum as a table of its quantiles, so that a ToT costs one random number: entry i is
// the ToT below which a share (i + 0.5) / kQuantiles of the hits stay. With its mean and
// variance, for the sum of many hits.
constexpr std::size_t kQuantileBits = 12;
constexpr std::size_t kQuantiles = std::size_t{1} << kQuantileBits;
struct Spectrum {
    std::array<std::uint16_t, kQuantiles> quantiles{};
    double mean = 0.0;
    double variance = 0.0;
};

const Spectrum& TotSpectrum() {
    static const Spectrum spectrum = [] {
        const auto share_below = [](double tot) {
            const double peak = 0.5 * std::erfc(-(tot - kPeakToT) / (kPeakWidth * std::sqrt(2.0)));
            const double continuum =
                std::clamp((tot - kContinuumLow) / (kContinuumHigh - kContinuumLow), 0.0, 1.0);
            return kPeakShare * peak + (1 - kPeakShare) * continuum;
        };
        Spectrum table;
        std::uint16_t tot = 1;
        double sum = 0.0;
        double squares = 0.0;
        for (std::size_t i = 0; i < kQuantiles; ++i) {
            const double share = (static_cast<double>(i) + 0.5) / kQuantiles;
            while (tot < kMaxToT && share_below(tot + 0.5) < share) {
                ++tot;
            }
            table.quantiles[i] = tot;
            sum += tot;
            squares += static_cast<double>(tot) * tot;
        }
        table.mean = sum / kQuantiles;
        table.variance = squares / kQuantiles - table.mean * table.mean;
        return table;
    }();
    return spectrum;
}

// A small, fast generator (SplitMix64); the same seed gives the same numbers everywhere.
class Random {
public:
    explicit Random(std::uint64_t seed) : m_state(seed) {}
    std::uint64_t Next() {
        std::uint64_t z = (m_state += 0x9E3779B97F4A7C15ULL);
        z = (z ^ (z >> 30)) * 0xBF58476D1CE4E5B9ULL;
        z = (z ^ (z >> 27)) * 0x94D049BB133111EBULL;
        return z ^ (z >> 31);
    }
    // Uniform in (0, 1].
    double Uniform() { return static_cast<double>((Next() >> 11) + 1) * 0x1.0p-53; }
    // Standard normal (Box-Muller).
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
    std::uint16_t ToT() { return TotSpectrum().quantiles[Next() >> (64 - kQuantileBits)]; }
    // The summed ToT of `hits` hits, saturating at 14 bits.
    std::uint16_t ToTSum(std::uint64_t hits) {
        double sum = 0.0;
        if (hits >= kSumNormalFrom) {
            const Spectrum& spectrum = TotSpectrum();
            const auto n = static_cast<double>(hits);
            sum = n * spectrum.mean + std::sqrt(n * spectrum.variance) * Gauss();
        } else {
            for (std::uint64_t i = 0; i < hits; ++i) {
                sum += ToT();
            }
        }
        return static_cast<std::uint16_t>(std::clamp(std::round(sum), 0.0, double{kMaxIToT}));
    }

private:
    std::uint64_t m_state;
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
    Random random(model.seed * 0xD1B54A32D192ED03ULL + exposure.index);
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
