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

/* Receives one enumerated board, valid during the call only. */
typedef void (*ovex_enum_callback)(const ovexsdk_enum_info* element, void* user);
/* Receives one complete log line, ending in a line feed, with its severity: -3 critical,
 * -2 error, -1 warning, 0 information, 9 debug. */
typedef void (*ovex_log_func)(const char* text, int32_t severity, void* user);

/* Lists the attached boards (ovexsdk_enum_get_info, at most 16) and calls `callback(element,
 * user)` for each, in order; the element and the texts that ovex_enum_* give out of it live
 * during that call only. `count`, if not null, gets the number of boards afterwards. `ctx` takes
 * no part in the listing: only a null one is refused. */
OVEXSDK_API int32_t ovex_dev_enumerate(ovex_ctx* ctx, ovex_enum_callback callback, void* user,
                                       uint32_t* count);
/* Sends the log lines of the process to `function(text, severity, user)` on the context's
 * "Logger" thread (ovexsdk_log_set_cb), with the parts of a line that `format` asks for, all of
 * them when it is null. A null `function` stops the delivery. A bad handle changes nothing. */
OVEXSDK_API void ovex_log_set_func(ovex_ctx* ctx, ovex_log_func function, void* user,
                                   const ovexsdk_log_fmt* format);

/* An enumerated board, as ovex_dev_enumerate hands it to its callback: the locator that opens it
 * ("usb:sn:" and the serial number), its USB product text, serial number and instance path. */
OVEXSDK_API int32_t ovex_enum_get_connection_string(const ovexsdk_enum_info* element,
                                                    const char** text);
OVEXSDK_API int32_t ovex_enum_get_product(const ovexsdk_enum_info* element, const char** text);
OVEXSDK_API int32_t ovex_enum_get_serial_number(const ovexsdk_enum_info* element,
                                                const char** text);
OVEXSDK_API int32_t ovex_enum_usb_get_instance_path(const ovexsdk_enum_info* element,
                                                    const char** text);
/* Constants of every board of the family, not read from the board: the manufacturer
 * "Ovexlight", the USB ids 0x1209 and 0xAD0E, and a link that counts as super speed (1) and not
 * as high speed (0). */
OVEXSDK_API int32_t ovex_enum_get_manufacturer(const ovexsdk_enum_info* element, const char** text);
OVEXSDK_API int32_t ovex_enum_usb_get_vid_pid(const ovexsdk_enum_info* element, uint16_t* vid,
                                              uint16_t* pid);
OVEXSDK_API int32_t ovex_enum_usb_is_high_speed(const ovexsdk_enum_info* element, int32_t* yes);
OVEXSDK_API int32_t ovex_enum_usb_is_super_speed(const ovexsdk_enum_info* element, int32_t* yes);
/* Not available: OVEX_ERR_UNAVAILABLE, or OVEX_ERR_HANDLE when a pointer is null. */
OVEXSDK_API int32_t ovex_enum_get_last_error(const ovexsdk_enum_info* element, const char** text);

/* The open board's identity, the same values as ovex_enum_*: each call reads it anew
 * (ovexsdk_dev_get_info) into the handle, where the texts stay until the next ovex_dev_prop_*
 * call. A handle without an open board gives OVEX_ERR_HANDLE, also for the constants. */
OVEXSDK_API int32_t ovex_dev_prop_get_connection_string(ovex_ctx* ctx, const char** text);
OVEXSDK_API int32_t ovex_dev_prop_get_manufacturer(ovex_ctx* ctx, const char** text);
OVEXSDK_API int32_t ovex_dev_prop_get_product(ovex_ctx* ctx, const char** text);
OVEXSDK_API int32_t ovex_dev_prop_get_serial_number(ovex_ctx* ctx, const char** text);
OVEXSDK_API int32_t ovex_dev_prop_usb_get_instance_path(ovex_ctx* ctx, const char** text);
OVEXSDK_API int32_t ovex_dev_prop_usb_get_vid_pid(ovex_ctx* ctx, uint16_t* vid, uint16_t* pid);
OVEXSDK_API int32_t ovex_dev_prop_usb_is_high_speed(ovex_ctx* ctx, int32_t* yes);
OVEXSDK_API int32_t ovex_dev_prop_usb_is_super_speed(ovex_ctx* ctx, int32_t* yes);

