// The Python package's share of a data callback, alone on one thread: the copy of a result's
// hit records into the package's 16-byte layout (pixel column and row computed) in memory that a
// NumPy array then owns, against a plain copy of the same bytes for scale. Blocks are of the
// size that the data-driven modes hand out.
#include <benchmark/benchmark.h>

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <random>
#include <vector>

#include "result_blocks.hpp"

namespace {

std::vector<ovexsdk_acq_tpx3_toa_tot_record> Records(std::size_t count) {
    std::mt19937_64 random(1);
    std::vector<ovexsdk_acq_tpx3_toa_tot_record> records(count);
    std::uint64_t toa = 0;
    for (auto& record : records) {
        record.address = static_cast<std::uint32_t>(random() & 0xFFFF);
        record.tot = static_cast<std::uint32_t>(random() & 0x3FF);
        toa += random() % 64;
        record.toa = toa;
    }
    return records;
}

void Rates(benchmark::State& state, std::size_t count) {
    state.SetItemsProcessed(static_cast<std::int64_t>(state.iterations() * count));
    state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * count * 16));
}

// As the package does it: a fresh buffer for each result, freed when its array goes.
void CopyHitsFresh(benchmark::State& state) {
    const auto count = static_cast<std::size_t>(state.range(0));
    const auto records = Records(count);
    for (auto _ : state) {
        ovex::python::Buffer copy = ovex::python::CopyHits(records.data(), count);
        benchmark::DoNotOptimize(copy.data());
    }
    Rates(state, count);
}

// A fresh buffer each time but the last 16 kept, as blocks wait in the queue behind a slower
// loop: each copy lands in memory that was given back and taken again.
void CopyHitsQueued(benchmark::State& state) {
    const auto count = static_cast<std::size_t>(state.range(0));
    const auto records = Records(count);
    std::vector<ovex::python::Buffer> queued(16);
    std::size_t next = 0;
    for (auto _ : state) {
        queued[next] = ovex::python::CopyHits(records.data(), count);
        benchmark::DoNotOptimize(queued[next].data());
        next = (next + 1) % queued.size();
    }
    Rates(state, count);
}

// The floor: the same bytes copied into one buffer kept from block to block.
void MemcpyKept(benchmark::State& state) {
    const auto count = static_cast<std::size_t>(state.range(0));
    const auto records = Records(count);
    std::vector<std::uint8_t> copy(count * sizeof records[0]);
    for (auto _ : state) {
        std::memcpy(copy.data(), records.data(), copy.size());
        benchmark::ClobberMemory();
    }
    Rates(state, count);
}

// A plain copy into fresh memory from malloc, freed at once.
void MemcpyFresh(benchmark::State& state) {
    const auto count = static_cast<std::size_t>(state.range(0));
    const auto records = Records(count);
    for (auto _ : state) {
        void* copy = std::malloc(count * sizeof records[0]);
        std::memcpy(copy, records.data(), count * sizeof records[0]);
        benchmark::DoNotOptimize(copy);
        std::free(copy);
    }
    Rates(state, count);
}

}  // namespace

BENCHMARK(CopyHitsFresh)->Arg(16384)->Arg(327680);
BENCHMARK(CopyHitsQueued)->Arg(16384)->Arg(327680);
BENCHMARK(MemcpyKept)->Arg(16384)->Arg(327680);
BENCHMARK(MemcpyFresh)->Arg(16384)->Arg(327680);

BENCHMARK_MAIN();
