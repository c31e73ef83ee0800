/*
 * ovex_sdk_ng: host SDK for USB readout boards of Timepix detectors.
 *
 * Every function returns an ovexsdk_err_code; no exception and no C++ type crosses this
 * boundary. A context is memory that the caller owns: allocate an ovexsdk_dev_ctx, pass it to
 * ovexsdk_ctx_create, and free it only after ovexsdk_ctx_release. Calls on one context must be
 * serialised by the caller; distinct contexts are independent. A call on a context that is being
 * released returns OVEXSDK_ERR_INVALID.
 *
 * Callbacks run on the library's own threads, never on the host's. A context's log callback
 * runs on that context's "Logger" thread, one line at a time, in order; it receives the lines of
 * every context of the process. A callback may call the library, on its own context or another:
 * - The calls that open, close, power or ask about a device (ovexsdk_dev_*) and
 *   ovexsdk_script_execute never wait inside a log callback: while another thread is in such a
 *   call on the same context they return OVEXSDK_ERR_BUSY at once. On the host's threads they
 *   wait for it instead.
 * - ovexsdk_log_set_cb is safe at any time; on a context being released it changes nothing.
 * - ovexsdk_ctx_release returns OVEXSDK_ERR_BUSY inside a log callback, as it waits for logger
 *   threads. Release a context on a host thread, when no other context's callback is using it.
 * - ovexsdk_script_stop is meant for another thread while a script runs, and is safe at any
 *   time. Other calls follow the serialisation rule: make them only while no other thread is in
 *   a call on that context.
 * - Every call logs a line that reaches the callbacks too: a callback that calls the library
 *   for each line it receives never runs out of lines.
 * No combination of callbacks that keeps these rules can stall the process: the threads that
 * log never wait for a logger thread that is itself in a library call.
 *
 * Output arrays follow one rule: the caller passes the capacity in elements through the count
 * pointer, the library fills at most that many, writes back how many it filled and returns
 * OVEXSDK_OK even when the list was cut (a warning is logged). Text fields are zero-filled and
 * always terminated; longer texts are cut.
 */
#ifndef OVEXSDK_H
#define OVEXSDK_H

#include <stdbool.h>
#include <stdint.h>

#if defined(OVEXSDK_BUILDING_LIBRARY)
#define OVEXSDK_API __attribute__((visibility("default")))
#else
#define OVEXSDK_API
#endif

