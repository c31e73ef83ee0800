// The command line of `ovex acquire`: what to acquire, how, for how long, and where it goes.
// Every combination that the library would refuse, or that would leave an option without
// effect, is refused here, before a file or the board is touched.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "cli.hpp"

namespace ovex::cli {

// What each data callback of a run brings.
enum class ResultKind {
    kHits,        // ToA and ToT records, data-driven or of the frame-based toa-tot mode
    kItotPixels,  // the frame-based itot-count mode's pixels
    kScanValues,  // a scan's bin values, line after line
    kTpx2Frames,  // Timepix2 frames of 16-bit counts
};

struct AcquireOptions {
    std::string locator;
    std::string mode_word;  // as the command line names them
    std::string process_word;
    ovexsdk_chip_mode chip_mode = Unknown;
    ovexsdk_acq_process_mode processing = DefaultProcessing;
    double seconds = 0.0;      // data-driven: the shutter; scans: the longest wait for the lines
    std::uint64_t frames = 0;  // frame-based modes: shutters of kFrameShutterSeconds each
    std::uint32_t lines = 0;   // scans: lines, each opened by a pulse on the trigger input
    std::uint32_t bins = 0;    // scans: bins in a line
    std::uint64_t bin_width_ns = 0;
    std::optional<std::string> config_path;
    std::optional<double> threshold_kev;
    std::optional<std::string> raw_path;
    std::optional<std::string> records_path;
    std::optional<std::string> image_path;
    bool power_down = true;
};

inline constexpr float kFrameShutterSeconds = 0.01f;

AcquireOptions ParseAcquireOptions(Args& args);

bool IsFrameMode(const AcquireOptions& options);
bool IsScan(const AcquireOptions& options);
ResultKind ResultKindOf(const AcquireOptions& options);
// The shutter that covers one scan line, never a tick of the board's 40 MHz clock short of it.
float LineSeconds(const AcquireOptions& options);

}  // namespace ovex::cli
