// Bias supplies and cooling (temperature) controllers, by ids of the form "BIAS1" and "PELT1".

#include <cctype>
#include <cstring>
#include <iterator>

#include "legacy/legacy_core.hpp"

using namespace ovex::sdk::legacy;

namespace {

// The controllers of one family: how their ids begin and how many the board has.
struct Family {
    const char* prefix;
    ovexsdk_err_code (*count)(ovexsdk_dev_ctx* ctx, std::uint8_t* count);
    const char* ids[2];  // the ids handed out by index
};

constexpr Family kBias{"BIAS", &ovexsdk_bias_get_count, {"BIAS1", "BIAS2"}};
constexpr Family kCooling{"PELT", &ovexsdk_temp_get_count, {"PELT1", "PELT2"}};

// The ranges are read for two controllers at most, as many as the ids name.
constexpr std::uint8_t kInfoCapacity = 2;

// The controller that `id` names: the family's prefix, at least five characters, and a last
// digit d for the controller d - 1, which the board must have.
std::int32_t IndexOf(LegacyContext* ctx, const Family& family, const char* id,
                     std::uint8_t& index) {
    const std::size_t length = std::strlen(id);
    if (length < 5 || std::strncmp(id, family.prefix, std::strlen(family.prefix)) != 0 ||
        std::isdigit(static_cast<unsigned char>(id[length - 1])) == 0 || id[length - 1] == '0') {
        return OVEX_ERR_HANDLE;
    }
    std::uint8_t controllers = 0;
    const ovexsdk_err_code counted = family.count(&ctx->context, &controllers);
    if (counted != OVEXSDK_OK) {
        return Map(counted);
    }
    index = static_cast<std::uint8_t>(id[length - 1] - '1');
    return index < controllers ? OVEX_OK : OVEX_ERR_HANDLE;
}

// Runs `call(index)` on the controller that `id` names; the call gives its mapped result.
template <class Call>
std::int32_t OnController(LegacyContext* ctx, const Family& family, const char* id, Call call) {
    std::uint8_t index = 0;
    const std::int32_t found = IndexOf(ctx, family, id, index);
    return found != OVEX_OK ? found : call(index);
}

std::int32_t Count(LegacyContext* ctx, const Family& family, uint32_t* count) {
    if (!IsLive(ctx) || AnyNull(count)) {
        return OVEX_ERR_HANDLE;
    }
    std::uint8_t controllers = 0;
    const ovexsdk_err_code result = family.count(&ctx->context, &controllers);
    if (result == OVEXSDK_OK) {
        *count = controllers;
    }
    return Map(result);
}

std::int32_t IdAt(LegacyContext* ctx, const Family& family, uint32_t index, const char** id) {
    if (!IsLive(ctx) || AnyNull(id)) {
        return OVEX_ERR_HANDLE;
    }
    std::uint8_t controllers = 0;
    const ovexsdk_err_code counted = family.count(&ctx->context, &controllers);
    if (counted != OVEXSDK_OK) {
        return Map(counted);
    }
    if (index >= controllers || index >= std::size(family.ids)) {
        return OVEX_ERR_HANDLE;
    }
    *id = family.ids[index];
    return OVEX_OK;
}

// The record of controller `index` as the family's info call lists them, read with room for
// kInfoCapacity controllers: the range of a bias supply, the range and unit of a cooler.
template <class Info, class Count>
std::int32_t InfoAt(LegacyContext* ctx, std::uint8_t index, Info& info,
                    ovexsdk_err_code (*get_info)(ovexsdk_dev_ctx*, Info*, Count*)) {
    Info infos[kInfoCapacity]{};
    Count filled = kInfoCapacity;
    const ovexsdk_err_code read = get_info(&ctx->context, infos, &filled);
    if (read != OVEXSDK_OK) {
        return Map(read);
    }
    if (index >= filled) {
        return OVEX_ERR_HANDLE;
    }
    info = infos[index];
    return OVEX_OK;
}

}  // namespace

