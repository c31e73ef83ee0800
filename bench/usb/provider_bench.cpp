// Throughput of the data providers from the virtual board's counting stream to a consumer thread
// that takes every item: the vector provider (one vector per transfer) and the arena provider
// (transfers side by side in pooled arenas, handed out as spans). The consumer reads one byte
// per page, as a pipeline that walks the data would touch it.
// Run with LD_PRELOAD=libumockdev-preload.so.0.

#include <benchmark/benchmark.h>

#include <atomic>
#include <chrono>
#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <thread>
#include <vector>

#include "impl/acquisition/usb_arena_provider.hpp"
#include "impl/acquisition/usb_vector_provider.hpp"
#include "ovex/usb/usb_context.hpp"
#include "ovex/usb/usb_device.hpp"
#include "ovex/vboard/virtual_board.hpp"

namespace {

using namespace ovex::sdk::acquisition;

constexpr std::uint64_t kRunBytes = std::uint64_t{512} << 20;
constexpr std::uint32_t kBlock = 983040;

struct Board {
    ovex::vboard::TestBed bed;
    ovex::vboard::VirtualBoard board{bed, 1, {}};
    std::optional<ovex::usb::device::UsbContext> context;
    std::shared_ptr<ovex::usb::device::UsbDevice> device;

    bool Open() {
        context.emplace();
        auto devices = context->EnumerateDevices(0x1209, 0xAD0E);
        if (devices.size() != 1) {
            return false;
        }
        device = std::make_shared<ovex::usb::device::UsbDevice>(std::move(devices[0]));
        return !device->Open();
    }
    ~Board() {
        device.reset();
        context.reset();
    }
};

std::span<const std::uint8_t> BytesOf(const std::vector<std::byte>& data) {
    return {reinterpret_cast<const std::uint8_t*>(data.data()), data.size()};
}
std::span<const std::uint8_t> BytesOf(const ArenaData& data) {
    return data.data;
}

// Runs one stream of at least kRunBytes through the provider; the bytes consumed.
template <typename Data, typename Provider>
std::uint64_t RunOnce(Provider& provider, benchmark::State& state) {
    std::atomic<std::uint64_t> consumed{0};
    std::uint64_t touched = 0;
    std::thread consumer([&] {
        for (;;) {
            Data data;
            provider.GetData(data);
            if (!data) {
                return;
            }
            const std::span<const std::uint8_t> bytes = BytesOf(*data);
            for (std::size_t at = 0; at < bytes.size(); at += 4096) {
                touched += bytes[at];
            }
            consumed.fetch_add(bytes.size(), std::memory_order_release);
        }
    });
    if (provider.Start(kBlock)) {
        state.SkipWithError("provider did not start");
    } else {
        while (consumed.load(std::memory_order_acquire) < kRunBytes) {
            std::this_thread::yield();
        }
    }
    provider.Stop();
    consumer.join();
    benchmark::DoNotOptimize(touched);
    return consumed.load();
}

template <typename Data, typename Provider>
void Measure(benchmark::State& state, Provider& provider) {
    std::uint64_t bytes = 0;
    for (auto _ : state) {
        bytes += RunOnce<Data>(provider, state);
    }
    state.SetBytesProcessed(static_cast<std::int64_t>(bytes));
}

bool Usable(benchmark::State& state, Board& board) {
    if (!ovex::vboard::TestBed::PreloadActive()) {
        state.SkipWithError("needs LD_PRELOAD=libumockdev-preload.so.0");
        return false;
    }
    if (!board.Open()) {
        state.SkipWithError("no board");
        return false;
    }
    return true;
}

// Argument: transfers in flight.
void BM_VectorProvider(benchmark::State& state) {
    Board board;
    if (!Usable(state, board)) {
        return;
    }
    UsbVectorProvider provider(board.device);
    provider.Configure(static_cast<std::uint16_t>(state.range(0)));
    Measure<std::shared_ptr<std::vector<std::byte>>>(state, provider);
}
BENCHMARK(BM_VectorProvider)->Arg(4)->Arg(16)->Unit(benchmark::kMillisecond)->UseRealTime();

// Argument: blocks per arena.
void BM_ArenaProvider(benchmark::State& state) {
    Board board;
    if (!Usable(state, board)) {
        return;
    }
    UsbArenaProvider provider(board.device);
    const auto blocks = static_cast<std::uint64_t>(state.range(0));
    if (provider.Configure(tpx3_pipeline::Arena::Settings{kBlock, blocks * kBlock})) {
        state.SkipWithError("arena settings refused");
        return;
    }
    Measure<std::unique_ptr<ArenaData>>(state, provider);
}
BENCHMARK(BM_ArenaProvider)->Arg(2)->Arg(16)->Unit(benchmark::kMillisecond)->UseRealTime();

}  // namespace

BENCHMARK_MAIN();
