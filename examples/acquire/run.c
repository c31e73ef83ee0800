/* One acquisition: the trigger that each kind of run needs, its readouts, and the data callbacks
 * that copy the results into the tally. The callbacks run on one thread of the library at a
 * time; the host reads the tally only once ovexsdk_acq_await_end has returned. */
#define _POSIX_C_SOURCE 200809L

#include "run.h"

#include <errno.h>
#include <semaphore.h>
#include <stdbool.h>
#include <stdio.h>
#include <time.h>

/* A frame needs only a glimpse of the beam. */
static const float kFrameShutter = 0.01f;
/* A scan's dwell time is in nanoseconds, its bins in ToA ticks of 25 ns. */
enum { kNanosecondsPerTick = 25 };

typedef void (*data_callback)(ovexsdk_dev_ctx* ctx, void* user);

typedef struct run {
    tally* seen;
    uint16_t saturation; /* a Timepix2 pixel's largest count at the mode's depth */
    uint64_t scan_bins;  /* the whole scan's; 0 outside scans */
    sem_t scan_done;     /* posted by the callback that brings the scan's last bin */
} run;

static double monotonic_seconds(void) {
    struct timespec now;
    clock_gettime(CLOCK_MONOTONIC, &now);
    return (double)now.tv_sec + (double)now.tv_nsec * 1e-9;
}

static void on_hits(ovexsdk_dev_ctx* ctx, void* user) {
    tally* seen = ((run*)user)->seen;
    ovexsdk_acq_tpx3_acq_toa_tot block;
    ++seen->callbacks;
    if (ovexsdk_acq_get_tpx3_toa_tot_packets(ctx, &block) != OVEXSDK_OK) {
        ++seen->failed_reads;
        return;
    }
    tally_add_hits(seen, block.records, block.count);
    tally_add_tdcs(seen, block.tdc_lists, block.tdc_list_count);
}

static void on_frames(ovexsdk_dev_ctx* ctx, void* user) {
    run* current = user;
    const ovexsdk_acq_tpx2_frame* frames = NULL;
    uint64_t count = 0;
    ++current->seen->callbacks;
    if (ovexsdk_acq_get_tpx2_frames(ctx, &frames, &count) != OVEXSDK_OK) {
        ++current->seen->failed_reads;
        return;
    }
    tally_add_frames(current->seen, frames, count, current->saturation);
}

static void on_itot_pixels(ovexsdk_dev_ctx* ctx, void* user) {
    tally* seen = ((run*)user)->seen;
    const ovexsdk_acq_tpx3_itot_evcount* pixels = NULL;
    uint64_t count = 0;
    ++seen->callbacks;
    if (ovexsdk_acq_get_tpx3_itot_evcount_packets(ctx, &pixels, &count) != OVEXSDK_OK) {
        ++seen->failed_reads;
        return;
    }
    tally_add_itot_pixels(seen, pixels, count);
}

/* Wakes the host once the bins of every line have come, counted from the readout's first. */
static void note_scan_bins(run* current, uint64_t before) {
    if (before < current->scan_bins && current->seen->bins >= current->scan_bins) {
        sem_post(&current->scan_done);
    }
}

static void on_count_fragment(ovexsdk_dev_ctx* ctx, void* user) {
    run* current = user;
    const uint64_t before = current->seen->bins;
    ovexsdk_acq_tpx3_evcount_fragment fragment;
    ++current->seen->callbacks;
    if (ovexsdk_acq_get_tpx3_evcount_fragment(ctx, &fragment) != OVEXSDK_OK) {
        ++current->seen->failed_reads;
        return;
    }
    tally_add_bin_values(current->seen, fragment.events, fragment.count);
    note_scan_bins(current, before);
}

static void on_itot_fragment(ovexsdk_dev_ctx* ctx, void* user) {
    run* current = user;
    const uint64_t before = current->seen->bins;
    ovexsdk_acq_tpx3_itot_fragment fragment;
    ++current->seen->callbacks;
    if (ovexsdk_acq_get_tpx3_itot_fragment(ctx, &fragment) != OVEXSDK_OK) {
        ++current->seen->failed_reads;
        return;
    }
    tally_add_bin_values(current->seen, fragment.itots, fragment.count);
    note_scan_bins(current, before);
}

