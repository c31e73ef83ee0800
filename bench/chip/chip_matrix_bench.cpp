// The matrix transforms of the Timepix3 chip module over one whole 256x256 matrix: the write
// path from the host form to the byte stream of the chip's double columns, its two steps alone,
// and the decoding of a full read-back (65536 configuration packets) into the host form.

#include <benchmark/benchmark.h>

#include <cstdint>
#include <random>
#include <vector>

#include "modules/tpx3_matrix.hpp"

namespace {

namespace tpx3 = ovex::sdk::tpx3;
using Bytes = std::vector<std::uint8_t>;

Bytes RandomMatrix() {
    std::mt19937 random(7);
    Bytes pixels(tpx3::kPixelCount);
    for (auto& pixel : pixels) {
        pixel = static_cast<std::uint8_t>(random() & tpx3::kPixelBits);
    }
    return pixels;
}

// What the chip sends for a matrix: one configuration packet per pixel, in pixel order.
Bytes ReadbackOf(const Bytes& host) {
    Bytes device(tpx3::kPixelCount);
    tpx3::ToDeviceOrder(host, device);
    Bytes readback;
    readback.reserve(tpx3::kReadbackSize);
    for (std::size_t k = 0; k < tpx3::kPixelCount; ++k) {
        const auto from_end = static_cast<std::uint16_t>(tpx3::kPixelCount - 1 - k);
        const std::uint64_t address = static_cast<std::uint16_t>(from_end << 8 | from_end >> 8);
        const std::uint64_t packet = 1ull << 46 | address << 30 | std::uint64_t{device[k]} << 14;
        for (int b = 0; b < 6; ++b) {
            readback.push_back(static_cast<std::uint8_t>(packet >> (8 * b)));
        }
    }
    return readback;
}

void Count(benchmark::State& state, std::size_t bytes) {
    state.SetItemsProcessed(state.iterations());
    state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * bytes));
}

void BM_WriteStream(benchmark::State& state) {
    const Bytes host = RandomMatrix();
    for (auto _ : state) {
        benchmark::DoNotOptimize(tpx3::MakeDeviceStream(host).data());
    }
    Count(state, tpx3::kPixelCount);
}

void BM_DeviceOrder(benchmark::State& state) {
    const Bytes host = RandomMatrix();
    Bytes device(tpx3::kPixelCount);
    for (auto _ : state) {
        tpx3::ToDeviceOrder(host, device);
        benchmark::ClobberMemory();
    }
    Count(state, tpx3::kPixelCount);
}

void BM_Pack(benchmark::State& state) {
    const Bytes host = RandomMatrix();
    Bytes packed(tpx3::kPackedSize);
    for (auto _ : state) {
        tpx3::Pack(host, packed);
        benchmark::ClobberMemory();
    }
    Count(state, tpx3::kPixelCount);
}

void BM_DecodeReadback(benchmark::State& state) {
    const Bytes readback = ReadbackOf(RandomMatrix());
    for (auto _ : state) {
        benchmark::DoNotOptimize(tpx3::DecodeReadback(readback).data());
    }
    Count(state, tpx3::kReadbackSize);
}

BENCHMARK(BM_WriteStream)->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_DeviceOrder)->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_Pack)->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_DecodeReadback)->Unit(benchmark::kMicrosecond);

}  // namespace

BENCHMARK_MAIN();
