// Configuring a chip: reset, the board's pipeline, the default matrix and its digital test, then
// the DACs, pixel matrix and threshold calibration of a configuration file, or a host's matrix.

#include <algorithm>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <variant>
#include <vector>

#include "api_chip_lookup.hpp"
#include "api_internal.hpp"
#include "api_utils.hpp"
#include "context.hpp"
#include "modules/backend.hpp"
#include "modules/timepix_chip.hpp"
#include "ovex/config_loader/config_loader.hpp"
#include "ovex/log/log.hpp"
#include "ovexsdk.h"

namespace ovex::sdk {

namespace {

using configuration::ConfigLoader;

// Sets the backend's pipeline up for the bit depth at which the chip takes its configuration.
std::error_code SetUpPipeline(SdkDevice& device, ITimepixChip& chip) {
    auto* backend = device.GetModule<IBackend>();
    if (backend == nullptr) {
        OVEX_LOG_ERROR("Device doesn't have backend");
        return std::make_error_code(std::errc::not_supported);
    }
    auto* pipeline = backend->GetPipeline();
    if (pipeline == nullptr) {
        OVEX_LOG_DEBUG("No pipeline configuration is necessary.");
        return {};
    }
    const auto info = chip.GetInfo();
    if (!info) {
        OVEX_LOG_ERROR("Unable to determine required chip configuration bit depth.");
        return std::make_error_code(std::errc::operation_not_supported);
    }
    switch (info->config_depth_class) {
        case 0:
            return pipeline->SetBitDepth(0);
        case 1:
            OVEX_LOG_ERROR("BUG: Backend '%s' should not require pipeline configuration.",
                           backend->GetName());
            return {};
        default:
            OVEX_LOG_ERROR("BUG: Chip configuration bit depth '%d' is unhandled.",
                           info->config_depth_class);
            return {};
    }
}

// Writes every DAC that the configuration names. A DAC the file lacks is skipped; the first DAC
// that the board refuses ends the walk, and its error is the answer.
std::error_code ApplyDacs(ITimepixChip& chip, const ConfigLoader& config,
                          const std::string& chip_id) {
    auto& dacs = chip.GetDacs();
    for (const auto& dac : dacs.GetDacList()) {
        const auto* value = std::get_if<std::int32_t>(config.GetChipValue(chip_id, dac.name));
        if (value == nullptr) {
            OVEX_LOG_WARN("Configuration value for DAC %s is missing, it will not be configured.",
                          dac.name);
            continue;
        }
        if (const auto ec = dacs.SetDac(dac.id, static_cast<std::uint32_t>(*value))) {
            OVEX_LOG_EC(ovex::log::kError, "Failed to configure DAC %s - %s: %s", ec, dac.name);
            return ec;
        }
        OVEX_LOG_DEBUG("DAC '%s' of chip %s set to %d.", dac.name, chip_id.c_str(), *value);
    }
    return {};
}

bool CreateThresholdControl(ITimepixChip& chip, const ConfigLoader* config) {
    if (const auto ec = chip.CreateThresholdControl(config)) {
        OVEX_LOG_EC(ovex::log::kError, "Failed to create threshold instance - %s: %s", ec);
        return false;
    }
    return true;
}

// The chip's defaults, then what the configuration holds. A DAC that the board refuses doesn't
// stop the matrix and the calibration from being applied, but the call reports the failure.
ovexsdk_err_code ApplyConfiguration(SdkDevice& device, ITimepixChip& chip,
                                    const ConfigLoader* config) {
    if (const auto ec = SetUpPipeline(device, chip)) {
        OVEX_LOG_EC(ovex::log::kError, "Failed to configure the device - %s: %s", ec);
        return OVEXSDK_ERR_FAILED;
    }
    std::vector<std::uint32_t> bad_pixels;
    if (const auto ec = chip.DigitalTest(bad_pixels)) {
        OVEX_LOG_EC(ovex::log::kError, "Failed to write chip default configuration - %s: %s", ec);
        return OVEXSDK_ERR_FAILED;
    }
    const std::string chip_id = chip.GetChipId();
    if (config == nullptr) {
        OVEX_LOG_WARN("No configuration available for chip %s, defaults will be used.",
                      chip_id.c_str());
        return CreateThresholdControl(chip, nullptr) ? OVEXSDK_OK : OVEXSDK_ERR_FAILED;
    }
    const bool dacs_applied = !ApplyDacs(chip, *config, chip_id);
    static const std::vector<std::uint8_t> kNoMatrix;
    const auto* matrix =
        std::get_if<std::vector<std::uint8_t>>(config->GetChipValue(chip_id, "matrix"));
    if (const auto ec = chip.WriteMatrix(matrix != nullptr ? *matrix : kNoMatrix)) {
        OVEX_LOG_EC(ovex::log::kError, "Failed to write chip per-pixel configuration - %s: %s", ec);
        return OVEXSDK_ERR_FAILED;
    }
    OVEX_LOG_INFO("Chip %s configured with configuration data.", chip_id.c_str());
    if (!CreateThresholdControl(chip, config)) {
        return OVEXSDK_ERR_FAILED;
    }
    return dacs_applied ? OVEXSDK_OK : OVEXSDK_ERR_FAILED;
}

bool Reset(ITimepixChip& chip) {
    if (const auto ec = chip.Reset()) {
        OVEX_LOG_EC(ovex::log::kError, "Failed to reset the chip - %s: %s", ec);
        return false;
    }
    return true;
}

ovexsdk_err_code ChipConfigure(Context& context, std::uint8_t chip) {
    if (LogMissingDevice(context)) {
        return OVEXSDK_ERR_NO_DEVICE;
    }
    auto* module = FindChip(context, chip);
    if (module == nullptr) {
        return OVEXSDK_ERR_INVALID;
    }
    if (!Reset(*module)) {
        return OVEXSDK_ERR_FAILED;
    }
    const auto config = configuration::FindChipConfiguration(module->GetChipId());
    return ApplyConfiguration(*context.Device(), *module, config ? &*config : nullptr);
}

ovexsdk_err_code ChipConfigureFromString(Context& context, std::uint8_t chip,
                                         const char* contents) {
    if (LogMissingDevice(context)) {
        return OVEXSDK_ERR_NO_DEVICE;
    }
    if (LogInvalidPointer(contents, "contents")) {
        return OVEXSDK_ERR_INVALID;
    }
    auto* module = FindChip(context, chip);
    if (module == nullptr) {
        return OVEXSDK_ERR_INVALID;
    }
    if (!Reset(*module)) {
        return OVEXSDK_ERR_FAILED;
    }
    const ConfigLoader config(configuration::kFromText, contents);
    if (!config.IsValid()) {
        OVEX_LOG_ERROR("Provided configuration for chip %s is not valid.",
                       module->GetChipId().c_str());
        return OVEXSDK_ERR_INVALID;
    }
    return ApplyConfiguration(*context.Device(), *module, &config) == OVEXSDK_OK
               ? OVEXSDK_OK
               : OVEXSDK_ERR_FAILED;
}

ovexsdk_err_code ChipConfigureFromMatrix(Context& context, std::uint8_t chip,
                                         ovexsdk_chip_matrix* matrix,
                                         ovexsdk_chip_pix_indices* indices, std::uint64_t* count) {
    if (LogMissingDevice(context)) {
        return OVEXSDK_ERR_NO_DEVICE;
    }
    if (LogInvalidPointer(matrix, "matrix") || LogInvalidPointer(matrix->data, "matrix->data") ||
        LogInvalidPointer(indices, "indices") || LogInvalidPointer(count, "count")) {
        return OVEXSDK_ERR_INVALID;
    }
    auto* module = FindChip(context, chip);
    if (module == nullptr) {
        return OVEXSDK_ERR_INVALID;
    }
    if (!Reset(*module)) {
        return OVEXSDK_ERR_FAILED;
    }
    if (const auto ec = SetUpPipeline(*context.Device(), *module)) {
        OVEX_LOG_EC(ovex::log::kError, "Failed to configure the device - %s: %s", ec);
        return OVEXSDK_ERR_FAILED;
    }
    std::vector<std::uint32_t> bad_pixels;
    if (const auto ec = module->DigitalTest(bad_pixels)) {
        OVEX_LOG_EC(ovex::log::kError, "Failed to write chip default configuration - %s: %s", ec);
        return OVEXSDK_ERR_FAILED;
    }
    std::copy(bad_pixels.begin(), bad_pixels.end(), indices);
    *count = bad_pixels.size();
    if (const auto ec = module->WriteMatrix(std::span(matrix->data, matrix->size))) {
        OVEX_LOG_EC(ovex::log::kError, "Failed to write chip per-pixel configuration - %s: %s", ec);
        return OVEXSDK_ERR_FAILED;
    }
    OVEX_LOG_INFO("Chip %s configured with provided data.", module->GetChipId().c_str());
    return OVEXSDK_OK;
}

}  // namespace

ovexsdk_err_code ovexsdk_chip_configure_from_matrix(ovexsdk_dev_ctx* ctx, std::uint8_t chip,
                                                    ovexsdk_chip_matrix* matrix,
                                                    ovexsdk_chip_pix_indices indices[],
                                                    std::uint64_t* count) {
    return OVEXSDK_FRAME(&Exclusive<&ChipConfigureFromMatrix>::Call, ctx, chip, matrix, indices,
                         count);
}

}  // namespace ovex::sdk

using namespace ovex::sdk;

extern "C" {

OVEXSDK_API ovexsdk_err_code ovexsdk_chip_configure(ovexsdk_dev_ctx* ctx, uint8_t chip) {
    return OVEXSDK_FRAME(&Exclusive<&ChipConfigure>::Call, ctx, chip);
}

OVEXSDK_API ovexsdk_err_code ovexsdk_chip_configure_from_string(ovexsdk_dev_ctx* ctx, uint8_t chip,
                                                                const char* contents) {
    return OVEXSDK_FRAME(&Exclusive<&ChipConfigureFromString>::Call, ctx, chip, contents);
}

}  // extern "C"
