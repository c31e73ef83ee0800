#include "ovex/usb/impl/event_handler.hpp"

#include <algorithm>

#include <fmt/format.h>

#include "ovex/log/log.hpp"
#include "ovex/usb/impl/log_or_drop.hpp"

namespace ovex::usb::device::impl {
namespace {

constexpr std::size_t kHandlerNumber = 1;

}  // namespace

EventHandler::EventHandler(std::shared_ptr<libusb_context> context, thread::ThreadParams params)
    : m_context(std::move(context)), m_params(std::move(params)) {}

EventHandler::~EventHandler() {
    Stop();
    // Joined before the context can go: no event pumping survives libusb_exit.
    m_worker.Join();
}

void EventHandler::Stop() {
    m_worker.RequestStop();
    libusb_interrupt_event_handler(m_context.get());
}

std::error_code EventHandler::AddDevice(libusb_device_handle* handle) {
    if (std::find(m_devices.begin(), m_devices.end(), handle) != m_devices.end()) {
        return std::make_error_code(std::errc::invalid_argument);
    }
    m_devices.push_back(handle);
    if (m_devices.size() != 1) {
        return {};
    }
    thread::ThreadParams params = m_params;
    params.name = fmt::format("{} {}", m_params.name.value_or(""), kHandlerNumber);
    // A worker left over from an earlier start is stopped and joined by the move.
    m_worker = thread::WrappedThread<>(
        params,
        [this](std::stop_token token, std::size_t number) { Run(std::move(token), number); },
        kHandlerNumber);
    return {};
}

std::error_code EventHandler::RemoveDevice(libusb_device_handle* handle) {
    const auto found = std::find(m_devices.begin(), m_devices.end(), handle);
    if (found == m_devices.end()) {
        return std::make_error_code(std::errc::invalid_argument);
    }
    m_devices.erase(found);
    if (m_devices.empty()) {
        Stop();
    }
    return {};
}

void EventHandler::Run(std::stop_token token, std::size_t number) {
    // Nothing may leave the thread's body: a line that cannot be formed is dropped.
    LogOrDrop([number] { OVEX_LOG_INFO("USB event handler n.%zu started.", number); });
    while (!token.stop_requested()) {
        if (const int result = libusb_handle_events(m_context.get()); result != 0) {
            LogOrDrop([result] {
                OVEX_LOG_ERROR("Failed to process USB events: %s.", libusb_strerror(result));
            });
        }
    }
    LogOrDrop([number] { OVEX_LOG_INFO("USB event handler n.%zu terminated.", number); });
}

}  // namespace ovex::usb::device::impl
