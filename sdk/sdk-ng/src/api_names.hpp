#pragma once

// The names of the exported enumerations' values, as log lines show them.

#include <cstdint>
#include <iterator>

#include "ovexsdk.h"

namespace ovex::sdk {

inline const char* ChipModeName(ovexsdk_chip_mode mode) noexcept {
    static constexpr const char* kNames[] = {"Unknown",      "EvCount8Bit", "EvCount10Bit",
                                             "EvCount14Bit", "IToT10Bit",   "IToT14Bit",
                                             "ToAToTDD",     "ToAToTFBZS",  "IToTEvCountFBZS"};
    const auto index = static_cast<std::uint32_t>(mode);
    return index < std::size(kNames) ? kNames[index] : "Unknown";
}

// Null for a value outside the enumeration.
inline const char* ProcessModeName(std::uint32_t mode) noexcept {
    static constexpr const char* kNames[] = {nullptr,        "DefaultProcessing",
                                             "SortByToa",    "BinEvcountImage",
                                             "BinItotImage", "BinCompletely"};
    return mode < std::size(kNames) ? kNames[mode] : nullptr;
}

inline const char* TriggerModeName(std::uint32_t mode) noexcept {
    static constexpr const char* kNames[] = {"Invalid",
                                             "InternalStartShutterDuration",
                                             "InternalStartContinuous",
                                             "ExternalStartShutterDuration",
                                             "ExternalStartExternalStopLevel",
                                             "ExternalStartExternalStopEdge"};
    return mode < std::size(kNames) ? kNames[mode] : "Invalid";
}

}  // namespace ovex::sdk
