#pragma once

// What the Timepix3 sensor's pixels record of the particles that reach them, as random numbers:
// a small fast generator, the ToT spectrum of a monochromatic source, and the beam spot's
// profile. Frames and the data-driven stream draw from the same model, so that both modes of
// one board see the same beam.

#include <algorithm>
#include <array>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <numbers>

namespace ovex::vboard {

inline constexpr std::size_t kSensorSide = 256;
inline constexpr std::uint16_t kMaxToT = 1023;    // 10 bits
inline constexpr std::uint16_t kMaxIToT = 16383;  // 14 bits

// The address in a pixel's packets: pixel k (host order, row · 256 + column) answers at the
// address that the host turns back into k, as in the configuration read-back: 65535 − k with its
// bytes swapped.
inline std::uint32_t PixelAddress(std::uint32_t pixel) {
    const auto mirrored = static_cast<std::uint16_t>(65535 - pixel);
    return static_cast<std::uint16_t>(mirrored << 8 | mirrored >> 8);
}

// The ToT spectrum as a table of its quantiles, so that a ToT costs one random number: entry i
// is the ToT below which a share (i + 0.5) / kQuantiles of the hits stay. With its mean and
// variance, for the sum of many hits.
struct TotSpectrum {
    static constexpr std::size_t kQuantileBits = 12;
    static constexpr std::size_t kQuantiles = std::size_t{1} << kQuantileBits;
    std::array<std::uint16_t, kQuantiles> quantiles{};
    double mean = 0.0;
    double variance = 0.0;
};
const TotSpectrum& SourceSpectrum();

// The spot's density along one axis at each pixel's centre, per pixel.
std::array<double, kSensorSide> SpotProfile(double centre, double sigma);

// A small, fast generator (SplitMix64); the same seed gives the same numbers everywhere.
class SensorRandom {
public:
    explicit SensorRandom(std::uint64_t seed) : m_state(seed) {}
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
    // Exponentially distributed with mean `mean`.
    double Exponential(double mean) { return -std::log(Uniform()) * mean; }
    // Poisson-distributed with mean `mean`: by inversion while small, else its normal limit.
    std::uint64_t Poisson(double mean);
    std::uint16_t ToT() {
        return SourceSpectrum().quantiles[Next() >> (64 - TotSpectrum::kQuantileBits)];
    }
    // The summed ToT of `hits` hits, saturating at 14 bits.
    std::uint16_t ToTSum(std::uint64_t hits);

private:
    std::uint64_t m_state;
};

}  // namespace ovex::vboard
