// Each stage of the pipeline alone, on one thread, over a line-rate stream in memory.

#include <benchmark/benchmark.h>

#include <cstring>
#include <list>
#include <vector>

#include "streams.hpp"
#include "tpx3_pipeline/pipelines.hpp"
#include "tpx3_pipeline/toa_sort.hpp"

namespace {

using namespace tpx3_pipeline;
using tpx3_toa_extension::ArenaAllocator;

const tpx3_stream::GeneratedStream& Stream() {
    static const auto stream = tpx3_stream::Generate(tpx3_bench::LineRateStream(16));
    return stream;
}

ArenaAllocator& Ring() {
    static ArenaAllocator ring(std::size_t{1} << 31);
    return ring;
}

common::DataEntry EntryOf(const tpx3_stream::BlockInfo& block) {
    const auto& stream = Stream();
    return {block.kind == tpx3_stream::BlockKind::LastData ? EntryType::LastData : EntryType::Data,
            {nullptr, stream.BlockBytes(block)}};
}

void SetRates(benchmark::State& state) {
    const auto& stream = Stream();
    state.SetItemsProcessed(static_cast<std::int64_t>(state.iterations() * stream.packet_count));
    state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * stream.bytes.size()));
}

// The extended blocks of the whole stream, as the ToA extension gives them.
std::vector<common::ExtendedBlock> ExtendAll() {
    ExtendToasStep step(Ring());
    std::vector<common::ExtendedBlock> blocks;
    for (const auto& block : Stream().blocks) {
        blocks.push_back(std::move(*step.Process(EntryOf(block)).block));
    }
    return blocks;
}

void BM_MemcpyStream(benchmark::State& state) {
    const auto& stream = Stream();
    std::vector<std::uint8_t> target(stream.bytes.size());
    for (auto _ : state) {
        std::memcpy(target.data(), stream.bytes.data(), stream.bytes.size());
        benchmark::ClobberMemory();
    }
    SetRates(state);
}
BENCHMARK(BM_MemcpyStream)->Unit(benchmark::kMillisecond);

void BM_PacketWalk(benchmark::State& state) {
    const auto& stream = Stream();
    for (auto _ : state) {
        std::uint64_t data = 0;
        for (const auto& block : stream.blocks) {
            const auto bytes = stream.BlockBytes(block);
            tpx3_toa_extension::WalkPackets(
                bytes.data(), bytes.data() + bytes.size(),
                [&data](std::uint64_t, tpx3_toa_extension::HeaderMask mask) {
                    data += mask == tpx3_toa_extension::HeaderMask::Data;
                });
        }
        benchmark::DoNotOptimize(data);
    }
    SetRates(state);
}
BENCHMARK(BM_PacketWalk)->Unit(benchmark::kMillisecond);

void BM_ExtendToas(benchmark::State& state) {
    const auto& stream = Stream();
    ExtendToasStep step(Ring());
    for (auto _ : state) {
        for (const auto& block : stream.blocks) {
            auto out = step.Process(EntryOf(block));
            benchmark::DoNotOptimize(out.block->count);
        }
        step.Process(common::DataEntry::Control(EntryType::Stop));
    }
    SetRates(state);
}
BENCHMARK(BM_ExtendToas)->Unit(benchmark::kMillisecond);

void BM_PreSort(benchmark::State& state) {
    const auto blocks = ExtendAll();
    std::vector<std::vector<ToaTotRecord>> copies;
    for (const auto& block : blocks) {
        copies.emplace_back(block.begin(), block.end());
    }
    std::vector<ToaTotRecord> work;
    for (auto _ : state) {
        for (const auto& copy : copies) {
            state.PauseTiming();
            work = copy;
            state.ResumeTiming();
            SortRecordsByTime(work.data(), work.data() + work.size());
        }
    }
    SetRates(state);
}
BENCHMARK(BM_PreSort)->Unit(benchmark::kMillisecond);

// Presorted blocks, fresh for every pass of a serial stage.
std::vector<common::ExtendedBlock> PresortedBlocks() {
    auto blocks = ExtendAll();
    for (auto& block : blocks) {
        SortRecordsByTime(block.begin(), block.end());
    }
    return blocks;
}

void BM_MainSort(benchmark::State& state) {
    for (auto _ : state) {
        state.PauseTiming();
        auto blocks = PresortedBlocks();
        SortToasStep step;
        state.ResumeTiming();
        for (auto& block : blocks) {
            auto out = step.Process({EntryType::Data, std::move(block)});
            benchmark::DoNotOptimize(out.blocks.size());
        }
        auto out = step.Process({EntryType::Stop, std::nullopt});
        state.PauseTiming();
        out.blocks.clear();
        blocks.clear();
        state.ResumeTiming();
    }
    SetRates(state);
}
BENCHMARK(BM_MainSort)->Unit(benchmark::kMillisecond)->Iterations(20);

template <typename Writer>
void BM_Binning(benchmark::State& state) {
    for (auto _ : state) {
        state.PauseTiming();
        std::list<common::ExtendedBlock> sorted;
        {
            SortToasStep sorter;
            for (auto& block : PresortedBlocks()) {
                sorted.splice(sorted.end(),
                              sorter.Process({EntryType::Data, std::move(block)}).blocks);
            }
            sorted.splice(sorted.end(), sorter.Process({EntryType::Stop, std::nullopt}).blocks);
        }
        BinningStep<Writer> step(
            BinningParameters{tpx3_bench::kBinWidth, tpx3_bench::kBinsPerLine, 16});
        state.ResumeTiming();
        auto out = step.Process({EntryType::Stop, std::move(sorted)});
        benchmark::DoNotOptimize(out.value);
        state.PauseTiming();
        out = {};
        state.ResumeTiming();
    }
    SetRates(state);
}
BENCHMARK(BM_Binning<binning::BinWriterCountSums>)->Unit(benchmark::kMillisecond)->Iterations(10);
BENCHMARK(BM_Binning<binning::BinWriterItotSums>)->Unit(benchmark::kMillisecond)->Iterations(10);
BENCHMARK(BM_Binning<binning::BinWriterPackets>)->Unit(benchmark::kMillisecond)->Iterations(10);

}  // namespace

BENCHMARK_MAIN();