extern "C" {

OVEXSDK_API int32_t ovex_bias_supply_count(ovex_ctx* ctx, uint32_t* count) {
    return Count(ctx, kBias, count);
}

OVEXSDK_API int32_t ovex_bias_supply_id(ovex_ctx* ctx, uint32_t index, const char** id) {
    return IdAt(ctx, kBias, index, id);
}

OVEXSDK_API int32_t ovex_bias_get(ovex_ctx* ctx, const char* id, float* volts) {
    if (!IsLive(ctx) || AnyNull(id, volts)) {
        return OVEX_ERR_HANDLE;
    }
    return OnController(ctx, kBias, id, [&](std::uint8_t index) {
        return Map(ovexsdk_bias_get_desired(&ctx->context, index, volts));
    });
}

OVEXSDK_API int32_t ovex_bias_set(ovex_ctx* ctx, const char* id, float volts) {
    if (!IsLive(ctx) || AnyNull(id)) {
        return OVEX_ERR_HANDLE;
    }
    return OnController(ctx, kBias, id, [&](std::uint8_t index) {
        return Map(ovexsdk_bias_set_desired(&ctx->context, index, volts));
    });
}

OVEXSDK_API int32_t ovex_bias_range(ovex_ctx* ctx, const char* id, float* min, float* max) {
    if (!IsLive(ctx) || AnyNull(id, min, max)) {
        return OVEX_ERR_HANDLE;
    }
    return OnController(ctx, kBias, id, [&](std::uint8_t index) {
        ovexsdk_bias_info info{};
        const std::int32_t read = InfoAt(ctx, index, info, &ovexsdk_bias_get_info);
        if (read == OVEX_OK) {
            *min = info.minimum;
            *max = info.maximum;
        }
        return read;
    });
}

OVEXSDK_API int32_t ovex_cooling_count(ovex_ctx* ctx, uint32_t* count) {
    return Count(ctx, kCooling, count);
}

OVEXSDK_API int32_t ovex_cooling_id(ovex_ctx* ctx, uint32_t index, const char** id) {
    return IdAt(ctx, kCooling, index, id);
}

OVEXSDK_API int32_t ovex_cooling_get_desired(ovex_ctx* ctx, const char* id, float* value) {
    if (!IsLive(ctx) || AnyNull(id, value)) {
        return OVEX_ERR_HANDLE;
    }
    return OnController(ctx, kCooling, id, [&](std::uint8_t index) {
        return Map(ovexsdk_temp_get_desired(&ctx->context, index, value));
    });
}

OVEXSDK_API int32_t ovex_cooling_set_desired(ovex_ctx* ctx, const char* id, float value) {
    if (!IsLive(ctx) || AnyNull(id)) {
        return OVEX_ERR_HANDLE;
    }
    return OnController(ctx, kCooling, id, [&](std::uint8_t index) {
        return Map(ovexsdk_temp_set_desired(&ctx->context, index, value));
    });
}

OVEXSDK_API int32_t ovex_cooling_get_actual(ovex_ctx* ctx, const char* id, float* value) {
    if (!IsLive(ctx) || AnyNull(id, value)) {
        return OVEX_ERR_HANDLE;
    }
    return OnController(ctx, kCooling, id, [&](std::uint8_t index) {
        return Map(ovexsdk_temp_get_actual(&ctx->context, index, value));
    });
}

OVEXSDK_API int32_t ovex_cooling_limits(ovex_ctx* ctx, const char* id, float* min, float* max) {
    if (!IsLive(ctx) || AnyNull(id, min, max)) {
        return OVEX_ERR_HANDLE;
    }
    return OnController(ctx, kCooling, id, [&](std::uint8_t index) {
        ovexsdk_temp_ctrl_info info{};
        const std::int32_t read = InfoAt(ctx, index, info, &ovexsdk_temp_get_info);
        if (read == OVEX_OK) {
            *min = info.minimum;
            *max = info.maximum;
        }
        return read;
    });
}

OVEXSDK_API int32_t ovex_cooling_value_unit(ovex_ctx* ctx, const char* id, const char** unit) {
    if (!IsLive(ctx) || AnyNull(id, unit)) {
        return OVEX_ERR_HANDLE;
    }
    return OnController(ctx, kCooling, id, [&](std::uint8_t index) {
        ovexsdk_temp_ctrl_info info{};
        const std::int32_t read = InfoAt(ctx, index, info, &ovexsdk_temp_get_info);
        if (read != OVEX_OK) {
            return read;
        }
        if (info.unit == 1) {
            *unit = "DegreeCelsius";
        } else if (info.unit == 2) {
            *unit = "Percent";
        }
        return read;
    });
}

}  // extern "C"
