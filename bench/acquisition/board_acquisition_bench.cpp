// The whole data-driven chain from a virtual Timepix3 board to the host's callback: the board
// replays a recorded stream (real detector disorder) at a chosen packet rate while its shutter
// is open, on its real-time clock; libusb, the arena provider, the pipeline of the processing
// mode and the exported callback take it. Each run is one line of OVEX_BENCH_SECONDS seconds
// (default 5), opened and closed by the trigger input; then the host's results are checked
// against what the board sent: the hits' digest and count in the record modes, the summed event
// counts in the binned ones, which take the run as a scan of 10 ms lines. A run sustains its rate
// if the board lost nothing and the host got every hit once. Run with
// LD_PRELOAD=libumockdev-preload.so.0.

#include <benchmark/benchmark.h>

#include <sys/resource.h>

#include <array>
#include <chrono>
#include <cmath>
#include <condition_variable>
#include <cstdint>
#include <cstdlib>
#include <mutex>
#include <string>
#include <thread>

#include "ovex/vboard/data_driven.hpp"
#include "support/board_session.hpp"
#include "support/recording.hpp"
#include "support/thread_cpu.hpp"

namespace {

using Clock = std::chrono::steady_clock;
using namespace std::chrono_literals;
using ovex::bench::BoardSession;
using ovex::bench::ThreadCpuSeconds;

double RunSeconds() {
    const char* text = std::getenv("OVEX_BENCH_SECONDS");
    const double seconds = text ? std::atof(text) : 0.0;
    return seconds > 0 ? seconds : 5.0;
}

Clock::duration Seconds(double seconds) {
    return std::chrono::duration_cast<Clock::duration>(std::chrono::duration<double>(seconds));
}

double ProcessCpuSeconds() {
    rusage usage{};
    getrusage(RUSAGE_SELF, &usage);
    const auto seconds = [](const timeval& t) {
        return static_cast<double>(t.tv_sec) + static_cast<double>(t.tv_usec) * 1e-6;
    };
    return seconds(usage.ru_utime) + seconds(usage.ru_stime);
}

// A recording of about two million hits in the real detector disorder, 40 M hits/s of chip time.
const ovex::vboard::ReplayStream& Recording() {
    static const ovex::vboard::ReplayStream recording{ovex::bench::RealDisorderRecording().bytes,
                                                      0.0};
    return recording;
}

// What the callbacks received: records with their digest, or the bins' sums.
struct Received {
    std::mutex mutex;
    std::condition_variable changed;
    std::uint64_t hits = 0;  // records, or summed event counts of the bins
    std::uint64_t itot = 0;  // summed iToT of the bins
    std::uint64_t digest = 0;
    Clock::time_point last;
    std::uint64_t line = 0;  // the rising edge of the run's line, once its first records came

