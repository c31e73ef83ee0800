/* A host in C11 against the exported header: types, constants and calls as C sees them. */
#include <stdio.h>
#include <string.h>

#include "ovexsdk.h"

_Static_assert(sizeof(ovexsdk_dev_ctx) == 1024, "the handle record is 1024 bytes");
_Static_assert(_Alignof(ovexsdk_dev_ctx) == 4, "the handle record is 4-byte aligned");
_Static_assert(sizeof(ovexsdk_err_code) == 4, "result codes are 32-bit");
_Static_assert(sizeof(ovexsdk_log_fmt) == 4, "four one-byte flags");
_Static_assert(sizeof(ovexsdk_enum_info) == 160, "identity record");
_Static_assert(sizeof(ovexsdk_dev_unit_info) == 65, "unit record");

static int failures = 0;

static void expect(int condition, const char* what) {
    if (!condition) {
        fprintf(stderr, "FAILED: %s\n", what);
        ++failures;
    }
}

int main(void) {
    ovexsdk_dev_ctx ctx;
    memset(&ctx, 0, sizeof ctx);
    expect(ovexsdk_dev_open(&ctx) == OVEXSDK_ERR_INVALID, "uncreated record refused");
    expect(ovexsdk_ctx_create(&ctx, "usb:ix:100") == OVEXSDK_ERR_INVALID, "bad locator refused");
    expect(ovexsdk_ctx_create(&ctx, "usb:ix:0") == OVEXSDK_OK, "context created");
    expect(ovexsdk_dev_open(&ctx) == OVEXSDK_ERR_NO_DEVICE, "no board");
    expect(ovexsdk_dev_power_up(&ctx) == OVEXSDK_ERR_NO_DEVICE, "no device to power");
    expect(ovexsdk_script_stop(&ctx) == OVEXSDK_OK, "no script to stop");
    expect(ovexsdk_ctx_release(&ctx) == OVEXSDK_OK, "context released");
    printf("%d passed, %d failed\n", 7 - failures, failures);
    return failures == 0 ? 0 : 1;
}
