// Timepix2 frames from a virtual Timepix2 chip board through the exported interface: frames per
// second of a continuous run at each depth, with the frames unpacked, and the CPU time of the
// endpoint's transfer handler and of the Consumer thread. The board's clock is moved by the
// benchmark, one shutter and its readout gap at a time, and the host takes every frame before the
// next shutter closes. Run with LD_PRELOAD=libumockdev-preload.so.0.

#include <benchmark/benchmark.h>

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <mutex>
#include <string>

#include "support/board_session.hpp"
#include "support/thread_cpu.hpp"

namespace {

using Clock = std::chrono::steady_clock;
using ovex::bench::BoardSession;

constexpr double kShutter = 0.001;
constexpr double kReadoutGap = 0.001;  // the board's pause between two shutters of a run

struct Received {
    std::mutex mutex;
    std::condition_variable changed;
    std::uint64_t frames = 0;
    std::uint64_t counts = 0;  // summed over every pixel: the frames were really read

    void WaitFor(std::uint64_t count) {
        std::unique_lock lock(mutex);
        changed.wait(lock, [&] { return frames >= count; });
    }
};

void OnFrames(ovexsdk_dev_ctx* ctx, void* user) {
    auto& received = *static_cast<Received*>(user);
    const ovexsdk_acq_tpx2_frame* frames = nullptr;
    std::uint64_t count = 0;
    std::uint64_t counts = 0;
    if (ovexsdk_acq_get_tpx2_frames(ctx, &frames, &count) == OVEXSDK_OK) {
        for (std::uint64_t f = 0; f < count; ++f) {
            for (std::uint64_t p = 0; p < frames[f].count; ++p) {
                counts += frames[f].pixels[p];
            }
        }
    }
    std::lock_guard lock(received.mutex);
    received.frames += count;
    received.counts += counts;
    received.changed.notify_all();
}

ovex::vboard::VirtualBoard::Settings Tpx2Board() {
    auto settings = BoardSession::Quiet();
    settings.kind = ovex::vboard::BoardKind::kTimepix2Cb;
    settings.real_time = false;
    return settings;
}

void BM_ContinuousFrames(benchmark::State& state) {
    static constexpr ovexsdk_chip_mode kModes[] = {EvCount8Bit, IToT10Bit, IToT14Bit};
    static constexpr int kBits[] = {8, 10, 14};
    BoardSession board(Tpx2Board());
    if (!board.Usable(state)) {
        return;
    }
    ovex::vboard::HitModel beam;
    beam.spot_rate = 1e6;
    beam.background_rate = 100;
    board.Board().Engine().SetHitModel(beam);
    const ovexsdk_trigger_config config{InternalStartContinuous, static_cast<float>(kShutter)};
    Received received;
    if (ovexsdk_chip_set_mode(board.Context(), kModes[state.range(0)]) != OVEXSDK_OK ||
        ovexsdk_trigger_configure(board.Context(), &config) != OVEXSDK_OK ||
        ovexsdk_acq_start(board.Context(), &OnFrames, OVEXSDK_ACQ_PROCESSED, nullptr, &received) !=
            OVEXSDK_OK ||
        ovexsdk_trigger_now(board.Context()) != OVEXSDK_OK) {
        state.SkipWithError("mode, trigger or start failed");
        return;
    }
    const double consumer = ovex::bench::ThreadCpuSeconds("Consumer");
    const double handler = ovex::bench::ThreadCpuSeconds("Endpoint 0x81");
    const auto start = Clock::now();
    std::uint64_t expected = 0;
    for (auto _ : state) {
        board.Board().Engine().AdvanceTime(std::chrono::duration<double>(kShutter + kReadoutGap));
        received.WaitFor(++expected);
    }
    const double wall = std::chrono::duration<double>(Clock::now() - start).count();
    // The Consumer's time is read while it still runs.
    const double consumer_cpu = ovex::bench::ThreadCpuSeconds("Consumer") - consumer;
    const double handler_cpu = ovex::bench::ThreadCpuSeconds("Endpoint 0x81") - handler;
    ovexsdk_acq_abort(board.Context());
    ovexsdk_acq_await_end(board.Context());
    state.counters["frames/s"] =
        benchmark::Counter(static_cast<double>(received.frames), benchmark::Counter::kIsRate);
    state.counters["Mpixels/s"] = benchmark::Counter(
        static_cast<double>(received.frames) * 65536 / 1e6, benchmark::Counter::kIsRate);
    state.counters["consumer_cpu_%"] = consumer_cpu / wall * 100;
    state.counters["consumer_us/frame"] =
        consumer_cpu * 1e6 / std::max<double>(static_cast<double>(received.frames), 1.0);
    state.counters["handler_cpu_%"] = handler_cpu / wall * 100;
    state.SetLabel(std::to_string(kBits[state.range(0)]) + " bits");
}
BENCHMARK(BM_ContinuousFrames)
    ->Arg(0)
    ->Arg(1)
    ->Arg(2)
    ->Unit(benchmark::kMicrosecond)
    ->UseRealTime();

}  // namespace

BENCHMARK_MAIN();
