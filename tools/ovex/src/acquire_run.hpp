// The board's side of `ovex acquire`: the chip made ready for the run, then the readouts, until
// the limit, the scan's last line or Ctrl-C.
#pragma once

#include <functional>
#include <optional>
#include <string>

#include "acquire_options.hpp"
#include "interrupt.hpp"
#include "result_collector.hpp"

namespace ovex::cli {

// Powers up an open board (one already powered is fine), configures its chip from `config` (the
// text of a configuration file) or with the library's default, and sets the threshold, the mode,
// the trigger and the processing.
void PrepareBoard(ovexsdk_dev_ctx* ctx, const AcquireOptions& options,
                  const std::optional<std::string>& config);

struct RunEnd {
    bool interrupted = false;
    double seconds = 0.0;  // from the start of the first readout to the end of the last
};

// Runs the readouts into `collector`, calling `tick` with the seconds so far about four times a
// second. Ctrl-C ends them early and cleanly: the readout is aborted and awaited.
RunEnd RunAcquisition(ovexsdk_dev_ctx* ctx, const AcquireOptions& options,
                      ResultCollector& collector, bool keep_raw, const InterruptWatch& interrupt,
                      const std::function<void(double)>& tick);

}  // namespace ovex::cli
