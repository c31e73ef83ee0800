/*
 * ovex_sdk_ng: host SDK for USB readout boards of Timepix detectors.
 *
 * The library is one shared object with this plain C interface; no exception and no C++ type
 * crosses it. It reaches the boards through libusb. A host enumerates the boards
 * (ovexsdk_enum_get_info), creates a context for one of them (ovexsdk_ctx_create), opens it
 * (ovexsdk_dev_open), powers it up (ovexsdk_dev_power_up), which brings its chip to life, then
 * configures the chip and runs acquisitions; it closes the device and releases the context at
 * the end.
 *
 * Contexts. A context is memory that the caller owns: allocate an ovexsdk_dev_ctx, zero it, pass
 * it to ovexsdk_ctx_create, and free it only after ovexsdk_ctx_release. The context lives inside
 * that record, so the record must not move or be copied while it holds one. Calls on one context
 * must be serialised by the caller; distinct contexts are independent. A call on a context that
 * is being released returns OVEXSDK_ERR_INVALID.
 *
 * Result codes. Every function returns an ovexsdk_err_code and logs why it failed. The comment
 * of each function lists the results special to it, then names which of these common ones it
 * also gives:
 * - handle: OVEXSDK_ERR_INVALID when `ctx` is null, holds no context (never created, or
 *   released) or its context is being released. Only the last is logged.
 * - exception: OVEXSDK_ERR_FAILED when something unforeseen ends the call inside the library,
 *   such as memory running out or a USB layer that can't start. Its text is logged as "SDK API
 *   call failed with an exception: <text>."
 * - callback: OVEXSDK_ERR_BUSY when the function, one of those that take the context's device,
 *   is called from a callback (log, monitor or data callback) while another thread is in such a
 *   call on the same context. On the host's own threads it waits for that call instead.
 * No function returns OVEXSDK_ERR_NO_MEMORY at present: memory running out is an exception.
 * Functions that name a module by its index (a chip, a power unit, a bias supply...) don't all
 * refuse a bad index with the same code; each comment says which.
 *
 * Threads and callbacks. Callbacks run on the library's own threads, never on the host's:
 * - A context's log callback runs on that context's "Logger" thread, one line at a time, in
 *   order; it receives the lines of every context of the process.
 * - A monitor callback runs on a short-lived task of the monitor stream, several at a time and
 *   in no fixed order between monitors.
 * - The data callback of ovexsdk_acq_start runs on the acquisition's "Consumer" thread (frame
 *   modes) or "Processing" thread (data-driven modes), once per result, in order.
 * A callback may call the library, on its own context or another:
 * - The functions that take the device never wait inside a callback: while another thread is
 *   in such a call on the same context they return OVEXSDK_ERR_BUSY at once ("callback").
 * - ovexsdk_log_set_cb is safe at any time; on a context being released it changes nothing.
 *   The ovexsdk_acq_get_* functions take no lock: they are meant for the data callback.
 * - ovexsdk_ctx_release returns OVEXSDK_ERR_BUSY inside a log callback, as it waits for logger
 *   threads. Release a context on a host thread, when no other context's callback is using it.
 *   A monitor or data callback must neither close the device nor release the context: both
 *   wait for the callback's own thread to finish.
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
 * OVEXSDK_OK even when the list was cut (a warning is logged, except by ovexsdk_extsync_list).
 * The array pointer must not be null, even with a capacity of 0. Text fields are zero-filled and
 * always terminated; longer texts are cut. Every pointer the library hands out points into its own
 * memory; the host never frees it, and each comment says how long it stays valid.
 *
 * The enumerations are 32 bits wide: each ends with a *_MAX_ENUM value that is no valid
 * argument, so that any value a host passes reaches the library, which refuses what it doesn't
 * know; the comment of each function says with which code.
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

/* One address range of an EEPROM. */
typedef struct ovexsdk_eeprom_region {
    uint8_t kind; /* 0 read-only, 1 read-write */
    uint16_t sector_count;
    uint16_t sector_size; /* bytes */
    uint16_t first_address;
    uint16_t last_address; /* inclusive */
} ovexsdk_eeprom_region;

#define OVEXSDK_FLASH_ID_MAX_SIZE 32

typedef struct ovexsdk_flash_info {
    char id[32];            /* such as "flash_fpga_be" */
    char part_number[32];   /* as the flash names itself */
    uint32_t first_number;  /* size of the flash, bytes */
    uint16_t second_number; /* size of a program page, bytes */
    uint16_t region_count;
} ovexsdk_flash_info;

/* One region of a flash: sectors of one size from its start on. */
typedef struct ovexsdk_flash_region_info {
    uint32_t start_address;
    uint16_t sector_count;
    uint32_t sector_size; /* bytes */
} ovexsdk_flash_region_info;

/* Bytes of the host's: `size` of them at `data`. */
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

/* ---- Version -------------------------------------------------------------------------------- */

/* The version of the library: 0.10.1.
 *
 * Returns a pointer to static memory, never null, valid for the life of the process. Needs no
 * context; safe from any thread. */
OVEXSDK_API const ovexsdk_version* ovexsdk_version_get(void);

/* ---- Context -------------------------------------------------------------------------------- *
 * A context holds everything the library keeps for one board: the locator that names it, the
 * device once opened, a Lua interpreter, the library's settings and the "Logger" thread that
 * delivers log lines. Locators: "usb:ix:N" (N: 0 to 99, the board's position in the list of
 * ovexsdk_enum_get_info) or "usb:sn:SSSSSSSS" (the board's eight-character serial number). */

/* Builds a context in the host's record: starts its "Logger" thread, creates its Lua
 * interpreter and reads the library's settings. It doesn't touch USB: the locator is only
 * parsed here, and the board is looked for by ovexsdk_dev_open.
 *
 * ctx      [in, out] the record, owned by the caller: zero-filled, or released. It must stay
 *          at this address, and not be copied, until ovexsdk_ctx_release.
 * locator  [in] the board's locator; copied.
 *
 * Returns:
 * - OVEXSDK_OK: the record holds a live context.
 * - OVEXSDK_ERR_INVALID: `ctx` is null (not logged); `locator` is null or no locator. An index
 *   locator with no digits, "usb:ix:", is taken here and fails at ovexsdk_dev_open.
 * - OVEXSDK_ERR_BUSY: the record already holds a live context (its first four bytes carry the
 *   mark of one, so don't pass uninitialised memory); that context is left as it was.
 * - OVEXSDK_ERR_FAILED: the context could not be built (no thread, no memory); logged. */
OVEXSDK_API ovexsdk_err_code ovexsdk_ctx_create(ovexsdk_dev_ctx* ctx, const char* locator);

/* Destroys the context: marks it as being released, so that calls reaching it now return
 * OVEXSDK_ERR_INVALID, waits until no call holds its device, destroys the device object (its
 * readouts and monitor stream end with it; the steps of ovexsdk_dev_close are not run), the Lua
 * interpreter and the settings, then delivers every log line queued so far and ends the
 * "Logger" thread. Afterwards the record may be freed or passed to ovexsdk_ctx_create again.
 *
 * ctx  [in, out] the record.
 *
 * Call it on a host thread; a monitor or data callback of this context must not call it.
 *
 * Returns:
 * - OVEXSDK_OK: the context is gone.
 * - OVEXSDK_ERR_INVALID: `ctx` is null or holds no context (not logged); another thread is
 *   already releasing it (logged).
 * - OVEXSDK_ERR_BUSY: called on a "Logger" thread, from the log callback of any context;
 *   nothing changes. */
OVEXSDK_API ovexsdk_err_code ovexsdk_ctx_release(ovexsdk_dev_ctx* ctx);

/* ---- Enumeration ---------------------------------------------------------------------------- */

/* Lists the boards of this family attached to the host, in the order that "usb:ix:N" locators
 * count them. Needs no context: the call has a libusb context of its own for its length, and is
 * safe from any thread.
 *
 * infos       [out] caller-owned array of `*info_count` elements.
 * info_count  [in, out] capacity of `infos` on entry; elements filled on return.
 *
 * The first `*info_count` boards of the list are read. A board whose identity can't be read is
 * skipped with a warning and takes no element, so fewer may be filled although more boards are
 * attached, and the boards behind it stand one place earlier than their "usb:ix:N" index. A
 * longer list is cut with a warning.
 *
 * Returns:
 * - OVEXSDK_OK: also when the list was cut.
 * - OVEXSDK_ERR_INVALID: `infos` or `info_count` is null.
 * - OVEXSDK_ERR_FAILED: the USB layer could not start. */
OVEXSDK_API ovexsdk_err_code ovexsdk_enum_get_info(ovexsdk_enum_info infos[], uint64_t* info_count);

/* ---- Device --------------------------------------------------------------------------------- *
 * The board of a context: open and close, identity, and power. A board has power units, each
 * with its own power-up and power-down sequence: unit 0 brings the backend (the readout board)
 * and starts the monitor stream, unit 1 the frontend and its chip ("backend" and "frontend" on
 * the Timepix boards, "NoBE" and "TP2FE" on the NoBE board, whose monitor stream starts at the
 * open). The modules a power-up adds stay until the device is closed. Every function here
 * takes the device. */

