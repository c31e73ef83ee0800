/* The command line of ovex_acquire: what to acquire, how, and for how long. */
#ifndef OVEX_ACQUIRE_OPTIONS_H
#define OVEX_ACQUIRE_OPTIONS_H

#include <stdbool.h>
#include <stdint.h>
#include <stdio.h>

#include "ovexsdk.h"

/* The board counts a shutter in 32 bits of 40 MHz ticks: a little over 107 s. */
#define ACQUIRE_TICKS_PER_SECOND 4e7
#define ACQUIRE_LONGEST_SHUTTER 107.0

typedef struct acquire_options {
    const char* serial;
    const char* config_path;
    ovexsdk_chip_mode chip_mode;
    ovexsdk_acq_process_mode processing;
    const char* chip_mode_name; /* as the library names them */
    const char* processing_name;
    uint32_t frames;    /* frame-based modes: readouts of one short shutter each */
    double seconds;     /* data-driven modes: the shutter, or how long a scan may take */
    uint32_t lines;     /* scans: lines to wait for */
    uint32_t bins;      /* scans: bins in a line */
    uint64_t bin_width; /* scans: ToA ticks (25 ns) in a bin */
} acquire_options;

/* Fills `options` from the arguments; false, after a line on `errors`, if they make no run. */
bool acquire_parse(int argc, char** argv, acquire_options* options, FILE* errors);

void acquire_print_usage(const char* program, FILE* out);

bool acquire_is_frame_mode(const acquire_options* options);
/* The bits of a pixel's count in a Timepix2 mode: 8, 10 or 14; 0 in the Timepix3 modes. */
unsigned acquire_pixel_bits(const acquire_options* options);
bool acquire_is_scan(const acquire_options* options);

/* The shutter that covers one scan line: its seconds, never a tick short of the line. */
float acquire_line_seconds(const acquire_options* options);

#endif
