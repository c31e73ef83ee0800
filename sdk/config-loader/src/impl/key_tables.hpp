#pragma once

// Pieces that the key tables of several generations share.

#include <algorithm>
#include <array>

#include "impl/base_loader.hpp"

namespace ovex::configuration::impl {

inline constexpr ValueType kInt = ValueType::kInteger;
inline constexpr ValueType kDbl = ValueType::kDouble;
inline constexpr ValueType kBool = ValueType::kBoolean;
inline constexpr ValueType kText = ValueType::kString;
inline constexpr ValueType kBytes = ValueType::kBytes;

// The DACs of a Timepix2 chip, by the same names in its YAML and XML files.
inline constexpr auto kTpx2DacKeys = std::to_array<KeyEntry>({
    {"PreampOn", kInt},   {"PreamOff", kInt},  {"LSOn", kInt},      {"LSOff", kInt},
    {"CascPreamp", kInt}, {"FBK", kInt},       {"Threshold", kInt}, {"THLCoarse", kInt},
    {"THLFine", kInt},    {"Ikrum", kInt},     {"DiscPMOS", kInt},  {"DiscNMOS", kInt},
    {"Disc", kInt},       {"THS", kInt},       {"GND", kInt},       {"TpCoarse", kInt},
    {"TpFine", kInt},     {"BiasSLSVS", kInt}, {"VcmSLVS", kInt},   {"BiasRes", kInt},
});

// The tables one after the other, as one table.
template <std::size_t... N>
constexpr auto JoinKeys(const std::array<KeyEntry, N>&... parts) {
    std::array<KeyEntry, (N + ...)> joined{};
    auto out = joined.begin();
    ((out = std::copy(parts.begin(), parts.end(), out)), ...);
    return joined;
}

}  // namespace ovex::configuration::impl