/* Opens the board that the context's locator names. A context without a device looks for the
 * board, works out its kind (a board that sits in its boot loader first gets its firmware: a
 * sound image file of its name in the working directory, else the image built into the
 * library), hands it to the Lua interpreter as the global `device` and builds the device
 * object. Then, also when the device object is already there from an open that failed, it
 * connects, loads the board's lists of commands, states, monitors and versions, and runs the
 * board's opening steps (a NoBE board starts its monitor stream). Nothing is powered.
 *
 * ctx  [in] the context.
 *
 * A failure in the connection or later keeps the device object in the context. If the board
 * was connected by then (the items or the opening steps failed), a second open returns
 * OVEXSDK_ERR_BUSY and ovexsdk_dev_close returns OVEXSDK_ERR_FAILED: release the context.
 *
 * Returns:
 * - OVEXSDK_OK: the board is connected and its items are loaded.
 * - OVEXSDK_ERR_NO_DEVICE: no attached board fits the locator.
 * - OVEXSDK_ERR_BUSY: the device is already connected.
 * - OVEXSDK_ERR_INVALID: the board is of an early PCB version that this library refuses.
 * - OVEXSDK_ERR_FAILED: the board can't be inspected (an identity the library doesn't know, a
 *   board in its boot loader without firmware in the library, a download that failed); the
 *   Lua interpreter refused the device; the connection state can't be read or the connection
 *   fails; the items don't load; the opening steps fail; the locator is "usb:ix:".
 * Common: handle, exception, callback. */
OVEXSDK_API ovexsdk_err_code ovexsdk_dev_open(ovexsdk_dev_ctx* ctx);

/* Closes the device: ends a readout still running (what had arrived reaches the data callback
 * first), stops the monitor stream and waits for every monitor callback, disconnects, takes
 * `device` away from the Lua interpreter and destroys the device object. Nothing is powered
 * down. After OVEXSDK_OK the context has no device and ovexsdk_dev_open may open one again.
 *
 * ctx  [in] the context.
 *
 * Returns:
 * - OVEXSDK_OK: the context has no device any more.
 * - OVEXSDK_ERR_NO_DEVICE: the context has no device.
 * - OVEXSDK_ERR_FAILED: the closing steps failed (a device whose items didn't load has no
 *   monitor stream to stop and always fails here) or the disconnect failed; the device stays.
 * Common: handle, exception, callback. */
OVEXSDK_API ovexsdk_err_code ovexsdk_dev_close(ovexsdk_dev_ctx* ctx);

/* Tells whether the context's device is connected.
 *
 * ctx      [in] the context.
 * is_open  [out] true when connected; false for a context without a device.
 *
 * Returns:
 * - OVEXSDK_OK: `*is_open` is set.
 * - OVEXSDK_ERR_INVALID: `is_open` is null.
 * - OVEXSDK_ERR_FAILED: the device has no connection module, or its state can't be read.
 * Common: handle, exception, callback. */
OVEXSDK_API ovexsdk_err_code ovexsdk_dev_is_open(ovexsdk_dev_ctx* ctx, bool* is_open);

/* Reads the identity of the open board from its USB descriptors, in the form of the
 * enumeration.
 *
 * ctx         [in] the context.
 * properties  [out] caller-owned record, filled on success.
 *
 * Returns:
 * - OVEXSDK_OK: `*properties` is filled.
 * - OVEXSDK_ERR_INVALID: `properties` is null.
 * - OVEXSDK_ERR_NO_DEVICE: the context has no device.
 * - OVEXSDK_ERR_UNAVAILABLE: the device has no USB properties module.
 * - OVEXSDK_ERR_FAILED: the descriptors can't be read.
 * Common: handle, exception, callback. */
OVEXSDK_API ovexsdk_err_code ovexsdk_dev_get_info(ovexsdk_dev_ctx* ctx,
                                                  ovexsdk_enum_info* properties);

/* Counts the device's power units.
 *
 * ctx    [in] the context.
 * count  [out] the number of units.
 *
 * Returns:
 * - OVEXSDK_OK: `*count` is set.
 * - OVEXSDK_ERR_INVALID: `count` is null.
 * - OVEXSDK_ERR_NO_DEVICE: the context has no device.
 * - OVEXSDK_ERR_FAILED: the device has no power unit (its items didn't load).
 * Common: handle, exception, callback. */
OVEXSDK_API ovexsdk_err_code ovexsdk_dev_get_unit_count(ovexsdk_dev_ctx* ctx, uint8_t* count);

/* Describes the device's power units, by the array rule: element i is unit i, with its name.
 *
 * ctx         [in] the context.
 * unit_infos  [out] caller-owned array of `*count` elements.
 * count       [in, out] capacity on entry; elements filled on return (0 for a device without
 *             units).
 *
 * Returns:
 * - OVEXSDK_OK: also when the list was cut.
 * - OVEXSDK_ERR_INVALID: `unit_infos` or `count` is null.
 * - OVEXSDK_ERR_NO_DEVICE: the context has no device.
 * Common: handle, exception, callback. */
OVEXSDK_API ovexsdk_err_code ovexsdk_dev_get_unit_info(ovexsdk_dev_ctx* ctx,
                                                       ovexsdk_dev_unit_info unit_infos[],
                                                       uint8_t* count);

/* Asks the board whether one power unit is powered.
 *
 * ctx         [in] the context.
 * unit        [in] the unit's index.
 * is_powered  [out] its state; false when the state can't be read.
 *
 * Returns:
 * - OVEXSDK_OK: `*is_powered` is set.
 * - OVEXSDK_ERR_INVALID: `is_powered` is null.
 * - OVEXSDK_ERR_NO_DEVICE: the context has no device.
 * - OVEXSDK_ERR_FAILED: `unit` is no unit of the device; the board's answer can't be read.
 * Common: handle, exception, callback. */
OVEXSDK_API ovexsdk_err_code ovexsdk_dev_is_unit_powered(ovexsdk_dev_ctx* ctx, uint8_t unit,
                                                         bool* is_powered);

/* Runs the power-up sequence of one unit. The frontend's sequence needs the backend powered,
 * and its end adds the chip and the modules that use it (acquisitions, triggers, threshold).
 *
 * ctx   [in] the context.
 * unit  [in] the unit's index.
 *
 * Returns:
 * - OVEXSDK_OK: the unit is powered up.
 * - OVEXSDK_ERR_BUSY: the unit is already powered up; nothing is done.
 * - OVEXSDK_ERR_NO_DEVICE: the context has no device.
 * - OVEXSDK_ERR_FAILED: `unit` is no unit of the device; its state can't be read; its sequence
 *   failed (a step the board refused, a rail that doesn't come up, a chip the board can't
 *   describe). The sequence's steps tell what was done.
 * Common: handle, exception, callback. */
OVEXSDK_API ovexsdk_err_code ovexsdk_dev_power_up_unit(ovexsdk_dev_ctx* ctx, uint8_t unit);

/* Runs the power-down sequence of one unit.
 *
 * ctx   [in] the context.
 * unit  [in] the unit's index.
 *
 * Returns:
 * - OVEXSDK_OK: the unit is powered down.
 * - OVEXSDK_ERR_UNAVAILABLE: the unit is already powered down; nothing is done.
 * - OVEXSDK_ERR_NO_DEVICE: the context has no device.
 * - OVEXSDK_ERR_FAILED: `unit` is no unit of the device; its state can't be read; its sequence
 *   failed.
 * Common: handle, exception, callback. */
OVEXSDK_API ovexsdk_err_code ovexsdk_dev_power_down_unit(ovexsdk_dev_ctx* ctx, uint8_t unit);

/* Tells whether every power unit is powered. Stops asking at the first unit that is down.
 *
 * ctx         [in] the context.
 * is_powered  [out] true when all units are powered; false otherwise, also for a device
 *             without units and on every failure after the pointer check.
 *
 * Returns:
 * - OVEXSDK_OK: `*is_powered` is set; also for a device without units.
 * - OVEXSDK_ERR_INVALID: `is_powered` is null.
 * - OVEXSDK_ERR_NO_DEVICE: the context has no device.
 * - OVEXSDK_ERR_FAILED: the state of a unit can't be read.
 * Common: handle, exception, callback. */
OVEXSDK_API ovexsdk_err_code ovexsdk_dev_is_powered(ovexsdk_dev_ctx* ctx, bool* is_powered);

/* Powers every unit up, first to last, as ovexsdk_dev_power_up_unit does; a unit already up is
 * counted and passed over. The first other failure ends the walk and leaves the units before
 * it powered.
 *
 * ctx  [in] the context.
 *
 * Returns:
 * - OVEXSDK_OK: at least one unit was powered up and none failed.
 * - OVEXSDK_ERR_BUSY: every unit was already powered up.
 * - OVEXSDK_ERR_NO_DEVICE: the context has no device.
 * - OVEXSDK_ERR_FAILED: the device has no power unit; a unit failed as in
 *   ovexsdk_dev_power_up_unit.
 * Common: handle, exception, callback. */
OVEXSDK_API ovexsdk_err_code ovexsdk_dev_power_up(ovexsdk_dev_ctx* ctx);

/* Powers every unit down, last to first, as ovexsdk_dev_power_down_unit does; a unit already
 * down is counted and passed over. The first other failure ends the walk.
 *
 * ctx  [in] the context.
 *
 * Returns:
 * - OVEXSDK_OK: at least one unit was powered down and none failed.
 * - OVEXSDK_ERR_UNAVAILABLE: every unit was already powered down.
 * - OVEXSDK_ERR_NO_DEVICE: the context has no device.
 * - OVEXSDK_ERR_FAILED: the device has no power unit; a unit failed as in
 *   ovexsdk_dev_power_down_unit.
 * Common: handle, exception, callback. */
OVEXSDK_API ovexsdk_err_code ovexsdk_dev_power_down(ovexsdk_dev_ctx* ctx);
/* ---- Chips ---------------------------------------------------------------------------------- *
 * Chips of an open board whose frontend is powered up; chip 0 is the first. Before the
 * frontend's power-up a board has no chip: the chip calls then return OVEXSDK_ERR_INVALID, the
 * counting and listing ones OVEXSDK_OK with none. A chip's pixel matrix is one byte per pixel,
 * index y * width + x. Every function here takes the device. */

