#include "ovex/usb/impl/transfer_handler.hpp"

#include <exception>

#include <fmt/format.h>

#include "ovex/log/log.hpp"
#include "ovex/usb/impl/log_or_drop.hpp"

namespace ovex::usb::device::impl {
namespace {

thread::ThreadParams HandlerParams(std::uint8_t address) {
    thread::ThreadParams params;
    params.name = fmt::format("Endpoint 0x{:02X}", address);
    return params;
}

}  // namespace

TransferHandler::TransferHandler(std::uint8_t address, std::size_t capacity)
    : m_address(address),
      m_queue(capacity),
      m_worker(HandlerParams(address), [this](std::stop_token token) { Run(std::move(token)); }) {}

TransferHandler::~TransferHandler() {
    m_worker.RequestStop();
    // Every transfer of the endpoint has ended, so nothing else pushes now.
    Push(nullptr, nullptr);
    m_worker.Join();
}

void TransferHandler::Push(libusb_transfer* transfer, Handler handler) {
    m_queue.enqueue({transfer, handler});
    m_queued.release();
}

void TransferHandler::Run(std::stop_token token) {
    // Nothing may leave the thread's body, and a lost line must not stop the completions.
    LogOrDrop([] { OVEX_LOG_DEBUG("Transfer handler started."); });
    for (;;) {
        m_queued.acquire();
        std::pair<libusb_transfer*, Handler> item{};
        m_queue.try_dequeue(item);
        if (item.first != nullptr && item.second != nullptr) {
            try {
                item.second(item.first);
            } catch (const std::exception& error) {
                LogOrDrop([&] {
                    OVEX_LOG_ERROR("Handler for transfer %p failed with and exception: %s.",
                                   static_cast<void*>(item.first), error.what());
                });
            } catch (...) {
                LogOrDrop([&] {
                    OVEX_LOG_ERROR("Handler for transfer %p failed with an unknown exception.",
                                   static_cast<void*>(item.first));
                });
            }
        }
        // The owner's wake-up is the only empty item.
        if (item.first == nullptr && token.stop_requested()) {
            if (m_queue.peek() != nullptr) {
                LogOrDrop([this] {
                    OVEX_LOG_ERROR("BUG: Callback queue for endpoint 0x%02X is not empty.",
                                   m_address);
                });
            }
            break;
        }
    }
    LogOrDrop([] { OVEX_LOG_DEBUG("Transfer handler stopped."); });
}

}  // namespace ovex::usb::device::impl
