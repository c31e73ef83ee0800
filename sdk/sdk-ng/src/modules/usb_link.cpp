#include "modules/usb_link.hpp"

#include "ovex/usb/usb_device.hpp"

namespace ovex::sdk {

std::error_code UsbLink::Open() {
    bool open = false;
    if (const auto ec = IsOpen(open)) {
        return ec;
    }
    if (open) {
        return std::make_error_code(std::errc::device_or_resource_busy);
    }
    return m_device->Open();
}

std::error_code UsbLink::Close() {
    return m_device->Close();
}

std::error_code UsbLink::IsOpen(bool& is_open) {
    if (!m_device->IsOpen()) {
        is_open = false;
        return {};
    }
    // A status request on endpoint 0 tells whether the board still answers; its halt flag
    // doesn't matter here.
    bool halted = false;
    const auto ec = m_device->IsEndpointHalted(m_device->GetControlEndpoint(), halted);
    if (!ec) {
        is_open = true;
        return {};
    }
    if (ec == std::errc::no_such_device) {
        is_open = false;
        return {};
    }
    return ec;
}

}  // namespace ovex::sdk