/* Counts the device's chips.
 *
 * ctx    [in] the context.
 * count  [out] the number of chips; 0 before the frontend's power-up.
 *
 * Returns:
 * - OVEXSDK_OK: `*count` is set.
 * - OVEXSDK_ERR_INVALID: `count` is null.
 * - OVEXSDK_ERR_NO_DEVICE: the context has no device.
 * Common: handle, exception, callback. */
OVEXSDK_API ovexsdk_err_code ovexsdk_chip_get_count(ovexsdk_dev_ctx* ctx, uint8_t* count);

/* Describes the chips, by the array rule: id, the modes and polarities each supports, size.
 * A chip whose kind the library knows no modes of (Timepix4) lists none and a size of 0 x 0.
 *
 * ctx    [in] the context.
 * infos  [out] caller-owned array of `*count` elements; each filled element is zeroed first.
 * count  [in, out] capacity on entry; elements filled on return.
 *
 * Returns:
 * - OVEXSDK_OK: also when the list was cut.
 * - OVEXSDK_ERR_NO_DEVICE: the context has no device (checked before the pointers).
 * - OVEXSDK_ERR_INVALID: `infos` or `count` is null.
 * - OVEXSDK_ERR_FAILED: the board doesn't describe a chip; the elements before it are filled,
 *   `*count` is left as it was.
 * Common: handle, exception, callback. */
OVEXSDK_API ovexsdk_err_code ovexsdk_chip_get_info(ovexsdk_dev_ctx* ctx, ovexsdk_chip_info infos[],
                                                   uint8_t* count);

/* The polarity and mode of each chip, by the array rule. The mode is 0 (Unknown) until
 * ovexsdk_chip_set_mode succeeds.
 *
 * ctx       [in] the context.
 * settings  [out] caller-owned array of `*count` elements.
 * count     [in, out] capacity on entry; elements filled on return.
 *
 * Returns:
 * - OVEXSDK_OK: also when the list was cut.
 * - OVEXSDK_ERR_NO_DEVICE: the context has no device (checked before the pointers).
 * - OVEXSDK_ERR_INVALID: `settings` or `count` is null.
 * - OVEXSDK_ERR_FAILED: a chip's polarity can't be read from the board; the elements before
 *   it are filled, `*count` is left as it was.
 * Common: handle, exception, callback. */
OVEXSDK_API ovexsdk_err_code ovexsdk_chip_get_settings(ovexsdk_dev_ctx* ctx,
                                                       ovexsdk_chip_settings settings[],
                                                       uint8_t* count);

/* Configures a chip: resets it (its DACs take their defaults), sets the board's pipeline up
 * for the configuration, writes the chip's default pixel matrix, reads it back and logs the
 * pixels that differ (the digital test; such pixels don't fail the call). Then it applies the
 * chip's configuration file "<chip id>.yaml", ".yml" or ".xml" from the working directory, the
 * first that loads: every DAC the file names (a DAC it lacks is skipped with a warning; the
 * first DAC the board refuses ends the DACs, but the rest is still applied and the call
 * fails), the pixel matrix the file holds for this chip id, and the threshold calibration.
 * Without a file the chip keeps its defaults and a raw = keV threshold calibration.
 *
 * ctx   [in] the context.
 * chip  [in] the chip's index.
 *
 * Returns:
 * - OVEXSDK_OK: the chip is configured.
 * - OVEXSDK_ERR_NO_DEVICE: the context has no device.
 * - OVEXSDK_ERR_INVALID: `chip` is no chip of the device.
 * - OVEXSDK_ERR_FAILED: the reset, the pipeline set-up or the default matrix failed; the
 *   file has no matrix of this chip's size (a file of another chip) or the board refused it;
 *   the board refused a DAC value.
 * Common: handle, exception, callback. */
OVEXSDK_API ovexsdk_err_code ovexsdk_chip_configure(ovexsdk_dev_ctx* ctx, uint8_t chip);

/* As ovexsdk_chip_configure, with the text of a configuration file instead of the file. The
 * chip is reset before the text is parsed, so a text that is refused leaves a reset chip.
 *
 * ctx       [in] the context.
 * chip      [in] the chip's index.
 * contents  [in] the configuration, YAML or XML, zero-terminated; read during the call only.
 *
 * Returns:
 * - OVEXSDK_OK: the chip is configured.
 * - OVEXSDK_ERR_NO_DEVICE: the context has no device.
 * - OVEXSDK_ERR_INVALID: `contents` is null; `chip` is no chip of the device; no parser takes
 *   the text (cut short, empty, a value of the wrong type, a key missing).
 * - OVEXSDK_ERR_FAILED: the reset failed, or any of the failures of ovexsdk_chip_configure.
 * Common: handle, exception, callback. */
OVEXSDK_API ovexsdk_err_code ovexsdk_chip_configure_from_string(ovexsdk_dev_ctx* ctx, uint8_t chip,
                                                                const char* contents);

/* Sets the operating mode. The mode applies to the whole device: every pipeline of the board
 * learns the bit depth the mode needs, then the first chip takes the mode, then every
 * acquisition module learns the pixel depth. The mode selects, with the processing mode, the
 * acquisition that ovexsdk_acq_start runs.
 *
 * ctx   [in] the context.
 * mode  [in] one of the modes that ovexsdk_chip_get_info lists for the chip.
 *
 * A pipeline set before a later step fails keeps its new depth. A chip whose board refuses the
 * mode has none (Unknown) afterwards; a mode the chip doesn't support leaves its mode as it was.
 *
 * Returns:
 * - OVEXSDK_OK: the mode is set.
 * - OVEXSDK_ERR_NO_DEVICE: the context has no device.
 * - OVEXSDK_ERR_INVALID: the device has no chip; the chip doesn't support the mode or the
 *   board refused it; an acquisition module refused the pixel depth (a Timepix2 readout is
 *   running).
 * - OVEXSDK_ERR_FAILED: `mode` is Unknown or no mode at all (such as
 *   OVEXSDK_CHIP_MODE_MAX_ENUM); the device has neither backend nor frontend; a pipeline
 *   refused the depth.
 * Common: handle, exception, callback. */
OVEXSDK_API ovexsdk_err_code ovexsdk_chip_set_mode(ovexsdk_dev_ctx* ctx, ovexsdk_chip_mode mode);

/* Sets the polarity of the charge a chip collects. A Timepix2 chip's polarity is fixed.
 *
 * ctx       [in] the context.
 * chip      [in] the chip's index.
 * polarity  [in] OVEXSDK_POLARITY_1 or OVEXSDK_POLARITY_2.
 *
 * Returns:
 * - OVEXSDK_OK: the polarity is set.
 * - OVEXSDK_ERR_NO_DEVICE: the context has no device.
 * - OVEXSDK_ERR_INVALID: `chip` is no chip of the device; `polarity` is neither value.
 * - OVEXSDK_ERR_FAILED: the chip can't change its polarity, or the board refused it.
 * Common: handle, exception, callback. */
OVEXSDK_API ovexsdk_err_code ovexsdk_chip_set_polarity(ovexsdk_dev_ctx* ctx, uint8_t chip,
                                                       ovexsdk_chip_polarity polarity);

/* The user mask is merged into the chip's pixel matrix: a pixel masked once stays masked until
 * the matrix is configured again. */

/* Copies the user mask that ovexsdk_chip_set_pixel_mask last kept for the chip (not the merged
 * matrix) into the host's buffer: at most `mask->size` bytes, none if no mask was set. The
 * number copied is not reported: pass a buffer of the chip's pixel count.
 *
 * ctx   [in] the context.
 * chip  [in] the chip's index.
 * mask  [in, out] the host's buffer: `data` and its `size` in bytes; neither is changed.
 *
 * Returns:
 * - OVEXSDK_OK: the bytes are copied.
 * - OVEXSDK_ERR_NO_DEVICE: the context has no device.
 * - OVEXSDK_ERR_INVALID: `mask` or `mask->data` is null; `chip` is no chip of the device.
 * - OVEXSDK_ERR_FAILED: the chip can't give its mask.
 * Common: handle, exception, callback. */
OVEXSDK_API ovexsdk_err_code ovexsdk_chip_get_pixel_mask(ovexsdk_dev_ctx* ctx, uint8_t chip,
                                                         ovexsdk_chip_pixel_mask* mask);

/* Keeps a user mask for the chip and writes the chip's matrix with every pixel that the mask
 * or the matrix masks masked.
 *
 * ctx   [in] the context.
 * chip  [in] the chip's index.
 * mask  [in] one byte per pixel, nonzero masks; `size` must be the chip's pixel count. Read
 *       during the call only.
 *
 * Returns:
 * - OVEXSDK_OK: the merged matrix is on the chip.
 * - OVEXSDK_ERR_NO_DEVICE: the context has no device.
 * - OVEXSDK_ERR_INVALID: `mask` or `mask->data` is null; `chip` is no chip of the device.
 * - OVEXSDK_ERR_FAILED: `mask->size` is not the chip's pixel count (nothing is kept); no matrix
 *   was written to the chip yet (the mask is kept, not applied); the board refused the matrix.
 * Common: handle, exception, callback. */
OVEXSDK_API ovexsdk_err_code ovexsdk_chip_set_pixel_mask(ovexsdk_dev_ctx* ctx, uint8_t chip,
                                                         const ovexsdk_chip_pixel_mask* mask);

/* Thresholds: in keV through the chip's calibration, or raw, as the chip's DACs count. The
 * chip's coarse and fine threshold DACs are the only store: each getter reads them from the
 * board. The calibration is raw = keV until a configuration with one is applied. */

