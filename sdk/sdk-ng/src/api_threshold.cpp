// A chip's global threshold, in keV or raw, through the chip's threshold controller.

#include <algorithm>
#include <cstdint>

#include "api_chip_lookup.hpp"
#include "api_utils.hpp"
#include "context.hpp"
#include "modules/threshold_control.hpp"
#include "modules/timepix_chip.hpp"
#include "ovex/log/log.hpp"
#include "ovexsdk.h"

namespace ovex::sdk {

namespace {

// The threshold controller of the chip, or the refusal of the call.
ovexsdk_err_code FindControl(Context& context, std::uint8_t chip, IThresholdControl*& control) {
    if (LogMissingDevice(context)) {
        return OVEXSDK_ERR_NO_DEVICE;
    }
    auto* module = FindChip(context, chip, ChipFamily::kThreshold);
    if (module == nullptr) {
        return OVEXSDK_ERR_INVALID;
    }
    control = module->GetThresholdControl();
    return OVEXSDK_OK;
}

ovexsdk_err_code GetThreshold(Context& context, std::uint8_t chip, float* value) {
    if (LogInvalidPointer(value, "value")) {
        return OVEXSDK_ERR_INVALID;
    }
    IThresholdControl* control = nullptr;
    if (const auto result = FindControl(context, chip, control); result != OVEXSDK_OK) {
        return result;
    }
    if (const auto ec = control->GetThreshold(*value)) {
        OVEX_LOG_EC(ovex::log::kError, "Failed to get threshold value: - %s: %s.", ec);
        return OVEXSDK_ERR_FAILED;
    }
    return OVEXSDK_OK;
}

ovexsdk_err_code SetThreshold(Context& context, std::uint8_t chip, float value) {
    IThresholdControl* control = nullptr;
    if (const auto result = FindControl(context, chip, control); result != OVEXSDK_OK) {
        return result;
    }
    if (const auto ec = control->SetThreshold(value)) {
        OVEX_LOG_EC(ovex::log::kError, "Failed to set threshold value: - %s: %s.", ec);
        return OVEXSDK_ERR_FAILED;
    }
    return OVEXSDK_OK;
}

ovexsdk_err_code GetRawThreshold(Context& context, std::uint8_t chip, std::uint32_t* raw_value) {
    if (LogInvalidPointer(raw_value, "raw_value")) {
        return OVEXSDK_ERR_INVALID;
    }
    IThresholdControl* control = nullptr;
    if (const auto result = FindControl(context, chip, control); result != OVEXSDK_OK) {
        return result;
    }
    if (const auto ec = control->GetRawThreshold(*raw_value)) {
        OVEX_LOG_EC(ovex::log::kError, "Failed to get threshold raw value: - %s: %s.", ec);
        return OVEXSDK_ERR_FAILED;
    }
    return OVEXSDK_OK;
}

ovexsdk_err_code SetRawThreshold(Context& context, std::uint8_t chip, std::uint32_t raw_value) {
    IThresholdControl* control = nullptr;
    if (const auto result = FindControl(context, chip, control); result != OVEXSDK_OK) {
        return result;
    }
    if (const auto ec = control->SetRawThreshold(raw_value)) {
        OVEX_LOG_EC(ovex::log::kError, "Failed to set threshold raw value: - %s: %s.", ec);
        return OVEXSDK_ERR_FAILED;
    }
    return OVEXSDK_OK;
}

// One record per chip, by the array rule; a device without chips fills none.
ovexsdk_err_code GetThresholdInfo(Context& context, ovexsdk_chip_thld_info* thld_infos,
                                  std::uint8_t* chip_count) {
    if (LogMissingDevice(context)) {
        return OVEXSDK_ERR_NO_DEVICE;
    }
    if (LogInvalidPointer(thld_infos, "thld_infos") ||
        LogInvalidPointer(chip_count, "chip_count")) {
        return OVEXSDK_ERR_INVALID;
    }
    const auto chips = context.Device()->GetModules<ITimepixChip>();
    if (chips.size() > *chip_count) {
        OVEX_LOG_WARN(
            "Cannot fit all threshold information structs into the array: provided array of size "
            "%lu, got %lu elements",
            static_cast<unsigned long>(*chip_count), static_cast<unsigned long>(chips.size()));
    }
    const std::size_t filled = std::min<std::size_t>(*chip_count, chips.size());
    for (std::size_t index = 0; index < filled; ++index) {
        ThresholdInfo info{};
        if (const auto ec = chips[index]->GetThresholdControl()->GetThresholdInfo(info)) {
            OVEX_LOG_EC(ovex::log::kError, "Failed to get threshold info: - %s: %s.", ec);
            return OVEXSDK_ERR_FAILED;
        }
        thld_infos[index] = {info.energy_low, info.energy_high, info.min_threshold,
                             info.raw_min,    info.raw_max,     info.calibrated ? 1u : 0u};
    }
    *chip_count = static_cast<std::uint8_t>(filled);
    return OVEXSDK_OK;
}

}  // namespace

}  // namespace ovex::sdk

using namespace ovex::sdk;

extern "C" {

OVEXSDK_API ovexsdk_err_code ovexsdk_chip_get_thld(ovexsdk_dev_ctx* ctx, uint8_t chip,
                                                   float* value) {
    return OVEXSDK_FRAME(&Exclusive<&GetThreshold>::Call, ctx, chip, value);
}

OVEXSDK_API ovexsdk_err_code ovexsdk_chip_set_thld(ovexsdk_dev_ctx* ctx, uint8_t chip,
                                                   float value) {
    return OVEXSDK_FRAME(&Exclusive<&SetThreshold>::Call, ctx, chip, value);
}

OVEXSDK_API ovexsdk_err_code ovexsdk_chip_get_raw_thld(ovexsdk_dev_ctx* ctx, uint8_t chip,
                                                       uint32_t* raw_value) {
    return OVEXSDK_FRAME(&Exclusive<&GetRawThreshold>::Call, ctx, chip, raw_value);
}

OVEXSDK_API ovexsdk_err_code ovexsdk_chip_set_raw_thld(ovexsdk_dev_ctx* ctx, uint8_t chip,
                                                       uint32_t raw_value) {
    return OVEXSDK_FRAME(&Exclusive<&SetRawThreshold>::Call, ctx, chip, raw_value);
}

OVEXSDK_API ovexsdk_err_code ovexsdk_chip_get_thld_info(ovexsdk_dev_ctx* ctx,
                                                        ovexsdk_chip_thld_info thld_infos[],
                                                        uint8_t* chip_count) {
    return OVEXSDK_FRAME(&Exclusive<&GetThresholdInfo>::Call, ctx, thld_infos, chip_count);
}

}  // extern "C"
