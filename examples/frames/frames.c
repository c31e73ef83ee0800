/* Takes frames with the internal trigger from a Timepix3 board: the chip in its frame-based
 * ToA+ToT mode, one shutter of a given time per frame. Prints the hits of each frame and, at the
 * end, a coarse picture of all frames together. Log lines of warning and error severity are
 * printed as they come. */
#include <stdbool.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include "ovexsdk.h"

enum { kSide = 256, kPictureColumns = 64, kPictureRows = 32 };

/* What the data callback gathers, on the library's thread. */
typedef struct frames {
    uint64_t hits;      /* in the last frame */
    uint64_t callbacks; /* frames received */
    uint64_t image[kSide * kSide];
} frames;

static void on_log(const char* text, ovexsdk_log_severity severity, void* param) {
    (void)param;
    if (severity <= OVEXSDK_LOG_WARNING) {
        printf("  [log] %s", text);
    }
}

/* The chip numbers its pixels as its configuration read-back does: the address with its two
 * bytes swapped counts down from the last pixel of the host's matrix (row * 256 + column). */
static uint32_t pixel_of(uint32_t address) {
    const uint32_t swapped = ((address & 0xFFu) << 8) | ((address >> 8) & 0xFFu);
    return 65535u - swapped;
}

static void on_frame(ovexsdk_dev_ctx* ctx, void* user) {
    frames* seen = user;
    ovexsdk_acq_tpx3_acq_toa_tot hits;
    if (ovexsdk_acq_get_tpx3_toa_tot_packets(ctx, &hits) != OVEXSDK_OK) {
        return;
    }
    for (uint64_t i = 0; i < hits.count; ++i) {
        ++seen->image[pixel_of(hits.records[i].address)];
    }
    seen->hits = hits.count;
    ++seen->callbacks;
}

/* Each character stands for a block of pixels; darker characters for more hits. */
static void print_picture(const frames* seen) {
    static const char kShades[] = " .:-=+*#%@";
    const int block_x = kSide / kPictureColumns;
    const int block_y = kSide / kPictureRows;
    static uint64_t sums[kPictureRows][kPictureColumns];
    uint64_t most = 0;
    for (int y = 0; y < kSide; ++y) {
        for (int x = 0; x < kSide; ++x) {
            uint64_t* sum = &sums[y / block_y][x / block_x];
            *sum += seen->image[y * kSide + x];
            if (*sum > most) {
                most = *sum;
            }
        }
    }
    for (int row = 0; row < kPictureRows; ++row) {
        char line[kPictureColumns + 1];
        for (int column = 0; column < kPictureColumns; ++column) {
            const uint64_t shade = most == 0 ? 0 : sums[row][column] * 9 / most;
            line[column] = kShades[shade];
        }
        line[kPictureColumns] = '\0';
        printf("  |%s|\n", line);
    }
}

static ovexsdk_err_code take_frames(ovexsdk_dev_ctx* ctx, int count, float shutter) {
    ovexsdk_err_code result = ovexsdk_chip_set_mode(ctx, ToAToTFBZS);
    printf("ovexsdk_chip_set_mode(ToAToTFBZS) -> %d\n", result);
    if (result != OVEXSDK_OK) {
        return result;
    }
    const ovexsdk_trigger_config trigger = {InternalStartShutterDuration, shutter};
    result = ovexsdk_trigger_configure(ctx, &trigger);
    printf("ovexsdk_trigger_configure(internal, %.3f s) -> %d\n", shutter, result);
    if (result != OVEXSDK_OK) {
        return result;
    }
    frames* seen = calloc(1, sizeof *seen);
    if (seen == NULL) {
        return OVEXSDK_ERR_NO_MEMORY;
    }
    uint64_t total = 0;
    /* A single internal shutter makes one readout: start, open the shutter, wait for its frame. */
    for (int frame = 0; frame < count && result == OVEXSDK_OK; ++frame) {
        seen->hits = 0;
        result = ovexsdk_acq_start(ctx, on_frame, OVEXSDK_ACQ_PROCESSED, NULL, seen);
        if (result == OVEXSDK_OK) {
            result = ovexsdk_trigger_now(ctx);
        }
        if (result == OVEXSDK_OK) {
            result = ovexsdk_acq_await_end(ctx);
        } else {
            ovexsdk_acq_abort(ctx);
        }
        printf("frame %d -> %d: %llu hits\n", frame, result, (unsigned long long)seen->hits);
        total += seen->hits;
    }
    printf("%llu frames received, %llu hits in all\n", (unsigned long long)seen->callbacks,
           (unsigned long long)total);
    print_picture(seen);
    free(seen);
    return result;
}

int main(int argc, char** argv) {
    if (argc != 4) {
        fprintf(stderr, "usage: %s SERIAL FRAMES SHUTTER-SECONDS\n", argv[0]);
        return 2;
    }
    const int count = atoi(argv[2]);
    const float shutter = strtof(argv[3], NULL);
    if (count <= 0 || !(shutter > 0.0f)) {
        fprintf(stderr, "FRAMES and SHUTTER-SECONDS must be positive\n");
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
        result = ovexsdk_dev_power_up(ctx);
        printf("ovexsdk_dev_power_up -> %d\n", result);
        if (result == OVEXSDK_OK) {
            result = ovexsdk_chip_configure(ctx, 0);
            printf("ovexsdk_chip_configure -> %d\n", result);
        }
        if (result == OVEXSDK_OK) {
            result = take_frames(ctx, count, shutter);
        }
        printf("ovexsdk_dev_power_down -> %d\n", ovexsdk_dev_power_down(ctx));
        const ovexsdk_err_code closed = ovexsdk_dev_close(ctx);
        printf("ovexsdk_dev_close -> %d\n", closed);
        if (result == OVEXSDK_OK) {
            result = closed;
        }
    }
    printf("ovexsdk_ctx_release -> %d\n", ovexsdk_ctx_release(ctx));
    free(ctx);
    return result == OVEXSDK_OK ? 0 : 1;
}