/* ==== Power units (boards), bias, cooling, versions, scripts, AXI ==== */

/* The board's power units, which this interface calls boards, by name ("backend" and "frontend"
 * on the Timepix boards). The names come from a table that every handle of the process shares,
 * and each call below that takes an index or a name fills it anew from its own board: the text
 * that ovex_board_id gave out changes with the next such call, on any handle. */
/* The number of units (ovexsdk_dev_get_unit_count). */
OVEXSDK_API int32_t ovex_board_count(ovex_ctx* ctx, uint32_t* count);
/* The name of unit `index`. An index beyond the units, or a board with more than 5 units:
 * OVEX_ERR_HANDLE. */
OVEXSDK_API int32_t ovex_board_id(ovex_ctx* ctx, uint32_t index, const char** name);
/* 1 when the named unit is powered, else 0 (ovexsdk_dev_is_unit_powered). An unknown name:
 * OVEX_ERR_HANDLE, here and below. */
OVEXSDK_API int32_t ovex_board_is_powered(ovex_ctx* ctx, const char* name, int32_t* powered);
/* Powers the named unit up (ovexsdk_dev_power_up_unit); one already up gives
 * OVEX_ERR_UNAVAILABLE and is left alone. */
OVEXSDK_API int32_t ovex_board_power_on(ovex_ctx* ctx, const char* name);
/* Powers the named unit down (ovexsdk_dev_power_down_unit); one already down gives
 * OVEX_ERR_UNAVAILABLE and is left alone. */
OVEXSDK_API int32_t ovex_board_power_off(ovex_ctx* ctx, const char* name);

/* Bias supplies, named "BIAS1", "BIAS2"..., and cooling (temperature) controllers, named
 * "PELT1", "PELT2"...: the family's prefix and the controller's index plus 1 as the last digit.
 * An id that names no controller of the board gives OVEX_ERR_HANDLE. */
/* The number of supplies (ovexsdk_bias_get_count), and the id of supply `index`. */
OVEXSDK_API int32_t ovex_bias_supply_count(ovex_ctx* ctx, uint32_t* count);
OVEXSDK_API int32_t ovex_bias_supply_id(ovex_ctx* ctx, uint32_t index, const char** id);
/* The voltage the supply is set to, and setting it (ovexsdk_bias_get_desired, _set_desired). */
OVEXSDK_API int32_t ovex_bias_get(ovex_ctx* ctx, const char* id, float* volts);
OVEXSDK_API int32_t ovex_bias_set(ovex_ctx* ctx, const char* id, float volts);
/* The settable range of the supply, volts (ovexsdk_bias_get_info). */
OVEXSDK_API int32_t ovex_bias_range(ovex_ctx* ctx, const char* id, float* min, float* max);
/* The number of controllers (ovexsdk_temp_get_count), and the id of controller `index`. */
OVEXSDK_API int32_t ovex_cooling_count(ovex_ctx* ctx, uint32_t* count);
OVEXSDK_API int32_t ovex_cooling_id(ovex_ctx* ctx, uint32_t index, const char** id);
/* The set point, setting it, and what the controller achieves, in its unit
 * (ovexsdk_temp_get_desired, _set_desired, _get_actual). */
OVEXSDK_API int32_t ovex_cooling_get_desired(ovex_ctx* ctx, const char* id, float* value);
OVEXSDK_API int32_t ovex_cooling_set_desired(ovex_ctx* ctx, const char* id, float value);
OVEXSDK_API int32_t ovex_cooling_get_actual(ovex_ctx* ctx, const char* id, float* value);
/* The settable range of the set point (ovexsdk_temp_get_info). */
OVEXSDK_API int32_t ovex_cooling_limits(ovex_ctx* ctx, const char* id, float* min, float* max);
/* The controller's unit, "DegreeCelsius" or "Percent"; for a unit of neither kind `*unit` is left
 * as it was, with OVEX_OK. */
