#include "ovex/usb/async_state.hpp"

#include "ovex/log/log.hpp"
#include "ovex/usb/impl/log_or_drop.hpp"
#include "ovex/usb/usb_endpoint.hpp"
#include "thread_mgmt/thread_mgmt.hpp"

namespace ovex::usb::device {
namespace {

UsbEndpoint* BaseOf(const AsyncState::Endpoint& endpoint) {
    return std::visit([](auto* specific) -> UsbEndpoint* { return specific; }, endpoint);
}

UsbResult Collect(const std::shared_ptr<TransferEndless>& transfer, UsbEndpoint* endpoint) {
    const UsbResult result = transfer->Wait();
    // A device closed under a running stream has freed (and destroyed) the endpoint already.
    if (!transfer->EndpointReleased()) {
        endpoint->Complete(transfer);
    }
    // Collection runs in a destructor too; the result must not be lost for a line.
    impl::LogOrDrop([&] {
        OVEX_LOG_DEBUG("Perpetual transfer n.%d - %s: %s, received: %llu bytes.", result.id,
                       result.error.category().name(), result.error.message().c_str(),
                       static_cast<unsigned long long>(result.bytes));
    });
    return result;
}

}  // namespace

AsyncState::AsyncState(std::shared_ptr<TransferEndless> transfer, Endpoint endpoint)
    : m_transfer(std::move(transfer)), m_endpoint(endpoint) {}

AsyncState::AsyncState(AsyncState&& other) noexcept
    : m_transfer(std::move(other.m_transfer)),
      m_endpoint(other.m_endpoint),
      m_collected(other.m_collected) {}

AsyncState& AsyncState::operator=(AsyncState&& other) noexcept {
    if (this != &other) {
        AsyncState dropped(std::move(*this));
        m_transfer = std::move(other.m_transfer);
        m_endpoint = other.m_endpoint;
        m_collected = other.m_collected;
    }
    return *this;
}

AsyncState::~AsyncState() {
    if (m_transfer && !m_collected) {
        (void)Abort();
        (void)Collect(m_transfer, BaseOf(m_endpoint));
    }
}

std::error_code AsyncState::Abort() {
    impl::LogOrDrop([this] {
        OVEX_LOG_DEBUG("Perpetual transfer n.%d - async state requested abort.", m_transfer->Id());
    });
    return m_transfer->Abort();
}

std::future<UsbResult> AsyncState::Future() {
    auto future =
        std::async(std::launch::async, [transfer = m_transfer, endpoint = BaseOf(m_endpoint)] {
            // Naming logs a line; without memory for it the task collects unnamed.
            impl::LogOrDrop([] { (void)thread::SetName("ResultAwait"); });
            return Collect(transfer, endpoint);
        });
    // Only now is someone collecting: a task that could not start leaves it to the destructor.
    m_collected = true;
    return future;
}

}  // namespace ovex::usb::device
