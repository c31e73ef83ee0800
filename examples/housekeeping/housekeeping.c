/* Opens a board, powers it up and looks after its housekeeping: the monitors with callbacks for
 * a few of them, the bias supply and the Peltier's set point while they settle, the identity in
 * the EEPROM's security area and the start of the back-end flash. Then it removes the callbacks,
 * powers the board down and closes it. Monitor callbacks run on the library's notification tasks,
 * several at a time, so everything printed goes through one lock. */
#include <stdarg.h>
#include <stdbool.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <threads.h>

#include "ovexsdk.h"

enum { kPolls = 5, kSecurityBytes = 16, kFlashBytes = 256 };

/* The monitors whose changes the program follows. */
static const char* const kWatched[] = {"U_BIAS", "I_BIAS", "TSENS_TEMP", "PELTIER_OUTPUT"};
enum { kWatchedCount = sizeof kWatched / sizeof kWatched[0] };

static mtx_t print_lock;

/* printf under the lock, so that lines of the callbacks and of the main thread don't mix. */
static void say(const char* format, ...) __attribute__((format(printf, 1, 2)));

static void say(const char* format, ...) {
    va_list args;
    va_start(args, format);
    mtx_lock(&print_lock);
    vprintf(format, args);
    fflush(stdout);
    mtx_unlock(&print_lock);
    va_end(args);
}

static void on_log(const char* text, ovexsdk_log_severity severity, void* param) {
    (void)param;
    if (severity <= OVEXSDK_LOG_WARNING) {
        say("  [log] %s", text);
    }
}

static double as_double(const ovexsdk_mon_info* info, ovexsdk_mon_value value) {
    return info->type == 1 ? (double)value.i : (double)value.f;
}

static void on_value_changed(const ovexsdk_mon_on_value_changed_args* args, void* param) {
    (void)param;
    say("  [monitor] %s = %.3f (warning %u, error %u, available %u) at %u\n", args->info->id,
        as_double(args->info, args->value), (unsigned)args->flags[0], (unsigned)args->flags[1],
        (unsigned)args->flags[2], (unsigned)args->timestamp);
}

static void on_avail_changed(const ovexsdk_mon_on_avail_changed_args* args, void* param) {
    (void)param;
    say("  [monitor] %s %s (flags 0x%x) at %u\n", args->info->id,
        (args->available & 1) != 0 ? "available" : "not available", (unsigned)args->available,
        (unsigned)args->timestamp);
}

/* Sets or removes (null functions) the callbacks of the watched monitors. */
static ovexsdk_err_code subscribe(ovexsdk_dev_ctx* ctx, bool on) {
    uint32_t count = 0;
    ovexsdk_err_code result = ovexsdk_mon_get_count(ctx, &count);
    for (uint32_t index = 0; result == OVEXSDK_OK && index < count; ++index) {
        ovexsdk_mon_info info;
        result = ovexsdk_mon_get_info(ctx, index, &info);
        for (int w = 0; result == OVEXSDK_OK && w < kWatchedCount; ++w) {
            if (strcmp(info.id, kWatched[w]) != 0) {
                continue;
            }
            const ovexsdk_err_code value =
                ovexsdk_mon_set_value_changed_cb(ctx, index, on ? on_value_changed : NULL, NULL);
            const ovexsdk_err_code avail =
                ovexsdk_mon_set_avail_changed_cb(ctx, index, on ? on_avail_changed : NULL, NULL);
            say("%s %s -> %d %d\n", on ? "subscribe" : "unsubscribe", info.id, value, avail);
            result = value != OVEXSDK_OK ? value : avail;
        }
    }
    return result;
}

static ovexsdk_err_code show_monitors(ovexsdk_dev_ctx* ctx) {
    uint32_t count = 0;
    ovexsdk_err_code result = ovexsdk_mon_get_count(ctx, &count);
    say("ovexsdk_mon_get_count -> %d, %u\n", result, (unsigned)count);
    for (uint32_t index = 0; result == OVEXSDK_OK && index < count; ++index) {
        ovexsdk_mon_info info;
        ovexsdk_mon_value value;
        result = ovexsdk_mon_get_info(ctx, index, &info);
        if (result == OVEXSDK_OK) {
            result = ovexsdk_mon_get_value(ctx, index, &value);
        }
        if (result != OVEXSDK_OK) {
            say("  monitor %u -> %d\n", (unsigned)index, result);
        } else {
            say("  %-16s %10.3f in %.3f..%.3f\n", info.id, as_double(&info, value),
                as_double(&info, info.minimum), as_double(&info, info.maximum));
        }
    }
    return result;
}

static void pause_briefly(void) {
    const struct timespec interval = {.tv_sec = 0, .tv_nsec = 200 * 1000 * 1000};
    thrd_sleep(&interval, NULL);
}