/* The complete binning: its event counts make the scan, its pixels the image. */
static void on_bins(ovexsdk_dev_ctx* ctx, void* user) {
    run* current = user;
    const uint64_t before = current->seen->bins;
    ovexsdk_tpx3_acq_itot_evcount_bins binned;
    ++current->seen->callbacks;
    if (ovexsdk_acq_get_tpx3_itot_evcount_bins(ctx, &binned) != OVEXSDK_OK) {
        ++current->seen->failed_reads;
        return;
    }
    tally_add_bin_values(current->seen, binned.events, binned.event_count);
    tally_add_bin_pixels(current->seen, binned.bins, binned.bin_count);
    note_scan_bins(current, before);
}

static data_callback callback_for(const acquire_options* options) {
    if (acquire_pixel_bits(options) != 0) {
        return on_frames;
    }
    if (options->chip_mode == IToTEvCountFBZS) {
        return on_itot_pixels;
    }
    switch (options->processing) {
        case BinEvcountImage:
            return on_count_fragment;
        case BinItotImage:
            return on_itot_fragment;
        case BinCompletely:
            return on_bins;
        default:
            return on_hits;
    }
}

/* Stops a readout that would run on, then waits until the library is done with it. */
static ovexsdk_err_code end_readout(ovexsdk_dev_ctx* ctx) {
    const ovexsdk_err_code aborted = ovexsdk_acq_abort(ctx);
    printf("ovexsdk_acq_abort -> %d\n", aborted);
    const ovexsdk_err_code ended = ovexsdk_acq_await_end(ctx);
    printf("ovexsdk_acq_await_end -> %d\n", ended);
    return aborted != OVEXSDK_OK ? aborted : ended;
}

/* A single internal shutter makes one readout, which its shutter's close ends. Answers the first
 * failure and, in `step`, the call that gave it, or the last call. */
static ovexsdk_err_code one_shutter(ovexsdk_dev_ctx* ctx, const acquire_options* options,
                                    run* current, const char** step) {
    *step = "ovexsdk_acq_start";
    ovexsdk_err_code result =
        ovexsdk_acq_start(ctx, callback_for(options), OVEXSDK_ACQ_PROCESSED, NULL, current);
    if (result != OVEXSDK_OK) {
        return result;
    }
    *step = "ovexsdk_trigger_now";
    result = ovexsdk_trigger_now(ctx);
    if (result != OVEXSDK_OK) {
        end_readout(ctx);
        return result;
    }
    *step = "ovexsdk_acq_await_end";
    return ovexsdk_acq_await_end(ctx);
}

static ovexsdk_err_code take_frames(ovexsdk_dev_ctx* ctx, const acquire_options* options,
                                    run* current) {
    for (uint32_t frame = 0; frame < options->frames; ++frame) {
        const char* step = NULL;
        const ovexsdk_err_code result = one_shutter(ctx, options, current, &step);
        if (result != OVEXSDK_OK) {
            printf("frame %u: %s -> %d\n", (unsigned)frame, step, result);
            return result;
        }
    }
    return OVEXSDK_OK;
}

static ovexsdk_err_code take_shutter(ovexsdk_dev_ctx* ctx, const acquire_options* options,
                                     run* current) {
    const char* step = NULL;
    const ovexsdk_err_code result = one_shutter(ctx, options, current, &step);
    printf("shutter of %g s: %s -> %d\n", options->seconds, step, result);
    return result;
}

/* Waits for the post, or until the deadline on the realtime clock has passed. */
static bool wait_until(sem_t* done, const struct timespec* deadline) {
    while (sem_timedwait(done, deadline) != 0) {
        if (errno != EINTR) {
            return false;
        }
    }
    return true;
}

