/* A host built against the installed library: prints the library's version, opens the first
 * board, powers it up and down, and says how it went. Exit 0 only when every call succeeded. */
#include <inttypes.h>
#include <stdio.h>
#include <stdlib.h>

#include <ovexsdk.h>

static int check(ovexsdk_err_code result, const char* call) {
    printf("%s -> %d\n", call, result);
    return result == OVEXSDK_OK;
}

int main(void) {
    const ovexsdk_version* version = ovexsdk_version_get();
    printf("library %u.%u.%u\n", version->major, version->minor, version->patch);

    ovexsdk_enum_info boards[4];
    uint64_t count = 4;
    if (!check(ovexsdk_enum_get_info(boards, &count), "ovexsdk_enum_get_info") || count == 0) {
        return 1;
    }
    printf("%" PRIu64 " board(s), the first %s\n", count, boards[0].connection_string);

    ovexsdk_dev_ctx* ctx = malloc(sizeof *ctx);
    if (ctx == NULL ||
        !check(ovexsdk_ctx_create(ctx, boards[0].connection_string), "ovexsdk_ctx_create")) {
        free(ctx);
        return 1;
    }
    int ok = check(ovexsdk_dev_open(ctx), "ovexsdk_dev_open");
    if (ok) {
        uint8_t units = 0;
        ok = check(ovexsdk_dev_power_up(ctx), "ovexsdk_dev_power_up") &&
             check(ovexsdk_dev_get_unit_count(ctx, &units), "ovexsdk_dev_get_unit_count") &&
             check(ovexsdk_dev_power_down(ctx), "ovexsdk_dev_power_down");
        printf("%u power unit(s)\n", units);
        ok = check(ovexsdk_dev_close(ctx), "ovexsdk_dev_close") && ok;
    }
    ok = check(ovexsdk_ctx_release(ctx), "ovexsdk_ctx_release") && ok;
    free(ctx);
    return ok ? 0 : 1;
}