static float clamp(float value, float minimum, float maximum) {
    return value < minimum ? minimum : value > maximum ? maximum : value;
}

/* The first bias supply and the first temperature controller get new set points; their actual
 * values are read a few times while they settle, as far as the board gets in that time. */
static ovexsdk_err_code settle(ovexsdk_dev_ctx* ctx) {
    uint8_t biases = 1;
    ovexsdk_bias_info bias = {0};
    ovexsdk_err_code result = ovexsdk_bias_get_info(ctx, &bias, &biases);
    say("ovexsdk_bias_get_info -> %d: %.1f to %.1f V\n", result, bias.minimum, bias.maximum);
    if (result != OVEXSDK_OK || biases == 0) {
        return result != OVEXSDK_OK ? result : OVEXSDK_ERR_FAILED;
    }
    uint64_t controllers = 1;
    ovexsdk_temp_ctrl_info temp = {0};
    result = ovexsdk_temp_get_info(ctx, &temp, &controllers);
    say("ovexsdk_temp_get_info -> %d: %.1f to %.1f %s\n", result, temp.minimum, temp.maximum,
        temp.unit == 1 ? "degrees C" : "%");
    if (result != OVEXSDK_OK || controllers == 0) {
        return result != OVEXSDK_OK ? result : OVEXSDK_ERR_FAILED;
    }

    const float bias_goal = clamp(50.0f, bias.minimum, bias.maximum);
    const float temp_goal = clamp(20.0f, temp.minimum, temp.maximum);
    result = ovexsdk_bias_set_desired(ctx, 0, bias_goal);
    say("ovexsdk_bias_set_desired(%.1f V) -> %d\n", bias_goal, result);
    if (result != OVEXSDK_OK) {
        return result;
    }
    result = ovexsdk_temp_set_desired(ctx, 0, temp_goal);
    say("ovexsdk_temp_set_desired(%.1f) -> %d\n", temp_goal, result);
    if (result != OVEXSDK_OK) {
        return result;
    }
    float desired_bias = 0;
    float desired_temp = 0;
    const ovexsdk_err_code got_bias = ovexsdk_bias_get_desired(ctx, 0, &desired_bias);
    const ovexsdk_err_code got_temp = ovexsdk_temp_get_desired(ctx, 0, &desired_temp);
    say("desired -> %d %d: bias %.1f V, temperature %.1f\n", got_bias, got_temp, desired_bias,
        desired_temp);
    for (int poll = 0; poll < kPolls; ++poll) {
        pause_briefly();
        float actual_bias = 0;
        float actual_temp = 0;
        const ovexsdk_err_code bias_result = ovexsdk_bias_get_actual(ctx, 0, &actual_bias);
        const ovexsdk_err_code temp_result = ovexsdk_temp_get_actual(ctx, 0, &actual_temp);
        say("actual -> %d %d: bias %.2f V, temperature %.2f\n", bias_result, temp_result,
            actual_bias, actual_temp);
        if (bias_result != OVEXSDK_OK || temp_result != OVEXSDK_OK) {
            return bias_result != OVEXSDK_OK ? bias_result : temp_result;
        }
    }
    return got_bias != OVEXSDK_OK ? got_bias : got_temp;
}

/* The first bytes of the EEPROM whose name says it is the security area: the board's serial
 * number. */
static ovexsdk_err_code show_identity(ovexsdk_dev_ctx* ctx) {
    uint8_t count = 0;
    ovexsdk_err_code result = ovexsdk_eeprom_get_count(ctx, &count);
    say("ovexsdk_eeprom_get_count -> %d, %u\n", result, (unsigned)count);
    for (uint8_t id = 0; result == OVEXSDK_OK && id < count; ++id) {
        ovexsdk_eeprom_info info = {0};
        result = ovexsdk_eeprom_get_info(ctx, id, &info);
        say("  eeprom %u -> %d: %s, %s, %u region(s)\n", (unsigned)id, result, info.id,
            info.part_number, (unsigned)info.region_count);
        if (result != OVEXSDK_OK || strstr(info.id, "security") == NULL) {
            continue;
        }
        ovexsdk_eeprom_region region;
        result = ovexsdk_eeprom_get_region_info(ctx, id, 0, &region);
        if (result != OVEXSDK_OK) {
            return result;
        }
        uint8_t bytes[kSecurityBytes];
        uint64_t length = sizeof bytes;
        result = ovexsdk_eeprom_read(ctx, id, region.first_address, bytes, &length);
        say("  ovexsdk_eeprom_read(%u, 0x%04x, %u) -> %d, %u bytes:", (unsigned)id,
            (unsigned)region.first_address, (unsigned)sizeof bytes, result, (unsigned)length);
        mtx_lock(&print_lock);
        for (uint64_t i = 0; i < length && i < sizeof bytes; ++i) {
            printf(" %02x", (unsigned)bytes[i]);
        }
        printf("\n");
        mtx_unlock(&print_lock);
    }
    return result;
}

