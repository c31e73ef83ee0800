#pragma once

// The completion thread of one endpoint. libusb's event thread only pushes a finished transfer
// here; all the work of a completion, resubmission included, runs on this thread.

#include <libusb.h>
#include <readerwriterqueue/readerwriterqueue.h>

#include <cstdint>
#include <semaphore>
#include <utility>

#include "thread_mgmt/thread_mgmt.hpp"

namespace ovex::usb::device::impl {

class TransferHandler {
public:
    using Handler = void (*)(libusb_transfer*);

    TransferHandler(std::uint8_t address, std::size_t capacity = 64);
    ~TransferHandler();
    TransferHandler(const TransferHandler&) = delete;
    TransferHandler& operator=(const TransferHandler&) = delete;

    // From the thread that runs libusb's callbacks: lock-free.
    void Push(libusb_transfer* transfer, Handler handler);

private:
    void Run(std::stop_token token);

    const std::uint8_t m_address;
    alignas(64) moodycamel::ReaderWriterQueue<std::pair<libusb_transfer*, Handler>> m_queue;
    std::counting_semaphore<0x7FFFFFFF> m_queued{0};
    thread::WrappedThread<> m_worker;
};

}  // namespace ovex::usb::device::impl
