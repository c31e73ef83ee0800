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
 *
 * The enumerations are 32 bits wide: each ends with a *_MAX_ENUM value that is no valid
 * argument, so that any value a host passes reaches the library, which refuses what it doesn't
 * know with OVEXSDK_ERR_INVALID.
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
    Unknown = 0,         /* no mode set */
    EvCount8Bit = 1,     /* Timepix2 event counting, 8 bits a pixel */
    EvCount10Bit = 2,    /* Timepix2 event counting, 10 bits */
    EvCount14Bit = 3,    /* Timepix2 event counting, 14 bits */
    IToT10Bit = 4,       /* Timepix2 integrated time over threshold, 10 bits */
    IToT14Bit = 5,       /* Timepix2 integrated time over threshold, 14 bits */
    ToAToTDD = 6,        /* Timepix3 data-driven ToA and ToT */
    ToAToTFBZS = 7,      /* Timepix3 frame-based ToA and ToT, zero-suppressed */
    IToTEvCountFBZS = 8, /* Timepix3 frame-based integrated ToT and event count */
    OVEXSDK_CHIP_MODE_MAX_ENUM = 0x7FFFFFFF
} ovexsdk_chip_mode;

/* Polarity of the charge that a chip collects: 1 or 2. On a Timepix3 they are the values 0 and 1
 * of the board's state TPX_CHIP_POLARITY. */