OVEXSDK_API int32_t ovex_cooling_value_unit(ovex_ctx* ctx, const char* id, const char** unit);

/* The versions of the board's components (firmware, FPGA designs). Names and versions come from
 * a table that every handle of the process shares: ovex_hw_version_id and ovex_hw_version_string
 * fill it anew from their own board, so each changes the texts the last one gave out, on any
 * handle. */
/* The number of components (ovexsdk_comp_get_ver_count). */
OVEXSDK_API int32_t ovex_hw_version_count(ovex_ctx* ctx, uint32_t* count);
/* The name of component `index`; an index beyond them: OVEX_ERR_HANDLE. */
OVEXSDK_API int32_t ovex_hw_version_id(ovex_ctx* ctx, uint32_t index, const char** name);
/* The version text of the named component; an unknown name: OVEX_ERR_HANDLE. A component whose
 * version couldn't be read has an empty name and version. */
OVEXSDK_API int32_t ovex_hw_version_string(ovex_ctx* ctx, const char* name, const char** version);

/* Runs Lua text in the context's interpreter (ovexsdk_script_execute); a text that doesn't load
 * or raises an error gives OVEX_ERR_INVALID. */
OVEXSDK_API int32_t ovex_script_run(ovex_ctx* ctx, const char* text);
/* The address of the context's Lua state, valid while the handle lives. */
OVEXSDK_API int32_t ovex_script_get_state(ovex_ctx* ctx, void** state);

/* Reads or writes one 32-bit register of the board's AXI-Lite bus. Their results are not mapped:
 * 0 on success; OVEXSDK_ERR_INVALID, OVEXSDK_ERR_NO_DEVICE or OVEXSDK_ERR_FAILED when the access
 * can't be made; for an access that the board refused, its error code plus 100 (102 for the
 * bus's slave error, 103 for its decode error). A bad handle or a null pointer gives
 * OVEX_ERR_HANDLE, as everywhere. */
OVEXSDK_API int32_t ovex_axi_read(ovex_ctx* ctx, uint32_t address, uint32_t* value);
OVEXSDK_API int32_t ovex_axi_write(ovex_ctx* ctx, uint32_t address, uint32_t value);

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

/* The board's EEPROMs and flash memories share one id space: a memory's id is its module's name
 * (such as "i2c0-eeprom" or "flash_fpga_be"), and the indices count the EEPROMs first, then the
 * flashes. An id that names neither gives OVEX_ERR_HANDLE. */

/* The number of EEPROMs plus the number of flashes (ovexsdk_eeprom_get_count,
 * ovexsdk_flash_get_count). */
OVEXSDK_API int32_t ovex_flash_count(ovex_ctx* ctx, uint32_t* count);
/* The id of the memory at `index` (ovexsdk_eeprom_get_info below the EEPROM count, else
 * ovexsdk_flash_get_info), kept in the handle until the next call about that memory. An index
 * whose memory has no place in the handle (16 EEPROMs, 4 flashes) gives OVEX_ERR_HANDLE. */
OVEXSDK_API int32_t ovex_flash_id(ovex_ctx* ctx, uint32_t index, const char** id);
/* The part number of the memory, kept in the handle as ovex_flash_id keeps the id. */
OVEXSDK_API int32_t ovex_flash_part_nr(ovex_ctx* ctx, const char* id, const char** text);
/* The number of regions of the memory. */
OVEXSDK_API int32_t ovex_flash_regions(ovex_ctx* ctx, const char* id, uint32_t* count);
/* The number of sectors of a region (ovexsdk_flash_get_region_info,
 * ovexsdk_eeprom_get_region_info). */
OVEXSDK_API int32_t ovex_flash_sector_count(ovex_ctx* ctx, const char* id, uint32_t region,
                                            uint32_t* count);
/* The size in bytes of a region's sectors. */
OVEXSDK_API int32_t ovex_flash_sector_size(ovex_ctx* ctx, const char* id, uint32_t region,
                                           uint32_t* size);
