#pragma once

#include <cstdint>
#include <string_view>
#include <system_error>

#include "modules/threshold_control.hpp"
#include "modules/timepix_dacs.hpp"

namespace ovex::configuration {
class ConfigLoader;
}

namespace ovex::sdk {

// The global threshold of a Timepix3 chip: raw = THLCoarse * 160 + THLFine, and raw = A * keV + B.
class Tpx3ThresholdCtlr final : public IThresholdControl {
public:
    // A, B and MinThreshold come from the configuration's values for the chip, each that is
    // missing (with a warning) or without a configuration from the defaults 1, 0 and 0.
    Tpx3ThresholdCtlr(ITimepixDacs& dacs, const configuration::ConfigLoader* config,
                      std::string_view chip_id);

    const char* GetName() const override { return "Timepix3 threshold controller"; }
    std::error_code GetThresholdInfo(ThresholdInfo& info) override;
    std::error_code GetThreshold(float& kev) override;
    std::error_code SetThreshold(float kev) override;
    std::error_code GetRawThreshold(std::uint32_t& raw) override;
    std::error_code SetRawThreshold(std::uint32_t raw) override;

    static constexpr std::uint32_t kCoarseStep = 160;

private:
    // Reads the coarse and the fine DAC.
    std::error_code ReadDacs(std::uint32_t& coarse, std::uint32_t& fine);
    // Splits a raw threshold into the two DACs and writes them, coarse first.
    std::error_code WriteRaw(float raw);

    double m_a = 1.0;
    double m_b = 0.0;
    double m_min_threshold = 0.0;
    std::uint32_t m_step = kCoarseStep;
    ITimepixDacs* m_dacs;
};

}  // namespace ovex::sdk
