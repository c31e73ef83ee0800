// The host's log function, behind a bridge that gives the older interface's severities.

#include <atomic>

#include "legacy/legacy_core.hpp"

using namespace ovex::sdk::legacy;

namespace {

// The severities of the older interface: the four named ones as they are, any other as debug.
std::int32_t LegacySeverity(ovexsdk_log_severity severity) {
    switch (severity) {
        case OVEXSDK_LOG_CRITICAL:
        case OVEXSDK_LOG_ERROR:
        case OVEXSDK_LOG_WARNING:
        case OVEXSDK_LOG_INFO:
            return severity;
        default:
            return OVEXSDK_LOG_DEBUG;
    }
}

// Runs on the context's logger thread while the host may set a new function: the two fields are
// read and written atomically.
void LogBridge(const char* text, ovexsdk_log_severity severity, void* param) {
    auto* ctx = static_cast<LegacyContext*>(param);
    const ovex_log_func function = std::atomic_ref(ctx->log_function).load();
    if (function != nullptr) {
        function(text, LegacySeverity(severity), std::atomic_ref(ctx->log_user).load());
    }
}

constexpr ovexsdk_log_fmt kWholeLine{true, true, true, true};

}  // namespace

extern "C" OVEXSDK_API void ovex_log_set_func(ovex_ctx* ctx, ovex_log_func function, void* user,
                                              const ovexsdk_log_fmt* format) {
    if (!IsLive(ctx)) {
        return;
    }
    std::atomic_ref(ctx->log_user).store(user);
    std::atomic_ref(ctx->log_function).store(function);
    ovexsdk_log_set_cb(&ctx->context, &LogBridge, format != nullptr ? format : &kWholeLine, ctx);
}