/* Reads a chip's threshold in keV.
 *
 * ctx    [in] the context.
 * chip   [in] the chip's index.
 * value  [out] the threshold, keV.
 *
 * Returns:
 * - OVEXSDK_OK: `*value` is set.
 * - OVEXSDK_ERR_INVALID: `value` is null; `chip` is no chip of the device.
 * - OVEXSDK_ERR_NO_DEVICE: the context has no device.
 * - OVEXSDK_ERR_FAILED: the DACs can't be read.
 * Common: handle, exception, callback. */
OVEXSDK_API ovexsdk_err_code ovexsdk_chip_get_thld(ovexsdk_dev_ctx* ctx, uint8_t chip,
                                                   float* value);

/* Sets a chip's threshold in keV, within [energy_low, energy_high] of
 * ovexsdk_chip_get_thld_info.
 *
 * ctx    [in] the context.
 * chip   [in] the chip's index.
 * value  [in] the threshold, keV.
 *
 * Returns:
 * - OVEXSDK_OK: the DACs are set.
 * - OVEXSDK_ERR_NO_DEVICE: the context has no device.
 * - OVEXSDK_ERR_INVALID: `chip` is no chip of the device.
 * - OVEXSDK_ERR_FAILED: `value` is outside the range or not a number; the board refused a DAC.
 * Common: handle, exception, callback. */
OVEXSDK_API ovexsdk_err_code ovexsdk_chip_set_thld(ovexsdk_dev_ctx* ctx, uint8_t chip, float value);

/* Reads a chip's raw threshold, made of its coarse and fine threshold DACs.
 *
 * ctx        [in] the context.
 * chip       [in] the chip's index.
 * raw_value  [out] the raw threshold.
 *
 * Returns:
 * - OVEXSDK_OK: `*raw_value` is set.
 * - OVEXSDK_ERR_INVALID: `raw_value` is null; `chip` is no chip of the device.
 * - OVEXSDK_ERR_NO_DEVICE: the context has no device.
 * - OVEXSDK_ERR_FAILED: the DACs can't be read.
 * Common: handle, exception, callback. */
OVEXSDK_API ovexsdk_err_code ovexsdk_chip_get_raw_thld(ovexsdk_dev_ctx* ctx, uint8_t chip,
                                                       uint32_t* raw_value);

/* Sets a chip's raw threshold, within [raw_min, raw_max] of ovexsdk_chip_get_thld_info; it is
 * split over the coarse and fine threshold DACs.
 *
 * ctx        [in] the context.
 * chip       [in] the chip's index.
 * raw_value  [in] the raw threshold.
 *
 * Returns:
 * - OVEXSDK_OK: the DACs are set.
 * - OVEXSDK_ERR_NO_DEVICE: the context has no device.
 * - OVEXSDK_ERR_INVALID: `chip` is no chip of the device.
 * - OVEXSDK_ERR_FAILED: `raw_value` is outside the range; the board refused a DAC.
 * Common: handle, exception, callback. */
OVEXSDK_API ovexsdk_err_code ovexsdk_chip_set_raw_thld(ovexsdk_dev_ctx* ctx, uint8_t chip,
                                                       uint32_t raw_value);

/* The threshold range of each chip, by the array rule.
 *
 * ctx         [in] the context.
 * thld_infos  [out] caller-owned array of `*chip_count` elements.
 * chip_count  [in, out] capacity on entry; elements filled on return (0 without chips).
 *
 * Returns:
 * - OVEXSDK_OK: also when the list was cut.
 * - OVEXSDK_ERR_NO_DEVICE: the context has no device (checked before the pointers).
 * - OVEXSDK_ERR_INVALID: `thld_infos` or `chip_count` is null.
 * - OVEXSDK_ERR_FAILED: a chip's range can't be read; the elements before it are filled,
 *   `*chip_count` is left as it was.
 * Common: handle, exception, callback. */
OVEXSDK_API ovexsdk_err_code ovexsdk_chip_get_thld_info(ovexsdk_dev_ctx* ctx,
                                                        ovexsdk_chip_thld_info thld_infos[],
                                                        uint8_t* chip_count);
/* ---- Bias supplies -------------------------------------------------------------------------- *
 * The sensor's bias voltage, in volts, by the supply's index. A board has its supply from the
 * open on. Every function here takes the device; an index that names no supply gives
 * OVEXSDK_ERR_FAILED. */

/* Counts the bias supplies.
 *
 * ctx    [in] the context.
 * count  [out] the number of supplies.
 *
 * Returns:
 * - OVEXSDK_OK: `*count` is set.
 * - OVEXSDK_ERR_INVALID: `count` is null.
 * - OVEXSDK_ERR_NO_DEVICE: the context has no device.
 * Common: handle, exception, callback. */
OVEXSDK_API ovexsdk_err_code ovexsdk_bias_get_count(ovexsdk_dev_ctx* ctx, uint8_t* count);

/* The settable range of each supply, by the array rule.
 *
 * ctx    [in] the context.
 * infos  [out] caller-owned array of `*count` elements.
 * count  [in, out] capacity on entry; elements filled on return.
 *
 * Returns:
 * - OVEXSDK_OK: also when the list was cut.
 * - OVEXSDK_ERR_NO_DEVICE: the context has no device (checked before the pointers).
 * - OVEXSDK_ERR_INVALID: `infos` or `count` is null.
 * - OVEXSDK_ERR_FAILED: a supply's limits can't be read from the board; the elements before it
 *   are filled, `*count` is left as it was.
 * Common: handle, exception, callback. */
OVEXSDK_API ovexsdk_err_code ovexsdk_bias_get_info(ovexsdk_dev_ctx* ctx, ovexsdk_bias_info infos[],
                                                   uint8_t* count);

/* Reads the voltage a supply is set to.
 *
 * ctx    [in] the context.
 * id     [in] the supply's index.
 * value  [out] volts.
 *
 * Returns:
 * - OVEXSDK_OK: `*value` is set.
 * - OVEXSDK_ERR_NO_DEVICE: the context has no device (checked before the pointer).
 * - OVEXSDK_ERR_INVALID: `value` is null.
 * - OVEXSDK_ERR_FAILED: `id` names no supply; the board doesn't answer.
 * Common: handle, exception, callback. */
OVEXSDK_API ovexsdk_err_code ovexsdk_bias_get_desired(ovexsdk_dev_ctx* ctx, uint8_t id,
                                                      float* value);

/* Measures the voltage a supply gives, through the board's monitor of it.
 *
 * ctx    [in] the context.
 * id     [in] the supply's index.
 * value  [out] volts.
 *
 * Returns:
 * - OVEXSDK_OK: `*value` is set.
 * - OVEXSDK_ERR_NO_DEVICE: the context has no device (checked before the pointer).
 * - OVEXSDK_ERR_INVALID: `value` is null.
 * - OVEXSDK_ERR_FAILED: `id` names no supply; the measurement fails (a board gone, too).
 * Common: handle, exception, callback. */
OVEXSDK_API ovexsdk_err_code ovexsdk_bias_get_actual(ovexsdk_dev_ctx* ctx, uint8_t id,
                                                     float* value);

/* Sets the voltage of a supply. The board counts whole volts: the value is rounded, halves away
 * from zero.
 *
 * ctx    [in] the context.
 * id     [in] the supply's index.
 * value  [in] volts, within the range of ovexsdk_bias_get_info.
 *
 * Returns:
 * - OVEXSDK_OK: the supply is set.
 * - OVEXSDK_ERR_NO_DEVICE: the context has no device.
 * - OVEXSDK_ERR_FAILED: `id` names no supply; the value is out of range or the board refused
 *   it.
 * Common: handle, exception, callback. */
OVEXSDK_API ovexsdk_err_code ovexsdk_bias_set_desired(ovexsdk_dev_ctx* ctx, uint8_t id,
                                                      float value);

/* ---- Temperature controllers ---------------------------------------------------------------- *
 * Peltier controllers, by index, in degrees Celsius or percent (the unit of
 * ovexsdk_temp_get_info). Every function here takes the device; an index that names no
 * controller gives OVEXSDK_ERR_FAILED. */

/* Counts the temperature controllers.
 *
 * ctx    [in] the context.
 * count  [out] the number of controllers.
 *
 * Returns:
 * - OVEXSDK_OK: `*count` is set.
 * - OVEXSDK_ERR_INVALID: `count` is null.
 * - OVEXSDK_ERR_NO_DEVICE: the context has no device.
 * Common: handle, exception, callback. */
OVEXSDK_API ovexsdk_err_code ovexsdk_temp_get_count(ovexsdk_dev_ctx* ctx, uint8_t* count);

/* The range and unit of each controller, by the array rule.
 *
 * ctx    [in] the context.
 * infos  [out] caller-owned array of `*count` elements.
 * count  [in, out] capacity on entry; elements filled on return.
 *
 * Returns:
 * - OVEXSDK_OK: also when the list was cut.
 * - OVEXSDK_ERR_INVALID: `infos` or `count` is null.
 * - OVEXSDK_ERR_NO_DEVICE: the context has no device.
 * - OVEXSDK_ERR_FAILED: a controller's limits can't be read; the elements before it are
 *   filled, `*count` is left as it was.
 * Common: handle, exception, callback. */
OVEXSDK_API ovexsdk_err_code ovexsdk_temp_get_info(ovexsdk_dev_ctx* ctx,
                                                   ovexsdk_temp_ctrl_info infos[], uint64_t* count);

/* Reads the set point of a controller.
 *
 * ctx    [in] the context.
 * id     [in] the controller's index.
 * value  [out] the set point, in the controller's unit.
 *
 * Returns:
 * - OVEXSDK_OK: `*value` is set.
 * - OVEXSDK_ERR_INVALID: `value` is null.
 * - OVEXSDK_ERR_NO_DEVICE: the context has no device.
 * - OVEXSDK_ERR_FAILED: `id` names no controller; the board doesn't answer.
 * Common: handle, exception, callback. */