/* The first and last address of a sector. A flash numbers its sectors across its regions in
 * order; a sector behind the last region gives OVEX_ERR_HANDLE. An EEPROM takes a region here
 * and answers the region's first and last address. */
OVEXSDK_API int32_t ovex_flash_sector_address_range(ovex_ctx* ctx, const char* id, uint32_t sector,
                                                    uint32_t* first, uint32_t* last);
/* Reads `*length` bytes from `address` on into `buffer`; `*length` comes back as the bytes read
 * (ovexsdk_flash_read; ovexsdk_eeprom_read with the address's low 16 bits). */
OVEXSDK_API int32_t ovex_flash_read(ovex_ctx* ctx, const char* id, uint32_t address,
                                    uint8_t* buffer, uint64_t* length);
/* Writes `*length` bytes of `data` from `address` on. A flash erases the sector at `address`
 * first (ovexsdk_flash_erase_sector) and then programs it (ovexsdk_flash_program_sector): the
 * address is a sector's start and the data one sector. An EEPROM is written without an erase
 * (ovexsdk_eeprom_write, low 16 bits of the address), `*length` coming back as the bytes
 * written. */
OVEXSDK_API int32_t ovex_flash_program(ovex_ctx* ctx, const char* id, uint32_t address,
                                       const uint8_t* data, uint64_t* length);

/* ==== Trigger and external synchronisation ==== */

/* Trigger mode ids: "software-start-shutter-duration", "software-start-shutter-duration-
 * continuous", "hardware-start-shutter-duration", "hardware-start-hardware-stop:level",
 * "hardware-start-hardware-stop:edge". The handle keeps a mode (none at first) and a shutter
 * duration (+infinity at first); the board is configured (ovexsdk_trigger_configure) whenever
 * both are set, a mode chosen and the duration finite. */

/* Opens the shutter of an internal trigger (ovexsdk_trigger_now). */
OVEXSDK_API int32_t ovex_trigger(ovex_ctx* ctx);
/* The number of trigger modes the board offers (ovexsdk_trigger_list). */
OVEXSDK_API int32_t ovex_trigger_mode_count(ovex_ctx* ctx, uint32_t* count);
/* The id of the board's `index`-th trigger mode; an index beyond them gives OVEX_ERR_HANDLE. */
OVEXSDK_API int32_t ovex_trigger_mode_id(ovex_ctx* ctx, uint32_t index, const char** id);
/* Keeps the mode of `id`; the two hardware-stop modes also set the duration to 0. An unknown id
 * clears the kept mode and gives OVEX_OK. */
OVEXSDK_API int32_t ovex_trigger_mode_select(ovex_ctx* ctx, const char* id);
/* Keeps the shutter duration in seconds. Before a mode is chosen nothing is configured. */
OVEXSDK_API int32_t ovex_trigger_set_shutter_duration(ovex_ctx* ctx, float seconds);
/* The number of synchronisation options the board offers (ovexsdk_extsync_list). */
OVEXSDK_API int32_t ovex_extsync_option_count(ovex_ctx* ctx, uint32_t* count);
/* The name of option `index` + 1 of ovexsdk_extsync_option, such as "trigger-out:no" for 0; an
 * index of 16 or more gives OVEX_ERR_HANDLE. */
OVEXSDK_API int32_t ovex_extsync_option_id(ovex_ctx* ctx, uint32_t index, const char** id);
/* Applies the option of that name (ovexsdk_extsync_configure); an unknown name gives
 * OVEX_ERR_HANDLE. */
OVEXSDK_API int32_t ovex_extsync_option_select(ovex_ctx* ctx, const char* id);

/* ==== Acquisition ==== */

/* Channels: "raw", the board's bytes, and "1", the chip mode's records with the bytes. Another
 * channel text gives OVEX_ERR_INVALID. The acquisition record (ovex_acq) lives from
 * ovex_acq_begin to ovex_acq_end; the data callback gets it once per result, on the
 * acquisition's thread. What the ovex_acq_* getters hand out stays valid until the callback
 * returns; the getters that join data into a buffer of the record replace it at each call. */

