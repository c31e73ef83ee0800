// `ovex acquire`: one run of a board into files, with a live status line and a summary.
#include <cstdio>
#include <cstring>
#include <exception>

#include "acquire_options.hpp"
#include "acquire_run.hpp"
#include "commands.hpp"
#include "interrupt.hpp"
#include "loss_counter.hpp"
#include "result_collector.hpp"
#include "run_files.hpp"
#include "session.hpp"
#include "status_line.hpp"

namespace ovex::cli {

const CommandText kAcquireText = {
    "acquire",
    "LOCATOR --mode MODE [--process PROCESS] (--seconds N | --frames N) [--config FILE]\n"
    "       [--threshold KEV] [--raw OUT.bin] [--records OUT.npy] [--image OUT.png]\n"
    "       [--lines L --bins B --bin-width NS] [--no-power-down]",
    "acquire hits, frames or a scan into files",
    "  --mode MODE        data-driven (Timepix3, --seconds N); frame-based, --frames N shutters\n"
    "                     of 10 ms: toa-tot, itot-count (Timepix3), count8, count10, count14,\n"
    "                     itot10, itot14 (Timepix2, 8 to 14 bits a pixel)\n"
    "  --process PROCESS  records (default); data-driven also: sorted (in time order), or a scan\n"
    "                     of L lines of B bins of NS nanoseconds, a line per pulse on the\n"
    "                     trigger input: count-image, itot-image or bins (complete binning);\n"
    "                     --seconds N then bounds the wait for the lines\n"
    "  --config FILE      the chip's configuration file (default: the chip's defaults and its\n"
    "                     <chip id>.yaml, .yml or .xml in the working directory, if any)\n"
    "  --threshold KEV    the chip's threshold after the configuration\n"
    "  --raw OUT.bin      the bytes as the board sent them (what ovex-vboard --replay plays)\n"
    "  --records OUT.npy  the results as a NumPy array: records (address, x, y, tot, toa) or\n"
    "                     (address, x, y, itot, events); a scan as (lines, bins) <u8; Timepix2\n"
    "                     frames as (frames, 256, 256) <u2\n"
    "  --image OUT.png    the hits per pixel, the scan or the frames summed; square-root scale\n"
    "  --no-power-down    leave the board powered at the end\n"
    "\n"
    "A status line on stderr while a terminal shows it; at the end one line on stdout:\n"
    "  records=N hits=N seconds=S hits_per_second=R lost=N lost_bytes=N\n"
    "where lost counts the library's reports of data it had to drop. Ctrl-C ends the run early\n"
    "with its files complete, exit code 130.\n"};

namespace {

std::string DescriptionOf(const AcquireOptions& options) {
    std::string text = options.mode_word + "/" + options.process_word + ", ";
    if (IsFrameMode(options)) {
        return text + std::to_string(options.frames) + " frames";
    }
    char seconds[32];
    std::snprintf(seconds, sizeof seconds, "%g s", options.seconds);
    if (IsScan(options)) {
        return text + std::to_string(options.lines) + " lines of " + std::to_string(options.bins) +
               " bins, at most " + seconds;
    }
    return text + seconds;
}

}  // namespace

int RunAcquire(Args& args) {
    const AcquireOptions options = ParseAcquireOptions(args);
    const std::optional<std::string> config =
        options.config_path ? std::optional(ReadTextFile(*options.config_path)) : std::nullopt;
    LossCounter losses;  // outlives the session, whose log lines it sees
    Session session(options.locator, args.Verbosity(), &losses);
    RunFiles files(options);
    const InterruptWatch interrupt;
    // Nothing acquired, no files left behind.
    try {
        session.Open();
    } catch (...) {
        files.Remove();
        throw;
    }
    try {
        PrepareBoard(session.Ctx(), options, config);
    } catch (...) {
        files.Remove();
        if (options.power_down) {
            ovexsdk_dev_power_down(session.Ctx());
        }
        throw;
    }

    ResultCollector collector(options, files.Queue(), files.WantsResults(), files.WantsRaw());
    StatusLine status;
    RunFigures figures;
    const auto update = [&](double seconds) {
        figures = {seconds,          collector.Records(), collector.Hits(), files.Queue().Fill(),
                   losses.Reports(), losses.Bytes()};
    };
    RunEnd end;
    std::exception_ptr failure;
    try {
        files.Start();
        std::fprintf(stderr, "ovex acquire: %s from %s; Ctrl-C ends it early\n",
                     DescriptionOf(options).c_str(), session.Locator().c_str());
        end = RunAcquisition(session.Ctx(), options, collector, files.WantsRaw(), interrupt,
                             [&](double seconds) {
                                 update(seconds);
                                 status.Show(figures);
                             });
    } catch (...) {
        failure = std::current_exception();
    }
    status.End();
    // Whatever ended the run, the files are completed and the board is powered down.
    try {
        files.Finish();
    } catch (...) {
        failure = failure ? failure : std::current_exception();
    }
    const ovexsdk_err_code down =
        options.power_down ? ovexsdk_dev_power_down(session.Ctx()) : OVEXSDK_OK;
    update(end.seconds);
    std::printf("%s\n", SummaryLine(figures).c_str());
    if (failure) {
        std::rethrow_exception(failure);
    }
    if (down != OVEXSDK_ERR_UNAVAILABLE) {
        Check(down, "ovexsdk_dev_power_down");
    }
    if (collector.FailedReads() != 0) {
        throw CommandError(kExitFailed,
                           std::to_string(collector.FailedReads()) + " results could not be read");
    }
    return end.interrupted ? kExitInterrupted : kExitOk;
}

}  // namespace ovex::cli
