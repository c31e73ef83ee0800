#include "ovex/usb/transfer.hpp"

#include <algorithm>
#include <cstring>

#include "ovex/log/log.hpp"
#include "ovex/usb/impl/log_or_drop.hpp"
#include "ovex/usb/timeout.hpp"
#include "ovex/usb/usb_error.hpp"

namespace ovex::usb::device {
namespace {

std::atomic<std::int32_t> g_next_id{1};

bool IsControl(const libusb_transfer* transfer) {
    return transfer->type == LIBUSB_TRANSFER_TYPE_CONTROL;
}

}  // namespace

Transfer::Transfer(impl::TransferHandler& handler, std::shared_ptr<impl::TransferPool> pool,
                   std::span<std::uint8_t> user_buffer)
    : m_id(g_next_id.fetch_add(1, std::memory_order_relaxed)),
      m_transfer(pool->Get()),
      m_user_buffer(user_buffer),
      m_handler(handler),
      m_pool(std::move(pool)) {
    OVEX_CHECK(m_transfer != nullptr, "Transfer allocation failed.");
    OVEX_CHECK(user_buffer.data() != nullptr || user_buffer.empty(),
               "BUG: Invalid data buffer provided.");
    m_result.id = m_id;
}

Transfer::~Transfer() = default;

std::error_code Transfer::Submit(libusb_device_handle* handle, std::uint8_t endpoint,
                                 std::uint8_t type, double timeout) {
    std::lock_guard lock(m_mutex);
    libusb_transfer* inner = m_transfer->Get();
    inner->dev_handle = handle;
    inner->endpoint = endpoint;
    inner->type = type;
    inner->timeout = ToLibusbTimeout(timeout);
    inner->user_data = this;
    inner->callback = &Transfer::OnLibusbCallback;
    if (type != LIBUSB_TRANSFER_TYPE_CONTROL) {
        inner->buffer = m_user_buffer.data();
        inner->length = static_cast<int>(m_user_buffer.size());
    }
    return error::MakeLibusbError(libusb_submit_transfer(inner));
}

std::error_code Transfer::SubmitBulk(libusb_device_handle* handle, std::uint8_t endpoint,
                                     double timeout) {
    return Submit(handle, endpoint, LIBUSB_TRANSFER_TYPE_BULK, timeout);
}

std::error_code Transfer::SubmitInterrupt(libusb_device_handle* handle, std::uint8_t endpoint,
                                          double timeout) {
    return Submit(handle, endpoint, LIBUSB_TRANSFER_TYPE_INTERRUPT, timeout);
}

std::error_code Transfer::SubmitControl(libusb_device_handle* handle, const ControlSetup& setup,
                                        double timeout) {
    {
        std::lock_guard lock(m_mutex);
        m_control = std::make_unique<std::uint8_t[]>(kControlBufferSize);  // zeroed
        libusb_fill_control_setup(m_control.get(), setup.bmRequestType, setup.bRequest,
                                  setup.wValue, setup.wIndex, setup.wLength);
        if (setup.bmRequestType < 0x80 && !m_user_buffer.empty()) {
            const std::size_t count =
                std::min<std::size_t>({setup.wLength, kMaxControlPayload, m_user_buffer.size()});
            std::memcpy(m_control.get() + LIBUSB_CONTROL_SETUP_SIZE, m_user_buffer.data(), count);
            OVEX_LOG_DEBUG("Copied %zu bytes from user to control buffer.", count);
        }
        libusb_transfer* inner = m_transfer->Get();
        inner->buffer = m_control.get();
        inner->length = static_cast<int>(setup.wLength + LIBUSB_CONTROL_SETUP_SIZE);
    }
    return Submit(handle, 0, LIBUSB_TRANSFER_TYPE_CONTROL, timeout);
}

void LIBUSB_CALL Transfer::OnLibusbCallback(libusb_transfer* transfer) {
    OVEX_CHECK(transfer != nullptr, "BUG: Invalid libusb transfer structure.");
    OVEX_CHECK(transfer->user_data != nullptr, "BUG: Callback parameter is invalid.");
    static_cast<Transfer*>(transfer->user_data)->m_handler.Push(transfer, &Transfer::OnCompleted);
}

void Transfer::OnCompleted(libusb_transfer* transfer) {
    static_cast<Transfer*>(transfer->user_data)->Completed(transfer);
}

void Transfer::Completed(libusb_transfer* transfer) {
    const std::error_code error = error::MakeTransferError(transfer->status);
    // The result is published even if these lines cannot be formed: the caller waits for it.
    impl::LogOrDrop([&] {
        if (error) {
            OVEX_LOG_DEBUG("Transfer n.%d completed abnormally: %s.", m_id,
                           error.message().c_str());
        }
        if (transfer->status == LIBUSB_TRANSFER_COMPLETED ||
            transfer->status == LIBUSB_TRANSFER_TIMED_OUT) {
            const int requested =
                transfer->length - (IsControl(transfer) ? LIBUSB_CONTROL_SETUP_SIZE : 0);
            OVEX_LOG_DEBUG("Transfer n.%d completed with %d of %d bytes of data.", m_id,
                           transfer->actual_length, requested);
        }
    });
    // The waiter may destroy this object as soon as it sees the flag: set it under the mutex, which
    // the waiter takes before it returns.
    std::lock_guard lock(m_mutex);
    m_status = transfer->status;
    m_result.error = error;
    m_result.bytes = static_cast<std::uint64_t>(std::max(transfer->actual_length, 0));
    m_ready.test_and_set(std::memory_order_release);
    m_ready.notify_all();
}

UsbResult Transfer::Wait() {
    m_ready.wait(false, std::memory_order_acquire);
    std::lock_guard lock(m_mutex);
    m_ready.clear(std::memory_order_relaxed);
    if (m_control) {
        const libusb_transfer* inner = m_transfer->Get();
        const bool in = (m_control[0] & LIBUSB_ENDPOINT_IN) != 0;
        if (in && !m_user_buffer.empty() &&
            (!m_result.error || m_result.error == std::errc::timed_out)) {
            const std::size_t count = std::min<std::size_t>(
                {m_user_buffer.size(), static_cast<std::size_t>(inner->length), m_result.bytes});
            std::memcpy(m_user_buffer.data(), m_control.get() + LIBUSB_CONTROL_SETUP_SIZE, count);
            OVEX_LOG_DEBUG("Copied %zu bytes from control to user buffer.", count);
        }
        m_control.reset();
    }
    m_transfer.reset();
    return m_result;
}

std::error_code Transfer::Abort() {
    {
        std::lock_guard lock(m_mutex);
        if (!m_transfer) {
            return error::MakeLibusbError(LIBUSB_ERROR_NOT_FOUND);
        }
        if (const int result = libusb_cancel_transfer(m_transfer->Get()); result != 0) {
            return error::MakeLibusbError(result);
        }
    }
    m_ready.wait(false, std::memory_order_acquire);
    std::lock_guard lock(m_mutex);
    if (m_status != LIBUSB_TRANSFER_CANCELLED) {
        // Termination runs in destructors: nothing may leave.
        impl::LogOrDrop([this] {
            OVEX_LOG_WARN(
                "Expected transfer n.%d to terminate with cancellation, but got '%s' instead.",
                m_id, m_result.error.message().c_str());
        });
    }
    return {};
}

}  // namespace ovex::usb::device