#ifdef __cplusplus
extern "C" {
#endif

/* The handle of one device context: 1024 bytes, 4-byte aligned, opaque. */
typedef struct ovexsdk_dev_ctx {
    uint32_t opaque[256];
} ovexsdk_dev_ctx;

typedef enum ovexsdk_err_code {
    OVEXSDK_OK = 0,
    OVEXSDK_ERR_NO_MEMORY = -12,    /* reserved for exhaustion */
    OVEXSDK_ERR_FAILED = -14,       /* an operation on the device or a module failed */
    OVEXSDK_ERR_BUSY = -16,         /* already so: connected, powered up, running */
    OVEXSDK_ERR_NO_DEVICE = -19,    /* no device: not opened, or not found */
    OVEXSDK_ERR_INVALID = -22,      /* null or invalid argument, bad handle, bad locator */
    OVEXSDK_ERR_UNAVAILABLE = -5001 /* nothing to act on: already powered down, no USB data */
} ovexsdk_err_code;

typedef struct ovexsdk_version {
    uint16_t major;
    uint16_t minor;
    uint16_t patch;
} ovexsdk_version;

typedef enum ovexsdk_log_severity {
    OVEXSDK_LOG_CRITICAL = -3,
    OVEXSDK_LOG_ERROR = -2,
    OVEXSDK_LOG_WARNING = -1,
    OVEXSDK_LOG_INFO = 0,
    OVEXSDK_LOG_DEBUG = 9
} ovexsdk_log_severity;

/* Which parts of a log line reach the callback. */
typedef struct ovexsdk_log_fmt {
    bool preamble;    /* date, time, thread, source place, severity name */
    bool indentation; /* scope nesting */
    bool prefix;      /* the check that failed, on internal consistency failures */
    bool message;     /* the text */
} ovexsdk_log_fmt;

/* Receives one complete line, ending in a line feed; runs on the context's "Logger" thread. */
typedef void (*ovexsdk_log_cb)(const char* text, ovexsdk_log_severity severity, void* param);

/* Identity of a board as enumerated or opened. */
typedef struct ovexsdk_enum_info {
    char serial_number[16];
    char product[64];
    /* "usb:sn:" and the serial number: a locator when the serial number has eight characters,
     * as every board of this family has. Another length is logged as a warning at listing; such
     * a board is opened by its index. */
    char connection_string[16];
    char instance_path[64];
} ovexsdk_enum_info;

/* One power unit of a device. */
typedef struct ovexsdk_dev_unit_info {
    uint8_t index;
    char name[64];
} ovexsdk_dev_unit_info;

/* Operating mode of a chip; the name of each value is its name in log lines. */
typedef enum ovexsdk_chip_mode {
    Unknown = 0,        /* no mode set */
    EvCount8Bit = 1,    /* Timepix2 event counting, 8 bits a pixel */
    EvCount10Bit = 2,   /* Timepix2 event counting, 10 bits */
    EvCount14Bit = 3,   /* Timepix2 event counting, 14 bits */
    IToT10Bit = 4,      /* Timepix2 integrated time over threshold, 10 bits */
    IToT14Bit = 5,      /* Timepix2 integrated time over threshold, 14 bits */
    ToAToTDD = 6,       /* Timepix3 data-driven ToA and ToT */
    ToAToTFBZS = 7,     /* Timepix3 frame-based ToA and ToT, zero-suppressed */
    IToTEvCountFBZS = 8 /* Timepix3 frame-based integrated ToT and event count */
} ovexsdk_chip_mode;

/* Polarity of the charge that a chip collects: 1 or 2. On a Timepix3 they are the values 0 and 1
 * of the board's state TPX_CHIP_POLARITY. */
typedef enum ovexsdk_chip_polarity {
    OVEXSDK_POLARITY_1 = 1,
    OVEXSDK_POLARITY_2 = 2
} ovexsdk_chip_polarity;

typedef struct ovexsdk_chip_info {
    char chip_id[10];                    /* such as "H05-W0318" */
    ovexsdk_chip_mode modes[8];          /* the modes the chip supports, the rest 0 */
    ovexsdk_chip_polarity polarities[2]; /* the polarities it supports, the rest 0 */
    uint32_t width;                      /* pixels in x */
    uint32_t height;                     /* pixels in y */
} ovexsdk_chip_info;

typedef struct ovexsdk_chip_settings {
    ovexsdk_chip_polarity polarity;
    ovexsdk_chip_mode mode; /* 0 while no mode is set */
} ovexsdk_chip_settings;

/* A user pixel mask: one byte per pixel, index y * width + x, nonzero masks the pixel. */
typedef struct ovexsdk_chip_pixel_mask {
    uint8_t* data;
    uint64_t size;
} ovexsdk_chip_pixel_mask;

/* The range of a chip's threshold. */
typedef struct ovexsdk_chip_thld_info {
    float energy_low;    /* lowest energy ovexsdk_chip_set_thld takes, keV */
    float energy_high;   /* highest energy ovexsdk_chip_set_thld takes, keV */
    float min_threshold; /* the calibration's lowest meaningful threshold, keV */
    uint32_t raw_min;    /* lowest raw threshold */
    uint32_t raw_max;    /* highest raw threshold */
    uint32_t calibrated; /* nonzero when a calibration other than raw = keV is loaded */
} ovexsdk_chip_thld_info;

/* Version of the library: 0.10.1. Never null. */
OVEXSDK_API const ovexsdk_version* ovexsdk_version_get(void);

/* Context. Locators: "usb:ix:N" (N: 0 to 99, position among attached boards) or
 * "usb:sn:SSSSSSSS" (the board's eight-character serial number). A record that holds a live
 * context is refused with OVEXSDK_ERR_BUSY: release it first. */
OVEXSDK_API ovexsdk_err_code ovexsdk_ctx_create(ovexsdk_dev_ctx* ctx, const char* locator);
OVEXSDK_API ovexsdk_err_code ovexsdk_ctx_release(ovexsdk_dev_ctx* ctx);

/* Enumeration. On entry `*info_count` is the capacity of `infos`; on return the number of
 * elements filled. Boards that can't be read are skipped and take no element. No context needed. */
OVEXSDK_API ovexsdk_err_code ovexsdk_enum_get_info(ovexsdk_enum_info infos[], uint64_t* info_count);

/* Device. */
OVEXSDK_API ovexsdk_err_code ovexsdk_dev_open(ovexsdk_dev_ctx* ctx);
OVEXSDK_API ovexsdk_err_code ovexsdk_dev_close(ovexsdk_dev_ctx* ctx);
OVEXSDK_API ovexsdk_err_code ovexsdk_dev_is_open(ovexsdk_dev_ctx* ctx, bool* is_open);
OVEXSDK_API ovexsdk_err_code ovexsdk_dev_get_info(ovexsdk_dev_ctx* ctx,
                                                  ovexsdk_enum_info* properties);
OVEXSDK_API ovexsdk_err_code ovexsdk_dev_get_unit_count(ovexsdk_dev_ctx* ctx, uint8_t* count);
OVEXSDK_API ovexsdk_err_code ovexsdk_dev_get_unit_info(ovexsdk_dev_ctx* ctx,
                                                       ovexsdk_dev_unit_info unit_infos[],
                                                       uint8_t* count);
OVEXSDK_API ovexsdk_err_code ovexsdk_dev_is_unit_powered(ovexsdk_dev_ctx* ctx, uint8_t unit,
                                                         bool* is_powered);
OVEXSDK_API ovexsdk_err_code ovexsdk_dev_power_up_unit(ovexsdk_dev_ctx* ctx, uint8_t unit);
OVEXSDK_API ovexsdk_err_code ovexsdk_dev_power_down_unit(ovexsdk_dev_ctx* ctx, uint8_t unit);
OVEXSDK_API ovexsdk_err_code ovexsdk_dev_is_powered(ovexsdk_dev_ctx* ctx, bool* is_powered);
OVEXSDK_API ovexsdk_err_code ovexsdk_dev_power_up(ovexsdk_dev_ctx* ctx);
OVEXSDK_API ovexsdk_err_code ovexsdk_dev_power_down(ovexsdk_dev_ctx* ctx);

/* Chips of an open board whose frontend is powered up; chip 0 is the first. Before the
 * frontend's power-up a board has no chip: the chip calls then return OVEXSDK_ERR_INVALID.
 * ovexsdk_chip_configure resets the chip, writes and tests its default pixel matrix, and then
 * applies the chip's configuration file "<chip id>.yaml", ".yml" or ".xml" from the working
 * directory, the first that loads; without one the chip keeps its defaults. */
OVEXSDK_API ovexsdk_err_code ovexsdk_chip_get_count(ovexsdk_dev_ctx* ctx, uint8_t* count);
OVEXSDK_API ovexsdk_err_code ovexsdk_chip_get_info(ovexsdk_dev_ctx* ctx, ovexsdk_chip_info infos[],
                                                   uint8_t* count);
OVEXSDK_API ovexsdk_err_code ovexsdk_chip_get_settings(ovexsdk_dev_ctx* ctx,
                                                       ovexsdk_chip_settings settings[],
                                                       uint8_t* count);
OVEXSDK_API ovexsdk_err_code ovexsdk_chip_configure(ovexsdk_dev_ctx* ctx, uint8_t chip);
/* As ovexsdk_chip_configure, with the text of a configuration file instead of the file. */
OVEXSDK_API ovexsdk_err_code ovexsdk_chip_configure_from_string(ovexsdk_dev_ctx* ctx, uint8_t chip,
                                                                const char* contents);
/* The mode applies to the whole device. */
OVEXSDK_API ovexsdk_err_code ovexsdk_chip_set_mode(ovexsdk_dev_ctx* ctx, ovexsdk_chip_mode mode);
OVEXSDK_API ovexsdk_err_code ovexsdk_chip_set_polarity(ovexsdk_dev_ctx* ctx, uint8_t chip,
                                                       ovexsdk_chip_polarity polarity);
/* The user mask is merged into the chip's pixel matrix: a pixel masked once stays masked until
 * the matrix is configured again. The getter copies at most `mask->size` bytes. */
OVEXSDK_API ovexsdk_err_code ovexsdk_chip_get_pixel_mask(ovexsdk_dev_ctx* ctx, uint8_t chip,
                                                         ovexsdk_chip_pixel_mask* mask);
OVEXSDK_API ovexsdk_err_code ovexsdk_chip_set_pixel_mask(ovexsdk_dev_ctx* ctx, uint8_t chip,
                                                         const ovexsdk_chip_pixel_mask* mask);
/* Thresholds: in keV through the chip's calibration, or raw, as the chip's DACs count. */
OVEXSDK_API ovexsdk_err_code ovexsdk_chip_get_thld(ovexsdk_dev_ctx* ctx, uint8_t chip,
                                                   float* value);
OVEXSDK_API ovexsdk_err_code ovexsdk_chip_set_thld(ovexsdk_dev_ctx* ctx, uint8_t chip, float value);
OVEXSDK_API ovexsdk_err_code ovexsdk_chip_get_raw_thld(ovexsdk_dev_ctx* ctx, uint8_t chip,
                                                       uint32_t* raw_value);
OVEXSDK_API ovexsdk_err_code ovexsdk_chip_set_raw_thld(ovexsdk_dev_ctx* ctx, uint8_t chip,
                                                       uint32_t raw_value);
OVEXSDK_API ovexsdk_err_code ovexsdk_chip_get_thld_info(ovexsdk_dev_ctx* ctx,
                                                        ovexsdk_chip_thld_info thld_infos[],
                                                        uint8_t* chip_count);

/* Log. `format` must not be null; a null `function` stops the delivery. The registration takes
 * effect after the lines already queued, which still go to the previous callback. */
OVEXSDK_API ovexsdk_err_code ovexsdk_log_set_cb(ovexsdk_dev_ctx* ctx, ovexsdk_log_cb function,
                                                const ovexsdk_log_fmt* format, void* param);

/* Scripts. Runs Lua text in the context's interpreter, where the open device is the global
 * `device`. Only the libraries base, package, string and debug are open. Scripts are trusted
 * code: the debug library and binary chunks can corrupt the process. */
OVEXSDK_API ovexsdk_err_code ovexsdk_script_execute(ovexsdk_dev_ctx* ctx, const char* text);

/* Stops the script that ovexsdk_script_execute runs on this context in another thread: Lua code
 * ends within a few thousand instructions, a wait in Std.sleep at once, a request to the board
 * once it is answered or timed out. That ovexsdk_script_execute returns OVEXSDK_ERR_INVALID and
 * logs "Script stopped at the host's request: " with where the script was. Without a running
 * script the call does nothing, so the next script runs normally; the library's power sequences
 * are never stopped. A script that installs a debug hook of its own stops only in Std.sleep.
 * Safe from any thread at any time between ovexsdk_ctx_create and ovexsdk_ctx_release; returns
 * OVEXSDK_OK. */
OVEXSDK_API ovexsdk_err_code ovexsdk_script_stop(ovexsdk_dev_ctx* ctx);

#ifdef __cplusplus
}
#endif

#endif /* OVEXSDK_H */
