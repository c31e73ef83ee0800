/* What the data callbacks of one run gather. The records the library hands over are valid only
 * during a callback, so everything kept is copied in here. One thread at a time writes a tally:
 * the library's thread that calls back; the host reads it once the readout has ended. */
#ifndef OVEX_ACQUIRE_TALLY_H
#define OVEX_ACQUIRE_TALLY_H

#include <stdint.h>

#include "ovexsdk.h"

enum {
    kTallySide = 256,
    kTallyPixels = kTallySide * kTallySide,
    kTallyTdcChannels = 3,
    kTallyFramesKept = 16 /* Timepix2 frames whose statistics are kept one by one */
};

/* One Timepix2 frame: its counts, its largest, and its pixels at the depth's maximum. */
typedef struct frame_stats {
    uint64_t sum;
    uint16_t most;
    uint32_t saturated;
} frame_stats;

typedef struct tally {
    uint64_t callbacks;
    uint64_t failed_reads; /* callbacks whose getter failed */
    uint64_t records;      /* hit records, or pixel records of the iToT modes */
    uint64_t hits;         /* the hits they stand for */
    uint64_t steps_back;   /* records earlier than the record before them */
    uint64_t first_time;   /* of the first and the last record */
    uint64_t last_time;
    uint64_t tdc_stamps[kTallyTdcChannels];
    uint64_t bins;   /* bin values of a scan */
    uint64_t counts; /* their sum */
    uint64_t* scan;  /* the first scan_capacity of them, line after line */
    uint64_t scan_capacity;
    uint64_t frames;       /* Timepix2 frames added to the image */
    uint64_t odd_frames;   /* Timepix2 frames of another pixel count than the matrix's, left out */
    uint64_t frame_counts; /* the sum of every pixel of every frame added */
    uint64_t saturated;    /* pixel values at the depth's maximum, over all frames */
    frame_stats frame[kTallyFramesKept]; /* the first frames' own statistics */
    /* Hits per pixel, or the frames' counts summed, index row * 256 + column. */
    uint64_t image[kTallyPixels];
} tally;

/* A zeroed tally that keeps up to `scan_capacity` bin values; NULL without memory. */
tally* tally_create(uint64_t scan_capacity);
void tally_destroy(tally* seen);

/* The pixel, row * 256 + column, that a pixel address as the chip sends it stands for. */
uint32_t tally_pixel_of(uint32_t address);

void tally_add_hits(tally* seen, const ovexsdk_acq_tpx3_toa_tot_record* records, uint64_t count);
void tally_add_tdcs(tally* seen, const ovexsdk_acq_tpx3_tdc_list* lists, uint64_t count);
void tally_add_itot_pixels(tally* seen, const ovexsdk_acq_tpx3_itot_evcount* pixels,
                           uint64_t count);
void tally_add_bin_values(tally* seen, const uint64_t* values, uint64_t count);
/* The pixels of each bin of a complete binning, as hits on the image. */
void tally_add_bin_pixels(tally* seen, const ovexsdk_tpx3_bin_descriptor* bins, uint64_t count);

/* Timepix2 frames, each 65536 counts in host order, added to the image; `saturation` is the
 * largest count at the frame's depth. */
void tally_add_frames(tally* seen, const ovexsdk_acq_tpx2_frame* frames, uint64_t count,
                      uint16_t saturation);

/* The pixel of the image with the most, the first of equals in index order; 0 when all are 0. */
uint32_t tally_hottest_pixel(const tally* seen);

#endif
