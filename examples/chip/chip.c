/* Opens a Timepix3 board, powers it up and works with its chip: the chip's description, its DACs,
 * its configuration from a file, a threshold in keV, a user pixel mask, the operating mode. Then
 * it powers the board down and closes it. Log lines of warning and error severity are printed
 * as they come. */
#include <stdbool.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include "ovexsdk.h"

enum { kMaxChips = 4, kPixels = 256 * 256 };

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

static void show_chips(ovexsdk_dev_ctx* ctx) {
    ovexsdk_chip_info infos[kMaxChips];
    uint8_t count = kMaxChips;
    const ovexsdk_err_code result = ovexsdk_chip_get_info(ctx, infos, &count);
    printf("ovexsdk_chip_get_info -> %d, %u chip(s)\n", result, (unsigned)count);
    for (uint8_t i = 0; result == OVEXSDK_OK && i < count; ++i) {
        printf("  chip %u: %s, %u x %u pixels, modes", (unsigned)i, infos[i].chip_id,
               (unsigned)infos[i].width, (unsigned)infos[i].height);
        for (int m = 0; m < 8 && infos[i].modes[m] != 0; ++m) {
            printf(" %d", (int)infos[i].modes[m]);
        }
        printf(", polarities %d %d\n", (int)infos[i].polarities[0], (int)infos[i].polarities[1]);
    }
}

/* The DACs are states of the board; a script reads them the way the board names them. */
static const char kShowDacs[] =
    "local states = Usb.VendorCmd.States.new(device)\n"
    "for _, name in ipairs(states:names()) do\n"
    "  if name:match('^DAC_.*_0$') then\n"
    "    print(string.format('  %-18s %s', name:sub(5, -3), tostring(states:get_value(name))))\n"
    "  end\n"
    "end\n";

static void show_dacs(ovexsdk_dev_ctx* ctx) {
    fflush(stdout);
    printf("ovexsdk_script_execute (DACs) -> %d\n", ovexsdk_script_execute(ctx, kShowDacs));
}

static void show_threshold(ovexsdk_dev_ctx* ctx) {
    ovexsdk_chip_thld_info info;
    uint8_t count = 1;
    float kev = 0;
    uint32_t raw = 0;
    const ovexsdk_err_code got_info = ovexsdk_chip_get_thld_info(ctx, &info, &count);
    const ovexsdk_err_code got_kev = ovexsdk_chip_get_thld(ctx, 0, &kev);
    const ovexsdk_err_code got_raw = ovexsdk_chip_get_raw_thld(ctx, 0, &raw);
    printf("threshold -> %d %d %d: %.3f keV, raw %u; range %.3f to %.3f keV, raw %u to %u, %s\n",
           got_info, got_kev, got_raw, kev, (unsigned)raw, info.energy_low, info.energy_high,
           (unsigned)info.raw_min, (unsigned)info.raw_max,
           info.calibrated ? "calibrated" : "not calibrated");
}

/* Masks the pixels of column 17 and reads the user mask back. */
static ovexsdk_err_code mask_column(ovexsdk_dev_ctx* ctx) {
    static uint8_t mask[kPixels];
    static uint8_t back[kPixels];
    for (int y = 0; y < 256; ++y) {
        mask[y * 256 + 17] = 1;
    }
    const ovexsdk_chip_pixel_mask set = {mask, sizeof mask};
    ovexsdk_err_code result = ovexsdk_chip_set_pixel_mask(ctx, 0, &set);
    printf("ovexsdk_chip_set_pixel_mask (column 17) -> %d\n", result);
    if (result != OVEXSDK_OK) {
        return result;
    }
    ovexsdk_chip_pixel_mask get = {back, sizeof back};
    result = ovexsdk_chip_get_pixel_mask(ctx, 0, &get);
    size_t masked = 0;
    for (size_t i = 0; i < sizeof back; ++i) {
        masked += back[i] != 0;
    }
    printf("ovexsdk_chip_get_pixel_mask -> %d, %zu pixels masked, %s\n", result, masked,
           memcmp(mask, back, sizeof mask) == 0 ? "as set" : "DIFFERENT");
    return result;
}

/* Everything behind a good power-up; answers the first failing result. */
static ovexsdk_err_code use_chip(ovexsdk_dev_ctx* ctx, const char* config_path) {
    uint8_t chips = 0;
    ovexsdk_err_code result = ovexsdk_chip_get_count(ctx, &chips);
    printf("ovexsdk_chip_get_count -> %d, %u\n", result, (unsigned)chips);
    if (result != OVEXSDK_OK || chips == 0) {
        return result != OVEXSDK_OK ? result : OVEXSDK_ERR_FAILED;
    }
    show_chips(ctx);
    show_dacs(ctx);

    char* config = read_file(config_path);
    if (config == NULL) {
        return OVEXSDK_ERR_INVALID;
    }
    result = ovexsdk_chip_configure_from_string(ctx, 0, config);
    free(config);
    printf("ovexsdk_chip_configure_from_string(%s) -> %d\n", config_path, result);
    if (result != OVEXSDK_OK) {
        return result;
    }
    show_dacs(ctx);
    show_threshold(ctx);

    result = ovexsdk_chip_set_thld(ctx, 0, 6.0f);
    printf("ovexsdk_chip_set_thld(6.0 keV) -> %d\n", result);
    if (result != OVEXSDK_OK) {
        return result;
    }
    show_threshold(ctx);

    result = mask_column(ctx);
    if (result != OVEXSDK_OK) {
        return result;
    }
    result = ovexsdk_chip_set_polarity(ctx, 0, OVEXSDK_POLARITY_2);
    printf("ovexsdk_chip_set_polarity(2) -> %d\n", result);
    if (result != OVEXSDK_OK) {
        return result;
    }
    result = ovexsdk_chip_set_mode(ctx, ToAToTDD);
    printf("ovexsdk_chip_set_mode(ToAToTDD) -> %d\n", result);
    if (result != OVEXSDK_OK) {
        return result;
    }
    ovexsdk_chip_settings settings;
    uint8_t count = 1;
    result = ovexsdk_chip_get_settings(ctx, &settings, &count);
    printf("ovexsdk_chip_get_settings -> %d: polarity %d, mode %d\n", result,
           (int)settings.polarity, (int)settings.mode);
    return result;
}

int main(int argc, char** argv) {
    if (argc != 3) {
        fprintf(stderr, "usage: %s SERIAL CONFIGURATION-FILE\n", argv[0]);
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
            result = use_chip(ctx, argv[2]);
            const ovexsdk_err_code down = ovexsdk_dev_power_down(ctx);
            printf("ovexsdk_dev_power_down -> %d\n", down);
        }
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
