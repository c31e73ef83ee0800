/* The command line of ovex_acquire. Every combination that the library would refuse, or that
 * would leave an option without effect, is refused here, before a board is touched. */
#include "options.h"

#include <errno.h>
#include <math.h>
#include <stdlib.h>
#include <string.h>

/* Scans keep every bin value; this bounds what they hold (32 MiB). */
enum { kMostScanBins = 1 << 22, kLongestSerial = 16 };

/* A year: long enough for any run, short enough for the clock's arithmetic. */
static const double kLongestRun = 31556952.0;

typedef struct named_chip_mode {
    const char* word;
    ovexsdk_chip_mode mode;
    const char* name;
} named_chip_mode;

typedef struct named_processing {
    const char* word;
    ovexsdk_acq_process_mode mode;
    const char* name;
} named_processing;

static const named_chip_mode kChipModes[] = {
    {"toa-tot", ToAToTFBZS, "ToAToTFBZS"},     {"itot-count", IToTEvCountFBZS, "IToTEvCountFBZS"},
    {"data-driven", ToAToTDD, "ToAToTDD"},     {"count8", EvCount8Bit, "EvCount8Bit"},
    {"count10", EvCount10Bit, "EvCount10Bit"}, {"count14", EvCount14Bit, "EvCount14Bit"},
    {"itot10", IToT10Bit, "IToT10Bit"},        {"itot14", IToT14Bit, "IToT14Bit"},
};

static const named_processing kProcessings[] = {
    {"records", DefaultProcessing, "DefaultProcessing"},
    {"sorted", SortByToa, "SortByToa"},
    {"count-image", BinEvcountImage, "BinEvcountImage"},
    {"itot-image", BinItotImage, "BinItotImage"},
    {"bins", BinCompletely, "BinCompletely"},
};

void acquire_print_usage(const char* program, FILE* out) {
    fprintf(out,
            "usage: %s SERIAL MODE PROCESS CONFIG (--seconds N | --frames N)\n"
            "       [--lines L --bins B --bin-width TICKS]\n"
            "  MODE     frame-based, --frames N shutters of 10 ms each: toa-tot or itot-count\n"
            "           (Timepix3), count8, count10, count14 (event counts) or itot10, itot14\n"
            "           (integrated ToT) at 8, 10 or 14 bits a pixel (Timepix2);\n"
            "           data-driven (Timepix3): --seconds N\n"
            "  PROCESS  records, or in the data-driven mode also sorted (records in time order),\n"
            "           count-image, itot-image or bins: a scan of L lines of B bins, each\n"
            "           TICKS of 25 ns, a line for each pulse on the trigger input, taken until\n"
            "           L lines arrived or N seconds passed\n"
            "  CONFIG   the chip's configuration file\n",
            program);
}

bool acquire_is_frame_mode(const acquire_options* options) {
    return options->chip_mode != ToAToTDD;
}

unsigned acquire_pixel_bits(const acquire_options* options) {
    switch (options->chip_mode) {
        case EvCount8Bit:
            return 8;
        case EvCount10Bit:
        case IToT10Bit:
            return 10;
        case EvCount14Bit:
        case IToT14Bit:
            return 14;
        default:
            return 0;
    }
}

bool acquire_is_scan(const acquire_options* options) {
    return options->processing == BinEvcountImage || options->processing == BinItotImage ||
           options->processing == BinCompletely;
}

float acquire_line_seconds(const acquire_options* options) {
    const double ticks = (double)options->bins * (double)options->bin_width;
    float seconds = (float)(ticks / ACQUIRE_TICKS_PER_SECOND);
    /* The board truncates the shutter to whole ticks. */
    while ((double)seconds * ACQUIRE_TICKS_PER_SECOND < ticks) {
        seconds = nextafterf(seconds, INFINITY);
    }
    return seconds;
}

/* A positive whole number up to `most`, written in decimal and nothing else. */
static bool parse_count(const char* text, uint64_t most, uint64_t* value) {
    if (text[0] < '0' || text[0] > '9') {
        return false;
    }
    char* end = NULL;
    errno = 0;
    const unsigned long long parsed = strtoull(text, &end, 10);
    if (errno != 0 || *end != '\0' || parsed == 0 || parsed > most) {
        return false;
    }
    *value = parsed;
    return true;
}

static bool parse_seconds(const char* text, double* value) {
    char* end = NULL;
    errno = 0;
    const double parsed = strtod(text, &end);
    if (errno != 0 || end == text || *end != '\0' || !isfinite(parsed) || !(parsed > 0.0)) {
        return false;
    }
    *value = parsed;
    return true;
}

