#include "impl/acquisition/usb_vector_provider.hpp"

#include <new>
#include <variant>

#include "ovex/log/log.hpp"
#include "ovex/usb/usb_endpoint.hpp"

namespace ovex::sdk::acquisition {

namespace detail {

usb::device::XferBuffer UsbVectorBufferProvider::Acquire(std::uint32_t size) {
    try {
        auto buffer = std::make_shared<std::vector<std::byte>>(size);
        auto* data = reinterpret_cast<std::uint8_t*>(buffer->data());
        m_lent.emplace(data, std::move(buffer));
        m_run.Lent();
        return {data, size, 0};
    } catch (const std::bad_alloc&) {
        // A null buffer ends the transfers in order; what was delivered stays queued.
        OVEX_LOG_ERROR("Out of memory for a USB transfer buffer of %u bytes.", size);
        return {};
    }
}

void UsbVectorBufferProvider::Deliver(const usb::device::XferBuffer& buffer) {
    const auto lent = m_lent.find(buffer.buffer);
    if (lent == m_lent.end()) {
        OVEX_LOG_ERROR("BUG: Unknown buffer received from the device.");
        return;
    }
    Buffer item = lent->second;
    if (buffer.transferred == 0) {
        return;
    }
    item->resize(buffer.transferred);
    // A full queue must not make the transfer callback wait: the transfer is refused, counted
    // and logged instead.
    if (!m_queue.TryPush(item)) {
        m_refused.fetch_add(1, std::memory_order_relaxed);
        OVEX_LOG_ERROR("Consumer queue full, dropped a transfer of %u bytes.", buffer.transferred);
    }
}

void UsbVectorBufferProvider::Release(const usb::device::XferBuffer& buffer) {
    if (m_lent.erase(buffer.buffer) != 0 && m_run.Returned()) {
        PushEndItem();
    }
}

void UsbVectorBufferProvider::Started() {
    if (m_run.Started()) {
        PushEndItem();
    }
}

bool UsbVectorBufferProvider::PushEnd() {
    return !m_run.Claim() || PushEndItem();
}

bool UsbVectorBufferProvider::PushEndItem() {
    if (!m_queue.PushEnd()) {
        // The consumer still gets it, once it has taken what fills the queue.
        OVEX_LOG_ERROR("Potential deadlock: failed to unblock data consumer.");
        return false;
    }
    return true;
}

std::size_t UsbVectorBufferProvider::Discard() {
    std::size_t bytes = 0;
    Buffer item;
    while (m_queue.TryPop(item)) {
        if (item) {
            bytes += item->size();
        }
    }
    return bytes;
}

}  // namespace detail

UsbVectorProvider::UsbVectorProvider(std::shared_ptr<usb::device::UsbDevice> device)
    : m_device(std::move(device)), m_buffers(std::make_shared<detail::UsbVectorBufferProvider>()) {}

UsbVectorProvider::~UsbVectorProvider() {
    if (m_state) {
        Stop();
    }
    m_state.reset();
    if (const std::size_t bytes = m_buffers->Discard(); bytes != 0) {
        OVEX_LOG_WARN("Discarded %zu bytes of unclaimed data.", bytes);
    }
}

std::error_code UsbVectorProvider::Start(std::uint64_t size) {
    std::lock_guard lock(m_mutex);
    if (!m_device) {
        OVEX_LOG_ERROR("BUG: Starting USB data provider without a device.");
        return std::make_error_code(std::errc::no_such_device);
    }
    if (!m_device->IsOpen()) {
        OVEX_LOG_ERROR("BUG: The USB device is not open.");
        return std::make_error_code(std::errc::no_such_device);
    }
    if (m_state && !m_buffers->Ended()) {
        OVEX_LOG_WARN("Already started, skipping USB transfer creation.");
        return std::make_error_code(std::errc::device_or_resource_busy);
    }
    // Transfers that ended by themselves are collected now.
    m_state.reset();
    if (const std::size_t bytes = m_buffers->Discard(); bytes != 0) {
        OVEX_LOG_WARN("Discarded %zu bytes of unclaimed data.", bytes);
    }

    usb::device::UsbBulkEp* bulk = nullptr;
    if (const std::error_code error = detail::FindDataEndpoint(*m_device, kDataEndpoint, bulk)) {
        return error;
    }
    if (const std::error_code error = bulk->ClearHalt()) {
        OVEX_LOG_ERROR("Failed to reset the bulk endpoint 0x%02X.", kDataEndpoint);
        return error;
    }
    if (size == 0 || size > UINT32_MAX) {
        OVEX_LOG_ERROR("Invalid USB transfer size %llu.", static_cast<unsigned long long>(size));
        return std::make_error_code(std::errc::invalid_argument);
    }
    m_buffers->Begin();
    auto started =
        bulk->ReadPerpetual(m_queue_size, static_cast<std::uint32_t>(size), m_buffers, 0.0);
    if (auto* error = std::get_if<std::error_code>(&started)) {
        return *error;
    }
    m_state.emplace(std::move(std::get<usb::device::AsyncState>(started)));
    m_buffers->Started();
    return {};
}

std::error_code UsbVectorProvider::Stop() {
    std::lock_guard lock(m_mutex);
    if (!m_state) {
        OVEX_LOG_WARN("Already stopped, skipping USB transfer abort.");
        return std::make_error_code(std::errc::operation_canceled);
    }
    const std::error_code result =
        detail::StopTransfers(*m_state, m_buffers->Queued(),
                              {"Transfer future is invalid.", "Total received bytes of data"});
    m_state.reset();
    m_buffers->PushEnd();
    OVEX_LOG_INFO("USB data provider stopped.");
    return result;
}

bool UsbVectorProvider::IsRunning() {
    std::lock_guard lock(m_mutex);
    return m_device && m_device->IsOpen() && m_state.has_value() && !m_buffers->Ended();
}

std::error_code UsbVectorProvider::Configure(std::any settings) {
    const auto* queue_size = std::any_cast<std::uint16_t>(&settings);
    if (queue_size == nullptr) {
        OVEX_LOG_ERROR("BUG: Invalid configuration parameter type.");
        return std::make_error_code(std::errc::invalid_argument);
    }
    m_queue_size = *queue_size;
    return {};
}

std::error_code UsbVectorProvider::GetData(std::shared_ptr<std::vector<std::byte>>& data) {
    data = m_buffers->Pop();
    return {};
}

}  // namespace ovex::sdk::acquisition
