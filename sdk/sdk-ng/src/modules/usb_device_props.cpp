#include "modules/usb_device_props.hpp"

#include "ovex/log/log.hpp"
#include "ovex/usb/usb_device.hpp"

namespace ovex::sdk {

std::error_code UsbDeviceProperties::ReadInfo(usb::device::DeviceInfo& info) {
    if (!m_device || !m_device->IsOpen()) {
        OVEX_LOG_WARN("Cannot read info, device is not opened.");
        return std::make_error_code(std::errc::io_error);
    }
    if (const auto ec = m_device->GetInfo(info)) {
        OVEX_LOG_EC(log::kError, "Failed to obtain device USB info - %s: %s", ec);
        return ec;
    }
    return {};
}

}  // namespace ovex::sdk
