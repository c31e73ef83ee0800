/* What a run brought, printed once it has ended. */
#ifndef OVEX_ACQUIRE_REPORT_H
#define OVEX_ACQUIRE_REPORT_H

#include "options.h"
#include "tally.h"

void acquire_report(const acquire_options* options, const tally* seen, double seconds);

#endif
