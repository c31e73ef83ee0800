#pragma once

// A host's session with one virtual Timepix3 board on its own bus, for the benchmarks that go
// through the exported interface: the context, opened and with both units powered up once.

#include <benchmark/benchmark.h>

#include <cstddef>
#include <utility>

#include "ovex/vboard/virtual_board.hpp"
#include "ovexsdk.h"

namespace ovex::bench {

class BoardSession {
public:
    // A board whose data endpoint sends nothing but what the chip reads out.
    static vboard::VirtualBoard::Settings Quiet() {
        vboard::VirtualBoard::Settings settings;
        settings.stream.total_bytes = 0;
        return settings;
    }

    explicit BoardSession(vboard::VirtualBoard::Settings settings = Quiet())
        : m_board(m_bed, 1, std::move(settings)) {
        ovexsdk_ctx_create(&m_ctx, "usb:sn:OVX00001");
        m_ready =
            ovexsdk_dev_open(&m_ctx) == OVEXSDK_OK && ovexsdk_dev_power_up(&m_ctx) == OVEXSDK_OK;
    }
    ~BoardSession() {
        ovexsdk_dev_close(&m_ctx);
        ovexsdk_ctx_release(&m_ctx);
    }
    BoardSession(const BoardSession&) = delete;
    BoardSession& operator=(const BoardSession&) = delete;

    bool Ready() const { return m_ready; }
    ovexsdk_dev_ctx* Context() { return &m_ctx; }
    vboard::VirtualBoard& Board() { return m_board; }
    // Control requests the board has received so far.
    std::size_t Requests() { return m_board.Firmware().RequestLog().size(); }

    // A powered board, or the benchmark skipped with the reason.
    bool Usable(benchmark::State& state) const {
        if (!vboard::TestBed::PreloadActive()) {
            state.SkipWithError("needs LD_PRELOAD=libumockdev-preload.so.0");
            return false;
        }
        if (!m_ready) {
            state.SkipWithError("open or power-up failed");
            return false;
        }
        return true;
    }

    // Control requests per iteration since `before`, as the counter "requests".
    void CountRequests(benchmark::State& state, std::size_t before) {
        state.counters["requests"] =
            static_cast<double>(Requests() - before) / static_cast<double>(state.iterations());
    }

private:
    vboard::TestBed m_bed;
    vboard::VirtualBoard m_board;
    ovexsdk_dev_ctx m_ctx{};
    bool m_ready = false;
};

}  // namespace ovex::bench
