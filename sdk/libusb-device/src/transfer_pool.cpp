#include "ovex/usb/impl/transfer_pool.hpp"

#include <new>

#include "ovex/log/log.hpp"
#include "ovex/usb/impl/log_or_drop.hpp"

namespace ovex::usb::device::impl {

LibusbTransfer::~LibusbTransfer() {
    libusb_free_transfer(m_inner);
    LogOrDrop([this] { OVEX_LOG_DEBUG("Underlying %p released.", static_cast<void*>(m_inner)); });
}

void ReturnToPool::operator()(LibusbTransfer* transfer) const noexcept {
    if (const auto owner = pool.lock()) {
        owner->Return(transfer);
    } else {
        delete transfer;
    }
}

std::shared_ptr<TransferPool> TransferPool::Create(std::uint8_t endpoint,
                                                   std::shared_ptr<const void> context_owner) {
    return std::shared_ptr<TransferPool>(new TransferPool(endpoint, std::move(context_owner)));
}

std::unique_ptr<LibusbTransfer> TransferPool::Make() const {
    // Owned from the start, so that no failure below leaks it.
    std::unique_ptr<libusb_transfer, void (*)(libusb_transfer*)> inner(libusb_alloc_transfer(0),
                                                                       &libusb_free_transfer);
    if (!inner) {
        OVEX_LOG_ERROR("Failed to allocate libusb transfer for endpoint 0x%02X.", m_endpoint);
        return nullptr;
    }
    auto transfer = std::make_unique<LibusbTransfer>(inner.get());
    inner.release();
    OVEX_LOG_DEBUG("Underlying %p for endpoint 0x%02X created.",
                   static_cast<void*>(transfer->Get()), m_endpoint);
    return transfer;
}

PooledTransfer TransferPool::Get() {
    std::unique_ptr<LibusbTransfer> transfer;
    {
        std::lock_guard lock(m_mutex);
        if (!m_free.empty()) {
            transfer = std::move(m_free.back());
            m_free.pop_back();
        }
    }
    if (!transfer) {
        transfer = Make();
    }
    return PooledTransfer(transfer.release(), ReturnToPool{weak_from_this()});
}

void TransferPool::Reserve(std::size_t count) {
    std::lock_guard lock(m_mutex);
    while (m_free.size() < count) {
        auto transfer = Make();
        if (!transfer) {
            return;
        }
        m_free.push_back(std::move(transfer));
    }
}

std::size_t TransferPool::FreeCount() const {
    std::lock_guard lock(m_mutex);
    return m_free.size();
}

void TransferPool::Return(LibusbTransfer* transfer) noexcept {
    if (transfer == nullptr) {
        return;
    }
    libusb_transfer* inner = transfer->Get();
    inner->dev_handle = nullptr;
    inner->endpoint = 0;
    inner->type = 0;
    inner->timeout = 0;
    inner->buffer = nullptr;
    inner->length = 0;
    inner->user_data = nullptr;
    inner->callback = nullptr;
    std::unique_ptr<LibusbTransfer> owned(transfer);
    std::lock_guard lock(m_mutex);
    try {
        m_free.push_back(std::move(owned));
    } catch (const std::bad_alloc&) {
        // No room to keep it: it is freed, outside the lock, and made again when needed.
    }
}

}  // namespace ovex::usb::device::impl
