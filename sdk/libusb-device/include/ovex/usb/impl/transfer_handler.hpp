#pragma once

// The completion thread of one endpoint. libusb's event thread only pushes a finished transfer
// here; all the work of a completion, resubmission included, runs on this thread.

#include <libusb.h>

// The queue's fences are invisible to ThreadSanitizer; its own annotations tell it the order.
#if defined(__SANITIZE_THREAD__) && !defined(AE_TSAN_ANNOTATE_RELEASE)
namespace moodycamel {
inline int ae_tsan_global;
}
extern "C" void AnnotateHappensBefore(const char*, int, void*);
extern "C" void AnnotateHappensAfter(const char*, int, void*);
#define AE_TSAN_ANNOTATE_RELEASE() \
    AnnotateHappensBefore(__FILE__, __LINE__, (void*)(&::moodycamel::ae_tsan_global))
#define AE_TSAN_ANNOTATE_ACQUIRE() \
    AnnotateHappensAfter(__FILE__, __LINE__, (void*)(&::moodycamel::ae_tsan_global))
#endif
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
