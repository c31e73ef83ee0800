#pragma once

// One physical device found by enumeration: opening and configuring it, the endpoint table of
// its active configuration, its identity texts.

#include <libusb.h>

#include <memory>
#include <span>
#include <string>
#include <system_error>
#include <variant>
#include <vector>

#include "ovex/usb/device_info.hpp"
#include "ovex/usb/impl/event_handler.hpp"
#include "ovex/usb/usb_endpoint.hpp"

namespace ovex::usb::device {

using AnyEndpoint = std::variant<UsbControlEp, UsbInterruptEp, UsbBulkEp>;

class UsbDevice {
public:
    // Takes over one reference of `device`.
    UsbDevice(libusb_device* device, std::shared_ptr<impl::EventHandler> events);
    ~UsbDevice();
    UsbDevice(UsbDevice&& other) noexcept;
    UsbDevice& operator=(UsbDevice&&) = delete;
    UsbDevice(const UsbDevice&) = delete;
    UsbDevice& operator=(const UsbDevice&) = delete;

    std::error_code Open();
    std::error_code Close();
    bool IsOpen() const { return m_handle != nullptr; }

    std::error_code GetInfo(DeviceInfo& info);
    // "bus.port.address", the name of the device in every message.
    const std::string& GetPath();

    std::span<AnyEndpoint> GetEndpoints() { return m_endpoints; }
    UsbControlEp& GetControlEndpoint();
    // The endpoint of the table with this address and kind, or null.
    template <typename Endpoint>
    Endpoint* FindEndpoint(std::uint8_t address) {
        for (AnyEndpoint& any : m_endpoints) {
            if (auto* endpoint = std::get_if<Endpoint>(&any);
                endpoint && endpoint->GetAddress() == address) {
                return endpoint;
            }
        }
        return nullptr;
    }
    std::error_code IsEndpointHalted(const UsbEndpoint& endpoint, bool& halted);

private:
    std::error_code Configure();
    std::error_code BuildEndpoints();
    std::string ReadString(libusb_device_handle* handle, std::uint8_t index);

    std::string m_path;
    libusb_device* m_device;
    libusb_device_handle* m_handle = nullptr;
    std::vector<AnyEndpoint> m_endpoints;
    std::shared_ptr<impl::EventHandler> m_events;
};

// "1.09" for 0x0109: BCD major, a dot, two BCD digits of minor.
std::string VersionText(std::uint16_t bcd);

}  // namespace ovex::usb::device
