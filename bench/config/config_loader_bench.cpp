// One full load of each sample chip configuration file (256x256 matrix), through the detection
// that tries the parsers in order: the Timepix3 XML file is taken by the fourth.

#include <benchmark/benchmark.h>

#include <string>

#include "ovex/config_loader/config_loader.hpp"

namespace {

void BM_LoadSample(benchmark::State& state, const char* name) {
    const std::string path = std::string(OVEX_CONFIG_SAMPLES) + "/" + name;
    for (auto _ : state) {
        const ovex::configuration::ConfigLoader loader{std::filesystem::path(path)};
        if (!loader.IsValid()) {
            state.SkipWithError("sample did not load");
            return;
        }
        benchmark::DoNotOptimize(loader.GetChipCount());
    }
}

BENCHMARK_CAPTURE(BM_LoadSample, tpx1_yaml, "tpx1.yaml")->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(BM_LoadSample, tpx2_xml, "tpx2.xml")->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(BM_LoadSample, tpx2_yaml, "tpx2.yaml")->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(BM_LoadSample, tpx3_xml, "tpx3.xml")->Unit(benchmark::kMillisecond);

}  // namespace

BENCHMARK_MAIN();