/* What ovex_acq_set_data_callback takes. */
typedef void (*ovex_data_cb)(ovex_acq* acquisition, void* user);

/* One bin of the complete binning: the index of its first pixel record among the records of
 * ovex_acq_tpx3_get_packets, and its number of records. */
typedef struct ovex_bin_descriptor {
    uint32_t first;
    uint32_t count;
} ovex_bin_descriptor;

/* 2: the channels. */
OVEXSDK_API int32_t ovex_acq_ch_count(ovex_ctx* ctx, uint32_t* count);
/* "raw" for 0, "1" for 1; another index gives OVEX_ERR_HANDLE. */
OVEXSDK_API int32_t ovex_acq_ch_id(ovex_ctx* ctx, uint32_t index, const char** id);
/* Keeps the callback and its user pointer for the next ovex_acq_begin, whichever channel. */
OVEXSDK_API int32_t ovex_acq_set_data_callback(ovex_ctx* ctx, const char* channel,
                                               ovex_data_cb callback, void* user);
/* Starts a readout (ovexsdk_acq_start) with the chip mode, processing mode and parameters that
 * the handle keeps: "raw" with the raw bytes, "1" with the records too; the channel is checked
 * by the start. OVEX_ERR_NO_MEMORY when the acquisition record can't be had. While a readout
 * runs, a second begin gives OVEX_ERR_UNAVAILABLE and the running one keeps its record; any
 * other failure frees the record. */
OVEXSDK_API int32_t ovex_acq_begin(ovex_ctx* ctx, const char* channel);
/* Waits for the readout's end (ovexsdk_acq_await_end) and frees the acquisition record. An
 * unknown channel frees the record without waiting and gives OVEX_ERR_INVALID. */
OVEXSDK_API int32_t ovex_acq_end(ovex_ctx* ctx, const char* channel);
/* Aborts the readout (ovexsdk_acq_abort); ovex_acq_end collects it. */
OVEXSDK_API int32_t ovex_acq_abort(ovex_ctx* ctx, const char* channel);

/* The getters below take the acquisition record the data callback got. */

/* The result's raw bytes (ovexsdk_acq_get_raw_data) joined in one buffer of the record. */
OVEXSDK_API int32_t ovex_acq_raw_get_data(ovex_acq* acquisition, const uint8_t** data,
                                          uint64_t* size);
/* The number of Timepix2 frames of the result (ovexsdk_acq_get_tpx2_frames). */
OVEXSDK_API int32_t ovex_acq_tpx2_get_frame_count(ovex_acq* acquisition, uint32_t* count);
/* The Timepix2 frames, 16 bits a pixel, one after the other in one buffer of the record. */
OVEXSDK_API int32_t ovex_acq_tpx2_get_event_frames(ovex_acq* acquisition, const uint16_t** data);
/* The number of Timepix3 records of the result, by the record's chip and processing mode:
 * ToA/ToT records in the frame-based mode and in the data-driven modes unsorted or sorted
 * (ovexsdk_acq_get_tpx3_toa_tot_packets), iToT/event-count records in the iToT frame mode
 * (ovexsdk_acq_get_tpx3_itot_evcount_packets), pixel records of every bin in the complete
 * binning (ovexsdk_acq_get_tpx3_itot_evcount_bins). Other modes: OVEX_ERR_UNAVAILABLE. */
OVEXSDK_API int32_t ovex_acq_tpx3_get_packet_count(ovex_acq* acquisition, uint32_t* count);
/* The records counted by ovex_acq_tpx3_get_packet_count: ovexsdk_acq_tpx3_toa_tot_record,
 * ovexsdk_acq_tpx3_itot_evcount or ovexsdk_tpx3_pixel_bin_record by the mode. A record list
 * without records gives OVEX_ERR_UNAVAILABLE; a binning without records gives null. */
OVEXSDK_API int32_t ovex_acq_tpx3_get_packets(ovex_acq* acquisition, const void** data);
/* The event counts of a scan's bins (ovexsdk_acq_get_tpx3_evcount_fragment), and their
 * number. */
