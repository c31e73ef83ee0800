// Each stage of the pipeline alone, on one thread, over a line-rate stream in memory, in both
// kinds of disorder (the benchmark's argument: 0 real disorder, 1 few late records).

#include <benchmark/benchmark.h>

#include <cstring>
#include <vector>

#include "sort_candidates.hpp"
#include "streams.hpp"
#include "tpx3_pipeline/pipelines.hpp"
#include "tpx3_pipeline/toa_sort.hpp"

namespace {

using namespace tpx3_pipeline;
using tpx3_toa_extension::ArenaAllocator;

using tpx3_bench::Profile;

const tpx3_stream::GeneratedStream& Stream(Profile profile) {
    static const tpx3_stream::GeneratedStream streams[2] = {
        tpx3_stream::Generate(tpx3_bench::LineRateStream(16, Profile::RealDisorder)),
        tpx3_stream::Generate(tpx3_bench::LineRateStream(16, Profile::FewLate))};
    return streams[static_cast<int>(profile)];
}

Profile ProfileOf(const benchmark::State& state) {
    return static_cast<Profile>(state.range(0));
}

ArenaAllocator& Ring() {
    static ArenaAllocator ring(std::size_t{1} << 31);
    return ring;
}

common::DataEntry EntryOf(const tpx3_stream::GeneratedStream& stream,
                          const tpx3_stream::BlockInfo& block) {
    return {block.kind == tpx3_stream::BlockKind::LastData ? EntryType::LastData : EntryType::Data,
            {nullptr, stream.BlockBytes(block)}};
}

void SetRates(benchmark::State& state) {
    const auto& stream = Stream(ProfileOf(state));
    state.SetLabel(tpx3_bench::ProfileName(ProfileOf(state)));
    state.SetItemsProcessed(static_cast<std::int64_t>(state.iterations() * stream.packet_count));
    state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * stream.bytes.size()));
}

// The extended blocks of the whole stream, as the ToA extension gives them.
std::vector<common::BlockHandle> ExtendAll(Profile profile) {
    ExtendToasStep step(Ring());
    std::vector<common::BlockHandle> blocks;
    const auto& stream = Stream(profile);
    for (const auto& block : stream.blocks) {
        blocks.push_back(std::move(step.Process(EntryOf(stream, block)).block));
    }
    return blocks;
}

void BM_MemcpyStream(benchmark::State& state) {
    const auto& stream = Stream(ProfileOf(state));
    std::vector<std::uint8_t> target(stream.bytes.size());
    for (auto _ : state) {
        std::memcpy(target.data(), stream.bytes.data(), stream.bytes.size());
        benchmark::ClobberMemory();
    }
    SetRates(state);
}
BENCHMARK(BM_MemcpyStream)->Unit(benchmark::kMillisecond)->Arg(0);

