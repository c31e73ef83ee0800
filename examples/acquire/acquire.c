/* Acquires from a Timepix3 or Timepix2 board through the exported interface: frames in a
 * frame-based mode (the Timepix2's whole frames of counts at 8, 10 or 14 bits a pixel among
 * them), or a data-driven readout as records, records in time order, or a binned scan. The chip is
 * configured from a file first. At the end it prints what arrived and a coarse picture of it.
 * Log lines of warning and error severity are printed as they come. */
#include <stdio.h>
#include <stdlib.h>

#include "options.h"
#include "ovexsdk.h"
#include "report.h"
#include "run.h"
#include "tally.h"

enum { kExitFailure = 1, kExitUsage = 2 };

static void on_log(const char* text, ovexsdk_log_severity severity, void* param) {
    (void)param;
    if (severity <= OVEXSDK_LOG_WARNING) {
        printf("  [log] %s", text);
    }
}

/* The whole file as a terminated text, or NULL. */
static char* read_file(const char* path) {
    FILE* file = fopen(path, "rb");
    if (file == NULL) {
        perror(path);
        return NULL;
    }
    char* text = NULL;
    if (fseek(file, 0, SEEK_END) == 0) {
        const long size = ftell(file);
        if (size >= 0 && fseek(file, 0, SEEK_SET) == 0) {
            text = malloc((size_t)size + 1);
            if (text != NULL && fread(text, 1, (size_t)size, file) == (size_t)size) {
                text[size] = '\0';
            } else {
                free(text);
                text = NULL;
            }
        }
    }
    fclose(file);
    return text;
}

/* Everything behind a good open: power, the chip's configuration, the run and its report. */
static ovexsdk_err_code use_board(ovexsdk_dev_ctx* ctx, const acquire_options* options,
                                  const char* config, tally* seen) {
    ovexsdk_err_code result = ovexsdk_dev_power_up(ctx);
    printf("ovexsdk_dev_power_up -> %d\n", result);
    if (result != OVEXSDK_OK) {
        return result;
    }
    result = ovexsdk_chip_configure_from_string(ctx, 0, config);
    printf("ovexsdk_chip_configure_from_string(%s) -> %d\n", options->config_path, result);
    if (result == OVEXSDK_OK) {
        double seconds = 0.0;
        result = acquire_run(ctx, options, seen, &seconds);
        acquire_report(options, seen, seconds);
    }
    printf("ovexsdk_dev_power_down -> %d\n", ovexsdk_dev_power_down(ctx));
    return result;
}

static ovexsdk_err_code acquire(const acquire_options* options, const char* config, tally* seen) {
    char locator[32];
    snprintf(locator, sizeof locator, "usb:sn:%s", options->serial);
    ovexsdk_dev_ctx* ctx = malloc(sizeof *ctx);
    if (ctx == NULL) {
        return OVEXSDK_ERR_NO_MEMORY;
    }
    ovexsdk_err_code result = ovexsdk_ctx_create(ctx, locator);
    printf("ovexsdk_ctx_create(\"%s\") -> %d\n", locator, result);
    if (result != OVEXSDK_OK) {
        free(ctx);
        return result;
    }
    const ovexsdk_log_fmt format = {
        .preamble = false, .indentation = false, .prefix = true, .message = true};
    ovexsdk_log_set_cb(ctx, on_log, &format, NULL);

    result = ovexsdk_dev_open(ctx);
    printf("ovexsdk_dev_open -> %d\n", result);
    if (result == OVEXSDK_OK) {
        result = use_board(ctx, options, config, seen);
        const ovexsdk_err_code closed = ovexsdk_dev_close(ctx);
        printf("ovexsdk_dev_close -> %d\n", closed);
        if (result == OVEXSDK_OK) {
            result = closed;
        }
    }
    printf("ovexsdk_ctx_release -> %d\n", ovexsdk_ctx_release(ctx));
    free(ctx);
    return result;
}

int main(int argc, char** argv) {
    acquire_options options;
    if (!acquire_parse(argc, argv, &options, stderr)) {
        acquire_print_usage(argv[0], stderr);
        return kExitUsage;
    }
    char* config = read_file(options.config_path);
    if (config == NULL) {
        return kExitUsage;
    }
    tally* seen =
        tally_create(acquire_is_scan(&options) ? (uint64_t)options.lines * options.bins : 0);
    if (seen == NULL) {
        free(config);
        return kExitFailure;
    }
    const ovexsdk_err_code result = acquire(&options, config, seen);
    const int status =
        result == OVEXSDK_OK && seen->failed_reads == 0 && seen->odd_frames == 0 ? 0 : kExitFailure;
    tally_destroy(seen);
    free(config);
    return status;
}