OVEXSDK_API ovexsdk_err_code ovexsdk_temp_get_desired(ovexsdk_dev_ctx* ctx, uint8_t id,
                                                      float* value);

/* Measures what a controller achieves, through the board's monitor of it; a controller the
 * board doesn't measure gives its set point.
 *
 * ctx    [in] the context.
 * id     [in] the controller's index.
 * value  [out] in the controller's unit.
 *
 * Returns:
 * - OVEXSDK_OK: `*value` is set.
 * - OVEXSDK_ERR_INVALID: `value` is null.
 * - OVEXSDK_ERR_NO_DEVICE: the context has no device.
 * - OVEXSDK_ERR_FAILED: `id` names no controller; the reading fails.
 * Common: handle, exception, callback. */
OVEXSDK_API ovexsdk_err_code ovexsdk_temp_get_actual(ovexsdk_dev_ctx* ctx, uint8_t id,
                                                     float* value);

/* Sets the set point of a controller. 0.0 is taken whatever the range: it switches the
 * controller off.
 *
 * ctx    [in] the context.
 * id     [in] the controller's index.
 * value  [in] in the controller's unit, within the range of ovexsdk_temp_get_info.
 *
 * Returns:
 * - OVEXSDK_OK: the set point is written.
 * - OVEXSDK_ERR_NO_DEVICE: the context has no device.
 * - OVEXSDK_ERR_FAILED: `id` names no controller; the value is out of range or the board
 *   refused it.
 * Common: handle, exception, callback. */
OVEXSDK_API ovexsdk_err_code ovexsdk_temp_set_desired(ovexsdk_dev_ctx* ctx, uint8_t id,
                                                      float value);

/* ---- Monitors ------------------------------------------------------------------------------- *
 * The board's monitors (voltages, currents, temperatures), by their index in the board's list,
 * 0 to ovexsdk_mon_get_count - 1. Values are read on request, or pushed by the board's monitor
 * stream to callbacks: the stream runs from the backend's power-up (on a NoBE board from the
 * open) until the device is closed. Every function here takes the device; an index beyond the
 * list gives OVEXSDK_ERR_FAILED. */

/* Counts the board's monitors.
 *
 * ctx    [in] the context.
 * count  [out] the number of monitors.
 *
 * Returns:
 * - OVEXSDK_OK: `*count` is set.
 * - OVEXSDK_ERR_INVALID: `count` is null.
 * - OVEXSDK_ERR_NO_DEVICE: the context has no device.
 * - OVEXSDK_ERR_FAILED: the device has no monitor module (its items didn't load).
 * Common: handle, exception, callback. */
OVEXSDK_API ovexsdk_err_code ovexsdk_mon_get_count(ovexsdk_dev_ctx* ctx, uint32_t* count);

/* Describes a monitor: its name, value type and range, the range as the board gives it.
 *
 * ctx       [in] the context.
 * index     [in] the monitor's index.
 * mon_info  [out] caller-owned record; `id` points into the library's list of names and stays
 *           valid until the device is closed.
 *
 * Returns:
 * - OVEXSDK_OK: `*mon_info` is set.
 * - OVEXSDK_ERR_INVALID: `mon_info` is null.
 * - OVEXSDK_ERR_NO_DEVICE: the context has no device.
 * - OVEXSDK_ERR_FAILED: the device has no monitor module; `index` is beyond the list; the
 *   library knows no type for the monitor; the range can't be read.
 * Common: handle, exception, callback. */
OVEXSDK_API ovexsdk_err_code ovexsdk_mon_get_info(ovexsdk_dev_ctx* ctx, uint32_t index,
                                                  ovexsdk_mon_info* mon_info);

/* Reads a monitor's value from the board now. An integer monitor's value is truncated toward
 * zero.
 *
 * ctx    [in] the context.
 * index  [in] the monitor's index.
 * value  [out] `i` for an integer monitor, `f` for a float one (the type of
 *        ovexsdk_mon_get_info).
 *
 * Returns:
 * - OVEXSDK_OK: `*value` is set.
 * - OVEXSDK_ERR_INVALID: `value` is null.
 * - OVEXSDK_ERR_NO_DEVICE: the context has no device.
 * - OVEXSDK_ERR_FAILED: the device has no monitor module; `index` is beyond the list; the
 *   library knows no type for the monitor; the board doesn't answer (a board gone, too).
 * Common: handle, exception, callback. */
OVEXSDK_API ovexsdk_err_code ovexsdk_mon_get_value(ovexsdk_dev_ctx* ctx, uint32_t index,
                                                   ovexsdk_mon_value* value);

/* Sets the callback told when the board reports a change of a monitor's availability. It
 * replaces the monitor's earlier one; a null `function` removes it. Setting reads the monitor's
 * range from the board, for the records the callback gets.
 *
 * ctx       [in] the context.
 * index     [in] the monitor's index.
 * function  [in] the callback, or null.
 * param     [in] handed back unchanged to each call; the host keeps what it points to alive
 *           while the callback is set.
 *
 * The callback runs on a short-lived task of the monitor stream, several at a time and in no
 * fixed order between monitors; `args` and what it points to are valid during the call only.
 * It may set or remove callbacks, and make other calls with the "callback" rule in mind; it
 * must neither close the device nor release the context. A notification that had begun before
 * the callback was replaced may still call the old one; once ovexsdk_dev_close has returned,
 * none runs.
 *
 * Returns:
 * - OVEXSDK_OK: the callback is set or removed.
 * - OVEXSDK_ERR_NO_DEVICE: the context has no device.
 * - OVEXSDK_ERR_FAILED: the device has no monitor module; `index` is beyond the list; the
 *   library knows no type for the monitor; the range can't be read.
 * Common: handle, exception, callback. */
OVEXSDK_API ovexsdk_err_code ovexsdk_mon_set_avail_changed_cb(ovexsdk_dev_ctx* ctx, uint32_t index,
                                                              ovexsdk_mon_avail_changed_cb function,
                                                              void* param);

/* Sets the callback told of each value the board's stream brings for a monitor, as
 * ovexsdk_mon_set_avail_changed_cb does for availability; all it says holds here too.
 *
 * ctx       [in] the context.
 * index     [in] the monitor's index.
 * function  [in] the callback, or null to remove it.
 * param     [in] handed back unchanged to each call.
 *
 * Returns:
 * - OVEXSDK_OK: the callback is set or removed.
 * - OVEXSDK_ERR_NO_DEVICE: the context has no device.
 * - OVEXSDK_ERR_FAILED: the device has no monitor module; `index` is beyond the list; the
 *   library knows no type for the monitor; the range can't be read.
 * Common: handle, exception, callback. */
OVEXSDK_API ovexsdk_err_code ovexsdk_mon_set_value_changed_cb(ovexsdk_dev_ctx* ctx, uint32_t index,
                                                              ovexsdk_mon_value_changed_cb function,
                                                              void* param);

/* ---- EEPROMs -------------------------------------------------------------------------------- *
 * The board's I2C EEPROMs, by index, each of address ranges (regions) that are read-only or
 * read-write. `*length` goes in as the bytes asked for and comes back as the bytes done, also
 * when the call fails part way. A range must lie within one region. Every function here takes
 * the device; an index that names no EEPROM gives OVEXSDK_ERR_FAILED. */

/* Counts the EEPROMs.
 *
 * ctx    [in] the context.
 * count  [out] the number of EEPROMs.
 *
 * Returns:
 * - OVEXSDK_OK: `*count` is set.
 * - OVEXSDK_ERR_NO_DEVICE: the context has no device (checked before the pointer).
 * - OVEXSDK_ERR_INVALID: `count` is null.
 * Common: handle, exception, callback. */
OVEXSDK_API ovexsdk_err_code ovexsdk_eeprom_get_count(ovexsdk_dev_ctx* ctx, uint8_t* count);

/* Describes an EEPROM: its name, part number and number of regions.
 *
 * ctx       [in] the context.
 * id        [in] the EEPROM's index.
 * out_info  [out] caller-owned record.
 *
 * Returns:
 * - OVEXSDK_OK: `*out_info` is set.
 * - OVEXSDK_ERR_NO_DEVICE: the context has no device (checked before the pointer).
 * - OVEXSDK_ERR_INVALID: `out_info` is null.
 * - OVEXSDK_ERR_FAILED: `id` names no EEPROM; its description can't be had.
 * Common: handle, exception, callback. */
OVEXSDK_API ovexsdk_err_code ovexsdk_eeprom_get_info(ovexsdk_dev_ctx* ctx, uint8_t id,
                                                     ovexsdk_eeprom_info* out_info);

/* Describes one region of an EEPROM.
 *
 * ctx         [in] the context.
 * id          [in] the EEPROM's index.
 * region      [in] the region's index, below `region_count` of ovexsdk_eeprom_get_info.
 * region_out  [out] caller-owned record.
 *
 * Returns:
 * - OVEXSDK_OK: `*region_out` is set.
 * - OVEXSDK_ERR_NO_DEVICE: the context has no device (checked before the pointer).
 * - OVEXSDK_ERR_INVALID: `region_out` is null; `region` is no region of the EEPROM.
 * - OVEXSDK_ERR_FAILED: `id` names no EEPROM; its description can't be had.
 * Common: handle, exception, callback. */
OVEXSDK_API ovexsdk_err_code ovexsdk_eeprom_get_region_info(ovexsdk_dev_ctx* ctx, uint8_t id,
                                                            uint8_t region,
                                                            ovexsdk_eeprom_region* region_out);

