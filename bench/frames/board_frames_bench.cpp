// Frame-based Timepix3 readout from a virtual board through the exported interface: frames and
// hits per second for small frames (a beam spot of about 100 hits) and full frames (every pixel
// hit), one readout per shutter with the internal trigger and back to back with the external
// one; the time from the shutter's close to the host's callback; the CPU time of the endpoint's
// transfer handler and of the Consumer thread. The board's clock is moved by the benchmark, so
// that a shutter closes exactly when the benchmark says. Run with
// LD_PRELOAD=libumockdev-preload.so.0.

#include <benchmark/benchmark.h>

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <cstdio>
#include <mutex>
#include <string>

#include "support/board_session.hpp"
#include "support/thread_cpu.hpp"

namespace {

using Clock = std::chrono::steady_clock;
using ovex::bench::BoardSession;

constexpr double kShutter = 0.001;

// What the data callback counts; the benchmark's thread waits on it.
struct Received {
    std::mutex mutex;
    std::condition_variable changed;
    std::uint64_t frames = 0;
    std::uint64_t hits = 0;
    Clock::time_point closed;  // the shutter close of the frame awaited
    double latency = 0;        // summed, seconds

    void WaitFor(std::uint64_t count) {
        std::unique_lock lock(mutex);
        changed.wait(lock, [&] { return frames >= count; });
    }
};

void OnFrame(ovexsdk_dev_ctx* ctx, void* user) {
    auto& received = *static_cast<Received*>(user);
    ovexsdk_acq_tpx3_acq_toa_tot records{};
    const bool ok = ovexsdk_acq_get_tpx3_toa_tot_packets(ctx, &records) == OVEXSDK_OK;
    const auto now = Clock::now();
    std::lock_guard lock(received.mutex);
    received.latency += std::chrono::duration<double>(now - received.closed).count();
    received.hits += ok ? records.count : 0;
    ++received.frames;
    received.changed.notify_all();
}

// A powered board whose clock only the benchmark moves, the chip in frame-based ToA+ToT mode,
// seeing a beam spot of about 100 hits per 1 ms shutter, or every pixel once (flood).
class FrameBoard : public BoardSession {
public:
    FrameBoard(bool flood) : BoardSession(StillClock()) {
        ovex::vboard::HitModel model;
        model.spot_rate = 1e5;
        model.flood = flood;
        Board().Engine().SetHitModel(model);
        m_ready = Ready() && ovexsdk_chip_configure(Context(), 0) == OVEXSDK_OK &&
                  ovexsdk_chip_set_mode(Context(), ToAToTFBZS) == OVEXSDK_OK;
    }

    bool Usable(benchmark::State& state) const {
        if (!BoardSession::Usable(state)) {
            return false;
        }
        if (!m_ready) {
            state.SkipWithError("chip configuration failed");
        }
        return m_ready;
    }
    bool Trigger(ovexsdk_trigger_mode mode) {
        const ovexsdk_trigger_config config{mode, static_cast<float>(kShutter)};
        return ovexsdk_trigger_configure(Context(), &config) == OVEXSDK_OK;
    }
    bool Start() {
        return ovexsdk_acq_start(Context(), &OnFrame, OVEXSDK_ACQ_PROCESSED, nullptr, &received) ==
               OVEXSDK_OK;
    }
    // Moves the board's clock over the shutter, which then closes.
    void CloseShutter() {
        {
            std::lock_guard lock(received.mutex);
            received.closed = Clock::now();
        }
        Board().Engine().AdvanceTime(std::chrono::duration<double>(kShutter));
    }

    Received received;

private:
    static ovex::vboard::VirtualBoard::Settings StillClock() {
        auto settings = Quiet();
        settings.real_time = false;
        return settings;
    }

    bool m_ready = false;
};

// Counters of the frames received while the loop ran, and the two threads' CPU share.
class Report {
public:
    explicit Report(FrameBoard& board) : m_board(board) {}
    void Finish(benchmark::State& state, double wall) {
        const double consumer = ovex::bench::ThreadCpuSeconds("Consumer") - m_consumer;
        const double handler = ovex::bench::ThreadCpuSeconds("Endpoint 0x81") - m_handler;
        std::lock_guard lock(m_board.received.mutex);
        const auto frames = static_cast<double>(m_board.received.frames - m_frames);
        state.counters["frames/s"] = benchmark::Counter(frames, benchmark::Counter::kIsRate);
        state.counters["hits/s"] = benchmark::Counter(
            static_cast<double>(m_board.received.hits - m_hits), benchmark::Counter::kIsRate);
        state.counters["hits/frame"] =
            static_cast<double>(m_board.received.hits - m_hits) / std::max(frames, 1.0);
        state.counters["latency_us"] = (m_board.received.latency - m_latency) * 1e6 / frames;
        state.counters["consumer_cpu_%"] = consumer / wall * 100;
        state.counters["handler_cpu_%"] = handler / wall * 100;
    }

private:
    FrameBoard& m_board;
    std::uint64_t m_frames = m_board.received.frames;
    std::uint64_t m_hits = m_board.received.hits;
    double m_latency = m_board.received.latency;
    double m_consumer = ovex::bench::ThreadCpuSeconds("Consumer");
    double m_handler = ovex::bench::ThreadCpuSeconds("Endpoint 0x81");
};

// One readout per frame: start, the host's shutter, the frame, the end.
void BM_SingleShutterFrames(benchmark::State& state) {
    FrameBoard board(state.range(0) != 0);
    if (!board.Usable(state) || !board.Trigger(InternalStartShutterDuration)) {
        state.SkipWithError("no board or trigger");
        return;
    }
    Report report(board);
    const auto start = Clock::now();
    for (auto _ : state) {
        const std::uint64_t next = board.received.frames + 1;
        if (!board.Start() || ovexsdk_trigger_now(board.Context()) != OVEXSDK_OK) {
            state.SkipWithError("start failed");
            break;
        }
        board.CloseShutter();
        board.received.WaitFor(next);
        ovexsdk_acq_await_end(board.Context());
    }
    report.Finish(state, std::chrono::duration<double>(Clock::now() - start).count());
}
BENCHMARK(BM_SingleShutterFrames)->Arg(0)->Arg(1)->Unit(benchmark::kMicrosecond)->UseRealTime();

// One readout for all frames: each a pulse on the trigger input, and the host takes every frame
// before the next shutter.
void BM_ExternalTriggerFrames(benchmark::State& state) {
    FrameBoard board(state.range(0) != 0);
    if (!board.Usable(state) || !board.Trigger(ExternalStartShutterDuration) || !board.Start()) {
        state.SkipWithError("no board, trigger or start");
        return;
    }
    Report report(board);
    const auto start = Clock::now();
    for (auto _ : state) {
        const std::uint64_t next = board.received.frames + 1;
        board.Board().Engine().PulseTriggerInput(std::chrono::microseconds(1));
        board.CloseShutter();
        board.received.WaitFor(next);
    }
    report.Finish(state, std::chrono::duration<double>(Clock::now() - start).count());
    ovexsdk_acq_abort(board.Context());
}
BENCHMARK(BM_ExternalTriggerFrames)->Arg(0)->Arg(1)->Unit(benchmark::kMicrosecond)->UseRealTime();

}  // namespace

BENCHMARK_MAIN();
