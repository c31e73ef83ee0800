#pragma once

// Transfers that land side by side in arenas and reach the consumer as large spans; serves the
// data-driven Timepix3 modes. No byte is copied between the host controller and the consumer.

#include <atomic>
#include <cstdint>
#include <deque>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>

#include "impl/acquisition/consumer_queue.hpp"
#include "impl/acquisition/data_provider.hpp"
#include "impl/acquisition/provider_support.hpp"
#include "ovex/usb/async_state.hpp"
#include "ovex/usb/data_producer.hpp"
#include "ovex/usb/usb_device.hpp"
#include "tpx3_pipeline/arena.hpp"
#include "tpx3_pipeline/pool.hpp"

namespace ovex::sdk::acquisition {

namespace detail {

// Lends consecutive blocks of the newest arena to the transfers and hands the consumer a span
// of an arena when the arena is full or a short transfer ends the span. Transfers complete in
// the order they were submitted, so the oldest arena in use is always the one that receives.
class UsbArenaBufferProvider final : public usb::device::IUsbDataProducer {
public:
    using ArenaPool = ovex::alloc::Pool<tpx3_pipeline::Arena>;
    // Makes the pool's arenas; by default the arenas of the settings. Throws if it cannot.
    using ArenaFactory =
        std::function<std::unique_ptr<tpx3_pipeline::Arena>(const tpx3_pipeline::Arena::Settings&)>;
    static constexpr std::size_t kQueueCapacity = 0x100000;
    static constexpr std::size_t kReservedArenas = 16;

    explicit UsbArenaBufferProvider(ArenaFactory make_arena = {})
        : m_make_arena(std::move(make_arena)) {}

    // Keeps the pool if its arenas fit `settings`, else makes a new one. Throws what making an
    // arena throws; the provider then has no pool.
    void Configure(const tpx3_pipeline::Arena::Settings& settings);
    bool Configured() const { return m_pool != nullptr; }
    const tpx3_pipeline::Arena::Settings& Settings() const { return m_settings; }
    // Arenas in the pool's free list.
    std::size_t FreeArenas() const { return m_pool ? m_pool->FreeCount() : 0; }

    usb::device::XferBuffer Acquire(std::uint32_t size) override;
    void Deliver(const usb::device::XferBuffer& buffer) override;
    // The span that a block belongs to is known when it is delivered; only the run's end is
    // looked for here.
    void Release(const usb::device::XferBuffer& buffer) override;

    // Before the transfers start (a fresh span in a fresh arena), and once they run.
    void Begin();
    void Started();
    // Ends the run unless it has ended: the span begun is handed out, then the null end item,
    // which follows what fills the queue if it is full (false then). Only once the transfers
    // have ended.
    bool PushEnd();
    bool Ended() const { return m_run.Ended(); }

    // Consumer side: blocks until an item is there; null at the end of a run.
    std::unique_ptr<ArenaData> Pop() { return m_queue.Pop(); }
    std::size_t Queued() const { return m_queue.Size(); }
    // Drops what the consumer has not taken and the arenas in use; the bytes dropped.
    std::size_t Discard();
    // Spans that arrived while the consumer's queue was full, since construction.
    std::uint64_t Refused() const { return m_refused.load(std::memory_order_relaxed); }

private:
    // Where the next delivered transfer should have landed.
    const std::uint8_t* Expected() const;
    // A block that this run lent and that has not been delivered yet.
    bool Awaited(const std::uint8_t* buffer) const;
    // `lost`: a transfer that never delivered.
    void DeliverBlock(std::uint64_t requested, std::uint64_t actual, bool lost);
    void Push(ArenaData item);
    bool EndRun();
    void DropSpan();

    ArenaFactory m_make_arena;
    std::shared_ptr<ArenaPool> m_pool;
    tpx3_pipeline::Arena::Settings m_settings{0, 0};
    ConsumerQueue<std::unique_ptr<ArenaData>> m_queue{kQueueCapacity};
    std::deque<std::shared_ptr<tpx3_pipeline::Arena>> m_arenas;  // oldest in front
    std::uint64_t m_span_start = 0;                              // behind the head room
    std::uint64_t m_span_bytes = 0;
    RunEnd m_run;
    std::atomic<std::uint64_t> m_refused{0};
};

}  // namespace detail

class UsbArenaProvider final : public IArenaDataProvider {
public:
    static constexpr std::uint8_t kDataEndpoint = 0x81;
    static constexpr std::uint32_t kTransfersInFlight = 16;
    static constexpr int kResetAttempts = 5;

    explicit UsbArenaProvider(std::shared_ptr<usb::device::UsbDevice> device,
                              detail::UsbArenaBufferProvider::ArenaFactory make_arena = {});
    ~UsbArenaProvider() override;
    UsbArenaProvider(const UsbArenaProvider&) = delete;
    UsbArenaProvider& operator=(const UsbArenaProvider&) = delete;

    // The transfer size is the arena's block size; `size` is not used.
    std::error_code Start(std::uint64_t size) override;
    std::error_code Stop() override;
    bool IsRunning() override;
    // Takes a tpx3_pipeline::Arena::Settings.
    std::error_code Configure(std::any settings) override;
    std::error_code GetData(std::unique_ptr<ArenaData>& data) override;
    void Reset() override;

    std::size_t Queued() const { return m_buffers->Queued(); }
    std::uint64_t Refused() const { return m_buffers->Refused(); }
    std::size_t FreeArenas() const { return m_buffers->FreeArenas(); }

private:
    // Under the mutex.
    bool Running() const;
    void ResetEndpoint(usb::device::UsbBulkEp& bulk);
    void Discard();

    std::shared_ptr<detail::UsbArenaBufferProvider> m_buffers;
    std::shared_ptr<usb::device::UsbDevice> m_device;
    std::optional<usb::device::AsyncState> m_state;
    std::uint64_t m_block_size = 0;
    std::mutex m_mutex;
};

}  // namespace ovex::sdk::acquisition
