/* A host written against the older interface alone (ovexlegacy.h): lists the boards, opens one,
 * powers its boards up, follows its monitors through a callback, configures the chip from a
 * file, takes one second of data-driven hits sorted by time, and prints what arrived. */
#include <inttypes.h>
#include <stdatomic.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include "ovexlegacy.h"

/* Stops the program with the call's text when a call fails. */
#define CHECK(call)                                    \
    do {                                               \
        const int32_t result_ = (call);                \
        printf("%s -> %" PRId32 "\n", #call, result_); \
        if (result_ != OVEX_OK) {                      \
            return 1;                                  \
        }                                              \
    } while (0)

static void on_log(const char* text, int32_t severity, void* user) {
    (void)user;
    if (severity < 0) { /* warnings and worse */
        printf("  [log] %s", text);
    }
}

static void on_board(const ovexsdk_enum_info* element, void* user) {
    const char* serial = "";
    const char* product = "";
    const char* locator = "";
    ovex_enum_get_serial_number(element, &serial);
    ovex_enum_get_product(element, &product);
    ovex_enum_get_connection_string(element, &locator);
    printf("  board %s: %s at %s\n", serial, product, locator);
    ++*(int*)user;
}

/* Monitor readings arrive on the library's tasks, several at a time. */
static atomic_uint g_readings;

static void on_monitor(ovex_mon_event* event, void* user) {
    (void)user;
    const char* id = "";
    float value = 0.0F;
    ovex_mon_event_id(event, &id);
    ovex_mon_event_get_value_as_float(event, &value);
    if (atomic_fetch_add(&g_readings, 1) < 3) {
        printf("  [monitor] %s = %.3f\n", id, (double)value);
    }
}

/* What the data callback saw; it runs on the acquisition's thread, one result at a time. */
typedef struct {
    uint64_t callbacks;
    uint64_t hits;
    uint64_t steps_back; /* records earlier than the one before: 0 when sorted */
    uint64_t last_toa;
    uint64_t tot_sum;
} tally;

static void on_data(ovex_acq* acquisition, void* user) {
    tally* seen = user;
    uint32_t count = 0;
    const void* data = NULL;
    ++seen->callbacks;
    if (ovex_acq_tpx3_get_packet_count(acquisition, &count) != OVEX_OK ||
        ovex_acq_tpx3_get_packets(acquisition, &data) != OVEX_OK || data == NULL) {
        return;
    }
    const ovexsdk_acq_tpx3_toa_tot_record* records = data;
    for (uint32_t i = 0; i < count; ++i) {
        seen->steps_back += records[i].toa < seen->last_toa;
        seen->last_toa = records[i].toa;
        seen->tot_sum += records[i].tot;
    }
    seen->hits += count;
}

static char* read_file(const char* path) {
    FILE* file = fopen(path, "rb");
    if (file == NULL) {
        return NULL;
    }
    fseek(file, 0, SEEK_END);
    const long size = ftell(file);
    rewind(file);
    char* text = size >= 0 ? malloc((size_t)size + 1) : NULL;
    if (text != NULL) {
        text[fread(text, 1, (size_t)size, file)] = '\0';
    }
    fclose(file);
    return text;
}

static int run(ovex_ctx* ctx, const char* serial, const char* config) {
    int boards = 0;
    uint32_t listed = 0;
    CHECK(ovex_dev_enumerate(ctx, on_board, &boards, &listed));

    char locator[32];
    snprintf(locator, sizeof locator, "usb:sn:%s", serial);
    CHECK(ovex_dev_open(ctx, locator));

    /* The board's power units, the backend first. */
    uint32_t units = 0;
    CHECK(ovex_board_count(ctx, &units));
    for (uint32_t i = 0; i < units; ++i) {
        const char* name = "";
        CHECK(ovex_board_id(ctx, i, &name));
        printf("power unit %" PRIu32 ": %s\n", i, name);
        CHECK(ovex_board_power_on(ctx, name));
    }

    uint32_t monitors = 0;
    CHECK(ovex_mon_count(ctx, &monitors));
    for (uint32_t i = 0; i < monitors; ++i) {
        const char* id = "";
        if (ovex_mon_id(ctx, i, &id) == OVEX_OK) {
            ovex_mon_event_set_onvaluechanged(ctx, id, on_monitor, NULL);
        }
    }

    uint32_t chips = 0;
    const char* chip_id = "";
    CHECK(ovex_chip_count(ctx, &chips));
    CHECK(ovex_chip_id(ctx, 0, &chip_id));
    printf("%" PRIu32 " chip(s), the first %s\n", chips, chip_id);
    char* text = read_file(config);
    if (text == NULL) {
        printf("could not read %s\n", config);
        return 1;
    }
    const int32_t loaded = ovex_load_configuration(ctx, "xml", text);
    free(text);
    CHECK(loaded);

    /* One internal shutter of a second, its hits sorted by time of arrival. */
    tally seen = {0};
    CHECK(ovex_chip_mode_select(ctx, "tpx3-toa-tot-dd-s"));
    CHECK(ovex_trigger_mode_select(ctx, "software-start-shutter-duration"));
    CHECK(ovex_trigger_set_shutter_duration(ctx, 1.0F));
    CHECK(ovex_acq_set_data_callback(ctx, "1", on_data, &seen));
    CHECK(ovex_acq_begin(ctx, "1"));
    CHECK(ovex_trigger(ctx));
    CHECK(ovex_acq_end(ctx, "1"));
    printf("%" PRIu64 " hits in %" PRIu64 " callbacks, mean ToT %.1f, time order: %" PRIu64
           " steps back\n",
           seen.hits, seen.callbacks, seen.hits ? (double)seen.tot_sum / (double)seen.hits : 0.0,
           seen.steps_back);
    printf("%u monitor readings\n", atomic_load(&g_readings));

    for (uint32_t i = units; i-- > 0;) {
        const char* name = "";
        CHECK(ovex_board_id(ctx, i, &name));
        CHECK(ovex_board_power_off(ctx, name));
    }
    CHECK(ovex_dev_close(ctx));
    return 0;
}

int main(int argc, char** argv) {
    if (argc != 3) {
        fprintf(stderr, "usage: %s SERIAL CHIP_CONFIG.xml\n", argv[0]);
        return 2;
    }
    int32_t major = 0;
    int32_t minor = 0;
    int32_t patch = 0;
    ovex_version(&major, &minor, &patch);
    printf("older interface %" PRId32 ".%" PRId32 ".%" PRId32 "\n", major, minor, patch);
    ovex_ctx* ctx = ovex_ctx_new();
    if (ctx == NULL) {
        return 1;
    }
    ovex_log_set_func(ctx, on_log, NULL, NULL);
    const int failed = run(ctx, argv[1], argv[2]);
    /* Delivers the log lines still queued, then frees the handle. */
    printf("ovex_ctx_delete -> %" PRId32 "\n", ovex_ctx_delete(ctx));
    return failed;
}