/* Reads `*length` bytes from `address` on into `buffer`.
 *
 * ctx      [in] the context.
 * id       [in] the EEPROM's index.
 * address  [in] the first byte.
 * buffer   [out] caller-owned, at least `*length` bytes.
 * length   [in, out] bytes asked for; bytes read on return (untouched when `id` names no
 *          EEPROM).
 *
 * Returns:
 * - OVEXSDK_OK: all bytes are read.
 * - OVEXSDK_ERR_NO_DEVICE: the context has no device (checked before the pointers).
 * - OVEXSDK_ERR_INVALID: `buffer` or `length` is null.
 * - OVEXSDK_ERR_FAILED: `id` names no EEPROM; the range is in no region; an I2C transfer
 *   failed (a board gone, too).
 * Common: handle, exception, callback. */
OVEXSDK_API ovexsdk_err_code ovexsdk_eeprom_read(ovexsdk_dev_ctx* ctx, uint8_t id, uint16_t address,
                                                 uint8_t* buffer, uint64_t* length);

/* Writes `*length` bytes of `buffer` from `address` on, page by page.
 *
 * ctx      [in] the context.
 * id       [in] the EEPROM's index.
 * address  [in] the first byte.
 * buffer   [in] at least `*length` bytes; read during the call only.
 * length   [in, out] bytes to write; bytes written on return (untouched when `id` names no
 *          EEPROM).
 *
 * Returns:
 * - OVEXSDK_OK: all bytes are written.
 * - OVEXSDK_ERR_NO_DEVICE: the context has no device (checked before the pointers).
 * - OVEXSDK_ERR_INVALID: `buffer` or `length` is null.
 * - OVEXSDK_ERR_FAILED: `id` names no EEPROM; the range is in no region or in a read-only one
 *   (nothing is written); an I2C transfer failed.
 * Common: handle, exception, callback. */
OVEXSDK_API ovexsdk_err_code ovexsdk_eeprom_write(ovexsdk_dev_ctx* ctx, uint8_t id,
                                                  uint16_t address, const uint8_t* buffer,
                                                  uint64_t* length);

/* Erases `*length` bytes from `address` on: writes 0xFF to them, as ovexsdk_eeprom_write does.
 *
 * ctx      [in] the context.
 * id       [in] the EEPROM's index.
 * address  [in] the first byte.
 * length   [in, out] bytes to erase; bytes erased on return (untouched when `id` names no
 *          EEPROM).
 *
 * Returns:
 * - OVEXSDK_OK: all bytes are erased.
 * - OVEXSDK_ERR_NO_DEVICE: the context has no device (checked before the pointer).
 * - OVEXSDK_ERR_INVALID: `length` is null.
 * - OVEXSDK_ERR_FAILED: as ovexsdk_eeprom_write.
 * Common: handle, exception, callback. */
OVEXSDK_API ovexsdk_err_code ovexsdk_eeprom_erase(ovexsdk_dev_ctx* ctx, uint8_t id,
                                                  uint16_t address, uint64_t* length);

/* ---- Flash memories ------------------------------------------------------------------------- *
 * The board's serial NOR flashes, which hold FPGA images, by index: read anywhere, erase and
 * program by sector. The flashes of a unit appear with its power-up. Every function here takes
 * the device; an index that names no flash gives OVEXSDK_ERR_FAILED, and the device and the
 * index are checked before the pointers. */

/* Counts the flashes.
 *
 * ctx    [in] the context.
 * count  [out] the number of flashes.
 *
 * Returns:
 * - OVEXSDK_OK: `*count` is set.
 * - OVEXSDK_ERR_NO_DEVICE: the context has no device (checked before the pointer).
 * - OVEXSDK_ERR_INVALID: `count` is null.
 * Common: handle, exception, callback. */
OVEXSDK_API ovexsdk_err_code ovexsdk_flash_get_count(ovexsdk_dev_ctx* ctx, uint8_t* count);

/* Describes a flash: its name, part number, size, page size and number of regions.
 *
 * ctx   [in] the context.
 * id    [in] the flash's index.
 * info  [out] caller-owned record.
 *
 * Returns:
 * - OVEXSDK_OK: `*info` is set.
 * - OVEXSDK_ERR_NO_DEVICE: the context has no device.
 * - OVEXSDK_ERR_INVALID: `info` is null.
 * - OVEXSDK_ERR_FAILED: `id` names no flash; the flash can't be queried.
 * Common: handle, exception, callback. */
OVEXSDK_API ovexsdk_err_code ovexsdk_flash_get_info(ovexsdk_dev_ctx* ctx, uint8_t id,
                                                    ovexsdk_flash_info* info);

/* Describes one region of a flash.
 *
 * ctx     [in] the context.
 * id      [in] the flash's index.
 * region  [in] the region's index, below `region_count` of ovexsdk_flash_get_info.
 * info    [out] caller-owned record.
 *
 * Returns:
 * - OVEXSDK_OK: `*info` is set.
 * - OVEXSDK_ERR_NO_DEVICE: the context has no device.
 * - OVEXSDK_ERR_INVALID: `info` is null.
 * - OVEXSDK_ERR_FAILED: `id` names no flash; the flash can't be queried; `region` is no
 *   region of it.
 * Common: handle, exception, callback. */
OVEXSDK_API ovexsdk_err_code ovexsdk_flash_get_region_info(ovexsdk_dev_ctx* ctx, uint8_t id,
                                                           uint16_t region,
                                                           ovexsdk_flash_region_info* info);

/* Reads `read_input->length` bytes from `read_input->address` of flash `read_input->flash_id`
 * into `buffer->data`, and sets `buffer->size` to that length. The buffer's size on entry is not
 * looked at: `buffer->data` must hold `read_input->length` bytes.
 *
 * ctx         [in] the context.
 * read_input  [in] which flash, where, how many bytes.
 * buffer      [in, out] the host's buffer.
 *
 * Returns:
 * - OVEXSDK_OK: the bytes are read.
 * - OVEXSDK_ERR_INVALID: `read_input`, `buffer` or `buffer->data` is null (checked first).
 * - OVEXSDK_ERR_NO_DEVICE: the context has no device.
 * - OVEXSDK_ERR_FAILED: `flash_id` names no flash; the read fails (an S25FL128S part also
 *   refuses a range that runs past its end). `buffer->size` is unchanged.
 * Common: handle, exception, callback. */
OVEXSDK_API ovexsdk_err_code ovexsdk_flash_read(ovexsdk_dev_ctx* ctx,
                                                const ovexsdk_flash_read_input* read_input,
                                                ovexsdk_flash_buffer* buffer);

/* Programs one sector of a flash. It doesn't erase: erase the sector first.
 *
 * ctx            [in] the context.
 * program_input  [in] which flash; `address`, the start of a sector; `buffer`, exactly one
 *                sector's bytes (the sector size of its region), read during the call only.
 *
 * Returns:
 * - OVEXSDK_OK: the sector is programmed.
 * - OVEXSDK_ERR_INVALID: `program_input`, its `buffer` or the buffer's `data` is null (checked
 *   first).
 * - OVEXSDK_ERR_NO_DEVICE: the context has no device.
 * - OVEXSDK_ERR_FAILED: `flash_id` names no flash; `address` is in no region or no sector's
 *   start; the size is not the sector's; the board or the flash reports a failure.
 * Common: handle, exception, callback. */
OVEXSDK_API ovexsdk_err_code ovexsdk_flash_program_sector(
    ovexsdk_dev_ctx* ctx, const ovexsdk_flash_program_input* program_input);

/* Erases one sector of a flash.
 *
 * ctx      [in] the context.
 * id       [in] the flash's index.
 * address  [in] the start of the sector.
 *
 * Returns:
 * - OVEXSDK_OK: the sector is erased.
 * - OVEXSDK_ERR_NO_DEVICE: the context has no device.
 * - OVEXSDK_ERR_FAILED: `id` names no flash; `address` is in no region or no sector's start;
 *   the board or the flash reports a failure, or the erase doesn't finish in time.
 * Common: handle, exception, callback. */
OVEXSDK_API ovexsdk_err_code ovexsdk_flash_erase_sector(ovexsdk_dev_ctx* ctx, uint8_t id,
                                                        uint32_t address);
/* ---- Acquisition ---------------------------------------------------------------------------- *
 * The usual order: ovexsdk_chip_set_mode, ovexsdk_trigger_configure, optionally
 * ovexsdk_extsync_configure, ovexsdk_acq_select_processing, ovexsdk_acq_start, then
 * ovexsdk_acq_await_end, or ovexsdk_acq_abort and ovexsdk_acq_await_end. The chip's mode and the
 * processing mode choose the acquisition that runs:
 * - Timepix2 modes: a frame per shutter, ovexsdk_acq_get_tpx2_frames;
 * - ToAToTFBZS: the hits of each frame, ovexsdk_acq_get_tpx3_toa_tot_packets;
 * - IToTEvCountFBZS: the pixels of each frame, ovexsdk_acq_get_tpx3_itot_evcount_packets;
 * - ToAToTDD with DefaultProcessing or SortByToa: the hits of each block the board sends, in
 *   the board's order or sorted by time, ovexsdk_acq_get_tpx3_toa_tot_packets;
 * - ToAToTDD with BinEvcountImage, BinItotImage or BinCompletely: a scan binned line by line,
 *   ovexsdk_acq_get_tpx3_evcount_fragment, _itot_fragment, _itot_evcount_bins.
 * Any other pair has no acquisition. A single internal shutter (InternalStartShutterDuration)
 * makes one readout, ended by its frame; every other trigger reads out until ovexsdk_acq_abort.
 *
 * The data callback runs on a thread of the library, "Consumer" in the frame modes and
 * "Processing" in the data-driven ones, once per result and in order; the next result waits for
 * it. The ovexsdk_acq_get_* functions are meant to be called from it: they take no lock, and the
 * data they give are valid only until it returns. A callback must not close the device or
 * release the context; its calls that take the device don't wait while another thread is in a
 * call on the context (such as ovexsdk_acq_await_end): they return OVEXSDK_ERR_BUSY then. */

