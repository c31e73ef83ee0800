// Readouts through the older interface: the two channels, the data callback and the acquisition
// record it gets, begin, end and abort.

#include <array>
#include <cstring>
#include <new>

#include "legacy/legacy_core.hpp"

using namespace ovex::sdk::legacy;

namespace {

constexpr std::array<const char*, 2> kChannels{"raw", "1"};

bool IsChannel(const char* channel) {
    return std::strcmp(channel, kChannels[0]) == 0 || std::strcmp(channel, kChannels[1]) == 0;
}

// "raw" keeps the board's bytes alone, "1" the mode's records with them; 0 for another text,
// which the start refuses.
std::uint32_t ChannelFlags(const char* channel) {
    if (std::strcmp(channel, kChannels[0]) == 0) {
        return OVEXSDK_ACQ_RAW;
    }
    if (std::strcmp(channel, kChannels[1]) == 0) {
        return OVEXSDK_ACQ_RAW | OVEXSDK_ACQ_PROCESSED;
    }
    return 0;
}

// Runs on the acquisition's thread once per result. The getters' buffers live until the
// host's callback returns.
void DeliverData(ovexsdk_dev_ctx* /*context*/, void* user) {
    auto* ctx = static_cast<LegacyContext*>(user);
    ovex_acq* acquisition = ctx->acquisition;
    if (acquisition == nullptr || ctx->data_callback == nullptr ||
        acquisition->context == nullptr) {
        return;
    }
    ctx->data_callback(acquisition, ctx->data_user);
    ReleaseBuffers(*acquisition);
}

}  // namespace

extern "C" {

OVEXSDK_API int32_t ovex_acq_ch_count(ovex_ctx* ctx, uint32_t* count) {
    if (!IsLive(ctx) || AnyNull(count)) {
        return OVEX_ERR_HANDLE;
    }
    *count = static_cast<std::uint32_t>(kChannels.size());
    return OVEX_OK;
}

OVEXSDK_API int32_t ovex_acq_ch_id(ovex_ctx* ctx, uint32_t index, const char** id) {
    if (!IsLive(ctx) || AnyNull(id)) {
        return OVEX_ERR_HANDLE;
    }
    if (index >= kChannels.size()) {
        return OVEX_ERR_HANDLE;
    }
    *id = kChannels[index];
    return OVEX_OK;
}

OVEXSDK_API int32_t ovex_acq_set_data_callback(ovex_ctx* ctx, const char* channel,
                                               ovex_data_cb callback, void* user) {
    if (!IsLive(ctx) || AnyNull(channel) || callback == nullptr) {
        return OVEX_ERR_HANDLE;
    }
    if (!IsChannel(channel)) {
        return OVEX_ERR_INVALID;
    }
    ctx->data_callback = callback;
    ctx->data_user = user;
    return OVEX_OK;
}

OVEXSDK_API int32_t ovex_acq_begin(ovex_ctx* ctx, const char* channel) {
    if (!IsLive(ctx) || AnyNull(channel)) {
        return OVEX_ERR_HANDLE;
    }
    if (ctx->acquisition == nullptr) {
        ctx->acquisition = new (std::nothrow) ovex_acq{};
        if (ctx->acquisition == nullptr) {
            return OVEX_ERR_NO_MEMORY;
        }
    }
    ovex_acq& acquisition = *ctx->acquisition;
    ReleaseBuffers(acquisition);
    acquisition.context = &ctx->context;
    acquisition.chip_mode = ctx->chip_mode;
    acquisition.processing_mode = ctx->processing_mode;
    acquisition.flags = ChannelFlags(channel);
    const ovexsdk_err_code result =
        ovexsdk_acq_start(&ctx->context, &DeliverData,
                          static_cast<ovexsdk_acq_mode_flag>(acquisition.flags), &ctx->params, ctx);
    // A readout already running keeps the record it delivers through.
    if (result != OVEXSDK_OK && result != OVEXSDK_ERR_BUSY) {
        ReleaseAcquisition(ctx);
    }
    return Map(result);
}

OVEXSDK_API int32_t ovex_acq_end(ovex_ctx* ctx, const char* channel) {
    if (!IsLive(ctx) || AnyNull(channel)) {
        return OVEX_ERR_HANDLE;
    }
    if (!IsChannel(channel)) {
        ReleaseAcquisition(ctx);
        return OVEX_ERR_INVALID;
    }
    const ovexsdk_err_code result = ovexsdk_acq_await_end(&ctx->context);
    ReleaseAcquisition(ctx);
    return Map(result);
}

OVEXSDK_API int32_t ovex_acq_abort(ovex_ctx* ctx, const char* channel) {
    if (!IsLive(ctx) || AnyNull(channel)) {
        return OVEX_ERR_HANDLE;
    }
    if (!IsChannel(channel)) {
        return OVEX_ERR_INVALID;
    }
    return Map(ovexsdk_acq_abort(&ctx->context));
}

}  // extern "C"
