/* What a run brought: counts and rates, the time order of sorted records, and a coarse picture
 * of where the hits fell, of the Timepix2 frames summed or, for the sum images of a scan, of the
 * scan's lines. */
#include "report.h"

#include <inttypes.h>
#include <stdio.h>

#include "picture.h"

/* Extended times count sixteenths of a 25 ns ToA tick. */
static const double kSecondsPerTime = 25e-9 / 16.0;

static void print_drawing(const uint64_t* values, uint64_t width, uint64_t height) {
    static picture drawn;
    picture_draw(values, width, height, &drawn);
    picture_print(&drawn);
}

static void report_hits(const tally* seen, double seconds) {
    printf("%" PRIu64 " records, %" PRIu64 " hits, %.0f hits/s\n", seen->records, seen->hits,
           seconds > 0.0 ? (double)seen->hits / seconds : 0.0);
}

/* The extended times of the data-driven records and the TDC stamps beside them. */
static void report_times(const acquire_options* options, const tally* seen) {
    if (seen->records > 0) {
        /* Records in arrival order may end earlier than they began. */
        const double apart = ((double)seen->last_time - (double)seen->first_time) * kSecondsPerTime;
        printf("first time %" PRIu64 ", last %" PRIu64 " (sixteenths of 25 ns; %.6f s apart)\n",
               seen->first_time, seen->last_time, apart);
    }
    if (options->processing == SortByToa) {
        printf("time order: %" PRIu64 " steps back\n", seen->steps_back);
    }
    printf("TDC stamps: %" PRIu64 " %" PRIu64 " %" PRIu64 "\n", seen->tdc_stamps[0],
           seen->tdc_stamps[1], seen->tdc_stamps[2]);
}

/* Lines count whole: value k of a scan belongs to line k / bins. */
static void report_scan(const acquire_options* options, const tally* seen) {
    const uint64_t lines = seen->bins / options->bins;
    printf("%" PRIu64 " of %u lines, %" PRIu64 " bins, %" PRIu64 " %s in all\n", lines,
           (unsigned)options->lines, seen->bins, seen->counts,
           options->processing == BinItotImage ? "iToT" : "counts");
    if (options->processing != BinCompletely && lines > 0) {
        const uint64_t drawn = lines < options->lines ? lines : options->lines;
        printf("lines (top to bottom) by bins (left to right):\n");
        print_drawing(seen->scan, options->bins, drawn);
    }
}

/* Timepix2 frames: their counts, each of the first frames on its own, and the hottest pixel of
 * the frames summed. */
static void report_frames(const acquire_options* options, const tally* seen) {
    const unsigned bits = acquire_pixel_bits(options);
    printf("%" PRIu64 " frames received, %" PRIu64 " counts in all\n", seen->frames,
           seen->frame_counts);
    if (seen->odd_frames > 0) {
        printf("%" PRIu64 " frames of another size than %d pixels left out\n", seen->odd_frames,
               kTallyPixels);
    }
    for (uint64_t f = 0; f < seen->frames && f < kTallyFramesKept; ++f) {
        const frame_stats* stats = &seen->frame[f];
        printf("  frame %" PRIu64 ": %" PRIu64 " counts, most %u, %u saturated\n", f, stats->sum,
               (unsigned)stats->most, (unsigned)stats->saturated);
    }
    if (seen->frames > kTallyFramesKept) {
        printf("  (%" PRIu64 " more frames)\n", seen->frames - kTallyFramesKept);
    }
    const uint32_t hottest = tally_hottest_pixel(seen);
    printf("hottest pixel (%u, %u): %" PRIu64 "\n", (unsigned)(hottest % kTallySide),
           (unsigned)(hottest / kTallySide), seen->image[hottest]);
    printf("%" PRIu64 " saturated pixel values (at %u, the %u-bit maximum)\n", seen->saturated,
           (1u << bits) - 1u, bits);
    if (seen->frame_counts > 0) {
        printf("the frames summed, rows top to bottom:\n");
        print_drawing(seen->image, kTallySide, kTallySide);
    }
}

void acquire_report(const acquire_options* options, const tally* seen, double seconds) {
    printf("run of %.3f s, %" PRIu64 " callbacks\n", seconds, seen->callbacks);
    if (seen->failed_reads > 0) {
        printf("%" PRIu64 " callbacks could not read their results\n", seen->failed_reads);
    }
    if (acquire_pixel_bits(options) != 0) {
        report_frames(options, seen);
        return;
    }
    if (acquire_is_frame_mode(options)) {
        printf("%" PRIu64 " frames received\n", seen->callbacks);
    }
    if (acquire_is_scan(options)) {
        report_scan(options, seen);
    }
    if (acquire_is_scan(options) && options->processing != BinCompletely) {
        return;
    }
    report_hits(seen, seconds);
    if (options->chip_mode == ToAToTDD && !acquire_is_scan(options)) {
        report_times(options, seen);
    }
    if (seen->hits > 0) {
        print_drawing(seen->image, kTallySide, kTallySide);
    }
}
