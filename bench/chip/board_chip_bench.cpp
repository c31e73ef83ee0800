// The chip of a virtual Timepix3 board through the exported interface, on one board opened and
// powered up once: a full pixel matrix written, read back and compared, the matrix written alone,
// a configuration file of each generation loaded and applied, and a threshold round trip. The
// data endpoint sends only the chip's read-back. Run with LD_PRELOAD=libumockdev-preload.so.0.

#include <benchmark/benchmark.h>

#include <cstdint>
#include <cstdio>
#include <fstream>
#include <functional>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "api_internal.hpp"
#include "ovexsdk.h"
#include "support/board_session.hpp"

namespace {

using ovex::vboard::TestBed;

constexpr std::size_t kPixels = 65536;
constexpr const char* kChipId = "H05-W0318";

using Session = ovex::bench::BoardSession;

// Resets the chip, writes its default matrix, reads it back over the data endpoint and compares
// it, then writes `host`.
bool ConfigureFromMatrix(ovexsdk_dev_ctx* ctx, std::vector<std::uint8_t>& host) {
    ovexsdk_chip_matrix matrix{host.data(), host.size()};
    std::vector<ovexsdk_chip_pix_indices> bad(kPixels);
    std::uint64_t count = 0;
    return ovex::sdk::ovexsdk_chip_configure_from_matrix(ctx, 0, &matrix, bad.data(), &count) ==
               OVEXSDK_OK &&
           count == 0;
}

void FullMatrix(benchmark::State& state, Session& session) {
    std::vector<std::uint8_t> host(kPixels);
    for (std::size_t i = 0; i < kPixels; ++i) {
        host[i] = static_cast<std::uint8_t>((i * 37 + i / 256) % 64);
    }
    const std::size_t before = session.Requests();
    for (auto _ : state) {
        if (!ConfigureFromMatrix(session.Context(), host)) {
            state.SkipWithError("matrix configuration failed");
            return;
        }
    }
    session.CountRequests(state, before);
}

// A user mask merges into the chip's matrix, which is then written whole, without a read-back.
void MatrixWrite(benchmark::State& state, Session& session) {
    std::vector<std::uint8_t> host(kPixels, 0x10);
    std::vector<std::uint8_t> mask(kPixels, 0);
    const ovexsdk_chip_pixel_mask user{mask.data(), mask.size()};
    if (!ConfigureFromMatrix(session.Context(), host)) {
        state.SkipWithError("matrix configuration failed");
        return;
    }
    const std::size_t before = session.Requests();
    for (auto _ : state) {
        if (ovexsdk_chip_set_pixel_mask(session.Context(), 0, &user) != OVEXSDK_OK) {
            state.SkipWithError("mask failed");
            return;
        }
    }
    session.CountRequests(state, before);
}

std::string ReadSample(const char* name) {
    std::ifstream file(std::string(OVEX_CHIP_SAMPLES) + "/" + name, std::ios::binary);
    std::ostringstream text;
    text << file.rdbuf();
    return text.str();
}

// The sample file `name` with the chip id `id` replaced by this board's chip's.
std::string SampleForThisChip(const char* name, const std::string& id) {
    std::string text = ReadSample(name);
    for (auto at = text.find(id); at != std::string::npos; at = text.find(id, at + id.size())) {
        text.replace(at, id.size(), kChipId);
    }
    return text;
}

void ConfigureFromFile(benchmark::State& state, Session& session, const std::string& text) {
    const std::size_t before = session.Requests();
    for (auto _ : state) {
        if (ovexsdk_chip_configure_from_string(session.Context(), 0, text.c_str()) != OVEXSDK_OK) {
            state.SkipWithError("configuration failed");
            return;
        }
    }
    session.CountRequests(state, before);
    state.counters["file_KB"] = static_cast<double>(text.size()) / 1000.0;
}

// A threshold in keV set through the Timepix3 file's calibration and read back, alternating
// between two energies so that every set changes the chip's DACs.
void ThresholdRoundTrip(benchmark::State& state, Session& session, const std::string& tpx3) {
    if (ovexsdk_chip_configure_from_string(session.Context(), 0, tpx3.c_str()) != OVEXSDK_OK) {
        state.SkipWithError("configuration failed");
        return;
    }
    const float energies[2] = {4.25f, 20.0f};
    std::size_t turn = 0;
    const std::size_t before = session.Requests();
    for (auto _ : state) {
        float kev = 0;
        if (ovexsdk_chip_set_thld(session.Context(), 0, energies[turn]) != OVEXSDK_OK ||
            ovexsdk_chip_get_thld(session.Context(), 0, &kev) != OVEXSDK_OK) {
            state.SkipWithError("threshold round trip failed");
            return;
        }
        benchmark::DoNotOptimize(kev);
        turn ^= 1;
    }
    session.CountRequests(state, before);
}

}  // namespace

int main(int argc, char** argv) {
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) {
        return 1;
    }
    if (!TestBed::PreloadActive()) {
        std::fprintf(stderr, "board_chip_bench: needs LD_PRELOAD=libumockdev-preload.so.0\n");
        return 1;
    }
    Session session;
    if (!session.Ready()) {
        std::fprintf(stderr, "board_chip_bench: the board did not open and power up\n");
        return 1;
    }
    // The sample of each generation, written for this board's chip; read here, once.
    const std::string tpx3 = ReadSample("tpx3.xml");
    const std::pair<const char*, std::string> samples[] = {
        {"BM_ConfigureFromFile/tpx3_xml", tpx3},
        {"BM_ConfigureFromFile/tpx1_yaml", SampleForThisChip("tpx1.yaml", "K09-W0107")},
        {"BM_ConfigureFromFile/tpx2_yaml", SampleForThisChip("tpx2.yaml", "E07-W0025")},
        {"BM_ConfigureFromFile/tpx2_xml", SampleForThisChip("tpx2.xml", "E07-W0025")}};

    std::vector<benchmark::internal::Benchmark*> benches = {
        benchmark::RegisterBenchmark("BM_MatrixWriteReadBackWrite", FullMatrix, std::ref(session)),
        benchmark::RegisterBenchmark("BM_MatrixWrite", MatrixWrite, std::ref(session))};
    for (const auto& [name, text] : samples) {
        benches.push_back(
            benchmark::RegisterBenchmark(name, ConfigureFromFile, std::ref(session), text));
    }
    benches.push_back(benchmark::RegisterBenchmark("BM_ThresholdRoundTrip", ThresholdRoundTrip,
                                                   std::ref(session), tpx3));
    for (auto* bench : benches) {
        bench->Unit(benchmark::kMillisecond)->UseRealTime();
    }
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
