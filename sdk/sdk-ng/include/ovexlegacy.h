/*
 * ovex_sdk_ng: the older function interface, for hosts written against it.
 *
 * The ovex_* functions are a thin layer over the ovexsdk_* functions of ovexsdk.h: they reach
 * the board only through them. What they add is a handle of their own (ovex_ctx), string ids
 * where ovexsdk.h has numbers, a small set of result codes, and buffers inside the handle that
 * keep answers alive after a call, until the next call that fills the same buffer.
 *
 * Result codes (int32_t): OVEX_OK, and OVEX_ERR_* below. Every function first tests its handle
 * and its pointer arguments: a null one, or a handle that ovex_ctx_delete released, gives
 * OVEX_ERR_HANDLE and logs nothing. A failure of the ovexsdk_* function a call makes is mapped
 * once: -14, -16 and -5001 to OVEX_ERR_UNAVAILABLE, -19 to OVEX_ERR_HANDLE, -12 to
 * OVEX_ERR_NO_MEMORY, -22 to OVEX_ERR_INVALID, any other to OVEX_ERR_OTHER. The log lines of the
 * ovexsdk_* function tell the reason; these codes tell only its class.
 *
 * Texts handed out through `const char**` point into the handle, into process-wide tables, or
 * at constants: they stay valid until the next call that fills the same place, and at most
 * until ovex_ctx_delete. The tables of power units, DACs and component versions are shared by
 * every handle of the process: use those families from one handle at a time.
 *
 * Callbacks run on the library's threads, as ovexsdk.h describes for the callbacks they stand
 * on: the data callback on the acquisition's thread, monitor callbacks on the monitor stream's
 * tasks, the log function on the context's "Logger" thread.
 */
#ifndef OVEXLEGACY_H
#define OVEXLEGACY_H

#include <stdint.h>

#include "ovexsdk.h"

