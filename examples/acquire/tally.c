/* What the data callbacks of one run gather. */
#include "tally.h"

#include <stdlib.h>

tally* tally_create(uint64_t scan_capacity) {
    tally* seen = calloc(1, sizeof *seen);
    if (seen == NULL) {
        return NULL;
    }
    if (scan_capacity > 0) {
        seen->scan = calloc(scan_capacity, sizeof *seen->scan);
        if (seen->scan == NULL) {
            free(seen);
            return NULL;
        }
        seen->scan_capacity = scan_capacity;
    }
    return seen;
}

void tally_destroy(tally* seen) {
    if (seen != NULL) {
        free(seen->scan);
        free(seen);
    }
}

/* The chip numbers its pixels as its configuration read-back does: the address with its two
 * bytes swapped counts down from the last pixel of the host's matrix. */
uint32_t tally_pixel_of(uint32_t address) {
    const uint32_t swapped = ((address & 0xFFu) << 8) | ((address >> 8) & 0xFFu);
    return (kTallyPixels - 1) - swapped;
}

void tally_add_hits(tally* seen, const ovexsdk_acq_tpx3_toa_tot_record* records, uint64_t count) {
    for (uint64_t i = 0; i < count; ++i) {
        const uint64_t time = records[i].toa;
        if (seen->records == 0) {
            seen->first_time = time;
        } else if (time < seen->last_time) {
            ++seen->steps_back;
        }
        seen->last_time = time;
        ++seen->records;
        ++seen->image[tally_pixel_of(records[i].address)];
    }
    seen->hits += count;
}

void tally_add_tdcs(tally* seen, const ovexsdk_acq_tpx3_tdc_list* lists, uint64_t count) {
    for (uint64_t c = 0; c < count && c < kTallyTdcChannels; ++c) {
        seen->tdc_stamps[c] += lists[c].count;
    }
}

void tally_add_itot_pixels(tally* seen, const ovexsdk_acq_tpx3_itot_evcount* pixels,
                           uint64_t count) {
    for (uint64_t i = 0; i < count; ++i) {
        seen->image[tally_pixel_of(pixels[i].address)] += pixels[i].events;
        seen->hits += pixels[i].events;
    }
    seen->records += count;
}

void tally_add_bin_values(tally* seen, const uint64_t* values, uint64_t count) {
    for (uint64_t i = 0; i < count; ++i) {
        if (seen->bins < seen->scan_capacity) {
            seen->scan[seen->bins] = values[i];
        }
        ++seen->bins;
        seen->counts += values[i];
    }
}

void tally_add_bin_pixels(tally* seen, const ovexsdk_tpx3_bin_descriptor* bins, uint64_t count) {
    for (uint64_t b = 0; b < count; ++b) {
        for (uint64_t p = 0; p < bins[b].count; ++p) {
            const ovexsdk_tpx3_pixel_bin_record* pixel = &bins[b].pixels[p];
            seen->image[tally_pixel_of(pixel->address)] += pixel->events;
            seen->hits += pixel->events;
        }
        seen->records += bins[b].count;
    }
}

void tally_add_frames(tally* seen, const ovexsdk_acq_tpx2_frame* frames, uint64_t count,
                      uint16_t saturation) {
    for (uint64_t f = 0; f < count; ++f) {
        if (frames[f].pixels == NULL || frames[f].count != kTallyPixels) {
            ++seen->odd_frames;
            continue;
        }
        frame_stats stats = {0, 0, 0};
        for (uint32_t p = 0; p < kTallyPixels; ++p) {
            const uint16_t value = frames[f].pixels[p];
            seen->image[p] += value;
            stats.sum += value;
            if (value > stats.most) {
                stats.most = value;
            }
            if (value >= saturation) {
                ++stats.saturated;
            }
        }
        if (seen->frames < kTallyFramesKept) {
            seen->frame[seen->frames] = stats;
        }
        ++seen->frames;
        seen->frame_counts += stats.sum;
        seen->saturated += stats.saturated;
    }
}

uint32_t tally_hottest_pixel(const tally* seen) {
    uint32_t hottest = 0;
    for (uint32_t p = 1; p < kTallyPixels; ++p) {
        if (seen->image[p] > seen->image[hottest]) {
            hottest = p;
        }
    }
    return hottest;
}