/* The layout of every flash and the first bytes of the first. */
static ovexsdk_err_code show_flash(ovexsdk_dev_ctx* ctx) {
    uint8_t count = 0;
    ovexsdk_err_code result = ovexsdk_flash_get_count(ctx, &count);
    say("ovexsdk_flash_get_count -> %d, %u\n", result, (unsigned)count);
    for (uint8_t id = 0; result == OVEXSDK_OK && id < count; ++id) {
        ovexsdk_flash_info info = {0};
        result = ovexsdk_flash_get_info(ctx, id, &info);
        say("  flash %u -> %d: %s, %s, %u bytes, pages of %u, %u region(s)\n", (unsigned)id, result,
            info.id, info.part_number, (unsigned)info.first_number, (unsigned)info.second_number,
            (unsigned)info.region_count);
        for (uint16_t r = 0; result == OVEXSDK_OK && r < info.region_count; ++r) {
            ovexsdk_flash_region_info region = {0};
            result = ovexsdk_flash_get_region_info(ctx, id, r, &region);
            say("    region %u -> %d: at 0x%08x, %u sectors of %u bytes\n", (unsigned)r, result,
                (unsigned)region.start_address, (unsigned)region.sector_count,
                (unsigned)region.sector_size);
        }
    }
    if (result != OVEXSDK_OK || count == 0) {
        return result;
    }
    static uint8_t bytes[kFlashBytes];
    const ovexsdk_flash_read_input input = {.flash_id = 0, .address = 0, .length = sizeof bytes};
    ovexsdk_flash_buffer buffer = {.data = bytes, .size = sizeof bytes};
    result = ovexsdk_flash_read(ctx, &input, &buffer);
    unsigned erased = 0;
    for (uint64_t i = 0; result == OVEXSDK_OK && i < buffer.size; ++i) {
        erased += bytes[i] == 0xFF;
    }
    say("ovexsdk_flash_read(0, 0x0, %u) -> %d, %u bytes, %u of them erased (0xff)\n",
        (unsigned)sizeof bytes, result, (unsigned)buffer.size, erased);
    return result;
}

/* Everything behind a good power-up; answers the first failing result. The callbacks are
 * removed again whatever happens in between. */
static ovexsdk_err_code use_housekeeping(ovexsdk_dev_ctx* ctx) {
    ovexsdk_err_code result = subscribe(ctx, true);
    if (result == OVEXSDK_OK) {
        result = show_monitors(ctx);
    }
    if (result == OVEXSDK_OK) {
        result = settle(ctx);
    }
    if (result == OVEXSDK_OK) {
        result = show_identity(ctx);
    }
    if (result == OVEXSDK_OK) {
        result = show_flash(ctx);
    }
    const ovexsdk_err_code removed = subscribe(ctx, false);
    return result != OVEXSDK_OK ? result : removed;
}

int main(int argc, char** argv) {
    if (argc != 2) {
        fprintf(stderr, "usage: %s SERIAL\n", argv[0]);
        return 2;
    }
    if (mtx_init(&print_lock, mtx_plain) != thrd_success) {
        return 1;
    }
    char locator[32];
    snprintf(locator, sizeof locator, "usb:sn:%s", argv[1]);

    ovexsdk_dev_ctx* ctx = malloc(sizeof *ctx);
    if (ctx == NULL) {
        return 1;
    }
    ovexsdk_err_code result = ovexsdk_ctx_create(ctx, locator);
    say("ovexsdk_ctx_create(\"%s\") -> %d\n", locator, result);
    if (result != OVEXSDK_OK) {
        free(ctx);
        return 1;
    }
    const ovexsdk_log_fmt format = {
        .preamble = false, .indentation = false, .prefix = true, .message = true};
    ovexsdk_log_set_cb(ctx, on_log, &format, NULL);

    result = ovexsdk_dev_open(ctx);
    say("ovexsdk_dev_open -> %d\n", result);
    if (result == OVEXSDK_OK) {
        result = ovexsdk_dev_power_up(ctx);
        say("ovexsdk_dev_power_up -> %d\n", result);
        if (result == OVEXSDK_OK) {
            result = use_housekeeping(ctx);
            const ovexsdk_err_code down = ovexsdk_dev_power_down(ctx);
            say("ovexsdk_dev_power_down -> %d\n", down);
        }
        const ovexsdk_err_code closed = ovexsdk_dev_close(ctx);
        say("ovexsdk_dev_close -> %d\n", closed);
        if (result == OVEXSDK_OK) {
            result = closed;
        }
    }
    say("ovexsdk_ctx_release -> %d\n", ovexsdk_ctx_release(ctx));
    free(ctx);
    mtx_destroy(&print_lock);
    return result == OVEXSDK_OK ? 0 : 1;
}