#ifdef __cplusplus
extern "C" {
#endif

enum {
    OVEX_OK = 0,
    OVEX_ERR_OTHER = -1,       /* any failure not below */
    OVEX_ERR_UNAVAILABLE = -2, /* the operation failed or isn't available */
    OVEX_ERR_HANDLE = -3,      /* bad handle, null argument, unknown id, or no device */
    OVEX_ERR_NO_MEMORY = -4,   /* out of memory */
    OVEX_ERR_INVALID = -5      /* invalid argument */
};

/* The handle, made by ovex_ctx_new and released by ovex_ctx_delete. */
typedef struct ovex_ctx ovex_ctx;
/* What a monitor callback gets: read it with the ovex_mon_event_* functions. */
typedef struct ovex_mon_event ovex_mon_event;
/* What the data callback gets: read it with the ovex_acq_* getters during the callback. */
typedef struct ovex_acq ovex_acq;

/* ==== Context, device, enumeration, properties, log ==== */

/* Writes 0, 10 and 1 through the pointers that aren't null. */
OVEXSDK_API void ovex_version(int32_t* major, int32_t* minor, int32_t* patch);

/* Makes a handle with a context for the locator "usb:ix:0" (ovexsdk_ctx_create); null when the
 * memory or the context can't be had. */
OVEXSDK_API ovex_ctx* ovex_ctx_new(void);
/* Releases the context (ovexsdk_ctx_release) and then the handle. When the release fails, its
 * mapped code comes back and the handle stays usable. */
OVEXSDK_API int32_t ovex_ctx_delete(ovex_ctx* ctx);
/* Always the text "no error": the reasons are in the log. */
OVEXSDK_API int32_t ovex_ctx_get_last_error(ovex_ctx* ctx, const char** text);

/* Points the handle's context at `locator` ("usb:ix:N" or "usb:sn:SERIAL", as ovexsdk_ctx_create
 * takes them) and opens the board (ovexsdk_dev_open). */
OVEXSDK_API int32_t ovex_dev_open(ovex_ctx* ctx, const char* locator);
/* Closes the board (ovexsdk_dev_close). */
OVEXSDK_API int32_t ovex_dev_close(ovex_ctx* ctx);
/* 1 while the board is open, else 0 (ovexsdk_dev_is_open). */
OVEXSDK_API int32_t ovex_dev_is_opened(ovex_ctx* ctx, int32_t* opened);

/* ==== Power units (boards), bias, cooling, versions, scripts, AXI ==== */

/* ==== Chip, DACs, thresholds ==== */

/* Chips are numbered from 0; a handle describes at most 4. The functions without a chip
 * argument work on chip 0. A board without chip (before its frontend's power-up) gives
 * OVEX_ERR_HANDLE, as does a chip index of 4 or more. */

/* Receives the pixels that failed the digital test of ovex_load_configuration_matrix; the list
 * is valid during the call only. */
typedef void (*ovex_bad_pixels_cb)(const uint32_t* indices, uint64_t count, void* user);

/* The size of chip 0's pixel mask, as ovex_get_pixel_mask_size gives it. */
typedef struct ovex_pixel_mask_size {
    uint64_t height;
    uint64_t width;
} ovex_pixel_mask_size;

/* The number of chips (ovexsdk_chip_get_count). */
OVEXSDK_API int32_t ovex_chip_count(ovex_ctx* ctx, uint32_t* count);
/* The chip's id text, such as "H05-W0318", kept in the handle until the next chip call
 * (ovexsdk_chip_get_info). An index without chip: OVEX_ERR_HANDLE. */
OVEXSDK_API int32_t ovex_chip_id(ovex_ctx* ctx, uint32_t index, const char** id);
/* The chip's polarity counted from 0: 0 for OVEXSDK_POLARITY_1, 1 for OVEXSDK_POLARITY_2
 * (ovexsdk_chip_get_settings). An index without chip: OVEX_ERR_HANDLE. */
OVEXSDK_API int32_t ovex_chip_get_polarity(ovex_ctx* ctx, uint32_t index, int32_t* polarity);
/* Sets the polarity counted from 0: 1 selects OVEXSDK_POLARITY_2, any other value
 * OVEXSDK_POLARITY_1 (ovexsdk_chip_set_polarity). */
OVEXSDK_API int32_t ovex_chip_set_polarity(ovex_ctx* ctx, uint32_t index, int32_t polarity);
/* Configures every chip in turn (ovexsdk_chip_configure); the first failure ends it. */
OVEXSDK_API int32_t ovex_chip_refresh(ovex_ctx* ctx);

/* Chip mode ids name a chip mode together with a processing mode: "tpx2-cont-evcount-8bit",
 * "tpx2-cont-evcount-10bit", "tpx2-cont-evcount-14bit", "tpx2-itot-10bit",
 * "tpx1-tpx2-itot-14bit", "tpx3-toa-tot-fb-zs", "tpx3-itot-evcount-zs", and for the data-driven
 * mode "tpx3-toa-tot-dd", "tpx3-toa-tot-dd-s" (sorted), "tpx3-count-img", "tpx3-itot-img",
 * "tpx3-itot-count-bin". */

/* The number of chip mode ids that chip 0 offers: every id whose chip mode it supports. */
OVEXSDK_API int32_t ovex_chip_mode_count(ovex_ctx* ctx, uint32_t* count);
/* The index-th id that chip 0 offers: its modes in its order, each mode's ids in the order
 * above. An index beyond them: OVEX_ERR_HANDLE. */
OVEXSDK_API int32_t ovex_chip_mode_id(ovex_ctx* ctx, uint32_t index, const char** id);
/* Sets the id's chip mode (ovexsdk_chip_set_mode), then its processing mode
 * (ovexsdk_acq_select_processing); the handle keeps each that was set for ovex_acq_begin. An
 * unknown id: OVEX_ERR_INVALID. */
OVEXSDK_API int32_t ovex_chip_mode_select(ovex_ctx* ctx, const char* id);
/* As ovex_chip_mode_select, after keeping `params` in the handle for ovex_acq_begin (also when
 * the id is refused). */
OVEXSDK_API int32_t ovex_chip_mode_select_ex(ovex_ctx* ctx, const char* id,
                                             const ovexsdk_acq_params* params);

/* Configures chip 0 from the text of a configuration file (ovexsdk_chip_configure_from_string).
 * `format` is "xml", "yml" or "yaml", any of which takes either kind of text; another format:
 * OVEX_ERR_HANDLE. */
OVEXSDK_API int32_t ovex_load_configuration(ovex_ctx* ctx, const char* format, const char* text);
/* Configures chip 0 from a pixel matrix of `size` bytes (ovexsdk_chip_configure_from_matrix),
 * then hands the pixels that failed its digital test to `callback`. No memory for the list:
 * OVEX_ERR_NO_MEMORY. */
OVEXSDK_API int32_t ovex_load_configuration_matrix(ovex_ctx* ctx, const uint8_t* matrix,
                                                   uint64_t size, ovex_bad_pixels_cb callback,
                                                   void* user);
/* The height and width of chip 0 (ovexsdk_chip_get_info). */
OVEXSDK_API int32_t ovex_get_pixel_mask_size(ovex_ctx* ctx, ovex_pixel_mask_size* size);
/* Copies chip 0's user mask into `mask`, at most `*size` bytes (ovexsdk_chip_get_pixel_mask). */
OVEXSDK_API int32_t ovex_get_pixel_mask(ovex_ctx* ctx, uint8_t* mask, uint64_t* size);
/* Sets chip 0's user mask (ovexsdk_chip_set_pixel_mask). */
OVEXSDK_API int32_t ovex_set_pixel_mask(ovex_ctx* ctx, const ovexsdk_chip_pixel_mask* mask);

/* DACs of chip 0 by name. Each call reads the chip's DAC list (at most 32) into a table that
 * every handle shares, whose names it hands out. On a NoBE board each name has the prefix "0:":
 * there more than 32 DACs give OVEX_ERR_HANDLE, a name too long for the prefix
 * OVEX_ERR_UNAVAILABLE. Ordinary DACs are set and read; sense DACs only selected. An unknown
 * name or index: OVEX_ERR_HANDLE. */

/* The number of ordinary DACs. */
OVEXSDK_API int32_t ovex_chip_dac_count(ovex_ctx* ctx, uint32_t* count);
/* The index-th ordinary DAC's name. */
OVEXSDK_API int32_t ovex_chip_dac_name(ovex_ctx* ctx, uint32_t index, const char** name);
/* The DAC's lowest and highest value, through the pointers that aren't null. */
OVEXSDK_API int32_t ovex_chip_dac_limits(ovex_ctx* ctx, const char* name, int32_t* min,
                                         int32_t* max);
/* Reads and sets the DAC's value (ovexsdk_chip_get_dac, ovexsdk_chip_set_dac). */
OVEXSDK_API int32_t ovex_chip_dac_value_get(ovex_ctx* ctx, const char* name, uint16_t* value);
OVEXSDK_API int32_t ovex_chip_dac_value_set(ovex_ctx* ctx, const char* name, uint16_t value);
/* Switches the sense line to the DAC and measures it, in the board's unit
 * (ovexsdk_chip_measure_dac). */
OVEXSDK_API int32_t ovex_chip_dac_measure(ovex_ctx* ctx, const char* name, float* volts);
/* The number of sense DACs, and the index-th one's name. */
OVEXSDK_API int32_t ovex_chip_sense_dac_count(ovex_ctx* ctx, uint32_t* count);
OVEXSDK_API int32_t ovex_chip_sense_dac_name(ovex_ctx* ctx, uint32_t index, const char** name);
/* Switches the sense line to the DAC by measuring it (ovexsdk_chip_measure_dac). */
OVEXSDK_API int32_t ovex_chip_sense_dac_sel(ovex_ctx* ctx, const char* name);

/* Thresholds by id: a text whose first character, a digit, is the chip's index; an id without
 * a chip there: OVEX_ERR_HANDLE. */

/* The number of thresholds: one per chip, as ovex_chip_count. */
OVEXSDK_API int32_t ovex_chip_threshold_count(ovex_ctx* ctx, uint32_t* count);
/* "0" or "1", for an index below the chip count and below 2; otherwise OVEX_ERR_HANDLE. */
OVEXSDK_API int32_t ovex_chip_threshold_id(ovex_ctx* ctx, uint32_t index, const char** id);
/* The threshold in keV and raw (ovexsdk_chip_get_thld, ovexsdk_chip_set_thld,
 * ovexsdk_chip_get_raw_thld, ovexsdk_chip_set_raw_thld). */
OVEXSDK_API int32_t ovex_chip_threshold_get(ovex_ctx* ctx, const char* id, float* value);
OVEXSDK_API int32_t ovex_chip_threshold_set(ovex_ctx* ctx, const char* id, float value);
OVEXSDK_API int32_t ovex_chip_threshold_raw_get(ovex_ctx* ctx, const char* id, uint32_t* value);
OVEXSDK_API int32_t ovex_chip_threshold_raw_set(ovex_ctx* ctx, const char* id, uint32_t value);
/* The range's three values of ovexsdk_chip_thld_info: energy_low, energy_high, min_threshold. */
OVEXSDK_API int32_t ovex_chip_threshold_range(ovex_ctx* ctx, const char* id, float* energy_low,
                                              float* energy_high, float* min_threshold);
/* raw_min and raw_max of ovexsdk_chip_thld_info. */
OVEXSDK_API int32_t ovex_chip_threshold_raw_range(ovex_ctx* ctx, const char* id, uint32_t* min,
                                                  uint32_t* max);
/* 1 when a calibration is loaded, else 0 (`calibrated` of ovexsdk_chip_thld_info). */
OVEXSDK_API int32_t ovex_chip_threshold_is_calibrated(ovex_ctx* ctx, const char* id,
                                                      int32_t* calibrated);

/* ==== Monitors ==== */

/* Monitors by their older names, such as "T_SENS"; a monitor without one goes by its own name,
 * which is taken too. An id that names no monitor: OVEX_ERR_HANDLE. */

/* Runs on a task of the monitor stream with the monitor's event record, which the handle keeps
 * per monitor and kind and reuses for every notification. The monitor callbacks of a process
 * run one at a time; the event is valid during the call, and may be read with the
 * ovex_mon_event_* functions. */
typedef void (*ovex_mon_event_cb)(ovex_mon_event* event, void* user);

/* The number of monitors (ovexsdk_mon_get_count). */
OVEXSDK_API int32_t ovex_mon_count(ovex_ctx* ctx, uint32_t* count);
/* The older name of the index-th monitor, valid while the board is open. An index beyond the
 * monitors: OVEX_ERR_HANDLE. */
OVEXSDK_API int32_t ovex_mon_id(ovex_ctx* ctx, uint32_t index, const char** id);
/* "float" for a monitor of float values, else "int" (ovexsdk_mon_get_info). */
OVEXSDK_API int32_t ovex_mon_datatype(ovex_ctx* ctx, const char* id, const char** type);
/* Reads the monitor from the board now (ovexsdk_mon_get_value). Both give the value's 32 bits
 * as they are: ask in the monitor's own type. */
OVEXSDK_API int32_t ovex_mon_fetch_value_float(ovex_ctx* ctx, const char* id, float* value);
OVEXSDK_API int32_t ovex_mon_fetch_value_int(ovex_ctx* ctx, const char* id, int32_t* value);
/* Sets the callback told of the monitor's availability changes, replacing the one before
 * (ovexsdk_mon_set_avail_changed_cb). The event's availability is the notification's flags
 * byte: bit 0 available, bit 1 warning, bit 2 error. */
OVEXSDK_API int32_t ovex_mon_event_set_onavailabilitychanged(ovex_ctx* ctx, const char* id,
                                                             ovex_mon_event_cb callback,
                                                             void* user);
/* Sets the callback told of each value the monitor stream brings, replacing the one before
 * (ovexsdk_mon_set_value_changed_cb); the event holds the value and its three flags. */
OVEXSDK_API int32_t ovex_mon_event_set_onvaluechanged(ovex_ctx* ctx, const char* id,
                                                      ovex_mon_event_cb callback, void* user);
/* The event's monitor id, as ovex_mon_id gives it. */
OVEXSDK_API int32_t ovex_mon_event_id(const ovex_mon_event* event, const char** id);
/* "int" for a monitor of integer values, else "float". */
OVEXSDK_API int32_t ovex_mon_event_datatype(const ovex_mon_event* event, const char** type);
/* The event's availability, warning and error bytes. */
OVEXSDK_API int32_t ovex_mon_event_is_available(const ovex_mon_event* event, int32_t* available);
OVEXSDK_API int32_t ovex_mon_event_is_warning_condition_met(const ovex_mon_event* event,
                                                            int32_t* met);
OVEXSDK_API int32_t ovex_mon_event_is_error_condition_met(const ovex_mon_event* event,
                                                          int32_t* met);
/* The event's value, its 32 bits as they are. */
OVEXSDK_API int32_t ovex_mon_event_get_value_as_float(const ovex_mon_event* event, float* value);
OVEXSDK_API int32_t ovex_mon_event_get_value_as_int(const ovex_mon_event* event, int32_t* value);
/* Always the empty text: the reasons are in the log. */
OVEXSDK_API int32_t ovex_mon_get_last_error(ovex_ctx* ctx, const char** text);

/* ==== Flash and EEPROM ==== */

/* ==== Trigger and external synchronisation ==== */

/* ==== Acquisition ==== */

#ifdef __cplusplus
}
#endif

#endif /* OVEXLEGACY_H */
