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

// The global threshold of a Timepix2 chip: raw = (THLCoarse - 7) * step + THLFine + 1050, with
// the coarse DAC at 2, 7, 12 or 15 only, and raw = A * keV + B.
class Tpx2ThresholdCtlr final : public IThresholdControl {
public:
    // A, B, MinThreshold (or else MinEnergyThreshold) and the coarse step come from the
    // configuration's values for the chip, each that is missing (with a warning) or without a
    // configuration from the defaults 1, 0, 0 and 163.
    Tpx2ThresholdCtlr(ITimepixDacs& dacs, const configuration::ConfigLoader* config,
                      std::string_view chip_id);
    // A controller is replaced whole when a configuration is loaded; it holds no items.
    Tpx2ThresholdCtlr(Tpx2ThresholdCtlr&& other) noexcept;
    Tpx2ThresholdCtlr& operator=(Tpx2ThresholdCtlr&& other) noexcept;

    const char* GetName() const override { return "Timepix2 threshold controller"; }
    std::error_code GetThresholdInfo(ThresholdInfo& info) override;
    std::error_code GetThreshold(float& kev) override;
    std::error_code SetThreshold(float kev) override;
    std::error_code GetRawThreshold(std::uint32_t& raw) override;
    std::error_code SetRawThreshold(std::uint32_t raw) override;

    static constexpr std::uint32_t kDefaultCoarseStep = 163;

private:
    double m_a = 1.0;
    double m_b = 0.0;
    double m_min_threshold = 0.0;
    std::uint32_t m_step = kDefaultCoarseStep;
    ITimepixDacs* m_dacs;
};

}  // namespace ovex::sdk
