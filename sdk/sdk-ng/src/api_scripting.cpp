// Host scripts in the context's Lua state.

#include "api_internal.hpp"
#include "api_utils.hpp"
#include "context.hpp"
#include "ovex/log/log.hpp"
#include "ovexsdk.h"

namespace ovex::sdk {
namespace {

bool LogMissingLua(Context& context) {
    if (context.Lua() == nullptr) {
        OVEX_LOG_ERROR("Lua is not initialized.");
        return true;
    }
    return false;
}

ovexsdk_err_code ScriptExecute(Context& context, const char* text) {
    if (LogInvalidPointer(text, "text")) {
        return OVEXSDK_ERR_INVALID;
    }
    if (LogMissingLua(context)) {
        return OVEXSDK_ERR_FAILED;
    }
    return context.Lua()->ExecuteScript(text) ? OVEXSDK_ERR_INVALID : OVEXSDK_OK;
}

ovexsdk_err_code ScriptStop(Context& context) {
    if (LogMissingLua(context)) {
        return OVEXSDK_ERR_FAILED;
    }
    if (!context.Lua()->RequestStop()) {
        OVEX_LOG_DEBUG("No script is running, there is none to stop.");
    }
    return OVEXSDK_OK;
}

ovexsdk_err_code GetScriptState(Context& context, void** state) {
    if (LogInvalidPointer(state, "state")) {
        return OVEXSDK_ERR_INVALID;
    }
    if (LogMissingLua(context)) {
        return OVEXSDK_ERR_FAILED;
    }
    *state = context.Lua()->Raw();
    return OVEXSDK_OK;
}

}  // namespace

ovexsdk_err_code ovexsdk_get_script_state(ovexsdk_dev_ctx* ctx, void** state) {
    return OVEXSDK_FRAME(&GetScriptState, ctx, state);
}

}  // namespace ovex::sdk

extern "C" OVEXSDK_API ovexsdk_err_code ovexsdk_script_execute(ovexsdk_dev_ctx* ctx,
                                                               const char* text) {
    // A script reaches the board through `device`: it takes the device like every device call.
    // The stop stays outside, callable from any thread while a script runs.
    return OVEXSDK_FRAME(&ovex::sdk::Exclusive<&ovex::sdk::ScriptExecute>::Call, ctx, text);
}

extern "C" OVEXSDK_API ovexsdk_err_code ovexsdk_script_stop(ovexsdk_dev_ctx* ctx) {
    return OVEXSDK_FRAME(&ovex::sdk::ScriptStop, ctx);
}
