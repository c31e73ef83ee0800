/* Opens a board by its serial number, powers its units up, shows their state, powers them down
 * again and closes the board, printing the library's log as it goes. A board that waits in its
 * boot loader gets its firmware during the open. */
#include <stdbool.h>
#include <stdio.h>
#include <stdlib.h>

#include "ovexsdk.h"

enum { kMaxUnits = 8 };

static void on_log(const char* text, ovexsdk_log_severity severity, void* param) {
    (void)param;
    if (severity <= OVEXSDK_LOG_INFO) {
        printf("  [log] %s", text);
    }
}

static void show_units(ovexsdk_dev_ctx* ctx) {
    ovexsdk_dev_unit_info units[kMaxUnits];
    uint8_t count = kMaxUnits;
    if (ovexsdk_dev_get_unit_info(ctx, units, &count) != OVEXSDK_OK) {
        return;
    }
    for (uint8_t i = 0; i < count; ++i) {
        bool powered = false;
        const ovexsdk_err_code result = ovexsdk_dev_is_unit_powered(ctx, units[i].index, &powered);
        printf("  unit %u '%s': %s\n", (unsigned)units[i].index, units[i].name,
               result != OVEXSDK_OK ? "unknown" : powered ? "powered" : "off");
    }
}

/* Everything behind a good open; answers the first failing result. */
static ovexsdk_err_code power_cycle(ovexsdk_dev_ctx* ctx) {
    show_units(ctx);
    ovexsdk_err_code result = ovexsdk_dev_power_up(ctx);
    printf("ovexsdk_dev_power_up -> %d\n", result);
    if (result != OVEXSDK_OK) {
        return result;
    }
    bool powered = false;
    result = ovexsdk_dev_is_powered(ctx, &powered);
    printf("ovexsdk_dev_is_powered -> %d, %s\n", result, powered ? "true" : "false");
    show_units(ctx);
    result = ovexsdk_dev_power_down(ctx);
    printf("ovexsdk_dev_power_down -> %d\n", result);
    show_units(ctx);
    return result;
}

int main(int argc, char** argv) {
    if (argc != 2) {
        fprintf(stderr, "usage: %s SERIAL\n", argv[0]);
        return 2;
    }
    char locator[32];
    snprintf(locator, sizeof locator, "usb:sn:%s", argv[1]);

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
    ovexsdk_log_set_cb(ctx, on_log, &format, NULL);

    result = ovexsdk_dev_open(ctx);
    printf("ovexsdk_dev_open -> %d\n", result);
    if (result == OVEXSDK_OK) {
        result = power_cycle(ctx);
        const ovexsdk_err_code closed = ovexsdk_dev_close(ctx);
        printf("ovexsdk_dev_close -> %d\n", closed);
        if (result == OVEXSDK_OK) {
            result = closed;
        }
    }
    /* Releasing waits until every queued log line has reached the callback. */
    printf("ovexsdk_ctx_release -> %d\n", ovexsdk_ctx_release(ctx));
    free(ctx);
    return result == OVEXSDK_OK ? 0 : 1;
}
