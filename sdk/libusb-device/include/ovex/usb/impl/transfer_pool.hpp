#pragma once

// libusb transfer objects of one endpoint, kept for reuse: a stream allocates none after its
// start. A pooled object goes back to its pool when its pointer is dropped, or is freed if the
// pool has gone.

#include <libusb.h>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <mutex>
#include <utility>
#include <vector>

namespace ovex::usb::device::impl {

class LibusbTransfer {
public:
    LibusbTransfer(libusb_transfer* inner) : m_inner(inner) {}
    ~LibusbTransfer();
    LibusbTransfer(const LibusbTransfer&) = delete;
    LibusbTransfer& operator=(const LibusbTransfer&) = delete;

    libusb_transfer* Get() const { return m_inner; }

private:
    libusb_transfer* m_inner;
};

class TransferPool;

struct ReturnToPool {
    std::weak_ptr<TransferPool> pool;
    void operator()(LibusbTransfer* transfer) const noexcept;
};

using PooledTransfer = std::unique_ptr<LibusbTransfer, ReturnToPool>;

class TransferPool : public std::enable_shared_from_this<TransferPool> {
public:
    // `context_owner` keeps the libusb context alive for as long as pooled transfers exist: a
    // stream's result may be collected after its device and context have gone.
    static std::shared_ptr<TransferPool> Create(std::uint8_t endpoint,
                                                std::shared_ptr<const void> context_owner);

    // A free object, or a new one; null if libusb cannot allocate one.
    PooledTransfer Get();
    // Makes sure at least `count` objects are free.
    void Reserve(std::size_t count);
    std::size_t FreeCount() const;

private:
    TransferPool(std::uint8_t endpoint, std::shared_ptr<const void> context_owner)
        : m_context_owner(std::move(context_owner)), m_endpoint(endpoint) {}
    std::unique_ptr<LibusbTransfer> Make() const;
    void Return(LibusbTransfer* transfer) noexcept;
    friend struct ReturnToPool;

    std::shared_ptr<const void> m_context_owner;  // declared first, released last
    const std::uint8_t m_endpoint;
    mutable std::mutex m_mutex;
    std::vector<std::unique_ptr<LibusbTransfer>> m_free;
};

}  // namespace ovex::usb::device::impl