    void Add(std::uint64_t count, std::uint64_t itot_part, std::uint64_t digest_part) {
        std::lock_guard lock(mutex);
        hits += count;
        itot += itot_part;
        digest += digest_part;
        last = Clock::now();
        changed.notify_all();
    }
    // Waits until the results reach what the board sent, at most until `deadline`.
    bool WaitFor(const ovex::vboard::DataDrivenCounters& sent, ovexsdk_acq_process_mode mode,
                 Clock::time_point deadline) {
        std::unique_lock lock(mutex);
        return changed.wait_until(lock, deadline, [&] { return Matches(sent, mode); });
    }
    bool Matches(const ovex::vboard::DataDrivenCounters& sent, ovexsdk_acq_process_mode mode) {
        switch (mode) {
            case DefaultProcessing:
            case SortByToa:
                return hits == sent.hits_sent && digest == sent.digest;
            case BinItotImage:
                return itot == sent.tot_sent;
            default:
                return hits == sent.hits_sent && (mode == BinEvcountImage || itot == sent.tot_sent);
        }
    }
};

void OnRecords(ovexsdk_dev_ctx* ctx, void* user) {
    ovexsdk_acq_tpx3_acq_toa_tot records{};
    if (ovexsdk_acq_get_tpx3_toa_tot_packets(ctx, &records) != OVEXSDK_OK) {
        return;
    }
    auto& received = *static_cast<Received*>(user);
    {
        // Only the run's line counts: the sorted mode's later lines are there to flush it.
        std::lock_guard lock(received.mutex);
        received.line = received.line != 0 ? received.line : records.shutter_rising_time_ticks;
        if (records.shutter_rising_time_ticks != received.line) {
            return;
        }
    }
    std::uint64_t digest = 0;
    for (std::uint64_t i = 0; i < records.count; ++i) {
        const auto& record = records.records[i];
        digest += ovex::vboard::HitDigest(record.address, record.tot, record.toa);
    }
    received.Add(records.count, 0, digest);
}

std::uint64_t Sum(const std::uint64_t* values, std::uint64_t count) {
    std::uint64_t sum = 0;
    for (std::uint64_t i = 0; i < count; ++i) {
        sum += values[i];
    }
    return sum;
}

void OnBins(ovexsdk_dev_ctx* ctx, void* user) {
    ovexsdk_acq_tpx3_evcount_fragment counts{};
    ovexsdk_acq_tpx3_itot_fragment itots{};
    const bool counted = ovexsdk_acq_get_tpx3_evcount_fragment(ctx, &counts) == OVEXSDK_OK;
    const bool summed = ovexsdk_acq_get_tpx3_itot_fragment(ctx, &itots) == OVEXSDK_OK;
    static_cast<Received*>(user)->Add(counted ? Sum(counts.events, counts.count) : 0,
                                      summed ? Sum(itots.itots, itots.count) : 0, 0);
}

// CPU seconds of the chain's threads, by name.
struct ThreadTimes {
    static constexpr const char* kNames[] = {"UsbEvents 1", "Endpoint 0x81", "Consumer",
                                             "Processing"};
    std::array<double, 4> seconds{};
    static ThreadTimes Now() {
        ThreadTimes times;
        for (std::size_t i = 0; i < times.seconds.size(); ++i) {
            times.seconds[i] = ThreadCpuSeconds(kNames[i]);
        }
        return times;
    }
};

class AcquisitionBoard : public BoardSession {
public:
    explicit AcquisitionBoard(double packets_per_second) : BoardSession(Quiet()) {
        auto recording = Recording();
        recording.packets_per_second = packets_per_second;
        Board().Engine().KeepStreamTruth(false);
        Board().Engine().SetReplay(std::move(recording));
        const ovexsdk_trigger_config level{ExternalStartExternalStopLevel, 0};
        m_ready = Ready() && ovexsdk_chip_configure(Context(), 0) == OVEXSDK_OK &&
                  ovexsdk_chip_set_mode(Context(), ToAToTDD) == OVEXSDK_OK &&
                  ovexsdk_trigger_configure(Context(), &level) == OVEXSDK_OK;
    }
    bool Usable(benchmark::State& state) const {
        if (!BoardSession::Usable(state)) {
            return false;
        }
        if (!m_ready) {
            state.SkipWithError("chip or trigger configuration failed");
        }
        return m_ready;
    }

private:
    bool m_ready = false;
};

// Scans come as lines of kLineOpen every kLinePeriod, as a scan generator's line trigger gives
// them; the record modes take the whole run as one line.
constexpr auto kLinePeriod = 10ms;
constexpr auto kLineOpen = 9ms;

// Opens the shutter for the run: one line of `seconds`, or the `lines` of a scan on the trigger
// input.
void DriveLines(ovex::vboard::FirmwareEngine& engine, double seconds, std::uint32_t lines) {
    if (lines == 0) {
        engine.SetTriggerInput(true);
        std::this_thread::sleep_for(Seconds(seconds));
        engine.SetTriggerInput(false);
        return;
    }
    auto next = Clock::now();
    for (std::uint32_t line = 0; line < lines; ++line) {
        engine.SetTriggerInput(true);
        std::this_thread::sleep_until(next + kLineOpen);
        engine.SetTriggerInput(false);
        next += kLinePeriod;
        std::this_thread::sleep_until(next);
    }
}

// The run through processing mode `mode`, at `rate` packets per second.
void BM_DataDrivenChain(benchmark::State& state) {
    const auto mode = static_cast<ovexsdk_acq_process_mode>(state.range(0));
    const double rate = static_cast<double>(state.range(1)) * 1e6;
    const double seconds = RunSeconds();
    AcquisitionBoard board(rate);
    if (!board.Usable(state)) {
        return;
    }
    auto& engine = board.Board().Engine();
    const bool binned = mode != DefaultProcessing && mode != SortByToa;
    // Lines of 100 bins that cover every time the replay can reach in a line, even one held
    // open twice as long: a pass moves the recording's time on by 2.13 M ticks.
    const std::size_t packets = Recording().bytes.size() / 6;
    const double line_seconds = 2 * std::chrono::duration<double>(kLineOpen).count();
    const double passes = line_seconds * rate / static_cast<double>(packets) + 1;
    const double line_ns = passes * 2'500'000.0 * 25.0;
    ovexsdk_acq_params scan{};
    scan.scan = {100, static_cast<std::uint32_t>(std::lround(seconds / 0.01)),
                 static_cast<std::uint64_t>(line_ns / 100) + 1};

    double sustained = 1;
    double received_rate = 0;
    double latency = 0;
    double lost = 0;
    double missing = 0;
    double wall = 0;
    std::array<double, 4> thread_cpu{};
    const double cpu_before = ProcessCpuSeconds();
    for (auto _ : state) {
        Received received;
        const ovex::vboard::DataDrivenCounters before = engine.StreamCounts();
        if (ovexsdk_acq_select_processing(board.Context(), mode) != OVEXSDK_OK ||
            ovexsdk_acq_start(board.Context(), binned ? &OnBins : &OnRecords, OVEXSDK_ACQ_PROCESSED,
                              binned ? &scan : nullptr, &received) != OVEXSDK_OK) {
            state.SkipWithError("start failed");
            return;
        }
        // The chain's threads live for the run: their times are taken while they do.
        const ThreadTimes threads = ThreadTimes::Now();
        const auto opened = Clock::now();
        DriveLines(engine, seconds, binned ? scan.scan.lines : 0);
        // Everything left the board: the host's share of the wait is what remains.
        const auto give_up = opened + Seconds(4 * seconds);
        while (engine.StreamCounts().fifo_bytes != 0 && Clock::now() < give_up) {
            std::this_thread::yield();
        }
        const auto drained = Clock::now();
        ovex::vboard::DataDrivenCounters sent = engine.StreamCounts();
        // The sort gives a block out once two later blocks lie beyond its window: two short
        // lines behind the run's let its last blocks out.
        for (int line = 0; mode == SortByToa && line < 2; ++line) {
            std::this_thread::sleep_for(2ms);
            engine.SetTriggerInput(true);
            std::this_thread::sleep_for(1ms);
            engine.SetTriggerInput(false);
        }
        sent.hits_sent -= before.hits_sent;
        sent.tot_sent -= before.tot_sent;
        sent.digest -= before.digest;
        sent.hits_lost -= before.hits_lost;
        const bool complete = received.WaitFor(sent, mode, drained + Seconds(2 + seconds));
        const ThreadTimes used = ThreadTimes::Now();
        for (std::size_t i = 0; i < thread_cpu.size(); ++i) {
            thread_cpu[i] += used.seconds[i] - threads.seconds[i];
        }
        {
            std::lock_guard lock(received.mutex);
            latency += std::chrono::duration<double>(received.last - drained).count();
            received_rate += static_cast<double>(sent.hits_sent) / seconds;
            lost += static_cast<double>(sent.hits_lost);
            missing += mode == BinItotImage ? 0
                                            : static_cast<double>(sent.hits_sent) -
                                                  static_cast<double>(received.hits);
            sustained *= complete && sent.hits_lost == 0 ? 1 : 0;
        }
        if (!binned) {
            ovexsdk_acq_abort(board.Context());
        }
        ovexsdk_acq_await_end(board.Context());
        wall += std::chrono::duration<double>(drained - opened).count();
    }
    const auto runs = static_cast<double>(state.iterations());
    state.counters["offered_Mpackets/s"] = rate / 1e6;
    state.counters["sent_Mhits/s"] = received_rate / runs / 1e6;
    state.counters["sustained"] = sustained;
    state.counters["lost"] = lost;
    state.counters["missing"] = missing;
    state.counters["drain_latency_ms"] = latency / runs * 1e3;
    state.counters["process_cpu_%"] = (ProcessCpuSeconds() - cpu_before) / wall * 100;
    for (std::size_t i = 0; i < thread_cpu.size(); ++i) {
        state.counters[std::string(ThreadTimes::kNames[i]) + "_cpu_%"] = thread_cpu[i] / wall * 100;
    }
}
BENCHMARK(BM_DataDrivenChain)
    ->ArgNames({"mode", "Mpackets/s"})
    ->ArgsProduct({{DefaultProcessing, SortByToa, BinEvcountImage, BinItotImage, BinCompletely},
                   {20, 40, 50, 60, 80}})
    ->Iterations(1)
    ->Unit(benchmark::kSecond)
    ->UseRealTime();

}  // namespace

BENCHMARK_MAIN();
