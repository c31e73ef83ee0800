// The temperature controllers of a board: Peltier coolers in degrees Celsius or percent.

#include <algorithm>
#include <cstdint>
#include <utility>

#include "api_utils.hpp"
#include "context.hpp"
#include "modules/temp_control.hpp"
#include "ovex/log/log.hpp"
#include "ovexsdk.h"

namespace ovex::sdk {

namespace {

// The controller of this index, or the refusal of the call.
ovexsdk_err_code FindControl(Context& context, std::uint8_t id, TemperatureControl*& control) {
    if (LogMissingDevice(context)) {
        return OVEXSDK_ERR_NO_DEVICE;
    }
    control = context.Device()->GetModule<TemperatureControl>(id);
    if (control == nullptr) {
        OVEX_LOG_ERROR("Value '%d' is not a valid temperature controller ID.", id);
        return OVEXSDK_ERR_FAILED;
    }
    return OVEXSDK_OK;
}

ovexsdk_err_code TempGetCount(Context& context, std::uint8_t* count) {
    if (LogInvalidPointer(count, "count")) {
        return OVEXSDK_ERR_INVALID;
    }
    if (LogMissingDevice(context)) {
        return OVEXSDK_ERR_NO_DEVICE;
    }
    *count = static_cast<std::uint8_t>(context.Device()->GetModules<TemperatureControl>().size());
    return OVEXSDK_OK;
}

ovexsdk_err_code TempGetInfo(Context& context, ovexsdk_temp_ctrl_info* infos,
                             std::uint64_t* count) {
    if (LogInvalidPointer(infos, "infos") || LogInvalidPointer(count, "count")) {
        return OVEXSDK_ERR_INVALID;
    }
    if (LogMissingDevice(context)) {
        return OVEXSDK_ERR_NO_DEVICE;
    }
    const auto controls = context.Device()->GetModules<TemperatureControl>();
    if (controls.size() > *count) {
        OVEX_LOG_WARN(
            "Cannot fit all temperature information structs into the array: provided array of "
            "size %lu, got %lu elements",
            static_cast<unsigned long>(*count), static_cast<unsigned long>(controls.size()));
    }
    const std::size_t filled = std::min<std::uint64_t>(*count, controls.size());
    for (std::size_t index = 0; index < filled; ++index) {
        std::pair<float, float> limits;
        if (const auto ec = controls[index]->GetLimits(limits)) {
            OVEX_LOG_EC(ovex::log::kError, "Failed to get temperature limits: - %s: %s.", ec);
            return OVEXSDK_ERR_FAILED;
        }
        infos[index] = {limits.first, limits.second, controls[index]->GetUnit()};
    }
    *count = filled;
    return OVEXSDK_OK;
}

ovexsdk_err_code TempGetDesired(Context& context, std::uint8_t id, float* value) {
    if (LogInvalidPointer(value, "value")) {
        return OVEXSDK_ERR_INVALID;
    }
    TemperatureControl* control = nullptr;
    if (const auto result = FindControl(context, id, control); result != OVEXSDK_OK) {
        return result;
    }
    if (const auto ec = control->GetDesired(*value)) {
        OVEX_LOG_EC(ovex::log::kError, "Failed to get desired value: - %s: %s.", ec);
        return OVEXSDK_ERR_FAILED;
    }
    return OVEXSDK_OK;
}

ovexsdk_err_code TempGetActual(Context& context, std::uint8_t id, float* value) {
    if (LogInvalidPointer(value, "value")) {
        return OVEXSDK_ERR_INVALID;
    }
    TemperatureControl* control = nullptr;
    if (const auto result = FindControl(context, id, control); result != OVEXSDK_OK) {
        return result;
    }
    if (const auto ec = control->GetActual(*value)) {
        OVEX_LOG_EC(ovex::log::kError, "Failed to get actual value: - %s: %s.", ec);
        return OVEXSDK_ERR_FAILED;
    }
    return OVEXSDK_OK;
}

ovexsdk_err_code TempSetDesired(Context& context, std::uint8_t id, float value) {
    TemperatureControl* control = nullptr;
    if (const auto result = FindControl(context, id, control); result != OVEXSDK_OK) {
        return result;
    }
    if (const auto ec = control->SetDesired(value)) {
        OVEX_LOG_EC(ovex::log::kError, "Failed to set desired value: - %s: %s.", ec);
        return OVEXSDK_ERR_FAILED;
    }
    return OVEXSDK_OK;
}

}  // namespace

}  // namespace ovex::sdk

using namespace ovex::sdk;

extern "C" {

OVEXSDK_API ovexsdk_err_code ovexsdk_temp_get_count(ovexsdk_dev_ctx* ctx, uint8_t* count) {
    return OVEXSDK_FRAME(&Exclusive<&TempGetCount>::Call, ctx, count);
}

OVEXSDK_API ovexsdk_err_code ovexsdk_temp_get_info(ovexsdk_dev_ctx* ctx,
                                                   ovexsdk_temp_ctrl_info infos[],
                                                   uint64_t* count) {
    return OVEXSDK_FRAME(&Exclusive<&TempGetInfo>::Call, ctx, infos, count);
}

OVEXSDK_API ovexsdk_err_code ovexsdk_temp_get_desired(ovexsdk_dev_ctx* ctx, uint8_t id,
                                                      float* value) {
    return OVEXSDK_FRAME(&Exclusive<&TempGetDesired>::Call, ctx, id, value);
}

OVEXSDK_API ovexsdk_err_code ovexsdk_temp_get_actual(ovexsdk_dev_ctx* ctx, uint8_t id,
                                                     float* value) {
    return OVEXSDK_FRAME(&Exclusive<&TempGetActual>::Call, ctx, id, value);
}

OVEXSDK_API ovexsdk_err_code ovexsdk_temp_set_desired(ovexsdk_dev_ctx* ctx, uint8_t id,
                                                      float value) {
    return OVEXSDK_FRAME(&Exclusive<&TempSetDesired>::Call, ctx, id, value);
}

}  // extern "C"
