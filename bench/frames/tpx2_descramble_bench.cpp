// The Timepix2 descramblers on one core: pixels per second for a whole 256 × 256 frame at 8, 10
// and 14 bits per pixel, from the board's bytes to the 16-bit frame the host gets.

#include <benchmark/benchmark.h>

#include <cstddef>
#include <cstdint>
#include <random>
#include <vector>

#include "impl/acquisition/tpx2_descramblers.hpp"

namespace {

constexpr std::size_t kPixels = 65536;

void Descramble(benchmark::State& state) {
    const auto depth = static_cast<std::uint8_t>(state.range(0));
    auto descrambler = ovex::sdk::acquisition::MakeDescrambler(depth);
    const std::size_t bytes =
        ovex::sdk::acquisition::FrameBytes(descrambler->BitsPerPixel(), kPixels);
    std::vector<std::byte> frame(bytes);
    std::mt19937 random(1);
    for (auto& b : frame) {
        b = static_cast<std::byte>(random());
    }
    // At 14 bits a frame comes in two parts, the low bits first.
    const std::size_t low = depth == 2 ? ovex::sdk::acquisition::FrameBytes(10, kPixels) : bytes;
    const std::span<const std::byte> input(frame);
    std::vector<std::uint16_t> output(kPixels);
    for (auto _ : state) {
        descrambler->Descramble(input.first(low), output);
        if (low < bytes) {
            descrambler->Descramble(input.subspan(low), output);
        }
        benchmark::DoNotOptimize(output.data());
        benchmark::ClobberMemory();
    }
    state.SetItemsProcessed(static_cast<std::int64_t>(state.iterations() * kPixels));
    state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * bytes));
    state.SetLabel(std::to_string(descrambler->BitsPerPixel()) + " bits");
}
BENCHMARK(Descramble)->Arg(0)->Arg(1)->Arg(2);

}  // namespace

BENCHMARK_MAIN();
