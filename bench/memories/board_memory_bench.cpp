// The memories of a virtual Timepix3 board through the exported interface, on one board opened and
// powered up once (the back-end flash answers only behind the back end's power-up): an image of
// the back-end flash erased, programmed sector by sector, read back and compared, and the whole
// EEPROM read. The data endpoint sends nothing. Run with LD_PRELOAD=libumockdev-preload.so.0.

#include <benchmark/benchmark.h>

#include <chrono>
#include <cstdint>
#include <cstring>
#include <random>
#include <vector>

#include "ovexsdk.h"
#include "support/board_session.hpp"

namespace {

constexpr std::uint8_t kBackendFlash = 0;
constexpr std::uint8_t kEeprom = 0;
constexpr std::uint64_t kEepromBytes = 64 * 1024;

using Session = ovex::bench::BoardSession;

double Seconds(std::chrono::steady_clock::duration duration) {
    return std::chrono::duration<double>(duration).count();
}

// Every sector of the image's range erased and programmed.
bool Program(ovexsdk_dev_ctx* ctx, std::vector<std::uint8_t>& image, std::uint32_t sector_size) {
    for (std::uint32_t address = 0; address < image.size(); address += sector_size) {
        const ovexsdk_flash_buffer sector{image.data() + address, sector_size};
        const ovexsdk_flash_program_input input{kBackendFlash, address, &sector};
        if (ovexsdk_flash_erase_sector(ctx, kBackendFlash, address) != OVEXSDK_OK ||
            ovexsdk_flash_program_sector(ctx, &input) != OVEXSDK_OK) {
            return false;
        }
    }
    return true;
}

// The image's range read back in one call and compared.
bool Verify(ovexsdk_dev_ctx* ctx, const std::vector<std::uint8_t>& image,
            std::vector<std::uint8_t>& back) {
    const ovexsdk_flash_read_input input{kBackendFlash, 0, image.size()};
    ovexsdk_flash_buffer buffer{back.data(), back.size()};
    return ovexsdk_flash_read(ctx, &input, &buffer) == OVEXSDK_OK && buffer.size == image.size() &&
           std::memcmp(back.data(), image.data(), image.size()) == 0;
}

// An image of state.range(0) bytes from the flash's start, whole sectors of its first region:
// erased and programmed sector by sector, then read back and compared. The counters split the
// time between the two halves.
void BM_FlashProgramAndVerify(benchmark::State& state) {
    Session session;
    if (!session.Usable(state)) {
        return;
    }
    ovexsdk_flash_region_info region{};
    if (ovexsdk_flash_get_region_info(session.Context(), kBackendFlash, 0, &region) != OVEXSDK_OK ||
        region.sector_size == 0 || state.range(0) % region.sector_size != 0) {
        state.SkipWithError("no region of whole sectors for the image");
        return;
    }
    std::vector<std::uint8_t> image(static_cast<std::size_t>(state.range(0)));
    std::vector<std::uint8_t> back(image.size());
    std::mt19937 random(14);
    const std::size_t before = session.Requests();
    std::chrono::steady_clock::duration programming{};
    std::chrono::steady_clock::duration verifying{};
    for (auto _ : state) {
        // A new image each time, so that a read-back of the last one can't pass.
        for (auto& byte : image) {
            byte = static_cast<std::uint8_t>(random());
        }
        const auto start = std::chrono::steady_clock::now();
        if (!Program(session.Context(), image, region.sector_size)) {
            state.SkipWithError("programming failed");
            return;
        }
        const auto programmed = std::chrono::steady_clock::now();
        if (!Verify(session.Context(), image, back)) {
            state.SkipWithError("the image read back differs");
            return;
        }
        programming += programmed - start;
        verifying += std::chrono::steady_clock::now() - programmed;
    }
    session.CountRequests(state, before);
    const auto iterations = static_cast<double>(state.iterations());
    state.counters["program_s"] = Seconds(programming) / iterations;
    state.counters["verify_s"] = Seconds(verifying) / iterations;
    state.SetBytesProcessed(state.iterations() * state.range(0));
}
BENCHMARK(BM_FlashProgramAndVerify)
    ->Arg(1 << 20)
    ->Unit(benchmark::kSecond)
    ->UseRealTime()
    ->Iterations(1);

// The whole EEPROM in one call.
void BM_EepromRead(benchmark::State& state) {
    Session session;
    if (!session.Usable(state)) {
        return;
    }
    std::vector<std::uint8_t> bytes(kEepromBytes);
    const std::size_t before = session.Requests();
    for (auto _ : state) {
        std::uint64_t length = bytes.size();
        if (ovexsdk_eeprom_read(session.Context(), kEeprom, 0, bytes.data(), &length) !=
                OVEXSDK_OK ||
            length != bytes.size()) {
            state.SkipWithError("EEPROM read failed");
            return;
        }
    }
    session.CountRequests(state, before);
    state.SetBytesProcessed(state.iterations() * static_cast<std::int64_t>(bytes.size()));
}
BENCHMARK(BM_EepromRead)->Unit(benchmark::kMillisecond)->UseRealTime();

}  // namespace

BENCHMARK_MAIN();
