// What a host waits for through the exported interface with a virtual board: the open of a board
// that sits in its boot loader (inspection, firmware download and start, items, power units), the
// open of a running board, a power cycle of both Timepix3 units, and a host script.
// Run with LD_PRELOAD=libumockdev-preload.so.0.

#include <benchmark/benchmark.h>

#include <optional>

#include "ovex/vboard/virtual_board.hpp"
#include "ovexsdk.h"

namespace {

using ovex::vboard::BoardKind;
using ovex::vboard::BootLoaderMode;
using ovex::vboard::TestBed;
using ovex::vboard::VirtualBoard;

// One board on its own bus and a context on it; the board is built anew for every open that
// needs it fresh.
class Session {
public:
    explicit Session(VirtualBoard::Settings settings)
        : m_settings(std::move(settings)), m_board(std::in_place, m_bed, 1, m_settings) {
        ovexsdk_ctx_create(&m_ctx, "usb:sn:OVX00001");
    }
    ~Session() {
        ovexsdk_ctx_release(&m_ctx);
        m_board.reset();
    }
    Session(const Session&) = delete;
    Session& operator=(const Session&) = delete;

    // Back to the board as it was made, for instance in its boot loader again.
    void NewBoard() {
        m_board.reset();
        m_board.emplace(m_bed, 1, m_settings);
    }

    ovexsdk_dev_ctx* Context() { return &m_ctx; }

private:
    TestBed m_bed;
    VirtualBoard::Settings m_settings;
    std::optional<VirtualBoard> m_board;
    ovexsdk_dev_ctx m_ctx{};
};

bool Preloaded(benchmark::State& state) {
    if (!TestBed::PreloadActive()) {
        state.SkipWithError("needs LD_PRELOAD=libumockdev-preload.so.0");
        return false;
    }
    return true;
}

void OpenAndClose(benchmark::State& state, bool boot_loader) {
    if (!Preloaded(state)) {
        return;
    }
    VirtualBoard::Settings settings;
    if (boot_loader) {
        settings.boot_loader = BootLoaderMode{"TPX3EFE"};
    }
    Session session(settings);
    for (auto _ : state) {
        if (ovexsdk_dev_open(session.Context()) != OVEXSDK_OK) {
            state.SkipWithError("open failed");
            return;
        }
        state.PauseTiming();
        ovexsdk_dev_close(session.Context());
        if (boot_loader) {
            session.NewBoard();
        }
        state.ResumeTiming();
    }
}

void BM_OpenFromBootLoader(benchmark::State& state) {
    OpenAndClose(state, true);
}
BENCHMARK(BM_OpenFromBootLoader)->Unit(benchmark::kMillisecond)->UseRealTime();

void BM_OpenRunningBoard(benchmark::State& state) {
    OpenAndClose(state, false);
}
BENCHMARK(BM_OpenRunningBoard)->Unit(benchmark::kMillisecond)->UseRealTime();

// Runs `step` on an open Timepix3 board once per iteration; a failing step ends the run.
template <typename Step>
void OnOpenBoard(benchmark::State& state, const char* failure, Step step) {
    if (!Preloaded(state)) {
        return;
    }
    Session session({});
    if (ovexsdk_dev_open(session.Context()) != OVEXSDK_OK) {
        state.SkipWithError("open failed");
        return;
    }
    for (auto _ : state) {
        if (!step(session.Context())) {
            state.SkipWithError(failure);
            break;
        }
    }
    ovexsdk_dev_close(session.Context());
}

// Both units of a Timepix3 board up, then down again: the two power scripts each way.
void BM_PowerCycleTimepix3(benchmark::State& state) {
    OnOpenBoard(state, "power cycle failed", [](ovexsdk_dev_ctx* ctx) {
        return ovexsdk_dev_power_up(ctx) == OVEXSDK_OK && ovexsdk_dev_power_down(ctx) == OVEXSDK_OK;
    });
}
BENCHMARK(BM_PowerCycleTimepix3)->Unit(benchmark::kMillisecond)->UseRealTime();

// A host script that reads one state: the interpreter, the bindings and one request.
void BM_ScriptReadingAState(benchmark::State& state) {
    OnOpenBoard(state, "script failed", [](ovexsdk_dev_ctx* ctx) {
        return ovexsdk_script_execute(ctx,
                                      "local states = Usb.VendorCmd.States.new(device)\n"
                                      "assert(states:get_value('PELTIER') == 350)") == OVEXSDK_OK;
    });
}
BENCHMARK(BM_ScriptReadingAState)->Unit(benchmark::kMillisecond)->UseRealTime();

}  // namespace

BENCHMARK_MAIN();
