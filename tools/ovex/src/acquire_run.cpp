#include "acquire_run.hpp"

#include <algorithm>
#include <chrono>

namespace ovex::cli {
namespace {

using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;

constexpr milliseconds kTickPeriod{250};

ovexsdk_trigger_config TriggerOf(const AcquireOptions& options) {
    if (IsFrameMode(options)) {
        return {InternalStartShutterDuration, kFrameShutterSeconds};
    }
    if (IsScan(options)) {
        return {ExternalStartShutterDuration, LineSeconds(options)};
    }
    return {InternalStartShutterDuration, static_cast<float>(options.seconds)};
}

double SecondsSince(Clock::time_point start) {
    return std::chrono::duration<double>(Clock::now() - start).count();
}

// Ends the readout: aborted first when it would run on, then awaited; both are tried.
void EndReadout(ovexsdk_dev_ctx* ctx, bool abort) {
    const ovexsdk_err_code aborted = abort ? ovexsdk_acq_abort(ctx) : OVEXSDK_OK;
    const ovexsdk_err_code ended = ovexsdk_acq_await_end(ctx);
    Check(aborted, "ovexsdk_acq_abort");
    Check(ended, "ovexsdk_acq_await_end");
}

// Opens the internal shutter of a started readout; a failure leaves no readout behind.
void OpenShutter(ovexsdk_dev_ctx* ctx) {
    const ovexsdk_err_code opened = ovexsdk_trigger_now(ctx);
    if (opened != OVEXSDK_OK) {
        ovexsdk_acq_abort(ctx);
        ovexsdk_acq_await_end(ctx);
        Check(opened, "ovexsdk_trigger_now");
    }
}

class Readouts {
public:
    Readouts(ovexsdk_dev_ctx* ctx, const AcquireOptions& options, ResultCollector& collector,
             bool keep_raw, const InterruptWatch& interrupt,
             const std::function<void(double)>& tick)
        : m_ctx(ctx),
          m_options(options),
          m_collector(collector),
          m_flags(static_cast<ovexsdk_acq_mode_flag>(OVEXSDK_ACQ_PROCESSED |
                                                     (keep_raw ? OVEXSDK_ACQ_RAW : 0))),
          m_interrupt(interrupt),
          m_tick(tick) {}

    // Each frame is a readout of one internal shutter, which its frame ends.
    RunEnd Frames() {
        RunEnd end;
        auto last_tick = m_start;
        for (std::uint64_t frame = 0; frame < m_options.frames; ++frame) {
            if (m_interrupt.Requested()) {
                end.interrupted = true;
                break;
            }
            Start(nullptr);
            OpenShutter(m_ctx);
            EndReadout(m_ctx, false);
            if (Clock::now() - last_tick >= kTickPeriod) {
                last_tick = Clock::now();
                m_tick(SecondsSince(m_start));
            }
        }
        end.seconds = SecondsSince(m_start);
        return end;
    }

    // One internal shutter of the run's length; its close ends the readout.
    RunEnd Shutter() {
        Start(nullptr);
        OpenShutter(m_ctx);
        const auto deadline = DeadlineAfter(m_options.seconds);
        const bool interrupted = WaitUntil(deadline, [] { return false; });
        EndReadout(m_ctx, interrupted);
        return {interrupted, SecondsSince(m_start)};
    }

    // Each pulse on the trigger input opens a line's shutter; the run ends with the scan's last
    // line or when its time is up, and is aborted either way, which disarms the input.
    RunEnd Scan() {
        ovexsdk_acq_params params = {};
        params.scan = {m_options.bins, m_options.lines, m_options.bin_width_ns};
        Start(&params);
        const auto deadline = DeadlineAfter(m_options.seconds);
        const bool interrupted = WaitUntil(deadline, [this] { return m_collector.ScanComplete(); });
        EndReadout(m_ctx, true);
        return {interrupted, SecondsSince(m_start)};
    }

private:
    void Start(const ovexsdk_acq_params* params) {
        Check(ovexsdk_acq_start(m_ctx, ResultCollector::OnData, m_flags, params, &m_collector),
              "ovexsdk_acq_start");
    }

    Clock::time_point DeadlineAfter(double seconds) const {
        return m_start +
               std::chrono::duration_cast<Clock::duration>(std::chrono::duration<double>(seconds));
    }

    // Ticks until the deadline or `done`; true when Ctrl-C came first.
    template <typename Done>
    bool WaitUntil(Clock::time_point deadline, Done done) {
        while (!done()) {
            const auto left = std::chrono::ceil<milliseconds>(deadline - Clock::now());
            if (left <= milliseconds::zero()) {
                return false;
            }
            if (m_interrupt.WaitFor(std::min(left, kTickPeriod))) {
                return true;
            }
            m_tick(SecondsSince(m_start));
        }
        return false;
    }

    ovexsdk_dev_ctx* m_ctx;
    const AcquireOptions& m_options;
    ResultCollector& m_collector;
    const ovexsdk_acq_mode_flag m_flags;
    const InterruptWatch& m_interrupt;
    const std::function<void(double)>& m_tick;
    const Clock::time_point m_start = Clock::now();
};

}  // namespace

void PrepareBoard(ovexsdk_dev_ctx* ctx, const AcquireOptions& options,
                  const std::optional<std::string>& config) {
    const ovexsdk_err_code powered = ovexsdk_dev_power_up(ctx);
    if (powered != OVEXSDK_ERR_BUSY) {
        Check(powered, "ovexsdk_dev_power_up");
    }
    if (config) {
        Check(ovexsdk_chip_configure_from_string(ctx, 0, config->c_str()),
              "ovexsdk_chip_configure_from_string(" + *options.config_path + ")");
    } else {
        Check(ovexsdk_chip_configure(ctx, 0), "ovexsdk_chip_configure");
    }
    if (options.threshold_kev) {
        Check(ovexsdk_chip_set_thld(ctx, 0, static_cast<float>(*options.threshold_kev)),
              "ovexsdk_chip_set_thld");
    }
    Check(ovexsdk_chip_set_mode(ctx, options.chip_mode),
          "ovexsdk_chip_set_mode(" + options.mode_word + ")");
    const ovexsdk_trigger_config trigger = TriggerOf(options);
    Check(ovexsdk_trigger_configure(ctx, &trigger), "ovexsdk_trigger_configure");
    Check(ovexsdk_acq_select_processing(ctx, options.processing),
          "ovexsdk_acq_select_processing(" + options.process_word + ")");
}

RunEnd RunAcquisition(ovexsdk_dev_ctx* ctx, const AcquireOptions& options,
                      ResultCollector& collector, bool keep_raw, const InterruptWatch& interrupt,
                      const std::function<void(double)>& tick) {
    Readouts readouts(ctx, options, collector, keep_raw, interrupt, tick);
    if (IsFrameMode(options)) {
        return readouts.Frames();
    }
    return IsScan(options) ? readouts.Scan() : readouts.Shutter();
}

}  // namespace ovex::cli
