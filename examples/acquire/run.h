/* One acquisition of a board whose chip is configured, as the command line asks. */
#ifndef OVEX_ACQUIRE_RUN_H
#define OVEX_ACQUIRE_RUN_H

#include "options.h"
#include "ovexsdk.h"
#include "tally.h"

/* Sets the chip's mode, the trigger and the processing, then reads out: frame after frame, one
 * data-driven shutter, or a scan until its lines arrived or its time is up. Answers the first
 * failure; `seen` holds what arrived and `seconds` the time from the first start to the end of
 * the last readout. */
ovexsdk_err_code acquire_run(ovexsdk_dev_ctx* ctx, const acquire_options* options, tally* seen,
                             double* seconds);

#endif
