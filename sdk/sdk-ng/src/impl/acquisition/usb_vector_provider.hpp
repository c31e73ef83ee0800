#pragma once

// One byte vector per USB transfer of the data endpoint; serves the frame modes.

#include <atomic>
#include <cstdint>
#include <memory>
#include <mutex>
#include <optional>
#include <unordered_map>

#include "impl/acquisition/consumer_queue.hpp"
#include "impl/acquisition/data_provider.hpp"
#include "impl/acquisition/provider_support.hpp"
#include "ovex/usb/async_state.hpp"
#include "ovex/usb/data_producer.hpp"
#include "ovex/usb/usb_device.hpp"

namespace ovex::sdk::acquisition {

namespace detail {

// Lends a fresh vector to each transfer and queues it, cut to the bytes received, for the
// consumer. The transfers never call Acquire, Deliver and Release concurrently. Once the run's
// last lent buffer has come back, the consumer gets the null end item.
class UsbVectorBufferProvider final : public usb::device::IUsbDataProducer {
public:
    using Buffer = std::shared_ptr<std::vector<std::byte>>;
    static constexpr std::size_t kQueueCapacity = 0x100000;

    usb::device::XferBuffer Acquire(std::uint32_t size) override;
    void Deliver(const usb::device::XferBuffer& buffer) override;
    void Release(const usb::device::XferBuffer& buffer) override;

    // Consumer side: blocks until an item is there.
    Buffer Pop() { return m_queue.Pop(); }
    // Before the transfers start, and once they run.
    void Begin() { m_run.Begin(); }
    void Started();
    // The null item that ends the consumer's wait, unless this run has had it already; false
    // if the queue was full. Only once the transfers have ended.
    bool PushEnd();
    // The run's transfers have ended, by themselves or stopped.
    bool Ended() const { return m_run.Ended(); }
    std::size_t Queued() const { return m_queue.Size(); }
    // Drops what the consumer has not taken; the bytes dropped.
    std::size_t Discard();
    // Transfers that arrived while the consumer's queue was full, since construction.
    std::uint64_t Refused() const { return m_refused.load(std::memory_order_relaxed); }

private:
    bool PushEndItem();

    std::unordered_map<const std::uint8_t*, Buffer> m_lent;
    RunEnd m_run;
    ConsumerQueue<Buffer> m_queue{kQueueCapacity};
    std::atomic<std::uint64_t> m_refused{0};
};

}  // namespace detail

class UsbVectorProvider final : public IVectorDataProvider {
public:
    static constexpr std::uint8_t kDataEndpoint = 0x81;

    explicit UsbVectorProvider(std::shared_ptr<usb::device::UsbDevice> device);
    ~UsbVectorProvider() override;
    UsbVectorProvider(const UsbVectorProvider&) = delete;
    UsbVectorProvider& operator=(const UsbVectorProvider&) = delete;

    std::error_code Start(std::uint64_t size) override;
    std::error_code Stop() override;
    bool IsRunning() override;
    // Takes a std::uint16_t: the number of transfers in flight.
    std::error_code Configure(std::any settings) override;
    std::error_code GetData(std::shared_ptr<std::vector<std::byte>>& data) override;

    std::uint16_t QueueSize() const { return m_queue_size; }
    // Transfers waiting for the consumer.
    std::size_t Queued() const { return m_buffers->Queued(); }
    std::uint64_t Refused() const { return m_buffers->Refused(); }

private:
    std::shared_ptr<usb::device::UsbDevice> m_device;
    std::shared_ptr<detail::UsbVectorBufferProvider> m_buffers;
    std::uint16_t m_queue_size = 4;
    std::optional<usb::device::AsyncState> m_state;
    std::mutex m_mutex;
};

}  // namespace ovex::sdk::acquisition
