#include "acquire_options.hpp"

#include <cmath>

namespace ovex::cli {
namespace {

constexpr double kTicksPerSecond = 4e7;
// The board counts a shutter in 32 bits of 40 MHz ticks.
constexpr double kLongestShutter = 4294967295.0 / kTicksPerSecond;
constexpr double kLongestWait = 31556952.0;  // a year
// A scan's image is kept whole: at most 128 MiB of 64-bit values.
constexpr std::uint64_t kMostScanBins = std::uint64_t{1} << 24;

struct NamedMode {
    std::string_view word;
    ovexsdk_chip_mode mode;
};

struct NamedProcessing {
    std::string_view word;
    ovexsdk_acq_process_mode processing;
};

constexpr NamedMode kModes[] = {
    {"data-driven", ToAToTDD}, {"toa-tot", ToAToTFBZS},   {"itot-count", IToTEvCountFBZS},
    {"count8", EvCount8Bit},   {"count10", EvCount10Bit}, {"count14", EvCount14Bit},
    {"itot10", IToT10Bit},     {"itot14", IToT14Bit},
};

constexpr NamedProcessing kProcessings[] = {
    {"records", DefaultProcessing}, {"sorted", SortByToa},   {"count-image", BinEvcountImage},
    {"itot-image", BinItotImage},   {"bins", BinCompletely},
};

template <typename Table>
std::string WordsOf(const Table& table) {
    std::string words;
    for (const auto& entry : table) {
        words += (words.empty() ? "" : ", ") + std::string(entry.word);
    }
    return words;
}

template <typename Table>
const auto& Lookup(const Table& table, const std::string& word, std::string_view option) {
    for (const auto& entry : table) {
        if (entry.word == word) {
            return entry;
        }
    }
    throw UsageError("unknown " + std::string(option) + " '" + word + "'; one of " +
                     WordsOf(table));
}

void CheckDuration(const AcquireOptions& options, bool seconds_given, bool frames_given) {
    if (IsFrameMode(options)) {
        if (!frames_given || seconds_given) {
            throw UsageError("--mode " + options.mode_word + " takes --frames N, not --seconds");
        }
        return;
    }
    if (!seconds_given || frames_given) {
        throw UsageError("--mode data-driven takes --seconds N, not --frames");
    }
    if (!IsScan(options) && options.seconds > kLongestShutter) {
        throw UsageError("a data-driven run lasts at most " +
                         std::to_string(static_cast<int>(kLongestShutter)) +
                         " s, the board's longest shutter");
    }
}

void CheckScan(const AcquireOptions& options, bool any_scan_option) {
    const bool all = options.lines != 0 && options.bins != 0 && options.bin_width_ns != 0;
    if (!IsScan(options)) {
        if (any_scan_option) {
            throw UsageError(
                "--lines, --bins and --bin-width go only with --process count-image, "
                "itot-image or bins");
        }
        return;
    }
    if (!all) {
        throw UsageError("--process " + options.process_word +
                         " takes --lines L --bins B --bin-width NS");
    }
    if (std::uint64_t{options.lines} * options.bins > kMostScanBins) {
        throw UsageError("a scan holds at most " + std::to_string(kMostScanBins) + " bins");
    }
    if (static_cast<double>(options.bins) * static_cast<double>(options.bin_width_ns) * 1e-9 >
        kLongestShutter) {
        throw UsageError("a scan line lasts at most " +
                         std::to_string(static_cast<int>(kLongestShutter)) +
                         " s, the board's longest shutter");
    }
}

}  // namespace

bool IsFrameMode(const AcquireOptions& options) {
    return options.chip_mode != ToAToTDD;
}

bool IsScan(const AcquireOptions& options) {
    return options.processing == BinEvcountImage || options.processing == BinItotImage ||
           options.processing == BinCompletely;
}

ResultKind ResultKindOf(const AcquireOptions& options) {
    switch (options.chip_mode) {
        case ToAToTDD:
            return IsScan(options) ? ResultKind::kScanValues : ResultKind::kHits;
        case ToAToTFBZS:
            return ResultKind::kHits;
        case IToTEvCountFBZS:
            return ResultKind::kItotPixels;
        default:
            return ResultKind::kTpx2Frames;
    }
}

float LineSeconds(const AcquireOptions& options) {
    const double ticks =
        static_cast<double>(options.bins) * static_cast<double>(options.bin_width_ns) * 0.04;
    float seconds = static_cast<float>(ticks / kTicksPerSecond);
    // The board truncates the shutter to whole ticks.
    while (static_cast<double>(seconds) * kTicksPerSecond < ticks) {
        seconds = std::nextafter(seconds, INFINITY);
    }
    return seconds;
}

AcquireOptions ParseAcquireOptions(Args& args) {
    AcquireOptions options;
    const auto mode = args.Value("--mode");
    if (!mode) {
        throw UsageError("--mode is missing; one of " + WordsOf(kModes));
    }
    options.mode_word = *mode;
    options.chip_mode = Lookup(kModes, *mode, "--mode").mode;
    options.process_word = args.Value("--process").value_or("records");
    options.processing = Lookup(kProcessings, options.process_word, "--process").processing;

    const auto seconds = args.Number("--seconds", 0.001, kLongestWait);
    const auto frames = args.Count("--frames", 1, 1000000000);
    options.seconds = seconds.value_or(0.0);
    options.frames = frames.value_or(0);
    const auto lines = args.Count("--lines", 1, kMostScanBins);
    const auto bins = args.Count("--bins", 1, kMostScanBins);
    const auto bin_width = args.Count("--bin-width", 25, 1000000000000);
    options.lines = static_cast<std::uint32_t>(lines.value_or(0));
    options.bins = static_cast<std::uint32_t>(bins.value_or(0));
    options.bin_width_ns = bin_width.value_or(0);

    options.config_path = args.Value("--config");
    options.threshold_kev = args.Number("--threshold", 0.0, 1000.0);
    options.raw_path = args.Value("--raw");
    options.records_path = args.Value("--records");
    options.image_path = args.Value("--image");
    options.power_down = !args.Flag("--no-power-down");
    options.locator = LocatorOf(args.Positional("LOCATOR"));
    args.Finish();

    if (IsFrameMode(options) && options.processing != DefaultProcessing) {
        throw UsageError("--mode " + options.mode_word + " takes only --process records");
    }
    CheckDuration(options, seconds.has_value(), frames.has_value());
    CheckScan(options, lines || bins || bin_width);
    return options;
}

}  // namespace ovex::cli
