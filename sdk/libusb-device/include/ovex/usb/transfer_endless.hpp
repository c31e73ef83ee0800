#pragma once

// A perpetual transfer: a fixed set of libusb transfers kept in flight on one IN endpoint, each
// resubmitted with a fresh buffer from the producer as soon as it has delivered its data, until
// the owner aborts, the producer runs dry, or the device fails or goes away.

#include <libusb.h>

#include <atomic>
#include <cstdint>
#include <memory>
#include <mutex>
#include <system_error>
#include <utility>
#include <vector>

#include "ovex/usb/data_producer.hpp"
#include "ovex/usb/impl/transfer_handler.hpp"
#include "ovex/usb/impl/transfer_pool.hpp"
#include "ovex/usb/transfer.hpp"

namespace ovex::usb::device {

class TransferEndless {
public:
    TransferEndless(impl::TransferHandler& handler, std::shared_ptr<impl::TransferPool> pool,
                    std::uint32_t queue_size, std::uint32_t size, bool resubmit);
    ~TransferEndless();
    TransferEndless(const TransferEndless&) = delete;
    TransferEndless& operator=(const TransferEndless&) = delete;

    std::int32_t Id() const { return m_id; }
    std::error_code SubmitBulk(libusb_device_handle* handle, std::uint8_t endpoint,
                               std::shared_ptr<IUsbDataProducer> producer, double timeout);
    std::error_code SubmitInterrupt(libusb_device_handle* handle, std::uint8_t endpoint,
                                    std::shared_ptr<IUsbDataProducer> producer, double timeout);
    // Cancels every transfer in flight and returns without waiting.
    std::error_code Abort();
    std::error_code AbortAndWait();
    // Blocks until the last transfer has left; the result of the whole stream.
    UsbResult Wait();

    // Set once the endpoint has been freed of this transfer, by its owner or by the endpoint's
    // termination; whoever comes second leaves the endpoint alone.
    bool MarkEndpointReleased() { return !m_endpoint_released.exchange(true); }
    bool EndpointReleased() const { return m_endpoint_released.load(); }

private:
    struct CancelOutcome {
        int cancelled = 0;
        std::error_code error;
    };

    std::error_code Submit(libusb_device_handle* handle, std::uint8_t endpoint, std::uint8_t type,
                           std::shared_ptr<IUsbDataProducer> producer, double timeout);
    static void LIBUSB_CALL OnLibusbCallback(libusb_transfer* transfer);
    static void OnCompleted(libusb_transfer* transfer);
    void Completed(libusb_transfer* transfer);
    void LogCompletion(const libusb_transfer* transfer) const;
    void DataPath(libusb_transfer* transfer);
    void Resubmit(libusb_transfer* transfer);
    void FailurePath(libusb_transfer* transfer, int status);
    void Release(libusb_transfer* transfer);
    CancelOutcome CancelAll();
    void FinishIfDrained();

    const std::int32_t m_id;
    std::recursive_mutex m_mutex;
    std::vector<impl::PooledTransfer> m_in_flight;
    std::shared_ptr<impl::TransferPool> m_pool;
    const std::uint32_t m_size;
    UsbResult m_result;
    std::atomic_flag m_finished;
    bool m_resubmit;
    std::atomic<bool> m_aborted{false};
    std::atomic<bool> m_endpoint_released{false};
    std::shared_ptr<IUsbDataProducer> m_producer;
    impl::TransferHandler& m_handler;
};

}  // namespace ovex::usb::device