typedef enum ovexsdk_chip_polarity {
    OVEXSDK_POLARITY_1 = 1,
    OVEXSDK_POLARITY_2 = 2,
    OVEXSDK_POLARITY_MAX_ENUM = 0x7FFFFFFF
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

/* What an acquisition makes of the chip's data; the name of each value is its name in log
 * lines. DefaultProcessing is the value a context starts with. */
typedef enum ovexsdk_acq_process_mode {
    DefaultProcessing = 1, /* the mode's plain output */
    SortByToa = 2,         /* data-driven records sorted by time */
    BinEvcountImage = 3,   /* event-count image of a scan */
    BinItotImage = 4,      /* iToT image of a scan */
    BinCompletely = 5,     /* both images and the per-pixel records of each bin */
    OVEXSDK_ACQ_PROCESS_MODE_MAX_ENUM = 0x7FFFFFFF
} ovexsdk_acq_process_mode;

/* Channels of an acquisition, a set of flags; 0 is refused. */
typedef enum ovexsdk_acq_mode_flag {
    OVEXSDK_ACQ_RAW = 1,       /* the bytes as the board sent them, ovexsdk_acq_get_raw_data */
    OVEXSDK_ACQ_PROCESSED = 2, /* the records of the mode */
    OVEXSDK_ACQ_MODE_FLAG_MAX_ENUM = 0x7FFFFFFF
} ovexsdk_acq_mode_flag;

/* Parameters of a start; only the binned data-driven modes read them. */
typedef union ovexsdk_acq_params {
    struct {
        uint32_t bins_per_line; /* scan pixels in a line */
        uint32_t lines;         /* lines in a scan */
        uint64_t dwell_time;    /* nanoseconds on one pixel */
    } scan;
} ovexsdk_acq_params;

/* How the shutter opens and closes; the name of each value is its name in log lines. */
typedef enum ovexsdk_trigger_mode {
    Invalid = 0,
    InternalStartShutterDuration = 1,   /* ovexsdk_trigger_now opens it for the duration */
    InternalStartContinuous = 2,        /* shutter after shutter, each of the duration */
    ExternalStartShutterDuration = 3,   /* the trigger input opens it for the duration */
    ExternalStartExternalStopLevel = 4, /* open while the trigger input is active */
    ExternalStartExternalStopEdge = 5,  /* one edge of the input opens it, the next closes it */
    OVEXSDK_TRIGGER_MODE_MAX_ENUM = 0x7FFFFFFF
} ovexsdk_trigger_mode;

typedef struct ovexsdk_trigger_config {
    ovexsdk_trigger_mode mode;
    float shutter_duration; /* seconds; not used by modes 4 and 5 */
} ovexsdk_trigger_config;

/* Options of the board's synchronisation lines. */
typedef enum ovexsdk_extsync_option {
    OVEXSDK_EXTSYNC_TRIGGER_OUT_NO = 1,
    OVEXSDK_EXTSYNC_TRIGGER_OUT_LEVEL = 2,
    OVEXSDK_EXTSYNC_TRIGGER_OUT_EDGE = 3,
    OVEXSDK_EXTSYNC_TRIGGER_OUT_PULSE = 4,
    OVEXSDK_EXTSYNC_READY_IN_NO = 5,
    OVEXSDK_EXTSYNC_READY_IN_YES = 6,
    OVEXSDK_EXTSYNC_READY_OUT_NO = 7,
    OVEXSDK_EXTSYNC_READY_OUT_YES = 8,
    OVEXSDK_EXTSYNC_INPUT_ACTIVE_HIGH = 9,
    OVEXSDK_EXTSYNC_INPUT_ACTIVE_LOW = 10,
    OVEXSDK_EXTSYNC_OUTPUT_ACTIVE_HIGH = 11,
    OVEXSDK_EXTSYNC_OUTPUT_ACTIVE_LOW = 12,
    OVEXSDK_EXTSYNC_CLOCK_OUTPUT_NO = 13,
    OVEXSDK_EXTSYNC_CLOCK_OUTPUT_YES = 14,
    OVEXSDK_EXTSYNC_CLOCK_INPUT_INTERNAL_200_MHZ = 15,
    OVEXSDK_EXTSYNC_CLOCK_INPUT_EXTERNAL_40_MHZ = 16,
    OVEXSDK_EXTSYNC_OPTION_MAX_ENUM = 0x7FFFFFFF
} ovexsdk_extsync_option;

/* Acquisition results. Every pointer points into the library's memory and is valid only during
 * the data callback. */
typedef struct ovexsdk_acq_raw_data {
    const uint8_t* data;
    uint64_t size;
} ovexsdk_acq_raw_data;

/* One Timepix2 frame: a 16-bit count for each pixel, index row * width + column. */
typedef struct ovexsdk_acq_tpx2_frame {
    const uint16_t* pixels;
    uint64_t count;
} ovexsdk_acq_tpx2_frame;

/* One hit: the pixel address as the chip sends it, the ToT, and the time of arrival. In the
 * frame-based mode the time is bits 19..0 of the packet (coarse ToA << 4 | fine ToA); in the
 * data-driven modes it is extended, in sixteenths of a ToA tick. */
typedef struct ovexsdk_acq_tpx3_toa_tot_record {
    uint32_t address;
    uint32_t tot;
    uint64_t toa;
} ovexsdk_acq_tpx3_toa_tot_record;

typedef struct ovexsdk_acq_tpx3_tdc_list {
    const uint64_t* stamps;
    uint64_t count;
} ovexsdk_acq_tpx3_tdc_list;

typedef struct ovexsdk_acq_tpx3_acq_toa_tot {
    const ovexsdk_acq_tpx3_toa_tot_record* records;
    uint64_t count;
    uint64_t shutter_rising_time_ticks; /* data-driven modes; 0 in the frame-based one */
    const ovexsdk_acq_tpx3_tdc_list* tdc_lists;
    uint64_t tdc_list_count;
} ovexsdk_acq_tpx3_acq_toa_tot;

/* One pixel of the frame-based iToT mode. */
typedef struct ovexsdk_acq_tpx3_itot_evcount {
    uint32_t address;
    uint32_t itot;
    uint64_t events;
} ovexsdk_acq_tpx3_itot_evcount;

/* A scan's bins in the binned data-driven modes, bin after bin of each line as the lines end:
 * the iToT sums or the event counts, one per bin. */
typedef struct ovexsdk_acq_tpx3_itot_fragment {
    const uint64_t* itots;
    uint64_t count;
} ovexsdk_acq_tpx3_itot_fragment;

typedef struct ovexsdk_acq_tpx3_evcount_fragment {
    const uint64_t* events;
    uint64_t count;
} ovexsdk_acq_tpx3_evcount_fragment;

/* A pixel hit in a bin of the complete binning: its address as the chip sends it, its hits and
 * the sum of their ToT. */
typedef struct ovexsdk_tpx3_pixel_bin_record {
    uint32_t address;
    uint32_t events;
    uint32_t itot;
} ovexsdk_tpx3_pixel_bin_record;

/* The pixels of one bin, in the order of their first hit; null when there are none. */
typedef struct ovexsdk_tpx3_bin_descriptor {
    const ovexsdk_tpx3_pixel_bin_record* pixels;
    uint64_t count;
} ovexsdk_tpx3_bin_descriptor;

/* The complete binning: per bin the iToT sum, the event count and the pixels. */
typedef struct ovexsdk_tpx3_acq_itot_evcount_bins {
    const uint64_t* itots;
    uint64_t itot_count;
    const uint64_t* events;
    uint64_t event_count;
    const ovexsdk_tpx3_bin_descriptor* bins;
    uint64_t bin_count;
} ovexsdk_tpx3_acq_itot_evcount_bins;

/* A user pixel mask: one byte per pixel, index y * width + x, nonzero masks the pixel. */
typedef struct ovexsdk_chip_pixel_mask {
    uint8_t* data;
    uint64_t size;
} ovexsdk_chip_pixel_mask;

/* The range of a chip's threshold. */
typedef struct ovexsdk_chip_thld_info {
    float energy_low;    /* lowest energy ovexsdk_chip_set_thld takes, keV */
    float energy_high;   /* highest energy ovexsdk_chip_set_thld takes, keV */
    float min_threshold; /* the raw threshold at energy_high, as the calibration gives it */
    uint32_t raw_min;    /* lowest raw threshold */
    uint32_t raw_max;    /* highest raw threshold */
    uint32_t calibrated; /* nonzero when a calibration other than raw = keV is loaded */
} ovexsdk_chip_thld_info;

/* Peripherals. Each family numbers its controllers from 0 in the order the device has them. */
typedef struct ovexsdk_bias_info {
    float minimum; /* lowest settable voltage, volts */
    float maximum; /* highest settable voltage, volts */
} ovexsdk_bias_info;

typedef struct ovexsdk_temp_ctrl_info {
    float minimum;
    float maximum;
    uint32_t unit; /* 1 degrees Celsius, 2 percent */
} ovexsdk_temp_ctrl_info;

typedef union ovexsdk_mon_value {
    int32_t i;
    float f;
} ovexsdk_mon_value;

typedef struct ovexsdk_mon_info {
    const char* id; /* the monitor's name; valid while the device is open */
    uint32_t type;  /* 1 integer, 2 float: which member of ovexsdk_mon_value holds the value */
    ovexsdk_mon_value minimum;
    ovexsdk_mon_value maximum;
} ovexsdk_mon_info;

/* The records a monitor callback gets; they and what they point to are valid during the call. */
typedef struct ovexsdk_mon_on_avail_changed_args {
    const ovexsdk_mon_info* info;
    uint8_t available;  /* the notification's flags: bit 0 available, 1 warning, 2 error */
    uint32_t timestamp; /* the board's own clock */
} ovexsdk_mon_on_avail_changed_args;

typedef struct ovexsdk_mon_on_value_changed_args {
    const ovexsdk_mon_info* info;
    const uint8_t* flags; /* three bytes, 0 or 1: warning, error, available */
    ovexsdk_mon_value value;
    uint32_t timestamp;
} ovexsdk_mon_on_value_changed_args;

/* Monitor callbacks run on the library's notification tasks, several at a time. */
typedef void (*ovexsdk_mon_avail_changed_cb)(const ovexsdk_mon_on_avail_changed_args* args,
                                             void* param);
typedef void (*ovexsdk_mon_value_changed_cb)(const ovexsdk_mon_on_value_changed_args* args,
                                             void* param);

typedef struct ovexsdk_eeprom_info {
    char id[64];          /* such as "i2c0-eeprom" */
    char part_number[64]; /* such as "24CS512" */
    uint8_t region_count;
} ovexsdk_eeprom_info;

typedef struct ovexsdk_eeprom_region {
    uint8_t kind;
    uint16_t sector_count;
    uint16_t sector_size;
    uint16_t first_address;
    uint16_t last_address;
} ovexsdk_eeprom_region;

#define OVEXSDK_FLASH_ID_MAX_SIZE 32

typedef struct ovexsdk_flash_info {
    char id[32];          /* such as "flash_fpga_be" */
    char part_number[32]; /* as the flash names itself */
    uint32_t first_number;
    uint16_t second_number;
    uint16_t region_count;
} ovexsdk_flash_info;

typedef struct ovexsdk_flash_region_info {
    uint32_t start_address;
    uint16_t sector_count;
    uint32_t sector_size;
} ovexsdk_flash_region_info;

typedef struct ovexsdk_flash_buffer {
    uint8_t* data;
    uint64_t size;
} ovexsdk_flash_buffer;

typedef struct ovexsdk_flash_read_input {
    uint8_t flash_id;
    uint32_t address;
    uint64_t length;
} ovexsdk_flash_read_input;

typedef struct ovexsdk_flash_program_input {
    uint8_t flash_id;
    uint32_t address;
    const ovexsdk_flash_buffer* buffer;
} ovexsdk_flash_program_input;

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

/* Bias supplies. */
OVEXSDK_API ovexsdk_err_code ovexsdk_bias_get_count(ovexsdk_dev_ctx* ctx, uint8_t* count);
OVEXSDK_API ovexsdk_err_code ovexsdk_bias_get_info(ovexsdk_dev_ctx* ctx, ovexsdk_bias_info infos[],
                                                   uint8_t* count);
OVEXSDK_API ovexsdk_err_code ovexsdk_bias_get_desired(ovexsdk_dev_ctx* ctx, uint8_t id,
                                                      float* value);
OVEXSDK_API ovexsdk_err_code ovexsdk_bias_get_actual(ovexsdk_dev_ctx* ctx, uint8_t id,
                                                     float* value);
OVEXSDK_API ovexsdk_err_code ovexsdk_bias_set_desired(ovexsdk_dev_ctx* ctx, uint8_t id,
                                                      float value);

/* Temperature controllers. */
OVEXSDK_API ovexsdk_err_code ovexsdk_temp_get_count(ovexsdk_dev_ctx* ctx, uint8_t* count);
OVEXSDK_API ovexsdk_err_code ovexsdk_temp_get_info(ovexsdk_dev_ctx* ctx,
                                                   ovexsdk_temp_ctrl_info infos[], uint64_t* count);
OVEXSDK_API ovexsdk_err_code ovexsdk_temp_get_desired(ovexsdk_dev_ctx* ctx, uint8_t id,
                                                      float* value);
OVEXSDK_API ovexsdk_err_code ovexsdk_temp_get_actual(ovexsdk_dev_ctx* ctx, uint8_t id,
                                                     float* value);
OVEXSDK_API ovexsdk_err_code ovexsdk_temp_set_desired(ovexsdk_dev_ctx* ctx, uint8_t id,
                                                      float value);

/* Monitors, by their index in the board's list. A new callback replaces the monitor's old one. */
OVEXSDK_API ovexsdk_err_code ovexsdk_mon_get_count(ovexsdk_dev_ctx* ctx, uint32_t* count);
OVEXSDK_API ovexsdk_err_code ovexsdk_mon_get_info(ovexsdk_dev_ctx* ctx, uint32_t index,
                                                  ovexsdk_mon_info* mon_info);
OVEXSDK_API ovexsdk_err_code ovexsdk_mon_get_value(ovexsdk_dev_ctx* ctx, uint32_t index,
                                                   ovexsdk_mon_value* value);
OVEXSDK_API ovexsdk_err_code ovexsdk_mon_set_avail_changed_cb(ovexsdk_dev_ctx* ctx, uint32_t index,
                                                              ovexsdk_mon_avail_changed_cb function,
                                                              void* param);
OVEXSDK_API ovexsdk_err_code ovexsdk_mon_set_value_changed_cb(ovexsdk_dev_ctx* ctx, uint32_t index,
                                                              ovexsdk_mon_value_changed_cb function,
                                                              void* param);

/* EEPROMs. `*length` goes in as the bytes asked for and comes back as the bytes done. */
OVEXSDK_API ovexsdk_err_code ovexsdk_eeprom_get_count(ovexsdk_dev_ctx* ctx, uint8_t* count);
OVEXSDK_API ovexsdk_err_code ovexsdk_eeprom_get_info(ovexsdk_dev_ctx* ctx, uint8_t id,
                                                     ovexsdk_eeprom_info* out_info);
OVEXSDK_API ovexsdk_err_code ovexsdk_eeprom_get_region_info(ovexsdk_dev_ctx* ctx, uint8_t id,
                                                            uint8_t region,
                                                            ovexsdk_eeprom_region* region_out);
OVEXSDK_API ovexsdk_err_code ovexsdk_eeprom_read(ovexsdk_dev_ctx* ctx, uint8_t id, uint16_t address,
                                                 uint8_t* buffer, uint64_t* length);
OVEXSDK_API ovexsdk_err_code ovexsdk_eeprom_write(ovexsdk_dev_ctx* ctx, uint8_t id,
                                                  uint16_t address, const uint8_t* buffer,
                                                  uint64_t* length);
OVEXSDK_API ovexsdk_err_code ovexsdk_eeprom_erase(ovexsdk_dev_ctx* ctx, uint8_t id,
                                                  uint16_t address, uint64_t* length);

/* Flash memories. */
OVEXSDK_API ovexsdk_err_code ovexsdk_flash_get_count(ovexsdk_dev_ctx* ctx, uint8_t* count);
OVEXSDK_API ovexsdk_err_code ovexsdk_flash_get_info(ovexsdk_dev_ctx* ctx, uint8_t id,
                                                    ovexsdk_flash_info* info);
OVEXSDK_API ovexsdk_err_code ovexsdk_flash_get_region_info(ovexsdk_dev_ctx* ctx, uint8_t id,
                                                           uint16_t region,
                                                           ovexsdk_flash_region_info* info);
/* Reads `read_input->length` bytes into `buffer->data`; sets `buffer->size` to that length. */
OVEXSDK_API ovexsdk_err_code ovexsdk_flash_read(ovexsdk_dev_ctx* ctx,
                                                const ovexsdk_flash_read_input* read_input,
                                                ovexsdk_flash_buffer* buffer);
OVEXSDK_API ovexsdk_err_code ovexsdk_flash_program_sector(
    ovexsdk_dev_ctx* ctx, const ovexsdk_flash_program_input* program_input);
OVEXSDK_API ovexsdk_err_code ovexsdk_flash_erase_sector(ovexsdk_dev_ctx* ctx, uint8_t id,
                                                        uint32_t address);

/* Acquisition. The usual order: ovexsdk_chip_set_mode, ovexsdk_trigger_configure, optionally
 * ovexsdk_extsync_configure, ovexsdk_acq_select_processing, ovexsdk_acq_start, then
 * ovexsdk_acq_await_end or ovexsdk_acq_abort. The data callback runs on a thread of the library
 * once per result; the ovexsdk_acq_get_* functions are meant to be called from it, and its data
 * are valid only until it returns. A callback must not close or release the context; its other
 * calls that use the device don't wait while another thread is in a call on the context (such
 * as ovexsdk_acq_await_end): they return OVEXSDK_ERR_BUSY then. A single internal shutter makes
 * one readout, ended by its frame; every other trigger reads out until ovexsdk_acq_abort. */
OVEXSDK_API ovexsdk_err_code ovexsdk_acq_select_processing(ovexsdk_dev_ctx* ctx,
                                                           ovexsdk_acq_process_mode mode);
OVEXSDK_API ovexsdk_err_code ovexsdk_acq_start(ovexsdk_dev_ctx* ctx,
                                               void (*data_cb)(ovexsdk_dev_ctx*, void*),
                                               ovexsdk_acq_mode_flag flags,
                                               const ovexsdk_acq_params* params, void* user);
/* Waits for the end of the readout, at most the shutter duration and 0.1 s for the triggers
 * with a duration, a year for the others. */
OVEXSDK_API ovexsdk_err_code ovexsdk_acq_await_end(ovexsdk_dev_ctx* ctx);
OVEXSDK_API ovexsdk_err_code ovexsdk_acq_abort(ovexsdk_dev_ctx* ctx);
/* The Timepix2 frames of the result: usually one, a frame per shutter. */
OVEXSDK_API ovexsdk_err_code ovexsdk_acq_get_tpx2_frames(ovexsdk_dev_ctx* ctx,
                                                         const ovexsdk_acq_tpx2_frame** output,
                                                         uint64_t* count);
OVEXSDK_API ovexsdk_err_code
ovexsdk_acq_get_tpx3_toa_tot_packets(ovexsdk_dev_ctx* ctx, ovexsdk_acq_tpx3_acq_toa_tot* output);
OVEXSDK_API ovexsdk_err_code ovexsdk_acq_get_tpx3_itot_evcount_packets(
    ovexsdk_dev_ctx* ctx, const ovexsdk_acq_tpx3_itot_evcount** output, uint64_t* count);
/* The binned data-driven modes: the complete binning (processing mode 5), and the iToT sums or
 * event counts alone, which with processing mode 5 come from the complete binning. */
OVEXSDK_API ovexsdk_err_code ovexsdk_acq_get_tpx3_itot_evcount_bins(
    ovexsdk_dev_ctx* ctx, ovexsdk_tpx3_acq_itot_evcount_bins* output);
OVEXSDK_API ovexsdk_err_code
ovexsdk_acq_get_tpx3_itot_fragment(ovexsdk_dev_ctx* ctx, ovexsdk_acq_tpx3_itot_fragment* output);
OVEXSDK_API ovexsdk_err_code ovexsdk_acq_get_tpx3_evcount_fragment(
    ovexsdk_dev_ctx* ctx, ovexsdk_acq_tpx3_evcount_fragment* output);
/* The raw buffers of the last result; they stay until the next callback. */
OVEXSDK_API ovexsdk_err_code ovexsdk_acq_get_raw_data(ovexsdk_dev_ctx* ctx,
                                                      const ovexsdk_acq_raw_data** buffer,
                                                      uint64_t* count);

/* Triggers: the modes that both the board and its front end offer, in ascending order. */
OVEXSDK_API ovexsdk_err_code ovexsdk_trigger_configure(ovexsdk_dev_ctx* ctx,
                                                       const ovexsdk_trigger_config* config);
OVEXSDK_API ovexsdk_err_code ovexsdk_trigger_list(ovexsdk_dev_ctx* ctx,
                                                  ovexsdk_trigger_mode modes[],
                                                  uint64_t* mode_count);
/* Opens the shutter of an internal trigger. */
OVEXSDK_API ovexsdk_err_code ovexsdk_trigger_now(ovexsdk_dev_ctx* ctx);

/* External synchronisation lines of the board. Invalid options in the list are skipped with a
 * warning; the first option that fails stops the list. */
OVEXSDK_API ovexsdk_err_code ovexsdk_extsync_list(ovexsdk_dev_ctx* ctx,
                                                  ovexsdk_extsync_option opts[],
                                                  uint64_t* opt_count);
OVEXSDK_API ovexsdk_err_code ovexsdk_extsync_configure(ovexsdk_dev_ctx* ctx,
                                                       ovexsdk_extsync_option list[],
                                                       uint64_t count);

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