OVEXSDK_API int32_t ovex_acq_tpx3_get_binned_hitcounters(ovex_acq* acquisition,
                                                         const uint64_t** data);
OVEXSDK_API int32_t ovex_acq_tpx3_get_binned_hitcounters_count(ovex_acq* acquisition,
                                                               uint32_t* count);
/* The iToT sums of a scan's bins (ovexsdk_acq_get_tpx3_itot_fragment), and their number. */
OVEXSDK_API int32_t ovex_acq_tpx3_get_binned_itots(ovex_acq* acquisition, const uint64_t** data);
OVEXSDK_API int32_t ovex_acq_tpx3_get_binned_itots_count(ovex_acq* acquisition, uint32_t* count);
/* The start of the block's scan line in ToA ticks (ovexsdk_acq_get_tpx3_toa_tot_packets). */
OVEXSDK_API int32_t ovex_acq_meta_get_shutter_rising_time_ticks(ovex_acq* acquisition,
                                                                uint64_t* ticks);
/* The number of TDC lists of the result. Takes the handle, not the acquisition record. */
OVEXSDK_API int32_t ovex_acq_meta_get_tdc_info(ovex_ctx* ctx, uint32_t* count);
/* The time stamps of TDC list `channel`, and their number. A result without TDC lists gives
 * OVEX_ERR_UNAVAILABLE, a channel beyond them OVEX_ERR_HANDLE. */
OVEXSDK_API int32_t ovex_acq_meta_get_tdc_toas(ovex_acq* acquisition, uint32_t channel,
                                               const uint64_t** data);
OVEXSDK_API int32_t ovex_acq_meta_get_tdc_toas_count(ovex_acq* acquisition, uint32_t channel,
                                                     uint32_t* count);
/* The number of bins of the complete binning; any other mode gives OVEX_ERR_UNAVAILABLE. */
OVEXSDK_API int32_t ovex_acq_meta_get_bin_descriptor_count(ovex_acq* acquisition, uint32_t* count);
/* A descriptor per bin of the complete binning, in a buffer of the record; any other mode gives
 * OVEX_ERR_UNAVAILABLE. */
OVEXSDK_API int32_t ovex_acq_meta_get_bin_descriptors(ovex_acq* acquisition,
                                                      const ovex_bin_descriptor** data);

/* Not available in this library: each gives OVEX_ERR_HANDLE when a pointer is null (or the
 * handle released), else OVEX_ERR_UNAVAILABLE, and does nothing else. */
OVEXSDK_API int32_t ovex_acq_get_last_error(ovex_ctx* ctx, const char** text);
OVEXSDK_API int32_t ovex_acq_tpx2_get_toa_frames(ovex_acq* acquisition, const uint16_t** data);
OVEXSDK_API int32_t ovex_acq_tpx2_get_tot_frames(ovex_acq* acquisition, const uint16_t** data);
OVEXSDK_API int32_t ovex_acq_tpx3_get_event_vec(ovex_acq* acquisition, const uint32_t** data);
OVEXSDK_API int32_t ovex_acq_tpx3_get_itot_vec(ovex_acq* acquisition, const uint32_t** data);
OVEXSDK_API int32_t ovex_acq_tpx3_get_pixel_address_vec(ovex_acq* acquisition,
                                                        const uint32_t** data);
OVEXSDK_API int32_t ovex_acq_tpx3_get_toa_vec(ovex_acq* acquisition, const uint64_t** data);
OVEXSDK_API int32_t ovex_acq_tpx3_get_tot_vec(ovex_acq* acquisition, const uint32_t** data);
OVEXSDK_API int32_t ovex_acq_tpx3_get_vec_length(ovex_acq* acquisition, uint32_t* length);
OVEXSDK_API int32_t ovex_acq_tpx_get_frame_count(ovex_acq* acquisition, uint32_t* count);
OVEXSDK_API int32_t ovex_acq_tpx_get_frames(ovex_acq* acquisition, const uint16_t** data);

#ifdef __cplusplus
}
#endif

#endif /* OVEXLEGACY_H */
