#pragma once

// The endpoints of an open device. Each runs one transfer at a time and owns the completion
// thread and the pool of libusb transfers of its transfers.

#include <libusb.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <memory>
#include <mutex>
#include <new>
#include <span>
#include <system_error>
#include <utility>
#include <variant>

#include "ovex/log/log.hpp"
#include "ovex/usb/async_state.hpp"
#include "ovex/usb/data_producer.hpp"
#include "ovex/usb/impl/transfer_handler.hpp"
#include "ovex/usb/impl/transfer_pool.hpp"
#include "ovex/usb/transfer.hpp"
#include "ovex/usb/transfer_endless.hpp"

namespace ovex::usb::device {

using AnyTransfer =
    std::variant<std::monostate, std::shared_ptr<Transfer>, std::shared_ptr<TransferEndless>>;

namespace impl {

// Held from the creation of a transfer to its completion, which may come on another thread.
class BusyGate {
public:
    bool TryAcquireUntil(std::chrono::steady_clock::time_point deadline);
    void Release();

private:
    std::mutex m_mutex;
    std::condition_variable m_changed;
    bool m_busy = false;
};

}  // namespace impl

class UsbEndpoint {
public:
    // `context_owner` keeps the libusb context alive while transfers of this endpoint exist.
    UsbEndpoint(libusb_device_handle* handle, const libusb_endpoint_descriptor& descriptor,
                std::shared_ptr<const void> context_owner);
    ~UsbEndpoint();
    // Moves are for building the endpoint table only, while no transfer runs.
    UsbEndpoint(UsbEndpoint&& other) noexcept;
    UsbEndpoint& operator=(UsbEndpoint&&) = delete;
    UsbEndpoint(const UsbEndpoint&) = delete;
    UsbEndpoint& operator=(const UsbEndpoint&) = delete;

    std::uint8_t GetAddress() const { return m_address; }
    std::uint16_t GetMaxPacketSize() const { return m_max_packet_size; }
    libusb_device_handle* GetHandle() const { return m_handle; }
    bool IsIngress() const { return (m_address & LIBUSB_ENDPOINT_IN) != 0; }

    std::error_code ClearHalt();

    // Null if the endpoint stays busy for the whole timeout (0: do not wait).
    std::shared_ptr<Transfer> CreateTransfer(std::span<std::uint8_t> buffer, double timeout);
    std::shared_ptr<TransferEndless> CreatePerpetual(std::uint32_t queue_size, std::uint32_t size,
                                                     bool resubmit, double timeout);
    // Ends a transfer of this endpoint and frees the endpoint.
    void Complete(const AnyTransfer& transfer) noexcept;
    // Aborts what runs and waits until it has been completed.
    std::error_code Terminate();

protected:
    // Completes a transfer when the scope is left, by an exception too, unless it was kept
    // running: no way out of a request leaves the endpoint busy.
    class CompletionGuard {
    public:
        CompletionGuard(UsbEndpoint& endpoint, AnyTransfer transfer)
            : m_endpoint(endpoint), m_transfer(std::move(transfer)) {}
        ~CompletionGuard() {
            if (!m_kept) {
                m_endpoint.Complete(m_transfer);
            }
        }
        CompletionGuard(const CompletionGuard&) = delete;
        CompletionGuard& operator=(const CompletionGuard&) = delete;
        void Keep() { m_kept = true; }

    private:
        UsbEndpoint& m_endpoint;
        AnyTransfer m_transfer;
        bool m_kept = false;
    };

    // One synchronous transfer from creation to completion; `submit` starts it. Memory that runs
    // out on the way is the error `not_enough_memory`.
    template <typename Submit, typename Describe>
    std::error_code RunTransfer(std::span<std::uint8_t> buffer, double timeout,
                                std::size_t* transferred, bool numbered_words, Describe describe,
                                Submit submit);
    PerpetualResult ReadPerpetualOf(AsyncState::Endpoint self, std::uint8_t type,
                                    std::uint32_t queue_size, std::uint32_t size,
                                    std::shared_ptr<IUsbDataProducer> producer, double timeout);