void BM_PacketWalk(benchmark::State& state) {
    const auto& stream = Stream(ProfileOf(state));
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
BENCHMARK(BM_PacketWalk)->Unit(benchmark::kMillisecond)->Arg(0);

void BM_ExtendToas(benchmark::State& state) {
    const auto& stream = Stream(ProfileOf(state));
    ExtendToasStep step(Ring());
    for (auto _ : state) {
        for (const auto& block : stream.blocks) {
            auto out = step.Process(EntryOf(stream, block));
            benchmark::DoNotOptimize(out.block->count);
        }
        step.Process(common::DataEntry::Control(EntryType::Stop));
    }
    SetRates(state);
}
BENCHMARK(BM_ExtendToas)->Unit(benchmark::kMillisecond)->Arg(0)->Arg(1);

// The pre-sort of every block with one candidate sort.
template <typename Sort>
void PreSortWith(benchmark::State& state, Sort sort) {
    const auto blocks = ExtendAll(ProfileOf(state));
    std::vector<std::vector<ToaTotRecord>> copies;
    for (const auto& block : blocks) {
        copies.emplace_back(block->begin(), block->end());
    }
    std::vector<ToaTotRecord> work;
    for (auto _ : state) {
        for (const auto& copy : copies) {
            state.PauseTiming();
            work = copy;
            state.ResumeTiming();
            sort(work.data(), work.data() + work.size());
        }
    }
    SetRates(state);
}

void BM_PreSort(benchmark::State& state) {
    SortScratch scratch;
    PreSortWith(state, [&scratch](ToaTotRecord* first, ToaTotRecord* last) {
        SortRecordsByTime(first, last, scratch);
    });
}
BENCHMARK(BM_PreSort)->Unit(benchmark::kMillisecond)->Arg(0)->Arg(1);

void BM_PreSortRadix(benchmark::State& state) {
    SortScratch scratch;
    PreSortWith(state, [&scratch](ToaTotRecord* first, ToaTotRecord* last) {
        RadixSortByTime(first, last, scratch);
    });
}
BENCHMARK(BM_PreSortRadix)->Unit(benchmark::kMillisecond)->Arg(0)->Arg(1);

void BM_PreSortSplit(benchmark::State& state) {
    SortScratch scratch;
    PreSortWith(state, [&scratch](ToaTotRecord* first, ToaTotRecord* last) {
        SplitSortByTime(first, last, scratch);
    });
}
BENCHMARK(BM_PreSortSplit)->Unit(benchmark::kMillisecond)->Arg(0)->Arg(1);

void BM_PreSortSplitLimited(benchmark::State& state) {
    PreSortWith(state, [](ToaTotRecord* first, ToaTotRecord* last) {
        tpx3_bench::SplitAndMerge(first, last, tpx3_bench::EarlierTime, 1.0 / 8);
    });
}
BENCHMARK(BM_PreSortSplitLimited)->Unit(benchmark::kMillisecond)->Arg(0)->Arg(1);

void BM_PreSortSplitUnlimited(benchmark::State& state) {
    PreSortWith(state, [](ToaTotRecord* first, ToaTotRecord* last) {
        tpx3_bench::SplitAndMerge(first, last, tpx3_bench::EarlierTime, 1.0);
    });
}
BENCHMARK(BM_PreSortSplitUnlimited)->Unit(benchmark::kMillisecond)->Arg(0)->Arg(1);

void BM_PreSortStdSortInlined(benchmark::State& state) {
    PreSortWith(state, [](ToaTotRecord* first, ToaTotRecord* last) {
        std::sort(first, last,
                  [](const ToaTotRecord& a, const ToaTotRecord& b) { return a.time < b.time; });
    });
}
BENCHMARK(BM_PreSortStdSortInlined)->Unit(benchmark::kMillisecond)->Arg(0)->Arg(1);

// Presorted blocks, fresh for every pass of a serial stage.
std::vector<common::BlockHandle> PresortedBlocks(Profile profile) {
    auto blocks = ExtendAll(profile);
    SortScratch scratch;
    for (auto& block : blocks) {
        SortRecordsByTime(block->begin(), block->end(), scratch);
    }
    return blocks;
}

void BM_MainSort(benchmark::State& state) {
    common::SortToasOutput out;
    for (auto _ : state) {
        state.PauseTiming();
        auto blocks = PresortedBlocks(ProfileOf(state));
        SortToasStep step;
        state.ResumeTiming();
        for (auto& block : blocks) {
            step.Process({EntryType::Data, std::move(block)}, out);
            benchmark::DoNotOptimize(out.blocks.size());
            out.blocks.clear();
        }
        step.Process({EntryType::Stop, nullptr}, out);
        state.PauseTiming();
        out.blocks.clear();
        blocks.clear();
        state.ResumeTiming();
    }
    SetRates(state);
}
BENCHMARK(BM_MainSort)->Unit(benchmark::kMillisecond)->Iterations(20)->Arg(0)->Arg(1);

// Binning item by item as in the pipeline, the output values recycled.
template <typename Writer>
void BM_Binning(benchmark::State& state) {
    for (auto _ : state) {
        state.PauseTiming();
        std::vector<common::SortToasOutput> items;
        {
            SortToasStep sorter;
            for (auto& block : PresortedBlocks(ProfileOf(state))) {
                items.push_back(sorter.Process({EntryType::Data, std::move(block)}));
            }
            items.push_back(sorter.Process({EntryType::Stop, nullptr}));
        }
        BinningStep<Writer> step(
            BinningParameters{tpx3_bench::kBinWidth, tpx3_bench::kBinsPerLine, 16});
        typename BinningStep<Writer>::Output out;
        state.ResumeTiming();
        for (const auto& item : items) {
            step.Process(item, out);
            benchmark::DoNotOptimize(out.value.get());
        }
        state.PauseTiming();
        items.clear();
        state.ResumeTiming();
    }
    SetRates(state);
}
BENCHMARK(BM_Binning<binning::BinWriterCountSums>)
    ->Unit(benchmark::kMillisecond)
    ->Iterations(10)
    ->Arg(0);
BENCHMARK(BM_Binning<binning::BinWriterItotSums>)
    ->Unit(benchmark::kMillisecond)
    ->Iterations(10)
    ->Arg(0);
BENCHMARK(BM_Binning<binning::BinWriterPackets>)
    ->Unit(benchmark::kMillisecond)
    ->Iterations(10)
    ->Arg(0);

}  // namespace

BENCHMARK_MAIN();
