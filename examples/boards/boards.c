/* Lists the attached boards, then opens one of them by its serial number. */
#include <inttypes.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include "ovexsdk.h"

enum { kCapacity = 8 };

static void on_log(const char* text, ovexsdk_log_severity severity, void* param) {
    (void)param;
    if (severity <= OVEXSDK_LOG_INFO) {
        printf("  [log] %s", text);
    }
}

int main(int argc, char** argv) {
    ovexsdk_enum_info infos[kCapacity];
    uint64_t count = kCapacity;
    ovexsdk_err_code result = ovexsdk_enum_get_info(infos, &count);
    printf("ovexsdk_enum_get_info -> %d, %" PRIu64 " board(s)\n", result, count);
    if (result != OVEXSDK_OK) {
        return 1;
    }
    for (uint64_t i = 0; i < count; ++i) {
        printf("  %" PRIu64 ": %-16s s/n %-10s locator %-16s at %s\n", i, infos[i].product,
               infos[i].serial_number, infos[i].connection_string, infos[i].instance_path);
    }
    if (count == 0) {
        return 0;
    }

    /* The board to open: the serial number given, else the last board listed. */
    char locator[sizeof infos[0].connection_string + 8];
    if (argc > 1) {
        snprintf(locator, sizeof locator, "usb:sn:%s", argv[1]);
    } else {
        snprintf(locator, sizeof locator, "%s", infos[count - 1].connection_string);
    }

    ovexsdk_dev_ctx* ctx = malloc(sizeof *ctx);
    if (ctx == NULL) {
        return 1;
    }
    result = ovexsdk_ctx_create(ctx, locator);
    printf("ovexsdk_ctx_create(\"%s\") -> %d\n", locator, result);
    if (result != OVEXSDK_OK) {
        free(ctx);
        return 1;
    }
    const ovexsdk_log_fmt format = {
        .preamble = false, .indentation = false, .prefix = true, .message = true};
    ovexsdk_log_set_cb(ctx, on_log, &format, NULL);

    result = ovexsdk_dev_open(ctx);
    printf("ovexsdk_dev_open -> %d\n", result);
    if (result == OVEXSDK_OK) {
        printf("ovexsdk_dev_close -> %d\n", ovexsdk_dev_close(ctx));
    }
    /* Releasing waits until every queued log line has reached the callback. */
    printf("ovexsdk_ctx_release -> %d\n", ovexsdk_ctx_release(ctx));
    free(ctx);
    return 0;
}
