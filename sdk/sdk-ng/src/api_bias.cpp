// The sensor bias supplies of a board.

#include <algorithm>
#include <cstdint>
#include <utility>

#include "api_utils.hpp"
#include "context.hpp"
#include "modules/bias_ctrl.hpp"
#include "ovex/log/log.hpp"
#include "ovexsdk.h"

namespace ovex::sdk {

namespace {

IBiasControl* FindBias(Context& context, std::uint8_t id) {
    auto* module = context.Device()->GetModule<IBiasControl>(id);
    if (module == nullptr) {
        OVEX_LOG_ERROR("Value '%d' is not a valid bias controller ID.", id);
    }
    return module;
}

ovexsdk_err_code BiasGetCount(Context& context, std::uint8_t* count) {
    if (LogInvalidPointer(count, "count")) {
        return OVEXSDK_ERR_INVALID;
    }
    if (LogMissingDevice(context)) {
        return OVEXSDK_ERR_NO_DEVICE;
    }
    *count = static_cast<std::uint8_t>(context.Device()->GetModules<IBiasControl>().size());
    return OVEXSDK_OK;
}

ovexsdk_err_code BiasGetInfo(Context& context, ovexsdk_bias_info* infos, std::uint8_t* count) {
    if (LogMissingDevice(context)) {
        return OVEXSDK_ERR_NO_DEVICE;
    }
    if (LogInvalidPointer(infos, "infos") || LogInvalidPointer(count, "count")) {
        return OVEXSDK_ERR_INVALID;
    }
    const auto controls = context.Device()->GetModules<IBiasControl>();
    if (controls.size() > *count) {
        OVEX_LOG_WARN(
            "Cannot fit all bias information structs into the array: provided array of size %lu, "
            "got %lu elements",
            static_cast<unsigned long>(*count), static_cast<unsigned long>(controls.size()));
    }
    const std::size_t filled = std::min<std::size_t>(*count, controls.size());
    for (std::size_t index = 0; index < filled; ++index) {
        std::pair<float, float> limits;
        if (const auto ec = controls[index]->GetLimits(limits)) {
            OVEX_LOG_EC(ovex::log::kError, "Failed to retrieve bias limits: - %s: %s.", ec);
            return OVEXSDK_ERR_FAILED;
        }
        infos[index] = {limits.first, limits.second};
    }
    *count = static_cast<std::uint8_t>(filled);
    return OVEXSDK_OK;
}

ovexsdk_err_code BiasGetDesired(Context& context, std::uint8_t id, float* value) {
    if (LogMissingDevice(context)) {
        return OVEXSDK_ERR_NO_DEVICE;
    }
    if (LogInvalidPointer(value, "value")) {
        return OVEXSDK_ERR_INVALID;
    }
    auto* bias = FindBias(context, id);
    if (bias == nullptr) {
        return OVEXSDK_ERR_FAILED;
    }
    if (const auto ec = bias->GetDesired(*value)) {
        OVEX_LOG_EC(ovex::log::kError, "Failed to get voltage: - %s: %s.", ec);
        return OVEXSDK_ERR_FAILED;
    }
    return OVEXSDK_OK;
}

ovexsdk_err_code BiasGetActual(Context& context, std::uint8_t id, float* value) {
    if (LogMissingDevice(context)) {
        return OVEXSDK_ERR_NO_DEVICE;
    }
    if (LogInvalidPointer(value, "value")) {
        return OVEXSDK_ERR_INVALID;
    }
    auto* bias = FindBias(context, id);
    if (bias == nullptr) {
        return OVEXSDK_ERR_FAILED;
    }
    if (const auto ec = bias->GetActual(*value)) {
        OVEX_LOG_EC(ovex::log::kError, "Failed to measure bias voltage: - %s: %s.", ec);
        return OVEXSDK_ERR_FAILED;
    }
    return OVEXSDK_OK;
}

ovexsdk_err_code BiasSetDesired(Context& context, std::uint8_t id, float value) {
    if (LogMissingDevice(context)) {
        return OVEXSDK_ERR_NO_DEVICE;
    }
    auto* bias = FindBias(context, id);
    if (bias == nullptr) {
        return OVEXSDK_ERR_FAILED;
    }
    if (const auto ec = bias->SetDesired(value)) {
        OVEX_LOG_EC(ovex::log::kError, "Failed to configure bias voltage: - %s: %s.", ec);
        return OVEXSDK_ERR_FAILED;
    }
    return OVEXSDK_OK;
}

}  // namespace

}  // namespace ovex::sdk

using namespace ovex::sdk;

extern "C" {

OVEXSDK_API ovexsdk_err_code ovexsdk_bias_get_count(ovexsdk_dev_ctx* ctx, uint8_t* count) {
    return OVEXSDK_FRAME(&Exclusive<&BiasGetCount>::Call, ctx, count);
}

OVEXSDK_API ovexsdk_err_code ovexsdk_bias_get_info(ovexsdk_dev_ctx* ctx, ovexsdk_bias_info infos[],
                                                   uint8_t* count) {
    return OVEXSDK_FRAME(&Exclusive<&BiasGetInfo>::Call, ctx, infos, count);
}

OVEXSDK_API ovexsdk_err_code ovexsdk_bias_get_desired(ovexsdk_dev_ctx* ctx, uint8_t id,
                                                      float* value) {
    return OVEXSDK_FRAME(&Exclusive<&BiasGetDesired>::Call, ctx, id, value);
}

OVEXSDK_API ovexsdk_err_code ovexsdk_bias_get_actual(ovexsdk_dev_ctx* ctx, uint8_t id,
                                                     float* value) {
    return OVEXSDK_FRAME(&Exclusive<&BiasGetActual>::Call, ctx, id, value);
}

OVEXSDK_API ovexsdk_err_code ovexsdk_bias_set_desired(ovexsdk_dev_ctx* ctx, uint8_t id,
                                                      float value) {
    return OVEXSDK_FRAME(&Exclusive<&BiasSetDesired>::Call, ctx, id, value);
}

}  // extern "C"
