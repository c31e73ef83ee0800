// What the monitor stream costs on the host, without a device: the endpoint's side (a frame
// copied into the queue) and the receiver's (decoding, and one task per notification), with an
// observer that only counts. Frames of six records, as many as fit in the board's 64-byte packet.

#include <benchmark/benchmark.h>

#include <algorithm>
#include <atomic>
#include <optional>
#include <thread>
#include <vector>

#include "bitmanip/bitmanip.hpp"
#include "ovex/vendor_cmd/impl/monitor_receiver.hpp"

namespace {

using namespace ovex::usb::vendor_cmd;

constexpr std::uint8_t kRecords = 6;

class CountingObserver final : public monitor::IValueObserver {
public:
    void OnAvailabilityChange(std::string_view, monitor::Flags, std::uint32_t) override {
        calls.fetch_add(1, std::memory_order_relaxed);
    }
    void OnIntUpdate(std::string_view, monitor::Flags, std::int32_t, std::uint32_t) override {
        calls.fetch_add(1, std::memory_order_relaxed);
    }
    void OnFloatUpdate(std::string_view, monitor::Flags, float, std::uint32_t) override {
        calls.fetch_add(1, std::memory_order_relaxed);
    }
    std::atomic<std::int64_t> calls{0};
};

std::vector<std::uint8_t> Frame(std::uint32_t timestamp) {
    std::vector<std::uint8_t> frame(kRecords * 10);
    for (std::uint8_t id = 0; id < kRecords; ++id) {
        const auto record = std::span(frame).subspan(id * 10u, 10);
        record[0] = id;
        record[1] = 0x01;
        ovex::bitmanip::float_to_span_le(20.0F + static_cast<float>(id), record.subspan(2, 4));
        ovex::bitmanip::u32_to_span_le(timestamp, record.subspan(6, 4));
    }
    return frame;
}

impl::MetaData Monitors() {
    impl::MetaData metadata;
    for (std::uint16_t id = 0; id < kRecords; ++id) {
        metadata.emplace(id, impl::MetaDatum{std::string(1, static_cast<char>('A' + id)),
                                             id % 2 == 0 ? ValueType::Float : ValueType::Integer,
                                             {0.0F, 100.0F}});
    }
    return metadata;
}

// Frames delivered as the endpoint's handler thread delivers them; a full queue holds the
// delivery back, so the rate is the receiver's. Ends when every notification has run.
void BM_MonitorFrames(benchmark::State& state) {
    const auto observer = std::make_shared<CountingObserver>();
    const auto queue = impl::MakeFrameQueue();
    std::optional<impl::BufferProducer> producer(std::in_place, queue);
    std::thread receiver([&] { impl::RunReceiver(queue, observer, Monitors()); });
    const std::vector<std::uint8_t> frame = Frame(1);
    std::int64_t frames = 0;
    for (auto _ : state) {
        const ovex::usb::device::XferBuffer buffer = producer->Acquire(64);
        std::copy(frame.begin(), frame.end(), buffer.buffer);
        producer->Deliver({buffer.buffer, buffer.size, static_cast<std::uint32_t>(frame.size())});
        ++frames;
    }
    producer.reset();
    receiver.join();
    state.counters["frames/s"] =
        benchmark::Counter(static_cast<double>(frames), benchmark::Counter::kIsRate);
    state.counters["notifications/s"] = benchmark::Counter(
        static_cast<double>(observer->calls.load()), benchmark::Counter::kIsRate);
}
BENCHMARK(BM_MonitorFrames)->UseRealTime()->Unit(benchmark::kMicrosecond);

}  // namespace

BENCHMARK_MAIN();
