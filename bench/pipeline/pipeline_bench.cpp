// The whole pipeline in each mode, as in an acquisition: a feeding thread pushes the blocks
// through the in queue, another drains the out queue. The stream is at least 100 M packets.

#include <benchmark/benchmark.h>

#include <atomic>
#include <cstdlib>
#include <cstring>
#include <new>
#include <thread>
#include <vector>

#include "streams.hpp"
#include "tpx3_pipeline/pipelines.hpp"
#include "tpx3_stream/arena_feed.hpp"

namespace {

std::atomic<std::uint64_t> g_allocations{0};

}  // namespace

// Every heap allocation of the process is counted, to tell the allocations per block. GCC takes
// the replaced pair for a mismatch where it inlines library code; it is the same pair throughout.
#pragma GCC diagnostic ignored "-Wmismatched-new-delete"
void* operator new(std::size_t size) {
    g_allocations.fetch_add(1, std::memory_order_relaxed);
    if (void* p = std::malloc(size == 0 ? 1 : size)) {
        return p;
    }
    throw std::bad_alloc();
}
void operator delete(void* p) noexcept {
    std::free(p);
}
void operator delete(void* p, std::size_t) noexcept {
    std::free(p);
}

namespace {

using namespace tpx3_pipeline;

struct Feed {
    tpx3_stream::GeneratedStream stream;
    std::shared_ptr<tpx3_stream::ArenaPool> pool;
    std::vector<common::DataEntry> entries;
};

const Feed& TheFeed() {
    static const Feed feed = [] {
        const auto settings = tpx3_bench::LineRateStream(360);  // about 100 M packets
        Feed f;
        f.stream = tpx3_stream::Generate(settings);
        f.pool = tpx3_stream::MakeArenaPool(settings, 64);
        f.entries = tpx3_stream::ToEntries(f.stream, *f.pool);
        f.stream.bytes = {};  // the arenas hold the packets now
        return f;
    }();
    return feed;
}

template <typename Pipeline>
void RunOnce(const Feed& feed, const PipelineOptions& options) {
    Pipeline pipeline(options);
    pipeline.Start();
    std::thread drain([&pipeline] {
        for (;;) {
            const EntryType type = pipeline.PopResult().type;
            if (type == EntryType::Stop || type == EntryType::Terminate) {
                break;
            }
        }
    });
    for (const common::DataEntry& entry : feed.entries) {
        pipeline.PushEntry(entry);
    }
    pipeline.PushEntry(common::DataEntry::Control(EntryType::Stop));
    drain.join();
    pipeline.Wait();
}

template <typename Pipeline>
void RunMode(benchmark::State& state) {
    const Feed& feed = TheFeed();
    PipelineOptions options;
    options.binning = {tpx3_bench::kBinWidth, tpx3_bench::kBinsPerLine, 360};
    std::uint64_t allocations = 0;
    // One untimed pass first: the record ring's pages are backed on their first use only, a
    // cost that a running acquisition pays once.
    RunOnce<Pipeline>(feed, options);
    for (auto _ : state) {
        const std::uint64_t before = g_allocations.load();
        RunOnce<Pipeline>(feed, options);
        allocations += g_allocations.load() - before;
    }
    state.SetItemsProcessed(
        static_cast<std::int64_t>(state.iterations() * feed.stream.packet_count));
    state.SetBytesProcessed(
        static_cast<std::int64_t>(state.iterations() * feed.stream.packet_count * 6));
    state.counters["allocs_per_block"] =
        static_cast<double>(allocations) /
        static_cast<double>(state.iterations() * feed.entries.size());
    state.counters["Mpackets"] = static_cast<double>(feed.stream.packet_count) / 1e6;
}

// The machine's memory bandwidth for scale: a copy as large as the stream's packets.
void MemcpyStreamSize(benchmark::State& state) {
    const std::size_t bytes = TheFeed().stream.packet_count * 6;
    std::vector<std::uint8_t> from(bytes, 1);
    std::vector<std::uint8_t> to(bytes, 0);
    for (auto _ : state) {
        std::memcpy(to.data(), from.data(), bytes);
        benchmark::ClobberMemory();
    }
    state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * bytes));
    state.SetItemsProcessed(static_cast<std::int64_t>(state.iterations() * bytes / 6));
}
BENCHMARK(MemcpyStreamSize)
    ->Name("Memcpy/StreamSize")
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime()
    ->Iterations(5);

BENCHMARK(RunMode<ExtendedPipeline>)
    ->Name("Pipeline/Extended")
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime()
    ->Iterations(3);
BENCHMARK(RunMode<SortedPipeline>)
    ->Name("Pipeline/Sorted")
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime()
    ->Iterations(3);
BENCHMARK(RunMode<CountSumsPipeline>)
    ->Name("Pipeline/CountSums")
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime()
    ->Iterations(3);
BENCHMARK(RunMode<ItotSumsPipeline>)
    ->Name("Pipeline/ItotSums")
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime()
    ->Iterations(3);
BENCHMARK(RunMode<BinnedPacketsPipeline>)
    ->Name("Pipeline/BinnedPackets")
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime()
    ->Iterations(3);

}  // namespace

BENCHMARK_MAIN();
