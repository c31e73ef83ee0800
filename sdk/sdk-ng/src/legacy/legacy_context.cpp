// The handle's life: version, creation, release, the last-error text.

#include <cstring>
#include <limits>
#include <new>

#include "legacy/legacy_core.hpp"

using namespace ovex::sdk::legacy;

extern "C" {

OVEXSDK_API void ovex_version(int32_t* major, int32_t* minor, int32_t* patch) {
    if (major != nullptr) {
        *major = 0;
    }
    if (minor != nullptr) {
        *minor = 10;
    }
    if (patch != nullptr) {
        *patch = 1;
    }
}

OVEXSDK_API ovex_ctx* ovex_ctx_new(void) {
    auto* ctx = new (std::nothrow) LegacyContext{};
    if (ctx == nullptr) {
        return nullptr;
    }
    if (ovexsdk_ctx_create(&ctx->context, "usb:ix:0") != OVEXSDK_OK) {
        delete ctx;
        return nullptr;
    }
    std::memcpy(ctx->magic, kMagic, sizeof kMagic);
    ctx->acquisition = nullptr;
    ctx->data_callback = nullptr;
    ctx->data_user = nullptr;
    ctx->trigger = {Invalid, std::numeric_limits<float>::infinity()};
    return ctx;
}

OVEXSDK_API int32_t ovex_ctx_delete(ovex_ctx* ctx) {
    if (!IsLive(ctx)) {
        return OVEX_ERR_HANDLE;
    }
    const ovexsdk_err_code released = ovexsdk_ctx_release(&ctx->context);
    if (released != OVEXSDK_OK) {
        return Map(released);
    }
    std::memset(ctx->magic, 0, sizeof ctx->magic);
    // The release ended every readout: no data callback can reach the record any more.
    ReleaseAcquisition(ctx);
    delete ctx;
    return OVEX_OK;
}

OVEXSDK_API int32_t ovex_ctx_get_last_error(ovex_ctx* ctx, const char** text) {
    if (!IsLive(ctx) || AnyNull(text)) {
        return OVEX_ERR_HANDLE;
    }
    *text = "no error";
    return OVEX_OK;
}

}  // extern "C"
