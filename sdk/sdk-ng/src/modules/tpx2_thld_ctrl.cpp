#include "modules/tpx2_thld_ctrl.hpp"

#include <cmath>
#include <optional>
#include <utility>
#include <variant>
#include <vector>

#include "modules/chip_support.hpp"
#include "ovex/config_loader/config_loader.hpp"
#include "ovex/log/log.hpp"

namespace ovex::sdk {
namespace {

constexpr std::uint8_t kCoarseId = 7;
constexpr std::uint8_t kFineId = 8;
// The coarse code at which the fine DAC alone sets the threshold, and the raw number there with
// the fine DAC at 0.
constexpr std::int64_t kCoarseCentre = 7;
constexpr std::int64_t kCentreBase = 1050;

void AnnounceDefault(const char* names) {
    OVEX_LOG_WARN("Threshold calibration value '%s' not available, using default value.", names);
}

// The coarse and fine codes of a raw threshold. The coarse DAC takes 2, 7, 12 or 15.
std::pair<std::uint32_t, std::uint32_t> SplitRaw(std::int64_t raw, std::int64_t step) {
    if (raw <= (210 - step) * 5) {
        return {2, 0};
    }
    if (raw <= kCentreBase) {
        return {2, static_cast<std::uint32_t>(raw + (step - 210) * 5)};
    }
    if (raw <= 2073) {
        return {7, static_cast<std::uint32_t>(raw - kCentreBase)};
    }
    if (raw <= step * 5 + 2073) {
        return {12, static_cast<std::uint32_t>(raw - (step * 5 + 2073) + 1023)};
    }
    if (raw > step * 8 + 2074) {
        return {15, 1023};
    }
    return {15, static_cast<std::uint32_t>(raw - (step * 8 + 2074) + 1023)};
}

}  // namespace

Tpx2ThresholdCtlr::Tpx2ThresholdCtlr(ITimepixDacs& dacs, const configuration::ConfigLoader* config,
                                     std::string_view chip_id)
    : m_dacs(&dacs) {
    if (config == nullptr) {
        return;
    }
    if (const auto a = ChipDouble(*config, chip_id, "ThresholdCalibCoeffA")) {
        m_a = *a;
    } else {
        AnnounceDefault("ThresholdCalibCoeffA");
    }
    if (const auto b = ChipDouble(*config, chip_id, "ThresholdCalibCoeffB")) {
        m_b = *b;
    } else {
        AnnounceDefault("ThresholdCalibCoeffB");
    }
    if (const auto min = ChipDouble(*config, chip_id, "MinThreshold")) {
        m_min_threshold = *min;
    } else if (const auto energy = ChipDouble(*config, chip_id, "MinEnergyThreshold")) {
        m_min_threshold = *energy;
    } else {
        AnnounceDefault("MinThreshold' or 'MinEnergyThreshold");
    }
    // The files keep integers signed; a step must be a positive number of fine codes.
    const auto* step =
        std::get_if<std::int32_t>(config->GetChipValue(chip_id, "ThresholdCoarseStep"));
    if (step != nullptr && *step > 0) {
        m_step = static_cast<std::uint32_t>(*step);
    } else {
        AnnounceDefault("ThresholdCoarseStep");
    }
}

Tpx2ThresholdCtlr::Tpx2ThresholdCtlr(Tpx2ThresholdCtlr&& other) noexcept
    : m_a(other.m_a),
      m_b(other.m_b),
      m_min_threshold(other.m_min_threshold),
      m_step(other.m_step),
      m_dacs(other.m_dacs) {}

Tpx2ThresholdCtlr& Tpx2ThresholdCtlr::operator=(Tpx2ThresholdCtlr&& other) noexcept {
    m_a = other.m_a;
    m_b = other.m_b;
    m_min_threshold = other.m_min_threshold;
    m_step = other.m_step;
    m_dacs = other.m_dacs;
    return *this;
}

std::error_code Tpx2ThresholdCtlr::GetThresholdInfo(ThresholdInfo& info) {
    const auto list = m_dacs->GetDacList();
    const auto coarse = FindDac(list, kCoarseId);
    const auto fine = FindDac(list, kFineId);
    if (!coarse || !fine) {
        OVEX_LOG_ERROR(
            "DAC required for threshold configuration is unavailable (VthCoarse/VthFine).");
        return std::make_error_code(std::errc::invalid_argument);
    }
    FillThresholdInfo(info, *coarse, *fine, m_step, m_a, m_b, m_min_threshold);
    return {};
}

std::error_code Tpx2ThresholdCtlr::GetRawThreshold(std::uint32_t& raw) {
    std::uint32_t coarse = 0;
    std::uint32_t fine = 0;
    if (const auto ec = m_dacs->GetDac(kCoarseId, coarse)) {
        OVEX_LOG_EC(log::kError, "%s - %s: %s.", ec, "Failed to read value of VthCoarse");
        return ec;
    }
    if (const auto ec = m_dacs->GetDac(kFineId, fine)) {
        OVEX_LOG_EC(log::kError, "%s - %s: %s.", ec, "Failed to read value of VthFine");
        return ec;
    }
    // Modulo 2^32, so that a coarse code below the centre comes out right.
    raw = (coarse - static_cast<std::uint32_t>(kCoarseCentre)) * m_step + fine +
          static_cast<std::uint32_t>(kCentreBase);
    return {};
}

std::error_code Tpx2ThresholdCtlr::GetThreshold(float& kev) {
    std::uint32_t raw = 0;
    if (const auto ec = GetRawThreshold(raw)) {
        return ec;
    }
    kev = static_cast<float>((static_cast<double>(raw) - m_b) / m_a);
    return {};
}

std::error_code Tpx2ThresholdCtlr::SetThreshold(float kev) {
    ThresholdInfo info{};
    if (const auto ec = GetThresholdInfo(info)) {
        OVEX_LOG_EC(log::kError, "%s - %s: %s.", ec, "Failed to obtain threshold info");
        return ec;
    }
    if (const auto ec = CheckEnergyThreshold(kev, info)) {
        return ec;
    }
    // Halves round away from zero.
    const long raw = std::lround(static_cast<double>(kev) * m_a + m_b);
    return SetRawThreshold(static_cast<std::uint32_t>(raw));
}

std::error_code Tpx2ThresholdCtlr::SetRawThreshold(std::uint32_t raw) {
    ThresholdInfo info{};
    if (const auto ec = GetThresholdInfo(info)) {
        OVEX_LOG_EC(log::kError, "%s - %s: %s.", ec, "Failed to obtain threshold info");
        return ec;
    }
    if (const auto ec = CheckRawThreshold(raw, info)) {
        return ec;
    }
    const auto [coarse, fine] =
        SplitRaw(static_cast<std::int32_t>(raw), static_cast<std::int64_t>(m_step));
    if (const auto ec = m_dacs->SetDac(kCoarseId, coarse)) {
        OVEX_LOG_EC(log::kError, "%s - %s: %s.", ec,
                    "Failed to configure threshold, unable to configure VthCoarse");
        return ec;
    }
    if (const auto ec = m_dacs->SetDac(kFineId, fine)) {
        OVEX_LOG_EC(log::kError, "%s - %s: %s.", ec,
                    "Failed to configure threshold, unable to configure VthFine");
        return ec;
    }
    return {};
}

}  // namespace ovex::sdk
