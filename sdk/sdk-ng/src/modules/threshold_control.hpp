#pragma once

#include <cstdint>
#include <system_error>

#include "modules/device_module.hpp"

namespace ovex::sdk {

// The range of a chip's global threshold, in keV and as the raw number made from the coarse and
// fine threshold DACs.
struct ThresholdInfo {
    float energy_low;
    float energy_high;
    float min_threshold;
    std::uint32_t raw_min;
    std::uint32_t raw_max;
    bool calibrated;
};

// A chip's global threshold in keV, through a linear calibration raw = A * keV + B, or raw. The
// DACs are the only store: a controller keeps no threshold.
class IThresholdControl : public DeviceModule {
public:
    using DeviceModule::DeviceModule;
    virtual std::error_code GetThresholdInfo(ThresholdInfo& info) = 0;
    virtual std::error_code GetThreshold(float& kev) = 0;
    virtual std::error_code SetThreshold(float kev) = 0;
    virtual std::error_code GetRawThreshold(std::uint32_t& raw) = 0;
    virtual std::error_code SetRawThreshold(std::uint32_t raw) = 0;
};

}  // namespace ovex::sdk
