/* The smallest host program: version, context, log callback, open, release. */
#include <stdio.h>
#include <stdlib.h>

#include "ovexsdk.h"

static const char* severity_name(ovexsdk_log_severity severity) {
    switch (severity) {
        case OVEXSDK_LOG_CRITICAL:
            return "critical";
        case OVEXSDK_LOG_ERROR:
            return "error";
        case OVEXSDK_LOG_WARNING:
            return "warning";
        case OVEXSDK_LOG_INFO:
            return "info";
        default:
            return "debug";
    }
}

/* Runs on the context's logger thread; the text ends in a line feed. */
static void on_log(const char* text, ovexsdk_log_severity severity, void* param) {
    FILE* out = (FILE*)param;
    fprintf(out, "  [log %-8s] %s", severity_name(severity), text);
}

int main(int argc, char** argv) {
    const char* locator = argc > 1 ? argv[1] : "usb:ix:0";
    const ovexsdk_version* version = ovexsdk_version_get();
    printf("ovex_sdk_ng %u.%u.%u\n", version->major, version->minor, version->patch);

    ovexsdk_dev_ctx* ctx = malloc(sizeof *ctx);
    if (ctx == NULL) {
        return 1;
    }
    ovexsdk_err_code result = ovexsdk_ctx_create(ctx, locator);
    printf("ovexsdk_ctx_create(\"%s\") -> %d\n", locator, result);
    if (result != OVEXSDK_OK) {
        free(ctx);
        return 1;
    }

    const ovexsdk_log_fmt format = {
        .preamble = false, .indentation = false, .prefix = true, .message = true};
    result = ovexsdk_log_set_cb(ctx, on_log, &format, stdout);
    printf("ovexsdk_log_set_cb -> %d\n", result);

    result = ovexsdk_dev_open(ctx);
    printf("ovexsdk_dev_open -> %d\n", result);

    bool is_open = true;
    result = ovexsdk_dev_is_open(ctx, &is_open);
    printf("ovexsdk_dev_is_open -> %d, open: %s\n", result, is_open ? "yes" : "no");

    /* Releasing waits until every queued log line has reached the callback. */
    result = ovexsdk_ctx_release(ctx);
    printf("ovexsdk_ctx_release -> %d\n", result);
    free(ctx);
    return result == OVEXSDK_OK ? 0 : 1;
}
