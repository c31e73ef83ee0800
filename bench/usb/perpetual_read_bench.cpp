// Throughput of the perpetual bulk read through the virtual board, the CPU its event and
// endpoint threads use meanwhile, and the time from an unplug to the stream's result.
// Run with LD_PRELOAD=libumockdev-preload.so.0.

#include <benchmark/benchmark.h>

#include <chrono>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "ovex/usb/usb_context.hpp"
#include "ovex/usb/usb_device.hpp"
#include "ovex/vboard/virtual_board.hpp"
#include "support/thread_cpu.hpp"

namespace {

using namespace ovex::usb::device;

// Lends buffers round-robin and only counts what arrives.
class CountingOnly final : public IUsbDataProducer {
public:
    CountingOnly(std::size_t buffers, std::uint32_t size, std::uint64_t stop_after)
        : m_storage(buffers * size), m_size(size), m_buffers(buffers), m_stop_after(stop_after) {}
    XferBuffer Acquire(std::uint32_t) override {
        if (m_acquired * m_size >= m_stop_after) {
            return {};
        }
        std::uint8_t* buffer = m_storage.data() + (m_acquired++ % m_buffers) * m_size;
        return {buffer, m_size, 0};
    }
    void Deliver(const XferBuffer& buffer) override {
        m_bytes += buffer.transferred;
        ++m_transfers;
    }
    void Release(const XferBuffer&) override {}
    std::uint64_t Bytes() const { return m_bytes; }
    std::uint64_t Transfers() const { return m_transfers; }
    std::uint64_t Delivered() const { return m_transfers; }

private:
    std::vector<std::uint8_t> m_storage;
    std::uint32_t m_size;
    std::size_t m_buffers;
    std::uint64_t m_stop_after;
    std::uint64_t m_acquired = 0;
    std::uint64_t m_bytes = 0;
    std::uint64_t m_transfers = 0;
};

struct Bench {
    ovex::vboard::TestBed bed;
    ovex::vboard::VirtualBoard board{bed, 1, {}};
    std::optional<UsbContext> context;
    std::optional<UsbDevice> device;
    UsbBulkEp* bulk = nullptr;

    bool Open() {
        context.emplace();
        auto devices = context->EnumerateDevices(0x1209, 0xAD0E);
        if (devices.size() != 1) {
            return false;
        }
        device.emplace(std::move(devices[0]));
        if (device->Open()) {
            return false;
        }
        bulk = device->FindEndpoint<UsbBulkEp>(0x81);
        return bulk != nullptr;
    }
    ~Bench() {
        device.reset();
        context.reset();
    }
};

bool PreloadMissing(benchmark::State& state) {
    if (ovex::vboard::TestBed::PreloadActive()) {
        return false;
    }
    state.SkipWithError("needs LD_PRELOAD=libumockdev-preload.so.0");
    return true;
}

void BM_PerpetualBulkRead(benchmark::State& state) {
    if (PreloadMissing(state)) {
        return;
    }
    const auto size = static_cast<std::uint32_t>(state.range(0));
    constexpr std::uint64_t kStreamBytes = std::uint64_t{512} << 20;
    Bench bench;
    if (!bench.Open()) {
        state.SkipWithError("no board");
        return;
    }
    std::uint64_t bytes = 0;
    std::uint64_t transfers = 0;
    const double events_before = ovex::bench::ThreadCpuSeconds("UsbEvents 1");
    const double endpoint_before = ovex::bench::ThreadCpuSeconds("Endpoint 0x81");
    const auto start = std::chrono::steady_clock::now();
    for (auto _ : state) {
        auto producer = std::make_shared<CountingOnly>(32, size, kStreamBytes);
        auto started = bench.bulk->ReadPerpetual(16, size, producer, 0.0);
        auto* running = std::get_if<AsyncState>(&started);
        if (running == nullptr) {
            state.SkipWithError("stream did not start");
            return;
        }
        const UsbResult result = running->Future().get();
        bytes += result.bytes;
        transfers += producer->Transfers();
    }
    const double wall =
        std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    state.SetBytesProcessed(static_cast<std::int64_t>(bytes));
    state.counters["transfers_per_s"] =
        benchmark::Counter(static_cast<double>(transfers), benchmark::Counter::kIsRate);
    state.counters["event_thread_cpu"] =
        (ovex::bench::ThreadCpuSeconds("UsbEvents 1") - events_before) / wall;
    state.counters["endpoint_thread_cpu"] =
        (ovex::bench::ThreadCpuSeconds("Endpoint 0x81") - endpoint_before) / wall;
}
BENCHMARK(BM_PerpetualBulkRead)
    ->Arg(65536)
    ->Arg(983040)
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime();

void BM_UnplugToResult(benchmark::State& state) {
    if (PreloadMissing(state)) {
        return;
    }
    Bench bench;
    for (auto _ : state) {
        if (!bench.Open()) {
            state.SkipWithError("no board");
            return;
        }
        auto producer = std::make_shared<CountingOnly>(32, 983040, UINT64_MAX);
        auto started = bench.bulk->ReadPerpetual(16, 983040, producer, 0.0);
        auto& running = std::get<AsyncState>(started);
        while (producer->Delivered() < 4) {
            std::this_thread::yield();
        }
        auto future = running.Future();
        const auto unplugged = std::chrono::steady_clock::now();
        bench.board.Usb().Unplug();
        (void)future.get();
        state.SetIterationTime(
            std::chrono::duration<double>(std::chrono::steady_clock::now() - unplugged).count());
        bench.device.reset();
        bench.context.reset();
        bench.board.Usb().Replug();
    }
}
BENCHMARK(BM_UnplugToResult)->Iterations(20)->UseManualTime()->Unit(benchmark::kMicrosecond);

}  // namespace

BENCHMARK_MAIN();
