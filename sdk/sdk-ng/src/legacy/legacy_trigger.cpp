// The shutter's trigger, chosen by a mode id and a duration that the handle keeps, and the
// board's external synchronisation options by name.

#include <array>
#include <cmath>
#include <cstring>

#include "legacy/legacy_core.hpp"
#include "modules/ovexboard_backend.hpp"

using namespace ovex::sdk::legacy;

namespace {

// Indexed by trigger mode minus 1.
constexpr std::array<const char*, 5> kTriggerModeIds{
    "software-start-shutter-duration",   "software-start-shutter-duration-continuous",
    "hardware-start-shutter-duration",   "hardware-start-hardware-stop:level",
    "hardware-start-hardware-stop:edge",
};

constexpr std::uint8_t kSyncOptionCount = 16;

ovexsdk_trigger_mode TriggerModeOf(const char* id) {
    for (std::size_t i = 0; i < kTriggerModeIds.size(); ++i) {
        if (std::strcmp(kTriggerModeIds[i], id) == 0) {
            return static_cast<ovexsdk_trigger_mode>(i + 1);
        }
    }
    return Invalid;
}

// The stored trigger goes to the board once it is complete: a mode and a finite duration.
std::int32_t ConfigureWhenComplete(LegacyContext* ctx) {
    if (ctx->trigger.mode == Invalid || !std::isfinite(ctx->trigger.shutter_duration)) {
        return OVEX_OK;
    }
    return Map(ovexsdk_trigger_configure(&ctx->context, &ctx->trigger));
}

}  // namespace

extern "C" {

OVEXSDK_API int32_t ovex_trigger(ovex_ctx* ctx) {
    if (!IsLive(ctx)) {
        return OVEX_ERR_HANDLE;
    }
    return Map(ovexsdk_trigger_now(&ctx->context));
}

OVEXSDK_API int32_t ovex_trigger_mode_count(ovex_ctx* ctx, uint32_t* count) {
    if (!IsLive(ctx) || AnyNull(count)) {
        return OVEX_ERR_HANDLE;
    }
    ovexsdk_trigger_mode modes[kTriggerModeIds.size()];
    std::uint64_t listed = kTriggerModeIds.size();
    const ovexsdk_err_code result = ovexsdk_trigger_list(&ctx->context, modes, &listed);
    if (result == OVEXSDK_OK) {
        *count = static_cast<std::uint32_t>(listed);
    }
    return Map(result);
}

OVEXSDK_API int32_t ovex_trigger_mode_id(ovex_ctx* ctx, uint32_t index, const char** id) {
    if (!IsLive(ctx) || AnyNull(id)) {
        return OVEX_ERR_HANDLE;
    }
    ovexsdk_trigger_mode modes[kTriggerModeIds.size()];
    std::uint64_t listed = kTriggerModeIds.size();
    const ovexsdk_err_code result = ovexsdk_trigger_list(&ctx->context, modes, &listed);
    if (result != OVEXSDK_OK) {
        return Map(result);
    }
    if (index >= listed) {
        return OVEX_ERR_HANDLE;
    }
    const auto mode = static_cast<std::size_t>(modes[index]);
    if (mode < 1 || mode > kTriggerModeIds.size()) {
        return OVEX_ERR_HANDLE;
    }
    *id = kTriggerModeIds[mode - 1];
    return OVEX_OK;
}

OVEXSDK_API int32_t ovex_trigger_mode_select(ovex_ctx* ctx, const char* id) {
    if (!IsLive(ctx) || AnyNull(id)) {
        return OVEX_ERR_HANDLE;
    }
    // An unknown id clears the choice and is no error: hosts use it to deselect.
    ctx->trigger.mode = TriggerModeOf(id);
    if (ctx->trigger.mode == ExternalStartExternalStopLevel ||
        ctx->trigger.mode == ExternalStartExternalStopEdge) {
        // The input's edges end the shutter: these modes have no duration of their own.
        ctx->trigger.shutter_duration = 0;
    }
    return ConfigureWhenComplete(ctx);
}

OVEXSDK_API int32_t ovex_trigger_set_shutter_duration(ovex_ctx* ctx, float seconds) {
    if (!IsLive(ctx)) {
        return OVEX_ERR_HANDLE;
    }
    ctx->trigger.shutter_duration = seconds;
    return ConfigureWhenComplete(ctx);
}

OVEXSDK_API int32_t ovex_extsync_option_count(ovex_ctx* ctx, uint32_t* count) {
    if (!IsLive(ctx) || AnyNull(count)) {
        return OVEX_ERR_HANDLE;
    }
    ovexsdk_extsync_option options[kSyncOptionCount];
    std::uint64_t listed = kSyncOptionCount;
    const ovexsdk_err_code result = ovexsdk_extsync_list(&ctx->context, options, &listed);
    if (result == OVEXSDK_OK) {
        *count = static_cast<std::uint32_t>(listed);
    }
    return Map(result);
}

OVEXSDK_API int32_t ovex_extsync_option_id(ovex_ctx* ctx, uint32_t index, const char** id) {
    if (!IsLive(ctx) || AnyNull(id)) {
        return OVEX_ERR_HANDLE;
    }
    if (index >= kSyncOptionCount) {
        return OVEX_ERR_HANDLE;
    }
    *id = ovex::sdk::SyncOptionName(static_cast<std::uint8_t>(index + 1));
    return OVEX_OK;
}

OVEXSDK_API int32_t ovex_extsync_option_select(ovex_ctx* ctx, const char* id) {
    if (!IsLive(ctx) || AnyNull(id)) {
        return OVEX_ERR_HANDLE;
    }
    for (std::uint8_t option = 1; option <= kSyncOptionCount; ++option) {
        if (std::strcmp(ovex::sdk::SyncOptionName(option), id) == 0) {
            ovexsdk_extsync_option list[] = {static_cast<ovexsdk_extsync_option>(option)};
            return Map(ovexsdk_extsync_configure(&ctx->context, list, 1));
        }
    }
    return OVEX_ERR_HANDLE;
}

}  // extern "C"
