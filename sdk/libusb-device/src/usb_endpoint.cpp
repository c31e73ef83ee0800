#include "ovex/usb/usb_endpoint.hpp"

#include "ovex/log/log.hpp"
#include "ovex/usb/impl/log_or_drop.hpp"
#include "ovex/usb/timeout.hpp"
#include "ovex/usb/usb_error.hpp"

namespace ovex::usb::device {
namespace {

constexpr std::size_t kHandlerQueueCapacity = 64;

std::chrono::steady_clock::time_point DeadlineAfter(double timeout) {
    const auto now = std::chrono::steady_clock::now();
    if (!(timeout > 0.0)) {
        return now;
    }
    // Past a few centuries the wait is unbounded anyway.
    const double capped = std::min(timeout, 1e10);
    return now + std::chrono::duration_cast<std::chrono::steady_clock::duration>(
                     std::chrono::duration<double>(capped));
}

}  // namespace

namespace impl {

bool BusyGate::TryAcquireUntil(std::chrono::steady_clock::time_point deadline) {
    std::unique_lock lock(m_mutex);
    if (!m_changed.wait_until(lock, deadline, [this] { return !m_busy; })) {
        return false;
    }
    m_busy = true;
    return true;
}

void BusyGate::Release() {
    {
        std::lock_guard lock(m_mutex);
        m_busy = false;
    }
    m_changed.notify_one();
}

}  // namespace impl

UsbEndpoint::UsbEndpoint(libusb_device_handle* handle, const libusb_endpoint_descriptor& descriptor,
                         std::shared_ptr<const void> context_owner)
    : m_address(descriptor.bEndpointAddress),
      m_max_packet_size(descriptor.wMaxPacketSize),
      m_busy(std::make_unique<impl::BusyGate>()),
      m_handle(handle),
      m_handler(std::make_unique<impl::TransferHandler>(descriptor.bEndpointAddress,
                                                        kHandlerQueueCapacity)),
      m_pool(impl::TransferPool::Create(descriptor.bEndpointAddress, std::move(context_owner))) {}

UsbEndpoint::UsbEndpoint(UsbEndpoint&& other) noexcept
    : m_address(other.m_address),
      m_max_packet_size(other.m_max_packet_size),
      m_xfer(std::move(other.m_xfer)),
      m_busy(std::move(other.m_busy)),
      m_handle(other.m_handle),
      m_handler(std::move(other.m_handler)),
      m_pool(std::move(other.m_pool)) {}

UsbEndpoint::~UsbEndpoint() {
    if (!m_handler) {
        return;  // moved from
    }
    if (const auto error = Terminate()) {
        std::int32_t id = 0;
        if (const auto* one = std::get_if<std::shared_ptr<Transfer>>(&m_xfer); one && *one) {
            id = (*one)->Id();
        }
        impl::LogOrDrop([&] {
            OVEX_LOG_ERROR("Failed to terminate transfer %d - %s: %s.", id, error.category().name(),
                           error.message().c_str());
        });
    }
    m_pool.reset();
    m_handler.reset();
}

std::error_code UsbEndpoint::ClearHalt() {
    return error::MakeLibusbError(libusb_clear_halt(m_handle, m_address));
}

bool UsbEndpoint::AcquireBusy(double timeout) {
    if (!m_busy->TryAcquireUntil(DeadlineAfter(timeout))) {
        OVEX_LOG_DEBUG(
            "Transfer creation failed - wait for inactivity of endpoint 0x%02X timed-out.",
            m_address);
        return false;
    }
    return true;
}

template <typename Make>
auto UsbEndpoint::Occupy(double timeout, Make make) -> decltype(make()) {
    if (!AcquireBusy(timeout)) {
        return nullptr;
    }
    try {
        std::lock_guard lock(m_mutex);
        auto transfer = make();
        m_xfer = transfer;
        m_completed.clear();
        return transfer;
    } catch (...) {
        m_busy->Release();
        throw;
    }
}

std::error_code UsbEndpoint::OutOfMemory() const noexcept {
    const auto error = std::make_error_code(std::errc::not_enough_memory);
    impl::LogOrDrop([&] {
        OVEX_LOG_EC(log::kError, "Transfer on endpoint 0x%02X failed - %s: %s.", error, m_address);
    });
    return error;
}

std::shared_ptr<Transfer> UsbEndpoint::CreateTransfer(std::span<std::uint8_t> buffer,
                                                      double timeout) {
    return Occupy(timeout, [&] { return std::make_shared<Transfer>(*m_handler, m_pool, buffer); });
}

std::shared_ptr<TransferEndless> UsbEndpoint::CreatePerpetual(std::uint32_t queue_size,
                                                              std::uint32_t size, bool resubmit,
                                                              double timeout) {
    return Occupy(timeout, [&] {
        m_pool->Reserve(queue_size);
        return std::make_shared<TransferEndless>(*m_handler, m_pool, queue_size, size, resubmit);
    });
}

void UsbEndpoint::Complete(const AnyTransfer& transfer) noexcept {
    std::lock_guard lock(m_mutex);
    const auto id_of = [](const AnyTransfer& any) -> std::int32_t {
        if (const auto* one = std::get_if<std::shared_ptr<Transfer>>(&any); one && *one) {
            return (*one)->Id();
        }
        if (const auto* endless = std::get_if<std::shared_ptr<TransferEndless>>(&any);
            endless && *endless) {
            return (*endless)->Id();
        }
        return 0;
    };
    if (id_of(transfer) == 0) {
        impl::LogOrDrop([] { OVEX_LOG_WARN("Attempted to complete invalid transfer."); });
        return;
    }
    if (std::holds_alternative<std::monostate>(m_xfer)) {
        // Termination has completed it already; its owner collects the result later.
        if (!m_completed.test()) {
            impl::LogOrDrop([&] {
                OVEX_LOG_ERROR(
                    "BUG: Attempting to complete transfer n.%d which is already completed.",
                    id_of(transfer));
            });
        }
        return;
    }
    OVEX_CHECK(m_xfer == transfer,
               "BUG: Attempting to complete unknown transfer n.%d. Expected n.%d.", id_of(transfer),
               id_of(m_xfer));
    if (const auto* endless = std::get_if<std::shared_ptr<TransferEndless>>(&m_xfer)) {
        (*endless)->MarkEndpointReleased();
    }
    m_xfer = std::monostate{};
    m_busy->Release();
    m_completed.test_and_set();
    m_completed.notify_one();
}

std::error_code UsbEndpoint::Terminate() {
    AnyTransfer running;
    {
        std::lock_guard lock(m_mutex);
        running = m_xfer;
    }
    std::error_code result;
    if (const auto* one = std::get_if<std::shared_ptr<Transfer>>(&running)) {
        result = (*one)->Abort();
        if (result == std::errc::argument_out_of_domain) {
            result.clear();  // it had ended already; its owner completes it
        }
        // The thread that runs the transfer completes it.
        m_completed.wait(false);
    } else if (const auto* endless = std::get_if<std::shared_ptr<TransferEndless>>(&running)) {
        result = (*endless)->Abort();
        (void)(*endless)->Wait();
        Complete(running);
    } else {
        return {};
    }
    m_completed.clear();
    return result;
}

PerpetualResult UsbEndpoint::ReadPerpetualOf(AsyncState::Endpoint self, std::uint8_t type,
                                             std::uint32_t queue_size, std::uint32_t size,
                                             std::shared_ptr<IUsbDataProducer> producer,
                                             double timeout) {
    const bool bulk = type == LIBUSB_TRANSFER_TYPE_BULK;
    if (queue_size == 0) {
        OVEX_LOG_ERROR("Cannot create %s endpoint transfer with 0 libusb transfers.",
                       bulk ? "bulk" : "interrupt");
        return std::make_error_code(std::errc::invalid_argument);
    }
    try {
        const auto transfer = CreatePerpetual(queue_size, size, true, timeout);
        if (!transfer) {
            return std::make_error_code(std::errc::device_or_resource_busy);
        }
        CompletionGuard completion(*this, transfer);
        OVEX_LOG_DEBUG(
            "Created perpetual ingress %s transfer n.%d on endpoint 0x%02X - queue size: %d, "
            "transfer size: %d bytes, timeout per transfer: %ums.",
            bulk ? "bulk" : "interrupt", transfer->Id(), m_address, static_cast<int>(queue_size),
            static_cast<int>(size), ToLibusbTimeout(timeout));
        const auto error =
            bulk ? transfer->SubmitBulk(m_handle, m_address, std::move(producer), timeout)
                 : transfer->SubmitInterrupt(m_handle, m_address, std::move(producer), timeout);
        if (error) {
            OVEX_LOG_ERROR("Failed to submit perpetual transfer %d", transfer->Id());
            return error;
        }
        completion.Keep();
        return PerpetualResult(std::in_place_type<AsyncState>, transfer, self);
    } catch (const std::bad_alloc&) {
        return OutOfMemory();
    }
}

// Control endpoint

std::error_code UsbControlEp::ControlIn(ControlSetup setup, std::span<std::uint8_t> data,
                                        double timeout, std::size_t* transferred) {
    return Control(setup, data, timeout, true, transferred);
}

std::error_code UsbControlEp::ControlOut(ControlSetup setup, std::span<const std::uint8_t> data,
                                         double timeout) {
    // The data is only read: it is copied into the control buffer at submit.
    return Control(setup, {const_cast<std::uint8_t*>(data.data()), data.size()}, timeout, false,
                   nullptr);
}

std::error_code UsbControlEp::Control(ControlSetup setup, std::span<std::uint8_t> data,
                                      double timeout, bool in, std::size_t* transferred) {
    if (data.size() > kMaxControlPayload) {
        OVEX_LOG_ERROR("Control transfer payload too large: %zu > %zu.", data.size(),
                       kMaxControlPayload);
        return std::make_error_code(std::errc::invalid_argument);
    }
    setup.bmRequestType =
        static_cast<std::uint8_t>(in ? (setup.bmRequestType | LIBUSB_ENDPOINT_IN)
                                     : (setup.bmRequestType & ~LIBUSB_ENDPOINT_IN));
    setup.wLength = static_cast<std::uint16_t>(data.size());
    return RunTransfer(
        data, timeout, transferred, true,
        [&](const Transfer& transfer) {
            OVEX_LOG_DEBUG(
                "Created %s control transfer %d on endpoint 0x%02X - bmRequestType: 0x%02X, "
                "bRequest: 0x%02X, "
                "wValue: 0x%04X, wIndex: 0x%04X, wLength: 0x%04X, timeout: %ums.",
                in ? "ingress" : "egress", transfer.Id(), m_address, setup.bmRequestType,
                setup.bRequest, setup.wValue, setup.wIndex, setup.wLength,
                ToLibusbTimeout(timeout));
        },
        [&](Transfer& transfer) { return transfer.SubmitControl(m_handle, setup, timeout); });
}

}  // namespace ovex::usb::device
