// The host's log callback.

#include "api_utils.hpp"
#include "context.hpp"
#include "ovexsdk.h"

namespace ovex::sdk {
namespace {

ovexsdk_err_code LogSetCb(Context& context, ovexsdk_log_cb function, const ovexsdk_log_fmt* format,
                          void* param) {
    if (LogInvalidPointer(format, "format")) {
        return OVEXSDK_ERR_INVALID;
    }
    context.Log().SetCallback(function, param, *format);
    return OVEXSDK_OK;
}

}  // namespace
}  // namespace ovex::sdk

extern "C" OVEXSDK_API ovexsdk_err_code ovexsdk_log_set_cb(ovexsdk_dev_ctx* ctx,
                                                           ovexsdk_log_cb function,
                                                           const ovexsdk_log_fmt* format,
                                                           void* param) {
    return OVEXSDK_FRAME(&ovex::sdk::LogSetCb, ctx, function, format, param);
}
