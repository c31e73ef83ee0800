#include "modules/tpx3_thld_ctrl.hpp"

#include <cmath>
#include <optional>
#include <variant>
#include <vector>

#include "modules/chip_support.hpp"
#include "ovex/config_loader/config_loader.hpp"
#include "ovex/log/log.hpp"
#include "sdk_dev_item_sets.hpp"

namespace ovex::sdk {
namespace {

constexpr std::uint8_t kCoarseId = 7;
constexpr std::uint8_t kFineId = 6;
constexpr const char* kCoarseName = "THLCoarse";
constexpr const char* kFineName = "THLFine";

std::error_code MissingDac(const char* which) {
    OVEX_LOG_ERROR("DAC required for threshold configuration is unavailable (%s).", which);
    return std::make_error_code(std::errc::bad_address);
}

// A raw threshold as a whole DAC code, truncated.
std::uint32_t CutToCode(float value) {
    return static_cast<std::uint32_t>(TruncateToInt(value));
}

}  // namespace

Tpx3ThresholdCtlr::Tpx3ThresholdCtlr(ITimepixDacs& dacs, const configuration::ConfigLoader* config,
                                     std::string_view chip_id)
    : m_dacs(&dacs) {
    if (config == nullptr) {
        return;
    }
    if (const auto a = ChipDouble(*config, chip_id, "ThresholdCalibCoeffA")) {
        m_a = *a;
    } else {
        OVEX_LOG_WARN(
            "Threshold calibration coefficient A not available, using default value of %f.", m_a);
    }
    if (const auto b = ChipDouble(*config, chip_id, "ThresholdCalibCoeffB")) {
        m_b = *b;
    } else {
        OVEX_LOG_WARN(
            "Threshold calibration coefficient B not available, using default value of %f.", m_b);
    }
    if (const auto min = ChipDouble(*config, chip_id, "MinThreshold")) {
        m_min_threshold = *min;
    } else {
        OVEX_LOG_WARN(
            "Threshold configuration value 'MinThreshold' is missing, using default value of %f.",
            m_min_threshold);
    }
}

std::error_code Tpx3ThresholdCtlr::GetThresholdInfo(ThresholdInfo& info) {
    const auto list = m_dacs->GetDacList();
    const auto coarse = FindDac(list, kCoarseId);
    if (!coarse) {
        return MissingDac("ThlCoarse");
    }
    const auto fine = FindDac(list, kFineId);
    if (!fine) {
        return MissingDac("ThlFine");
    }
    FillThresholdInfo(info, *coarse, *fine, m_step, m_a, m_b, m_min_threshold);
    return {};
}

std::error_code Tpx3ThresholdCtlr::ReadDacs(std::uint32_t& coarse, std::uint32_t& fine) {
    if (const auto ec = m_dacs->GetDac(kCoarseId, coarse)) {
        OVEX_LOG_EC(log::kError, "Failed to read value of DAC %s - %s: %s.", ec, kCoarseName);
        return ec;
    }
    if (const auto ec = m_dacs->GetDac(kFineId, fine)) {
        OVEX_LOG_EC(log::kError, "Failed to read value of DAC %s - %s: %s.", ec, kFineName);
        return ec;
    }
    return {};
}

std::error_code Tpx3ThresholdCtlr::GetRawThreshold(std::uint32_t& raw) {
    std::uint32_t coarse = 0;
    std::uint32_t fine = 0;
    if (const auto ec = ReadDacs(coarse, fine)) {
        return ec;
    }
    raw = coarse * m_step + fine;
    return {};
}

std::error_code Tpx3ThresholdCtlr::GetThreshold(float& kev) {
    std::uint32_t coarse = 0;
    std::uint32_t fine = 0;
    if (const auto ec = ReadDacs(coarse, fine)) {
        return ec;
    }
    const auto raw = static_cast<float>(static_cast<std::int32_t>(coarse * m_step + fine));
    kev = static_cast<float>((static_cast<double>(raw) - m_b) / m_a);
    return {};
}

std::error_code Tpx3ThresholdCtlr::SetThreshold(float kev) {
    ThresholdInfo info{};
    if (const auto ec = GetThresholdInfo(info)) {
        OVEX_LOG_EC(log::kError, "Failed to get threshold info: - %s: %s.", ec);
        return ec;
    }
    if (const auto ec = CheckEnergyThreshold(kev, info)) {
        return ec;
    }
    // The narrowing to float decides which code an energy at a boundary gets.
    return WriteRaw(static_cast<float>(static_cast<double>(kev) * m_a + m_b));
}

std::error_code Tpx3ThresholdCtlr::SetRawThreshold(std::uint32_t raw) {
    ThresholdInfo info{};
    if (const auto ec = GetThresholdInfo(info)) {
        OVEX_LOG_EC(log::kError, "Failed to get threshold info: - %s: %s.", ec);
        return ec;
    }
    if (const auto ec = CheckRawThreshold(raw, info)) {
        return ec;
    }
    return WriteRaw(static_cast<float>(raw));
}

std::error_code Tpx3ThresholdCtlr::WriteRaw(float raw) {
    const auto fine_dac = FindDac(m_dacs->GetDacList(), kFineId);
    if (!fine_dac) {
        const auto ec = MissingDac("ThlFine");
        OVEX_LOG_EC(log::kError, "Failed to convert threshold to raw values - %s: %s.", ec);
        return ec;
    }
    const auto fine_max = static_cast<float>(fine_dac->max);
    const auto step = static_cast<float>(m_step);
    std::uint32_t coarse = 0;
    std::uint32_t fine = CutToCode(raw);
    if (raw > fine_max) {
        // The fewest coarse steps that bring the fine part within its DAC.
        const float k = std::ceil((raw - fine_max) * (1.0f / step));
        fine = CutToCode(raw - k * step);
        coarse = CutToCode(k);
    }
    if (const auto ec = m_dacs->SetDac(kCoarseId, coarse)) {
        OVEX_LOG_EC(log::kError,
                    "Failed to configure threshold, unable to configure DAC '%s' - %s: %s.", ec,
                    kCoarseName);
        return ec;
    }
    if (const auto ec = m_dacs->SetDac(kFineId, fine)) {
        OVEX_LOG_EC(log::kError,
                    "Failed to configure threshold, unable to configure DAC '%s' - %s: %s.", ec,
                    kFineName);
        return ec;
    }
    return {};
}

}  // namespace ovex::sdk
