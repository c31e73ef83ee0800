// The board's external synchronisation lines.

#include <algorithm>
#include <cstdint>
#include <set>

#include "api_utils.hpp"
#include "context.hpp"
#include "modules/backend.hpp"
#include "ovex/log/log.hpp"
#include "ovexsdk.h"

namespace ovex::sdk {

namespace {

IBackend* FindSyncBackend(Context& context) {
    auto* backend = context.Device()->GetModule<IBackend>();
    if (backend == nullptr) {
        OVEX_LOG_ERROR("Device doesn't support external synchronization (no backend).");
    }
    return backend;
}

ovexsdk_err_code ExtsyncList(Context& context, ovexsdk_extsync_option* opts,
                             std::uint64_t* opt_count) {
    if (LogInvalidPointer(opts, "opts") || LogInvalidPointer(opt_count, "opt_count")) {
        return OVEXSDK_ERR_INVALID;
    }
    if (LogMissingDevice(context)) {
        return OVEXSDK_ERR_NO_DEVICE;
    }
    auto* backend = FindSyncBackend(context);
    if (backend == nullptr) {
        return OVEXSDK_ERR_FAILED;
    }
    // A list longer than the host's array is cut to it without a word.
    const std::set<std::uint8_t> options = backend->GetSyncOptions();
    std::uint64_t filled = 0;
    for (auto it = options.begin(); it != options.end() && filled < *opt_count; ++it) {
        opts[filled++] = static_cast<ovexsdk_extsync_option>(*it);
    }
    *opt_count = filled;
    return OVEXSDK_OK;
}

ovexsdk_err_code ExtsyncConfigure(Context& context, const ovexsdk_extsync_option* list,
                                  std::uint64_t count) {
    if (LogInvalidPointer(list, "list")) {
        return OVEXSDK_ERR_INVALID;
    }
    if (LogMissingDevice(context)) {
        return OVEXSDK_ERR_NO_DEVICE;
    }
    auto* backend = FindSyncBackend(context);
    if (backend == nullptr) {
        return OVEXSDK_ERR_FAILED;
    }
    for (std::uint64_t i = 0; i < count; ++i) {
        const auto option = static_cast<int>(list[i]);
        if (option < OVEXSDK_EXTSYNC_TRIGGER_OUT_NO ||
            option > OVEXSDK_EXTSYNC_CLOCK_INPUT_EXTERNAL_40_MHZ) {
            OVEX_LOG_WARN("Value '%d' is not valid external synchronization option, value ignored.",
                          option);
            continue;
        }
        if (const auto ec = backend->ApplySyncOption(static_cast<std::uint8_t>(option))) {
            OVEX_LOG_EC(log::kError,
                        "Failed to apply external synchronization option '%d' - %s: %s", ec,
                        option);
            return OVEXSDK_ERR_FAILED;
        }
    }
    return OVEXSDK_OK;
}

}  // namespace

}  // namespace ovex::sdk

using namespace ovex::sdk;

extern "C" {

OVEXSDK_API ovexsdk_err_code ovexsdk_extsync_list(ovexsdk_dev_ctx* ctx,
                                                  ovexsdk_extsync_option opts[],
                                                  uint64_t* opt_count) {
    return OVEXSDK_FRAME(&Exclusive<&ExtsyncList>::Call, ctx, opts, opt_count);
}

OVEXSDK_API ovexsdk_err_code ovexsdk_extsync_configure(ovexsdk_dev_ctx* ctx,
                                                       ovexsdk_extsync_option list[],
                                                       uint64_t count) {
    return OVEXSDK_FRAME(&Exclusive<&ExtsyncConfigure>::Call, ctx, list, count);
}

}  // extern "C"
