// The whole pipeline in each mode, as in an acquisition: a feeding thread pushes the blocks
// through the in queue, another drains the out queue. The streams are at least 100 M packets,
// in the disorder of real detector data and with a few late records.

#include <benchmark/benchmark.h>

#include <atomic>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <new>
#include <string>
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
using tpx3_bench::Profile;
using tpx3_toa_extension::ArenaAllocator;

struct Feed {
    std::size_t packet_count = 0;
    std::shared_ptr<tpx3_stream::ArenaPool> pool;
    std::vector<common::DataEntry> entries;
};

const Feed& TheFeed(Profile profile) {
    static std::unique_ptr<Feed> feeds[2];
    auto& feed = feeds[static_cast<int>(profile)];
    if (!feed) {
        const auto settings = tpx3_bench::LineRateStream(360, profile);  // about 100 M packets
        const auto stream = tpx3_stream::Generate(settings);
        feed = std::make_unique<Feed>();
        feed->packet_count = stream.packet_count;
        feed->pool = tpx3_stream::MakeArenaPool(settings, 64);
        feed->entries = tpx3_stream::ToEntries(stream, *feed->pool);
    }
    return *feed;
}

struct RunCounts {
    std::uint64_t allocations = 0;         // the whole run
    std::uint64_t steady_allocations = 0;  // from the first quarter of the results on
    std::uint64_t steady_results = 0;
};

template <typename Pipeline>
RunCounts RunOnce(const Feed& feed, const PipelineOptions& options) {
    RunCounts counts;
    const std::uint64_t before = g_allocations.load();
    std::uint64_t steady_from = 0;
    Pipeline pipeline(options);
    pipeline.Start();
    std::thread drain([&] {
        const std::size_t quarter = feed.entries.size() / 4;
        for (std::uint64_t results = 0;; ++results) {
            const EntryType type = pipeline.PopResult().type;
            if (type == EntryType::Stop || type == EntryType::Terminate) {
                counts.steady_allocations = g_allocations.load() - steady_from;
                counts.steady_results = results - std::min<std::uint64_t>(results, quarter);
                break;
            }
            if (results == quarter) {
                steady_from = g_allocations.load();
            }
        }
    });
    for (const common::DataEntry& entry : feed.entries) {
        pipeline.PushEntry(entry);
    }
    pipeline.PushEntry(common::DataEntry::Control(EntryType::Stop));
    drain.join();
    pipeline.Wait();
    counts.allocations = g_allocations.load() - before;
    return counts;
}

// Arguments: the profile, and 1 for cold runs, each through a ring of its own whose pages have
// never been touched, or 0 for warm runs through the process-wide ring after one untimed run.
template <typename Pipeline>
void RunMode(benchmark::State& state) {
    const auto profile = static_cast<Profile>(state.range(0));
    const bool cold = state.range(1) != 0;
    const Feed& feed = TheFeed(profile);
    PipelineOptions options;
    options.binning = {tpx3_bench::kBinWidth, tpx3_bench::kBinsPerLine, 360};
    std::unique_ptr<ArenaAllocator> fresh_ring;
    if (!cold) {
        RunOnce<Pipeline>(feed, options);
    }
    RunCounts total;
    std::size_t reach = 0;
    for (auto _ : state) {
        if (cold) {
            state.PauseTiming();
            fresh_ring = std::make_unique<ArenaAllocator>(ArenaAllocator::kDefaultCapacity);
            options.ring = fresh_ring.get();
            state.ResumeTiming();
        }
        const RunCounts counts = RunOnce<Pipeline>(feed, options);
        total.allocations += counts.allocations;
        total.steady_allocations += counts.steady_allocations;
        total.steady_results += counts.steady_results;
        if (cold) {
            state.PauseTiming();
            reach = fresh_ring->Reach();
            fresh_ring.reset();
            state.ResumeTiming();
        }
    }
    state.SetLabel(std::string(tpx3_bench::ProfileName(profile)) + (cold ? ", cold" : ", warm"));
    state.SetItemsProcessed(static_cast<std::int64_t>(state.iterations() * feed.packet_count));
    state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * feed.packet_count * 6));
    state.counters["allocs_per_block"] =
        static_cast<double>(total.allocations) /
        static_cast<double>(state.iterations() * feed.entries.size());
    state.counters["steady_allocs_per_result"] =
        total.steady_results == 0 ? 0.0
                                  : static_cast<double>(total.steady_allocations) /
                                        static_cast<double>(total.steady_results);
    state.counters["ring_touched_MB"] = static_cast<double>(reach) / 1e6;
    state.counters["Mpackets"] = static_cast<double>(feed.packet_count) / 1e6;
}

// The machine's memory bandwidth for scale: a copy as large as the stream's packets.
void MemcpyStreamSize(benchmark::State& state) {
    const std::size_t bytes = TheFeed(Profile::RealDisorder).packet_count * 6;
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

// Each mode: real disorder warm and cold, then few late records warm.
template <typename Pipeline>
void Register(const char* name) {
    benchmark::RegisterBenchmark(name, RunMode<Pipeline>)
        ->ArgNames({"profile", "cold"})
        ->Args({0, 0})
        ->Args({0, 1})
        ->Args({1, 0})
        ->Unit(benchmark::kMillisecond)
        ->UseRealTime()
        ->Iterations(3);
}

}  // namespace

int main(int argc, char** argv) {
    Register<ExtendedPipeline>("Pipeline/Extended");
    Register<SortedPipeline>("Pipeline/Sorted");
    Register<CountSumsPipeline>("Pipeline/CountSums");
    Register<ItotSumsPipeline>("Pipeline/ItotSums");
    Register<BinnedPacketsPipeline>("Pipeline/BinnedPackets");
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