    bool AcquireBusy(double timeout);
    // Takes the endpoint and stores the transfer that `make` builds; if that throws, the
    // endpoint stays free.
    template <typename Make>
    auto Occupy(double timeout, Make make) -> decltype(make());
    // Logs that a transfer of this endpoint ran out of memory; the error to answer.
    std::error_code OutOfMemory() const noexcept;

    std::uint8_t m_address;
    std::uint16_t m_max_packet_size;
    AnyTransfer m_xfer;
    std::mutex m_mutex;
    std::unique_ptr<impl::BusyGate> m_busy;
    std::atomic_flag m_completed;
    libusb_device_handle* m_handle;
    std::unique_ptr<impl::TransferHandler> m_handler;
    std::shared_ptr<impl::TransferPool> m_pool;
};

class UsbControlEp : public UsbEndpoint {
public:
    using UsbEndpoint::UsbEndpoint;
    UsbControlEp(UsbControlEp&&) noexcept = default;

    // Bit 7 of bmRequestType is set (IN) or cleared (OUT), wLength becomes the data's size. At
    // most 1016 bytes travel in one control transfer.
    std::error_code ControlIn(ControlSetup setup, std::span<std::uint8_t> data, double timeout,
                              std::size_t* transferred = nullptr);
    std::error_code ControlOut(ControlSetup setup, std::span<const std::uint8_t> data,
                               double timeout);

private:
    std::error_code Control(ControlSetup setup, std::span<std::uint8_t> data, double timeout,
                            bool in, std::size_t* transferred);
};

class UsbBulkEp : public UsbEndpoint {
public:
    UsbBulkEp(libusb_device_handle* handle, const libusb_endpoint_descriptor& descriptor,
              std::shared_ptr<const void> context_owner);
    UsbBulkEp(UsbBulkEp&&) noexcept = default;

    std::int32_t GetMaxTransferSize() const { return m_max_transfer_size; }

    std::error_code Read(std::span<std::uint8_t> data, double timeout,
                         std::size_t* transferred = nullptr);
    std::error_code Write(std::span<const std::uint8_t> data, double timeout);
    PerpetualResult ReadPerpetual(std::uint32_t queue_size, std::uint32_t transfer_size,
                                  std::shared_ptr<IUsbDataProducer> producer, double timeout);

private:
    std::error_code CheckReadSize(std::size_t size) const;

    std::int32_t m_max_transfer_size;
};

class UsbInterruptEp : public UsbEndpoint {
public:
    using UsbEndpoint::UsbEndpoint;
    UsbInterruptEp(UsbInterruptEp&&) noexcept = default;

    std::error_code Read(std::span<std::uint8_t> data, double timeout,
                         std::size_t* transferred = nullptr);
    std::error_code Write(std::span<const std::uint8_t> data, double timeout);
    PerpetualResult ReadPerpetual(std::uint32_t queue_size, std::uint32_t transfer_size,
                                  std::shared_ptr<IUsbDataProducer> producer, double timeout);
};

inline constexpr std::int32_t kUnlimitedTransferSize = 0x7FFFFFFF;

template <typename Submit, typename Describe>
inline std::error_code UsbEndpoint::RunTransfer(std::span<std::uint8_t> buffer, double timeout,
                                                std::size_t* transferred, bool numbered_words,
                                                Describe describe, Submit submit) {
    try {
        const auto transfer = CreateTransfer(buffer, timeout);
        if (!transfer) {
            return std::make_error_code(std::errc::device_or_resource_busy);
        }
        const CompletionGuard completion(*this, transfer);
        describe(*transfer);
        if (const auto error = submit(*transfer)) {
            if (numbered_words) {
                OVEX_LOG_ERROR("Failed to submit transfer n.%d.", transfer->Id());
            } else {
                OVEX_LOG_ERROR("Failed to submit transfer %d.", transfer->Id());
            }
            return error;
        }
        const UsbResult result = transfer->Wait();
        if (transferred != nullptr) {
            *transferred = static_cast<std::size_t>(result.bytes);
        }
        return result.error;
    } catch (const std::bad_alloc&) {
        return OutOfMemory();
    }
}

}  // namespace ovex::usb::device
