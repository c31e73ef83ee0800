// What a request of the board protocol costs through the virtual board: a read (one control
// transfer), a write (the transfer and the last-error read), a command with output, and the
// loading of a board's four item lists. Run with LD_PRELOAD=libumockdev-preload.so.0.

#include <benchmark/benchmark.h>

#include <array>
#include <memory>
#include <optional>

#include "ovex/usb/usb_context.hpp"
#include "ovex/usb/usb_device.hpp"
#include "ovex/vboard/virtual_board.hpp"
#include "ovex/vendor_cmd/item_collection.hpp"

namespace {

using namespace ovex::usb;

struct Bench {
    ovex::vboard::TestBed bed;
    ovex::vboard::VirtualBoard board{bed, 1, {}};
    std::optional<device::UsbContext> context;
    std::optional<device::UsbDevice> device;

    bool Open() {
        context.emplace();
        auto devices = context->EnumerateDevices(0x1209, 0xAD0E);
        if (devices.size() != 1) {
            return false;
        }
        device.emplace(std::move(devices[0]));
        return !device->Open();
    }
    ~Bench() {
        device.reset();
        context.reset();
    }
};

// Makes a request with `make(device)` on an open Timepix3 board, runs it once per iteration and
// counts the control transfers it makes.
template <typename Make>
void RunOnBoard(benchmark::State& state, Make make) {
    if (!ovex::vboard::TestBed::PreloadActive()) {
        state.SkipWithError("needs LD_PRELOAD=libumockdev-preload.so.0");
        return;
    }
    Bench bench;
    if (!bench.Open()) {
        state.SkipWithError("no board");
        return;
    }
    auto request = make(*bench.device);
    const auto before = bench.board.Firmware().RequestLog().size();
    for (auto _ : state) {
        if (request()) {
            state.SkipWithError("request failed");
            return;
        }
    }
    const auto transfers = bench.board.Firmware().RequestLog().size() - before;
    state.counters["transfers_per_request"] =
        static_cast<double>(transfers) / static_cast<double>(state.iterations());
    state.counters["requests_per_s"] =
        benchmark::Counter(static_cast<double>(state.iterations()), benchmark::Counter::kIsRate);
}

void BM_StateRead(benchmark::State& state) {
    RunOnBoard(state, [](device::UsbDevice& device) {
        return [states = std::make_shared<vendor_cmd::impl::States>(device)] {
            int value = 0;
            return states->get_value("BIAS", value);
        };
    });
}
BENCHMARK(BM_StateRead)->Unit(benchmark::kMicrosecond)->UseRealTime();

void BM_StateWrite(benchmark::State& state) {
    RunOnBoard(state, [](device::UsbDevice& device) {
        return [states = std::make_shared<vendor_cmd::impl::States>(device)] {
            return states->set_value("BIAS", 10);
        };
    });
}
BENCHMARK(BM_StateWrite)->Unit(benchmark::kMicrosecond)->UseRealTime();

void BM_CommandWithOutput(benchmark::State& state) {
    RunOnBoard(state, [](device::UsbDevice& device) {
        return [commands = std::make_shared<vendor_cmd::impl::Commands>(device)] {
            std::array<std::uint8_t, 8> info{};
            return commands->invoke_in("TPX_CHIP_INFO", info);
        };
    });
}
BENCHMARK(BM_CommandWithOutput)->Unit(benchmark::kMicrosecond)->UseRealTime();

// What opening a device costs in item reading: the four lists with every name.
void BM_LoadFourItemLists(benchmark::State& state) {
    RunOnBoard(state, [](device::UsbDevice& device) {
        return [&device] {
            vendor_cmd::impl::Commands commands(device);
            vendor_cmd::impl::States states(device);
            vendor_cmd::impl::Monitors monitors(device);
            vendor_cmd::impl::Versions versions(device);
            benchmark::DoNotOptimize(commands.names().size() + states.names().size() +
                                     monitors.names().size() + versions.names().size());
            return std::error_code();
        };
    });
}
BENCHMARK(BM_LoadFourItemLists)->Unit(benchmark::kMillisecond)->UseRealTime();

}  // namespace

BENCHMARK_MAIN();
