// The command line of ovex_acquire: each mode with the options it takes, every combination that
// would make no run refused with a line of its own, and a scan line's shutter never a tick short.

#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <initializer_list>
#include <string>
#include <vector>

extern "C" {
#include "options.h"
}

namespace {

// Words behind the program's name, kept for as long as the options point into them.
class CommandLine {
public:
    CommandLine(std::initializer_list<const char*> words) : m_words{"ovex_acquire"} {
        m_words.insert(m_words.end(), words.begin(), words.end());
        for (auto& word : m_words) {
            m_argv.push_back(word.data());
        }
    }

    // Parses the words; `errors` gets what the parser wrote.
    bool Parse(acquire_options& options, std::string* errors = nullptr) {
        char* text = nullptr;
        std::size_t size = 0;
        FILE* stream = open_memstream(&text, &size);
        const bool parsed =
            acquire_parse(static_cast<int>(m_argv.size()), m_argv.data(), &options, stream);
        std::fclose(stream);
        if (errors != nullptr) {
            *errors = text;
        }
        std::free(text);
        return parsed;
    }

private:
    std::vector<std::string> m_words;
    std::vector<char*> m_argv;
};

// The refusal's line, or a note that the words were taken.
std::string Refusal(std::initializer_list<const char*> words) {
    acquire_options options;
    std::string errors;
    return CommandLine(words).Parse(options, &errors) ? "accepted" : errors;
}

TEST(AcquireOptions, FrameModesTakeFramesOfTheirRecords) {
    acquire_options options;
    CommandLine frames{"OVX00001", "toa-tot", "records", "tpx3.xml", "--frames", "3"};
    ASSERT_TRUE(frames.Parse(options));
    EXPECT_STREQ(options.serial, "OVX00001");
    EXPECT_STREQ(options.config_path, "tpx3.xml");
    EXPECT_EQ(options.chip_mode, ToAToTFBZS);
    EXPECT_STREQ(options.chip_mode_name, "ToAToTFBZS");
    EXPECT_EQ(options.processing, DefaultProcessing);
    EXPECT_EQ(options.frames, 3u);
    EXPECT_TRUE(acquire_is_frame_mode(&options));
    EXPECT_FALSE(acquire_is_scan(&options));

    CommandLine itot{"OVX00001", "itot-count", "records", "c.xml", "--frames", "1"};
    ASSERT_TRUE(itot.Parse(options));
    EXPECT_EQ(options.chip_mode, IToTEvCountFBZS);
}

TEST(AcquireOptions, Timepix2ModesTakeFramesOfTheirDepth) {
    const struct {
        const char* word;
        ovexsdk_chip_mode mode;
        const char* name;
        unsigned bits;
    } modes[] = {{"count8", EvCount8Bit, "EvCount8Bit", 8},
                 {"count10", EvCount10Bit, "EvCount10Bit", 10},
                 {"count14", EvCount14Bit, "EvCount14Bit", 14},
                 {"itot10", IToT10Bit, "IToT10Bit", 10},
                 {"itot14", IToT14Bit, "IToT14Bit", 14}};
    for (const auto& mode : modes) {
        acquire_options options;
        CommandLine words{"OVX00001", mode.word, "records", "tpx2.xml", "--frames", "2"};
        ASSERT_TRUE(words.Parse(options)) << mode.word;
        EXPECT_EQ(options.chip_mode, mode.mode);
        EXPECT_STREQ(options.chip_mode_name, mode.name);
        EXPECT_EQ(options.processing, DefaultProcessing);
        EXPECT_EQ(options.frames, 2u);
        EXPECT_EQ(acquire_pixel_bits(&options), mode.bits);
        EXPECT_TRUE(acquire_is_frame_mode(&options));
        EXPECT_FALSE(acquire_is_scan(&options));
    }
    acquire_options options;
    for (const char* word : {"toa-tot", "itot-count"}) {
        ASSERT_TRUE(CommandLine({"S", word, "records", "c", "--frames", "1"}).Parse(options));
        EXPECT_EQ(acquire_pixel_bits(&options), 0u) << word;
    }
}

TEST(AcquireOptions, DataDrivenRecordsTakeTheirShutterInSeconds) {
    acquire_options options;
    CommandLine sorted{"OVX00002", "data-driven", "sorted", "c.xml", "--seconds", "1.5"};
    ASSERT_TRUE(sorted.Parse(options));
    EXPECT_EQ(options.chip_mode, ToAToTDD);
    EXPECT_EQ(options.processing, SortByToa);
    EXPECT_STREQ(options.processing_name, "SortByToa");
    EXPECT_DOUBLE_EQ(options.seconds, 1.5);
    EXPECT_FALSE(acquire_is_frame_mode(&options));
    EXPECT_FALSE(acquire_is_scan(&options));
}

TEST(AcquireOptions, ScansTakeTheirLinesBinsAndBinWidthInAnyOrder) {
    const struct {
        const char* word;
        ovexsdk_acq_process_mode mode;
    } scans[] = {
        {"count-image", BinEvcountImage}, {"itot-image", BinItotImage}, {"bins", BinCompletely}};
    for (const auto& scan : scans) {
        acquire_options options;
        CommandLine words{"OVX00001",  "data-driven", scan.word, "c.xml", "--bin-width", "100",
                          "--seconds", "2",           "--bins",  "256",   "--lines",     "4"};
        ASSERT_TRUE(words.Parse(options)) << scan.word;
        EXPECT_EQ(options.processing, scan.mode);
        EXPECT_TRUE(acquire_is_scan(&options));
        EXPECT_EQ(options.lines, 4u);
        EXPECT_EQ(options.bins, 256u);
        EXPECT_EQ(options.bin_width, 100u);
        EXPECT_DOUBLE_EQ(options.seconds, 2.0);
    }
}

TEST(AcquireOptions, ModesTakeOnlyTheirOwnOptions) {
    EXPECT_EQ(Refusal({"S", "toa-tot", "sorted", "c", "--frames", "3"}),
              "the frame-based modes take only PROCESS records\n");
    EXPECT_EQ(Refusal({"S", "toa-tot", "records", "c", "--seconds", "3"}),
              "a frame-based mode takes --frames N\n");
    EXPECT_EQ(Refusal({"S", "toa-tot", "records", "c", "--frames", "3", "--seconds", "3"}),
              "a frame-based mode takes --frames N\n");
    EXPECT_EQ(Refusal({"S", "data-driven", "records", "c", "--frames", "3"}),
              "data-driven takes --seconds N\n");
    EXPECT_EQ(Refusal({"S", "count10", "sorted", "c", "--frames", "3"}),
              "the frame-based modes take only PROCESS records\n");
    EXPECT_EQ(Refusal({"S", "itot14", "bins", "c", "--frames", "3", "--lines", "1", "--bins", "1",
                       "--bin-width", "1"}),
              "the frame-based modes take only PROCESS records\n");
    EXPECT_EQ(Refusal({"S", "itot14", "records", "c", "--seconds", "1"}),
              "a frame-based mode takes --frames N\n");
    EXPECT_EQ(Refusal({"S", "count8", "records", "c", "--frames", "1", "--lines", "2"}),
              "--lines, --bins and --bin-width go only with a scan\n");
    EXPECT_EQ(Refusal({"S", "data-driven", "records", "c", "--seconds", "1", "--lines", "2"}),
              "--lines, --bins and --bin-width go only with a scan\n");
    EXPECT_EQ(
        Refusal({"S", "data-driven", "bins", "c", "--seconds", "1", "--lines", "2", "--bins", "3"}),
        "--lines, --bins and --bin-width go together with a scan\n");
}

TEST(AcquireOptions, WordsAndFlagsMustBeKnownAndFlagsComeOnce) {
    EXPECT_EQ(Refusal({"S", "toa", "records", "c", "--frames", "3"}), "unknown MODE 'toa'\n");
    EXPECT_EQ(Refusal({"S", "count12", "records", "c", "--frames", "3"}),
              "unknown MODE 'count12'\n");
    EXPECT_EQ(Refusal({"S", "toa-tot", "raw", "c", "--frames", "3"}), "unknown PROCESS 'raw'\n");
    EXPECT_EQ(Refusal({"S", "toa-tot", "records", "c", "--frame", "3"}),
              "unknown option '--frame'\n");
    EXPECT_EQ(Refusal({"S", "toa-tot", "records", "c", "--frames", "3", "--frames", "4"}),
              "repeated option '--frames'\n");
    EXPECT_EQ(Refusal({"S", "toa-tot", "records", "c"}), "wrong number of arguments\n");
    EXPECT_EQ(Refusal({"S", "toa-tot", "records", "c", "--frames"}), "wrong number of arguments\n");
    EXPECT_EQ(Refusal({"", "toa-tot", "records", "c", "--frames", "1"}),
              "SERIAL must have 1 to 16 characters\n");
    EXPECT_EQ(Refusal({"S234567890123456", "toa-tot", "records", "c", "--frames", "1"}),
              "accepted");
    EXPECT_EQ(Refusal({"S2345678901234567", "toa-tot", "records", "c", "--frames", "1"}),
              "SERIAL must have 1 to 16 characters\n");
}

TEST(AcquireOptions, CountsArePositiveDecimalNumbersThatFit) {
    for (const char* bad : {"0", "-3", "+3", " 3", "3x", "", "1e3", "0x10", "4294967296"}) {
        EXPECT_EQ(Refusal({"S", "toa-tot", "records", "c", "--frames", bad}),
                  "--frames needs a positive number\n")
            << '"' << bad << '"';
    }
    EXPECT_EQ(Refusal({"S", "toa-tot", "records", "c", "--frames", "4294967295"}), "accepted");
}

TEST(AcquireOptions, SecondsArePositiveAndFinite) {
    for (const char* bad : {"0", "-1", "nan", "inf", "", "1s"}) {
        EXPECT_EQ(Refusal({"S", "data-driven", "records", "c", "--seconds", bad}),
                  "--seconds needs a positive number\n")
            << '"' << bad << '"';
    }
    EXPECT_EQ(Refusal({"S", "data-driven", "records", "c", "--seconds", "0.25"}), "accepted");
}

TEST(AcquireOptions, ShuttersFitTheBoardsCounterAndScansTheirMemory) {
    EXPECT_EQ(Refusal({"S", "data-driven", "records", "c", "--seconds", "107"}), "accepted");
    EXPECT_EQ(Refusal({"S", "data-driven", "records", "c", "--seconds", "107.5"}),
              "the board's shutter lasts at most 107 s\n");
    // A scan waits as long as it likes, but each line's shutter has the board's limit.
    EXPECT_EQ(Refusal({"S", "data-driven", "bins", "c", "--seconds", "1000", "--lines", "1",
                       "--bins", "1000", "--bin-width", "4280000"}),
              "accepted");
    EXPECT_EQ(Refusal({"S", "data-driven", "bins", "c", "--seconds", "1", "--lines", "1", "--bins",
                       "1000", "--bin-width", "4300000"}),
              "the board's shutter lasts at most 107 s\n");
    EXPECT_EQ(Refusal({"S", "data-driven", "records", "c", "--seconds", "1e8"}),
              "--seconds takes at most a year\n");
    EXPECT_EQ(Refusal({"S", "data-driven", "count-image", "c", "--seconds", "1", "--lines", "2048",
                       "--bins", "2048", "--bin-width", "1"}),
              "accepted");
    EXPECT_EQ(Refusal({"S", "data-driven", "count-image", "c", "--seconds", "1", "--lines", "2049",
                       "--bins", "2048", "--bin-width", "1"}),
              "a scan holds at most 4194304 bins\n");
}

// The board truncates a shutter to whole 40 MHz ticks; a line's shutter that came out a tick
// short would cut off the end of the line's last bin.
TEST(AcquireOptions, ALinesShutterIsNeverATickShortOfTheLine) {
    acquire_options options{};
    int exact = 0;
    for (std::uint32_t bins = 1; bins <= 1024; bins = bins * 3 + 1) {
        for (std::uint64_t width = 1; width <= 100000; width = width * 7 + 3) {
            options.bins = bins;
            options.bin_width = width;
            const double ticks = static_cast<double>(bins) * static_cast<double>(width);
            const double board = std::floor(static_cast<double>(acquire_line_seconds(&options)) *
                                            ACQUIRE_TICKS_PER_SECOND);
            EXPECT_GE(board, ticks) << bins << " bins of " << width;
            EXPECT_LE(board, ticks * (1.0 + 1e-6)) << bins << " bins of " << width;
            exact += board == ticks;
        }
    }
    EXPECT_GT(exact, 0);
    // The case that a plain conversion gets wrong: 0.00064 s as a float is 25599.99... ticks.
    options.bins = 256;
    options.bin_width = 100;
    EXPECT_LT(static_cast<float>(25600 / ACQUIRE_TICKS_PER_SECOND) * ACQUIRE_TICKS_PER_SECOND,
              25600.0);
    EXPECT_GE(static_cast<double>(acquire_line_seconds(&options)) * ACQUIRE_TICKS_PER_SECOND,
              25600.0);
}

TEST(AcquireOptions, UsageNamesEveryModeAndProcessing) {
    char* text = nullptr;
    std::size_t size = 0;
    FILE* stream = open_memstream(&text, &size);
    acquire_print_usage("prog", stream);
    std::fclose(stream);
    const std::string usage = text;
    std::free(text);
    EXPECT_EQ(usage.rfind("usage: prog SERIAL MODE PROCESS CONFIG (--seconds N | --frames N)", 0),
              0u);
    for (const char* word : {"toa-tot", "itot-count", "data-driven", "count8", "count10", "count14",
                             "itot10", "itot14", "records", "sorted", "count-image", "itot-image",
                             "bins", "--lines", "--bin-width"}) {
        EXPECT_NE(usage.find(word), std::string::npos) << word;
    }
}

}  // namespace