static struct timespec deadline_in(double seconds) {
    struct timespec deadline;
    clock_gettime(CLOCK_REALTIME, &deadline);
    const time_t whole = (time_t)seconds;
    deadline.tv_sec += whole;
    deadline.tv_nsec += (long)((seconds - (double)whole) * 1e9);
    if (deadline.tv_nsec >= 1000000000L) {
        deadline.tv_nsec -= 1000000000L;
        ++deadline.tv_sec;
    }
    return deadline;
}

/* Each pulse on the trigger input opens the shutter of one scan line. The library ends the
 * readout with the scan's last line; the host ends it when the time is up, and aborts in either
 * case, which also leaves the trigger input disarmed. */
static ovexsdk_err_code take_scan(ovexsdk_dev_ctx* ctx, const acquire_options* options,
                                  run* current) {
    const ovexsdk_acq_params params = {
        .scan = {.bins_per_line = options->bins,
                 .lines = options->lines,
                 .dwell_time = options->bin_width * kNanosecondsPerTick}};
    if (sem_init(&current->scan_done, 0, 0) != 0) {
        perror("sem_init");
        return OVEXSDK_ERR_FAILED;
    }
    current->scan_bins = (uint64_t)options->lines * options->bins;
    const struct timespec deadline = deadline_in(options->seconds);
    ovexsdk_err_code result =
        ovexsdk_acq_start(ctx, callback_for(options), OVEXSDK_ACQ_PROCESSED, &params, current);
    printf("ovexsdk_acq_start(%u lines of %u bins, %llu ns each) -> %d\n", (unsigned)options->lines,
           (unsigned)options->bins, (unsigned long long)params.scan.dwell_time, result);
    if (result == OVEXSDK_OK) {
        printf("%s\n", wait_until(&current->scan_done, &deadline) ? "all lines arrived"
                                                                  : "the scan's time is up");
        result = end_readout(ctx);
    }
    sem_destroy(&current->scan_done);
    return result;
}

static ovexsdk_trigger_config trigger_for(const acquire_options* options) {
    if (acquire_is_frame_mode(options)) {
        return (ovexsdk_trigger_config){InternalStartShutterDuration, kFrameShutter};
    }
    if (acquire_is_scan(options)) {
        return (ovexsdk_trigger_config){ExternalStartShutterDuration,
                                        acquire_line_seconds(options)};
    }
    return (ovexsdk_trigger_config){InternalStartShutterDuration, (float)options->seconds};
}

ovexsdk_err_code acquire_run(ovexsdk_dev_ctx* ctx, const acquire_options* options, tally* seen,
                             double* seconds) {
    *seconds = 0.0;
    ovexsdk_err_code result = ovexsdk_chip_set_mode(ctx, options->chip_mode);
    printf("ovexsdk_chip_set_mode(%s) -> %d\n", options->chip_mode_name, result);
    if (result != OVEXSDK_OK) {
        return result;
    }
    const ovexsdk_trigger_config trigger = trigger_for(options);
    result = ovexsdk_trigger_configure(ctx, &trigger);
    printf("ovexsdk_trigger_configure(%s, %g s) -> %d\n",
           trigger.mode == InternalStartShutterDuration ? "InternalStartShutterDuration"
                                                        : "ExternalStartShutterDuration",
           (double)trigger.shutter_duration, result);
    if (result != OVEXSDK_OK) {
        return result;
    }
    result = ovexsdk_acq_select_processing(ctx, options->processing);
    printf("ovexsdk_acq_select_processing(%s) -> %d\n", options->processing_name, result);
    if (result != OVEXSDK_OK) {
        return result;
    }
    run current = {.seen = seen,
                   .saturation = (uint16_t)((1u << acquire_pixel_bits(options)) - 1u)};
    const double start = monotonic_seconds();
    if (acquire_is_frame_mode(options)) {
        result = take_frames(ctx, options, &current);
    } else if (acquire_is_scan(options)) {
        result = take_scan(ctx, options, &current);
    } else {
        result = take_shutter(ctx, options, &current);
    }
    *seconds = monotonic_seconds() - start;
    return result;
}