static bool parse_words(char** argv, acquire_options* options, FILE* errors) {
    options->serial = argv[1];
    options->config_path = argv[4];
    if (strlen(options->serial) == 0 || strlen(options->serial) > kLongestSerial) {
        fprintf(errors, "SERIAL must have 1 to %d characters\n", kLongestSerial);
        return false;
    }
    const named_chip_mode* mode = NULL;
    for (size_t i = 0; i < sizeof kChipModes / sizeof kChipModes[0]; ++i) {
        if (strcmp(argv[2], kChipModes[i].word) == 0) {
            mode = &kChipModes[i];
        }
    }
    const named_processing* processing = NULL;
    for (size_t i = 0; i < sizeof kProcessings / sizeof kProcessings[0]; ++i) {
        if (strcmp(argv[3], kProcessings[i].word) == 0) {
            processing = &kProcessings[i];
        }
    }
    if (mode == NULL || processing == NULL) {
        fprintf(errors, "unknown %s '%s'\n", mode == NULL ? "MODE" : "PROCESS",
                mode == NULL ? argv[2] : argv[3]);
        return false;
    }
    options->chip_mode = mode->mode;
    options->chip_mode_name = mode->name;
    options->processing = processing->mode;
    options->processing_name = processing->name;
    return true;
}

/* The flags, each at most once and each with a value; `given` collects which came, by their
 * place in kFlags. */
static const char* const kFlags[] = {"--seconds", "--frames", "--lines", "--bins", "--bin-width"};
enum { kSeconds, kFrames, kLines, kBins, kBinWidth, kFlagCount };

static bool parse_flag(int flag, const char* text, acquire_options* options) {
    uint64_t count = 0;
    if (flag == kSeconds) {
        return parse_seconds(text, &options->seconds);
    }
    if (!parse_count(text, UINT32_MAX, &count)) {
        return false;
    }
    switch (flag) {
        case kFrames:
            options->frames = (uint32_t)count;
            break;
        case kLines:
            options->lines = (uint32_t)count;
            break;
        case kBins:
            options->bins = (uint32_t)count;
            break;
        default:
            options->bin_width = count;
            break;
    }
    return true;
}

static bool parse_flags(int argc, char** argv, acquire_options* options, bool given[kFlagCount],
                        FILE* errors) {
    for (int i = 5; i < argc; i += 2) {
        int flag = 0;
        while (flag < kFlagCount && strcmp(argv[i], kFlags[flag]) != 0) {
            ++flag;
        }
        if (flag == kFlagCount || given[flag]) {
            fprintf(errors, "%s '%s'\n", flag == kFlagCount ? "unknown option" : "repeated option",
                    argv[i]);
            return false;
        }
        if (!parse_flag(flag, argv[i + 1], options)) {
            fprintf(errors, "%s needs a positive number\n", argv[i]);
            return false;
        }
        given[flag] = true;
    }
    return true;
}

/* Which flags the chosen modes take, and what their values allow. */
static bool check_combination(const acquire_options* options, const bool given[kFlagCount],
                              FILE* errors) {
    const bool frame_mode = acquire_is_frame_mode(options);
    const bool scan = acquire_is_scan(options);
    if (frame_mode && options->processing != DefaultProcessing) {
        fprintf(errors, "the frame-based modes take only PROCESS records\n");
        return false;
    }
    if (frame_mode ? !given[kFrames] || given[kSeconds] : !given[kSeconds] || given[kFrames]) {
        fprintf(errors, "%s takes %s\n", frame_mode ? "a frame-based mode" : "data-driven",
                frame_mode ? "--frames N" : "--seconds N");
        return false;
    }
    const bool any_scan_flag = given[kLines] || given[kBins] || given[kBinWidth];
    if (scan ? !(given[kLines] && given[kBins] && given[kBinWidth]) : any_scan_flag) {
        fprintf(errors, "--lines, --bins and --bin-width go %s\n",
                scan ? "together with a scan" : "only with a scan");
        return false;
    }
    if (scan && (uint64_t)options->lines * options->bins > kMostScanBins) {
        fprintf(errors, "a scan holds at most %d bins\n", kMostScanBins);
        return false;
    }
    if (options->seconds > kLongestRun) {
        fprintf(errors, "--seconds takes at most a year\n");
        return false;
    }
    const double shutter =
        scan ? (double)options->bins * (double)options->bin_width / ACQUIRE_TICKS_PER_SECOND
             : options->seconds;
    if (!frame_mode && shutter > ACQUIRE_LONGEST_SHUTTER) {
        fprintf(errors, "the board's shutter lasts at most %.0f s\n", ACQUIRE_LONGEST_SHUTTER);
        return false;
    }
    return true;
}

bool acquire_parse(int argc, char** argv, acquire_options* options, FILE* errors) {
    *options = (acquire_options){0};
    if (argc < 7 || argc % 2 == 0) {
        fprintf(errors, "wrong number of arguments\n");
        return false;
    }
    bool given[kFlagCount] = {false};
    return parse_words(argv, options, errors) && parse_flags(argc, argv, options, given, errors) &&
           check_combination(options, given, errors);
}
