#pragma once

// The contract by which a data consumer lends its buffers to a perpetual transfer.

#include <cstdint>

namespace ovex::usb::device {

struct XferBuffer {
    std::uint8_t* buffer = nullptr;
    std::uint32_t size = 0;         // capacity
    std::uint32_t transferred = 0;  // bytes the device delivered; 0 on a fresh buffer
};

// Never called concurrently: the perpetual transfer makes every call under its own lock. The
// first acquisitions run on the thread that starts the transfer, everything else on the
// endpoint's completion thread. A call must not wait for long, since it holds up the stream.
class IUsbDataProducer {
public:
    virtual ~IUsbDataProducer() = default;
    // A buffer of at least `size` bytes, or one with a null `buffer` if none is free.
    virtual XferBuffer Acquire(std::uint32_t size) = 0;
    // A transfer finished: `transferred` bytes of `buffer` hold data.
    virtual void Deliver(const XferBuffer& buffer) = 0;
    // The transfer no longer uses this buffer.
    virtual void Release(const XferBuffer& buffer) = 0;
};

}  // namespace ovex::usb::device
