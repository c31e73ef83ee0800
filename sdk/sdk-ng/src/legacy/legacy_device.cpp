// Opening and closing the board behind a handle.

#include "api_internal.hpp"
#include "legacy/legacy_core.hpp"

using namespace ovex::sdk::legacy;

extern "C" {

OVEXSDK_API int32_t ovex_dev_open(ovex_ctx* ctx, const char* locator) {
    if (!IsLive(ctx) || AnyNull(locator)) {
        return OVEX_ERR_HANDLE;
    }
    const ovexsdk_err_code replaced =
        ovex::sdk::ovexsdk_ctx_replace_locator(&ctx->context, locator);
    if (replaced != OVEXSDK_OK) {
        return Map(replaced);
    }
    return Map(ovexsdk_dev_open(&ctx->context));
}

OVEXSDK_API int32_t ovex_dev_close(ovex_ctx* ctx) {
    if (!IsLive(ctx)) {
        return OVEX_ERR_HANDLE;
    }
    return Map(ovexsdk_dev_close(&ctx->context));
}

OVEXSDK_API int32_t ovex_dev_is_opened(ovex_ctx* ctx, int32_t* opened) {
    if (!IsLive(ctx) || AnyNull(opened)) {
        return OVEX_ERR_HANDLE;
    }
    bool open = false;
    const ovexsdk_err_code result = ovexsdk_dev_is_open(&ctx->context, &open);
    *opened = open ? 1 : 0;
    return Map(result);
}

}  // extern "C"
