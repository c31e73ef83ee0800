#pragma once

// One libusb context: routes libusb's log into the program's log, enumerates devices and hands
// out UsbDevice objects. A cheap copyable handle; devices keep the context alive.

#include <libusb.h>

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "ovex/usb/impl/event_handler.hpp"
#include "ovex/usb/usb_device.hpp"
#include "thread_mgmt/thread_mgmt.hpp"

namespace ovex::usb::device {

class UsbContext {
public:
    using Predicate = std::function<bool(const libusb_device_descriptor&)>;

    // Event thread named "UsbEvents". Throws std::system_error if libusb cannot start.
    UsbContext();
    explicit UsbContext(const thread::ThreadParams& params);

    std::vector<UsbDevice> EnumerateDevices(const Predicate& predicate) const;
    std::vector<UsbDevice> EnumerateDevices(std::uint16_t vendor_id,
                                            std::uint16_t product_id) const;

    libusb_context* Get() const { return m_context.get(); }

private:
    std::shared_ptr<libusb_context> m_context;
    std::shared_ptr<impl::EventHandler> m_events;
};

namespace impl {

// libusb's line without its newline, time stamp, thread and level: from the first '[' behind
// the word "libusb" on. A line without "libusb" stays as it is.
std::string RewriteLibusbLine(const char* line);

}  // namespace impl
}  // namespace ovex::usb::device