/* Chooses what the next ovexsdk_acq_start makes of the chip's data; a context starts with
 * DefaultProcessing. The choice belongs to the context and needs no device; a readout already
 * running keeps its own.
 *
 * ctx   [in] the context.
 * mode  [in] a processing mode.
 *
 * Returns:
 * - OVEXSDK_OK: the mode is kept.
 * - OVEXSDK_ERR_INVALID: `mode` is none of the five.
 * Common: handle, exception, callback. */
OVEXSDK_API ovexsdk_err_code ovexsdk_acq_select_processing(ovexsdk_dev_ctx* ctx,
                                                           ovexsdk_acq_process_mode mode);

/* Starts a readout with the chip's mode, the processing mode and the configured trigger, and
 * returns once it runs: the shutter is then up to the trigger (ovexsdk_trigger_now for an
 * internal one). A Timepix3 readout first zeroes the chip's time of arrival.
 *
 * ctx      [in] the context.
 * data_cb  [in] called with `ctx` and `user` once per result; null drops the results.
 * flags    [in] the channels, a set of ovexsdk_acq_mode_flag; other bits are ignored, 0 is
 *          refused. On a Timepix3 board the records are always made and OVEXSDK_ACQ_RAW keeps
 *          the raw bytes too; on a Timepix2 board the raw bytes are always kept and
 *          OVEXSDK_ACQ_PROCESSED makes the frames.
 * params   [in] the scan of the binned data-driven modes, every field nonzero; the dwell time
 *          becomes a bin width in sixteenths of the 25 ns ToA tick, truncated. Read during the
 *          call only; the other modes ignore it and take null.
 * user     [in] handed back unchanged to each call; the host keeps it alive until the readout
 *          has ended (ovexsdk_acq_await_end returned).
 *
 * Returns:
 * - OVEXSDK_OK: the readout runs.
 * - OVEXSDK_ERR_NO_DEVICE: the context has no device.
 * - OVEXSDK_ERR_INVALID: `flags` is 0; a binned mode without `params`, or with a field of 0.
 * - OVEXSDK_ERR_BUSY: the device has no chip or no frontend yet (before the frontend's
 *   power-up); no acquisition serves the chip's mode with the processing mode (no mode set, a
 *   pair that has none, a Timepix4 chip); a readout is running. A data-driven readout counts
 *   as running until ovexsdk_acq_await_end has returned, also when it ended by itself.
 * - OVEXSDK_ERR_FAILED: no trigger is configured; the chip can't be described; the start
 *   failed (the board refused the time zeroing, the data transfers or the threads didn't
 *   start, a chip without pixels). Nothing is left running.
 * Common: handle, exception, callback. */
OVEXSDK_API ovexsdk_err_code ovexsdk_acq_start(ovexsdk_dev_ctx* ctx,
                                               void (*data_cb)(ovexsdk_dev_ctx*, void*),
                                               ovexsdk_acq_mode_flag flags,
                                               const ovexsdk_acq_params* params, void* user);

/* Waits for the end of the readout of the acquisition that the chip's mode and the processing
 * mode choose, then collects its threads. The wait lasts at most the shutter duration and 0.1 s
 * for the triggers with a duration (modes 1 and 3), a year for the others; when it runs out the
 * readout is aborted, a time-out is logged and the call answers as the abort did. Without a
 * readout running it returns at once with the result of the last one. Holds the device for the
 * whole wait: calls from the data callback that take the device return OVEXSDK_ERR_BUSY
 * meanwhile.
 *
 * ctx  [in] the context.
 *
 * Returns:
 * - OVEXSDK_OK: the readout ended well (or was stopped by ovexsdk_acq_abort).
 * - OVEXSDK_ERR_NO_DEVICE: the context has no device.
 * - OVEXSDK_ERR_FAILED: the device has no chip or no frontend; no acquisition serves the mode
 *   pair; no trigger is configured, or one with a duration has a duration of 0; the readout
 *   failed (the board went away, sent data that can't be decoded, or its transfers failed);
 *   called from the data callback itself.
 * Common: handle, exception, callback. */
OVEXSDK_API ovexsdk_err_code ovexsdk_acq_await_end(ovexsdk_dev_ctx* ctx);

/* Stops the configured trigger, then aborts every running readout: data already on their way
 * get 90 ms to arrive and reach the data callback, then the transfers stop. It doesn't wait for
 * the callback's thread: call ovexsdk_acq_await_end afterwards. A second abort changes nothing.
 *
 * ctx  [in] the context.
 *
 * Returns:
 * - OVEXSDK_OK: the trigger and the readouts are stopped.
 * - OVEXSDK_ERR_NO_DEVICE: the context has no device, or the device has no frontend yet.
 * - OVEXSDK_ERR_FAILED: no trigger is configured.
 * - OVEXSDK_ERR_INVALID: the last step failed: the trigger didn't stop and no readout was
 *   running, or a readout's abort failed or ended a readout that had failed.
 * Common: handle, exception, callback. */
OVEXSDK_API ovexsdk_err_code ovexsdk_acq_abort(ovexsdk_dev_ctx* ctx);

/* The result getters below answer only inside the data callback; outside it they return
 * OVEXSDK_ERR_FAILED (there are no data). Each fills the host's record with pointers into the
 * library's memory, valid until the callback returns; they never take the device and need no
 * device. */

/* The Timepix2 frames of the result: usually one, a frame per shutter; none when the readout
 * was started without OVEXSDK_ACQ_PROCESSED.
 *
 * ctx     [in] the context.
 * output  [out] the address of the first frame record.
 * count   [out] the number of frames.
 *
 * Returns:
 * - OVEXSDK_OK: `*output` and `*count` are set.
 * - OVEXSDK_ERR_INVALID: `output` or `count` is null.
 * - OVEXSDK_ERR_FAILED: no result (outside the callback), or a result of another kind.
 * Common: handle, exception. */
OVEXSDK_API ovexsdk_err_code ovexsdk_acq_get_tpx2_frames(ovexsdk_dev_ctx* ctx,
                                                         const ovexsdk_acq_tpx2_frame** output,
                                                         uint64_t* count);

/* The ToA and ToT records of the result: in ToAToTFBZS those of a frame (no TDC lists, a
 * shutter time of 0); in ToAToTDD with DefaultProcessing or SortByToa those of a block, with
 * the start of its scan line and the board's three TDC lists.
 *
 * ctx     [in] the context.
 * output  [out] caller-owned record, filled with pointers into the library's memory.
 *
 * Returns:
 * - OVEXSDK_OK: `*output` is set.
 * - OVEXSDK_ERR_INVALID: `output` is null.
 * - OVEXSDK_ERR_FAILED: no result (outside the callback), or a result of another kind.
 * Common: handle, exception. */
OVEXSDK_API ovexsdk_err_code
ovexsdk_acq_get_tpx3_toa_tot_packets(ovexsdk_dev_ctx* ctx, ovexsdk_acq_tpx3_acq_toa_tot* output);

/* The pixels of a frame in IToTEvCountFBZS.
 *
 * ctx     [in] the context.
 * output  [out] the address of the first record.
 * count   [out] the number of records.
 *
 * Returns:
 * - OVEXSDK_OK: `*output` and `*count` are set.
 * - OVEXSDK_ERR_INVALID: `output` or `count` is null.
 * - OVEXSDK_ERR_FAILED: no result (outside the callback), or a result of another kind.
 * Common: handle, exception. */
OVEXSDK_API ovexsdk_err_code ovexsdk_acq_get_tpx3_itot_evcount_packets(
    ovexsdk_dev_ctx* ctx, const ovexsdk_acq_tpx3_itot_evcount** output, uint64_t* count);

/* The binned data-driven modes: the complete binning (processing mode 5), and the iToT sums or
 * event counts alone, which with processing mode 5 come from the complete binning. */

/* The complete binning of the result, in BinCompletely: per bin the iToT sum, the event count
 * and the pixels.
 *
 * ctx     [in] the context.
 * output  [out] caller-owned record, filled with pointers into the library's memory.
 *
 * Returns:
 * - OVEXSDK_OK: `*output` is set.
 * - OVEXSDK_ERR_INVALID: `output` is null.
 * - OVEXSDK_ERR_FAILED: no result (outside the callback), or a result of another kind.
 * Common: handle, exception. */
OVEXSDK_API ovexsdk_err_code ovexsdk_acq_get_tpx3_itot_evcount_bins(
    ovexsdk_dev_ctx* ctx, ovexsdk_tpx3_acq_itot_evcount_bins* output);

/* The iToT sums of the result's bins, in BinItotImage, or in BinCompletely from its binning.
 *
 * ctx     [in] the context.
 * output  [out] caller-owned record, filled with pointers into the library's memory.
 *
 * Returns:
 * - OVEXSDK_OK: `*output` is set.
 * - OVEXSDK_ERR_INVALID: `output` is null.
 * - OVEXSDK_ERR_FAILED: no result (outside the callback), or a result of another kind.
 * Common: handle, exception. */
OVEXSDK_API ovexsdk_err_code
ovexsdk_acq_get_tpx3_itot_fragment(ovexsdk_dev_ctx* ctx, ovexsdk_acq_tpx3_itot_fragment* output);

/* The event counts of the result's bins, in BinEvcountImage, or in BinCompletely from its
 * binning.
 *
 * ctx     [in] the context.
 * output  [out] caller-owned record, filled with pointers into the library's memory.
 *
 * Returns:
 * - OVEXSDK_OK: `*output` is set.
 * - OVEXSDK_ERR_INVALID: `output` is null.
 * - OVEXSDK_ERR_FAILED: no result (outside the callback), or a result of another kind.
 * Common: handle, exception. */
