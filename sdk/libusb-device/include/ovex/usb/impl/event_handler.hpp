#pragma once

// The one thread that pumps libusb's events for a context. It runs only while a device of the
// context is open: the first open device starts it, closing the last one stops it.

#include <libusb.h>

#include <cstddef>
#include <memory>
#include <system_error>
#include <vector>

#include "thread_mgmt/thread_mgmt.hpp"

namespace ovex::usb::device::impl {

class EventHandler {
public:
    EventHandler(std::shared_ptr<libusb_context> context, thread::ThreadParams params);
    ~EventHandler();
    EventHandler(const EventHandler&) = delete;
    EventHandler& operator=(const EventHandler&) = delete;

    std::error_code AddDevice(libusb_device_handle* handle);
    std::error_code RemoveDevice(libusb_device_handle* handle);

    libusb_context* Context() const { return m_context.get(); }

private:
    void Run(std::stop_token token, std::size_t number);
    void Stop();

    thread::WrappedThread<> m_worker;
    std::shared_ptr<libusb_context> m_context;
    std::vector<libusb_device_handle*> m_devices;
    thread::ThreadParams m_params;
};

}  // namespace ovex::usb::device::impl
