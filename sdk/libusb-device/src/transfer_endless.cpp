#include "ovex/usb/transfer_endless.hpp"

#include <algorithm>

#include "ovex/log/log.hpp"
#include "ovex/usb/impl/log_or_drop.hpp"
#include "ovex/usb/timeout.hpp"
#include "ovex/usb/usb_error.hpp"

namespace ovex::usb::device {
namespace {

std::atomic<std::int32_t> g_next_id{1};

XferBuffer BufferOf(const libusb_transfer* transfer, bool with_data) {
    return {transfer->buffer, static_cast<std::uint32_t>(transfer->length),
            with_data ? static_cast<std::uint32_t>(std::max(transfer->actual_length, 0)) : 0u};
}

}  // namespace

TransferEndless::TransferEndless(impl::TransferHandler& handler,
                                 std::shared_ptr<impl::TransferPool> pool, std::uint32_t queue_size,
                                 std::uint32_t size, bool resubmit)
    : m_id(g_next_id.fetch_add(1, std::memory_order_relaxed)),
      m_pool(std::move(pool)),
      m_size(size),
      m_resubmit(resubmit),
      m_handler(handler) {
    m_in_flight.reserve(queue_size);
    m_result.id = m_id;
}

TransferEndless::~TransferEndless() {
    if (const auto error = AbortAndWait()) {
        impl::LogOrDrop([&] {
            OVEX_LOG_ERROR("Failed to abort perpetual transfer n.%d - %s: %s.", m_id,
                           error.category().name(), error.message().c_str());
        });
    }
}

std::error_code TransferEndless::SubmitBulk(libusb_device_handle* handle, std::uint8_t endpoint,
                                            std::shared_ptr<IUsbDataProducer> producer,
                                            double timeout) {
    return Submit(handle, endpoint, LIBUSB_TRANSFER_TYPE_BULK, std::move(producer), timeout);
}

std::error_code TransferEndless::SubmitInterrupt(libusb_device_handle* handle,
                                                 std::uint8_t endpoint,
                                                 std::shared_ptr<IUsbDataProducer> producer,
                                                 double timeout) {
    return Submit(handle, endpoint, LIBUSB_TRANSFER_TYPE_INTERRUPT, std::move(producer), timeout);
}

std::error_code TransferEndless::Submit(libusb_device_handle* handle, std::uint8_t endpoint,
                                        std::uint8_t type,
                                        std::shared_ptr<IUsbDataProducer> producer,
                                        double timeout) {
    if (!producer || handle == nullptr) {
        return std::make_error_code(std::errc::invalid_argument);
    }
    m_producer = std::move(producer);
    const std::size_t slots = m_in_flight.capacity();
    std::error_code failure;
    impl::PooledTransfer unused;
    {
        // No completion is processed before all are in flight.
        std::lock_guard lock(m_mutex);
        for (std::size_t slot = 0; slot < slots; ++slot) {
            impl::PooledTransfer pooled = m_pool->Get();
            OVEX_CHECK(pooled != nullptr, "Transfer allocation failed.");
            const XferBuffer buffer = m_producer->Acquire(m_size);
            OVEX_CHECK(
                buffer.buffer != nullptr,
                "Failed to request buffer n.%zu out of %zu from IUsbDataProducer instance for "
                "perpetual transfer n.%d.",
                slot, slots, m_id);
            libusb_transfer* inner = pooled->Get();
            inner->dev_handle = handle;
            inner->endpoint = endpoint;
            inner->type = type;
            inner->timeout = ToLibusbTimeout(timeout);
            inner->buffer = buffer.buffer;
            inner->length = static_cast<int>(buffer.size);
            inner->user_data = this;
            inner->callback = &TransferEndless::OnLibusbCallback;
            if (const int result = libusb_submit_transfer(inner); result != 0) {
                failure = error::MakeLibusbError(result);
                m_producer->Release(buffer);
                unused = std::move(pooled);
                break;
            }
            m_in_flight.push_back(std::move(pooled));
        }
    }
    if (failure) {
        if (const auto error = AbortAndWait()) {
            OVEX_LOG_ERROR(
                "Failed to abort already submitted libusb transfers for perpetual transfer n.%d - "
                "%s: %s.",
                m_id, error.category().name(), error.message().c_str());
        }
        unused.reset();
    }
    return failure;
}

void LIBUSB_CALL TransferEndless::OnLibusbCallback(libusb_transfer* transfer) {
    OVEX_CHECK(transfer != nullptr, "BUG: Invalid libusb transfer structure.");
    OVEX_CHECK(transfer->user_data != nullptr, "BUG: Callback parameter is invalid.");
    static_cast<TransferEndless*>(transfer->user_data)
        ->m_handler.Push(transfer, &TransferEndless::OnCompleted);
}

void TransferEndless::OnCompleted(libusb_transfer* transfer) {
    static_cast<TransferEndless*>(transfer->user_data)->Completed(transfer);
}

void TransferEndless::Completed(libusb_transfer* transfer) {
    // The stream's bookkeeping goes on even if the line cannot be formed.
    impl::LogOrDrop([&] { LogCompletion(transfer); });
    switch (transfer->status) {
        case LIBUSB_TRANSFER_COMPLETED:
        case LIBUSB_TRANSFER_TIMED_OUT:
        case LIBUSB_TRANSFER_OVERFLOW:
            DataPath(transfer);
            break;
        case LIBUSB_TRANSFER_ERROR:
        case LIBUSB_TRANSFER_STALL:
        case LIBUSB_TRANSFER_NO_DEVICE:
            FailurePath(transfer, transfer->status);
            break;
        case LIBUSB_TRANSFER_CANCELLED:
            Release(transfer);
            break;
        default:
            break;
    }
    FinishIfDrained();
}

void TransferEndless::LogCompletion(const libusb_transfer* transfer) const {
    const void* address = transfer;
    switch (transfer->status) {
        case LIBUSB_TRANSFER_COMPLETED:
        case LIBUSB_TRANSFER_CANCELLED:
            break;
        case LIBUSB_TRANSFER_ERROR:
            OVEX_LOG_ERROR("Perpetual transfer n.%d - libusb transfer %p failed.", m_id, address);
            break;
        case LIBUSB_TRANSFER_TIMED_OUT:
            OVEX_LOG_WARN("Perpetual transfer n.%d - libusb transfer %p timed-out with %d bytes.",
                          m_id, address, transfer->actual_length);
            break;
        case LIBUSB_TRANSFER_STALL:
            OVEX_LOG_ERROR("Perpetual transfer n.%d - libusb transfer %p stalled.", m_id, address);
            break;
        case LIBUSB_TRANSFER_NO_DEVICE:
            OVEX_LOG_ERROR("Perpetual transfer n.%d - device was disconnected.", m_id);
            break;
        case LIBUSB_TRANSFER_OVERFLOW:
            OVEX_LOG_ERROR(
                "Perpetual transfer n.%d - device sent more data than requested to libusb transfer "
                "%p.",
                m_id, address);
            break;
        default:
            OVEX_LOG_ERROR("BUG: Unhandled transfer status %d.",
                           static_cast<int>(transfer->status));
            break;
    }
}

void TransferEndless::FinishIfDrained() {
    // Set under the mutex: the waiter takes it before it lets the object go.
    std::lock_guard lock(m_mutex);
    if (m_in_flight.empty() && !m_finished.test(std::memory_order_relaxed)) {
        m_finished.test_and_set(std::memory_order_release);
        m_finished.notify_all();
    }
}

void TransferEndless::DataPath(libusb_transfer* transfer) {
    // Every call into the producer runs under the mutex: the starting thread still acquires the
    // first buffers while early transfers complete here.
    std::lock_guard lock(m_mutex);
    m_result.bytes += static_cast<std::uint64_t>(std::max(transfer->actual_length, 0));
    m_producer->Deliver(BufferOf(transfer, true));
    if (m_resubmit && !m_aborted.load(std::memory_order_acquire)) {
        Resubmit(transfer);
    } else {
        Release(transfer);
        (void)CancelAll();
    }
}

// Runs under m_mutex.
void TransferEndless::Resubmit(libusb_transfer* transfer) {
    const XferBuffer next = m_producer->Acquire(m_size);
    if (next.buffer == nullptr) {
        impl::LogOrDrop(
            [this] { OVEX_LOG_DEBUG("Perpetual transfer n.%d - no buffers available.", m_id); });
        FailurePath(transfer, LIBUSB_TRANSFER_COMPLETED);
        return;
    }
    if (m_result.error) {
        impl::LogOrDrop([this] {
            OVEX_LOG_DEBUG("Perpetual transfer n.%d has an error, resubmit skipped.", m_id);
        });
        m_producer->Release(next);
        Release(transfer);
        return;
    }
    m_producer->Release(BufferOf(transfer, false));
    transfer->buffer = next.buffer;
    transfer->length = static_cast<int>(next.size);
    if (const int result = libusb_submit_transfer(transfer); result != 0) {
        impl::LogOrDrop([&] {
            OVEX_LOG_EC(log::kError,
                        "Failed to re-submit libusb transfer %p from perpetual transfer n.%d. "
                        "Reason - %s: %s.",
                        error::MakeLibusbError(result), static_cast<void*>(transfer), m_id);
        });
        FailurePath(transfer, result == LIBUSB_ERROR_NO_DEVICE ? LIBUSB_TRANSFER_NO_DEVICE
                                                               : LIBUSB_TRANSFER_ERROR);
    }
}

void TransferEndless::FailurePath(libusb_transfer* transfer, int status) {
    const std::error_code error = error::MakeTransferError(status);
    if (error) {
        std::lock_guard lock(m_mutex);
        if (!m_result.error) {
            m_result.error = error;
        } else if (m_result.error != error) {
            impl::LogOrDrop([&] {
                OVEX_LOG_EC(log::kWarning,
                            "Perpetual transfer n.%d encountered additional error - %s: %s.", error,
                            m_id);
            });
        }
    }
    Release(transfer);
    // Even on a disconnect the others are cancelled: a transfer that the host controller took
    // just before the device went may otherwise never be given back.
    const CancelOutcome outcome = CancelAll();
    impl::LogOrDrop([&] {
        OVEX_LOG_DEBUG(
            "Cancelled %d libusb remaining libusb transfers from perpetual transfer n.%d.",
            outcome.cancelled, m_id);
    });
}

void TransferEndless::Release(libusb_transfer* transfer) {
    std::lock_guard lock(m_mutex);
    m_producer->Release(BufferOf(transfer, false));
    const auto found = std::find_if(
        m_in_flight.begin(), m_in_flight.end(),
        [transfer](const impl::PooledTransfer& pooled) { return pooled->Get() == transfer; });
    if (found != m_in_flight.end()) {
        m_in_flight.erase(found);
    }
}

TransferEndless::CancelOutcome TransferEndless::CancelAll() {
    CancelOutcome outcome;
    std::lock_guard lock(m_mutex);
    m_aborted.store(true, std::memory_order_release);
    for (std::size_t index = 0; index < m_in_flight.size(); ++index) {
        const int result = libusb_cancel_transfer(m_in_flight[index]->Get());
        if (result == 0 || result == LIBUSB_ERROR_NOT_FOUND || result == LIBUSB_ERROR_NO_DEVICE) {
            ++outcome.cancelled;
            continue;
        }
        impl::LogOrDrop([&] {
            OVEX_LOG_ERROR("Failed to cancel libusb transfer n.%zu for perpetual transfer n.%d.",
                           index, m_id);
        });
        if (!outcome.error) {
            outcome.error = error::MakeLibusbError(result);
        }
    }
    if (outcome.error) {
        impl::LogOrDrop([&] {
            OVEX_LOG_EC(log::kError,
                        "Failed to cancel remaining libusb transfers from perpetual transfer n.%d. "
                        "Reason - %s: %s.",
                        outcome.error, m_id);
        });
    }
    return outcome;
}

std::error_code TransferEndless::Abort() {
    return CancelAll().error;
}

std::error_code TransferEndless::AbortAndWait() {
    const CancelOutcome outcome = CancelAll();
    if (outcome.cancelled > 0) {
        m_finished.wait(false, std::memory_order_acquire);
        std::lock_guard lock(m_mutex);
        m_finished.clear(std::memory_order_relaxed);
        if (m_result.error && m_result.error != std::errc::operation_canceled) {
            impl::LogOrDrop([this] {
                OVEX_LOG_WARN(
                    "Expected perpetual transfer n.%d to terminate with cancellation, but got "
                    "'%s' instead.",
                    m_id, m_result.error.message().c_str());
            });
        }
    }
    return outcome.error;
}

UsbResult TransferEndless::Wait() {
    m_finished.wait(false, std::memory_order_acquire);
    std::lock_guard lock(m_mutex);
    return m_result;
}

}  // namespace ovex::usb::device