OVEXSDK_API ovexsdk_err_code ovexsdk_acq_get_tpx3_evcount_fragment(
    ovexsdk_dev_ctx* ctx, ovexsdk_acq_tpx3_evcount_fragment* output);

/* The raw buffers of the result: the bytes the board sent since the last result, one element
 * per transfer. A Timepix3 readout keeps them only when started with OVEXSDK_ACQ_RAW (the list
 * is empty otherwise); a Timepix2 readout always does. Call it from the data callback: the bytes
 * are released when the callback returns, although outside the callback the call still returns
 * the last result's list with OVEXSDK_OK. Don't read those.
 *
 * ctx     [in] the context.
 * buffer  [out] the address of the first buffer record.
 * count   [out] the number of buffers.
 *
 * Returns:
 * - OVEXSDK_OK: `*buffer` and `*count` are set.
 * - OVEXSDK_ERR_INVALID: `buffer` or `count` is null.
 * - OVEXSDK_ERR_FAILED: the context has had no result yet.
 * Common: handle, exception. */
OVEXSDK_API ovexsdk_err_code ovexsdk_acq_get_raw_data(ovexsdk_dev_ctx* ctx,
                                                      const ovexsdk_acq_raw_data** buffer,
                                                      uint64_t* count);

/* ---- Triggers ------------------------------------------------------------------------------- *
 * The shutter modes that both the board's backend and its frontend offer, in ascending order.
 * Every function here takes the device. */

/* Configures the trigger: the backend's trigger input and the frontend's shutter. Modes 1 to 3
 * take the shutter duration; one longer than the board can count (about 107.37 s) becomes the
 * longest it can, with a warning. Every acquisition of the device is told whether a readout
 * ends with its first frame (mode 1) or runs until aborted (any other mode) before the mode is
 * checked.
 *
 * ctx     [in] the context.
 * config  [in] the mode and the duration in seconds; read during the call only.
 *
 * Returns:
 * - OVEXSDK_OK: the trigger is configured.
 * - OVEXSDK_ERR_INVALID: `config` is null (checked before the device is taken); the mode is
 *   not one of ovexsdk_trigger_list; for modes 1 to 3 the duration is negative, infinite or
 *   not a number.
 * - OVEXSDK_ERR_NO_DEVICE: the context has no device.
 * - OVEXSDK_ERR_FAILED: the device has no backend or no frontend yet; the board refused the
 *   setting.
 * - OVEXSDK_ERR_BUSY: an acquisition refused to change how its readout ends: a Timepix2
 *   readout is running, or the board takes no data (Timepix4).
 * Common: handle, exception, callback. */
OVEXSDK_API ovexsdk_err_code ovexsdk_trigger_configure(ovexsdk_dev_ctx* ctx,
                                                       const ovexsdk_trigger_config* config);

/* Lists the trigger modes of the device, by the array rule, in ascending order.
 *
 * ctx         [in] the context.
 * modes       [out] caller-owned array of `*mode_count` elements.
 * mode_count  [in, out] capacity on entry; elements filled on return.
 *
 * Returns:
 * - OVEXSDK_OK: also when the list was cut.
 * - OVEXSDK_ERR_INVALID: `modes` or `mode_count` is null (checked before the device is taken).
 * - OVEXSDK_ERR_NO_DEVICE: the context has no device.
 * - OVEXSDK_ERR_FAILED: the device has no backend or no frontend yet.
 * Common: handle, exception, callback. */
OVEXSDK_API ovexsdk_err_code ovexsdk_trigger_list(ovexsdk_dev_ctx* ctx,
                                                  ovexsdk_trigger_mode modes[],
                                                  uint64_t* mode_count);

/* Opens the shutter of an internal trigger (modes 1 and 2): for the duration, or shutter after
 * shutter until ovexsdk_acq_abort.
 *
 * ctx  [in] the context.
 *
 * Returns:
 * - OVEXSDK_OK: the board opened the shutter.
 * - OVEXSDK_ERR_NO_DEVICE: the context has no device.
 * - OVEXSDK_ERR_FAILED: the device has no frontend yet.
 * - OVEXSDK_ERR_INVALID: no trigger is configured, or an external one; the board refused.
 * Common: handle, exception, callback. */
OVEXSDK_API ovexsdk_err_code ovexsdk_trigger_now(ovexsdk_dev_ctx* ctx);

/* ---- External synchronisation --------------------------------------------------------------- *
 * The board's synchronisation lines, set by the backend from its power-up on. Every function
 * here takes the device. */

/* Lists the options that the board's backend offers, in ascending order. A list longer than
 * the array is cut to it without a warning.
 *
 * ctx        [in] the context.
 * opts       [out] caller-owned array of `*opt_count` elements.
 * opt_count  [in, out] capacity on entry; elements filled on return.
 *
 * Returns:
 * - OVEXSDK_OK: also when the list was cut.
 * - OVEXSDK_ERR_INVALID: `opts` or `opt_count` is null.
 * - OVEXSDK_ERR_NO_DEVICE: the context has no device.
 * - OVEXSDK_ERR_FAILED: the device has no backend yet.
 * Common: handle, exception, callback. */
OVEXSDK_API ovexsdk_err_code ovexsdk_extsync_list(ovexsdk_dev_ctx* ctx,
                                                  ovexsdk_extsync_option opts[],
                                                  uint64_t* opt_count);

/* Applies options in the order given. A value that is no option (outside 1 to 16) is skipped
 * with a warning; the first option the backend refuses stops the list, and those before it
 * stay applied. The clock options can't change while the detector is powered.
 *
 * ctx    [in] the context.
 * list   [in] `count` options; read during the call only.
 * count  [in] their number; 0 applies none.
 *
 * Returns:
 * - OVEXSDK_OK: every valid option is applied.
 * - OVEXSDK_ERR_INVALID: `list` is null.
 * - OVEXSDK_ERR_NO_DEVICE: the context has no device.
 * - OVEXSDK_ERR_FAILED: the device has no backend yet; the backend refused an option.
 * Common: handle, exception, callback. */
OVEXSDK_API ovexsdk_err_code ovexsdk_extsync_configure(ovexsdk_dev_ctx* ctx,
                                                       ovexsdk_extsync_option list[],
                                                       uint64_t count);

/* ---- Log ------------------------------------------------------------------------------------ */

/* Registers the context's log callback. It receives every line logged in the process, by any
 * context, on this context's "Logger" thread, one at a time and in order; `text` is one
 * complete line ending in a line feed, holding the parts that `format` asks for, valid during
 * the call only. The registration takes effect after the lines already queued, which still go
 * to the previous callback in the previous format. No line is dropped. Safe from any thread at
 * any time, callbacks included; it doesn't take the device.
 *
 * ctx       [in] the context.
 * function  [in] the callback; null stops the delivery (the thread keeps running).
 * format    [in] the parts of a line to deliver; must not be null; copied.
 * param     [in] handed back unchanged to each call; the host keeps it alive until another
 *           registration has taken effect or the context is released.
 *
 * Returns:
 * - OVEXSDK_OK: registered.
 * - OVEXSDK_ERR_INVALID: `format` is null. On a context being released ("handle") nothing
 *   changes.
 * Common: handle, exception. */
OVEXSDK_API ovexsdk_err_code ovexsdk_log_set_cb(ovexsdk_dev_ctx* ctx, ovexsdk_log_cb function,
                                                const ovexsdk_log_fmt* format, void* param);

/* ---- Scripts -------------------------------------------------------------------------------- *
 * The context's Lua interpreter, where the open device is the global `device` (nil without
 * one). Only the libraries base, package, string and debug are open, beside the library's own
 * tables (such as Std, Log and Usb). Scripts are trusted code: the debug library and binary
 * chunks can corrupt the process. */

/* Runs Lua text in the context's interpreter; its globals stay for the next script. It takes
 * the device for the whole run, so a callback's calls that take the device return
 * OVEXSDK_ERR_BUSY meanwhile.
 *
 * ctx   [in] the context.
 * text  [in] the script, zero-terminated; read during the call only.
 *
 * Returns:
 * - OVEXSDK_OK: the script ran to its end. What it returned is dropped.
 * - OVEXSDK_ERR_INVALID: `text` is null or empty; it doesn't load (a syntax error) or raises
 *   an error (the stack trace is logged); ovexsdk_script_stop stopped it.
 * - OVEXSDK_ERR_FAILED: the context has no interpreter.
 * Common: handle, exception, callback. */
OVEXSDK_API ovexsdk_err_code ovexsdk_script_execute(ovexsdk_dev_ctx* ctx, const char* text);

/* Stops the script that ovexsdk_script_execute runs on this context in another thread: Lua code
 * ends within a few thousand instructions, a wait in Std.sleep at once, a request to the board
 * once it is answered or timed out. That ovexsdk_script_execute returns OVEXSDK_ERR_INVALID and
 * logs "Script stopped at the host's request: " with where the script was. Without a running
 * script the call does nothing, so the next script runs normally; the library's power sequences
 * are never stopped. A script that installs a debug hook of its own stops only in Std.sleep.
 * Safe from any thread at any time between ovexsdk_ctx_create and ovexsdk_ctx_release; it
 * doesn't take the device.
 *
 * ctx  [in] the context.
 *
 * Returns:
 * - OVEXSDK_OK: the stop is asked for, or there was no script to stop.
 * - OVEXSDK_ERR_FAILED: the context has no interpreter.
 * Common: handle, exception. */
OVEXSDK_API ovexsdk_err_code ovexsdk_script_stop(ovexsdk_dev_ctx* ctx);

#ifdef __cplusplus
}
#endif

#endif /* OVEXSDK_H */
