#include "ovex/usb/usb_device.hpp"

#include <mutex>
#include <optional>
#include <utility>

#include <fmt/format.h>

#include "ovex/log/log.hpp"
#include "ovex/usb/usb_error.hpp"

namespace ovex::usb::device {
namespace {

constexpr double kHaltQueryTimeout = 5.0;

// Endpoint 0 has no descriptor of its own; one is made up, once, from the first device opened.
const libusb_endpoint_descriptor& ControlDescriptor(const libusb_device_descriptor& device) {
    static std::once_flag once;
    static libusb_endpoint_descriptor descriptor{};
    std::call_once(once, [&] {
        descriptor.bLength = 7;
        descriptor.bDescriptorType = LIBUSB_DT_ENDPOINT;
        descriptor.bEndpointAddress = 0;
        descriptor.bmAttributes = LIBUSB_TRANSFER_TYPE_CONTROL;
        descriptor.wMaxPacketSize = device.bcdUSB >= 0x0201
                                        ? static_cast<std::uint16_t>(1u << device.bMaxPacketSize0)
                                        : device.bMaxPacketSize0;
    });
    return descriptor;
}

}  // namespace

std::string VersionText(std::uint16_t v) {
    const int major = (v >> 12 & 15) * 10 + (v >> 8 & 15);
    const int minor = (v >> 4 & 15) * 10 + (v & 15);
    return fmt::format("{}.{:02d}", major, minor);
}

UsbDevice::UsbDevice(libusb_device* device, std::shared_ptr<impl::EventHandler> events)
    : m_device(device), m_events(std::move(events)) {}

UsbDevice::UsbDevice(UsbDevice&& other) noexcept
    : m_path(std::move(other.m_path)),
      m_device(std::exchange(other.m_device, nullptr)),
      m_handle(std::exchange(other.m_handle, nullptr)),
      m_endpoints(std::move(other.m_endpoints)),
      m_events(std::move(other.m_events)) {}

UsbDevice::~UsbDevice() {
    if (m_device == nullptr) {
        return;  // moved from
    }
    if (const auto error = Close()) {
        OVEX_LOG_ERROR("Failed to close the device '%s': %s.", GetPath().c_str(),
                       error.message().c_str());
    }
    libusb_unref_device(m_device);
}

const std::string& UsbDevice::GetPath() {
    if (m_path.empty()) {
        m_path = fmt::format("{}.{}.{}", libusb_get_bus_number(m_device),
                             libusb_get_port_number(m_device), libusb_get_device_address(m_device));
    }
    return m_path;
}

std::error_code UsbDevice::Open() {
    if (m_handle != nullptr) {
        return std::make_error_code(std::errc::device_or_resource_busy);
    }
    if (const int result = libusb_open(m_device, &m_handle); result != 0) {
        const auto error = error::MakeLibusbError(result);
        OVEX_LOG_EC(log::kError, "Failed to open device at '%s' - %s: %s.", error,
                    GetPath().c_str());
        m_handle = nullptr;
        return error;
    }
    if (const auto error = Configure()) {
        libusb_close(std::exchange(m_handle, nullptr));
        return error;
    }
    if (const auto error = m_events->AddDevice(m_handle)) {
        OVEX_LOG_EC(log::kError, "Failed to register device '%s' with USB event handler - %s: %s",
                    error, GetPath().c_str());
        libusb_release_interface(m_handle, 0);
        libusb_close(std::exchange(m_handle, nullptr));
        return error;
    }
    if (const auto error = BuildEndpoints()) {
        m_endpoints.clear();
        libusb_release_interface(m_handle, 0);
        (void)m_events->RemoveDevice(m_handle);
        libusb_close(std::exchange(m_handle, nullptr));
        return error;
    }
    return {};
}

std::error_code UsbDevice::Configure() {
    int result = libusb_set_configuration(m_handle, -1);
    if (result == LIBUSB_ERROR_NOT_SUPPORTED) {
        OVEX_LOG_DEBUG("Setting device configuration is not supported on this OS.");
    } else if (result != 0) {
        OVEX_LOG_EC(log::kError, "Failed to reset device configuration - %s: %s",
                    error::MakeLibusbError(result));
        return error::MakeLibusbError(result);
    } else if ((result = libusb_set_configuration(m_handle, 1)) != 0) {
        OVEX_LOG_EC(log::kError, "Failed to select device configuration - %s: %s",
                    error::MakeLibusbError(result));
        return error::MakeLibusbError(result);
    }
    result = libusb_set_auto_detach_kernel_driver(m_handle, 1);
    if (result == LIBUSB_ERROR_NOT_SUPPORTED) {
        OVEX_LOG_DEBUG("Kernel driver auto attachment is not supported on this OS.");
    } else if (result != 0) {
        OVEX_LOG_EC(log::kError, "Failed to configure kernel driver auto attachment - %s: %s",
                    error::MakeLibusbError(result));
        return error::MakeLibusbError(result);
    }
    if ((result = libusb_claim_interface(m_handle, 0)) != 0) {
        OVEX_LOG_EC(log::kError, "Failed to claim interface 0 for the device - %s: %s",
                    error::MakeLibusbError(result));
        return error::MakeLibusbError(result);
    }
    return {};
}

std::error_code UsbDevice::BuildEndpoints() {
    libusb_device_descriptor device{};
    if (const int result = libusb_get_device_descriptor(m_device, &device); result != 0) {
        OVEX_LOG_EC(log::kError, "Failed to get device descriptor for device at '%s' - %s: %s.",
                    error::MakeLibusbError(result), GetPath().c_str());
        return error::MakeLibusbError(result);
    }
    libusb_config_descriptor* config = nullptr;
    if (const int result = libusb_get_active_config_descriptor(m_device, &config); result != 0) {
        OVEX_LOG_EC(log::kError,
                    "Failed to get active config descriptor for device at '%s' - %s: %s.",
                    error::MakeLibusbError(result), GetPath().c_str());
        return error::MakeLibusbError(result);
    }
    const std::string name = ReadString(m_handle, config->iConfiguration);
    OVEX_LOG_DEBUG("Processing configuration '%s' for device '%s'.", name.c_str(),
                   GetPath().c_str());

    std::vector<libusb_endpoint_descriptor> descriptors = {ControlDescriptor(device)};
    for (int i = 0; i < config->bNumInterfaces; ++i) {
        const libusb_interface& interface = config->interface[i];
        for (int a = 0; a < interface.num_altsetting; ++a) {
            const libusb_interface_descriptor& setting = interface.altsetting[a];
            descriptors.insert(descriptors.end(), setting.endpoint,
                               setting.endpoint + setting.bNumEndpoints);
        }
    }
    OVEX_LOG_DEBUG("Found %zu endpoints on device '%s':", descriptors.size(), GetPath().c_str());
    m_endpoints.reserve(descriptors.size());
    for (const libusb_endpoint_descriptor& descriptor : descriptors) {
        const unsigned address = descriptor.bEndpointAddress;
        const int packet = descriptor.wMaxPacketSize;
        switch (descriptor.bmAttributes & 3) {
            case LIBUSB_TRANSFER_TYPE_CONTROL:
                OVEX_LOG_DEBUG("Endpoint 0x%02X: type=control, max_pkt_size=%d.", address, packet);
                m_endpoints.emplace_back(std::in_place_type<UsbControlEp>, m_handle, descriptor,
                                         m_events);
                break;
            case LIBUSB_TRANSFER_TYPE_BULK:
                OVEX_LOG_DEBUG("Endpoint 0x%02X: type=bulk, max_pkt_size=%d.", address, packet);
                m_endpoints.emplace_back(std::in_place_type<UsbBulkEp>, m_handle, descriptor,
                                         m_events);
                break;
            case LIBUSB_TRANSFER_TYPE_INTERRUPT:
                OVEX_LOG_DEBUG("Endpoint 0x%02X: type=interrupt, max_pkt_size=%d.", address,
                               packet);
                m_endpoints.emplace_back(std::in_place_type<UsbInterruptEp>, m_handle, descriptor,
                                         m_events);
                break;
            default:
                OVEX_LOG_WARN("Isochronous endpoints are not supported.");
                break;
        }
    }
    libusb_free_config_descriptor(config);
    return {};
}

std::error_code UsbDevice::Close() {
    if (m_handle == nullptr) {
        return {};
    }
    // Every endpoint ends its transfer and its completion thread before the interface goes.
    m_endpoints.clear();
    if (const int result = libusb_release_interface(m_handle, 0); result != 0) {
        OVEX_LOG_ERROR("Failed to release claimed device interface: %s", libusb_strerror(result));
    }
    libusb_close(m_handle);
    const auto error = m_events->RemoveDevice(m_handle);
    m_handle = nullptr;
    return error;
}

std::string UsbDevice::ReadString(libusb_device_handle* handle, std::uint8_t index) {
    if (index == 0) {
        return "UNKNOWN";
    }
    unsigned char text[256] = {};
    if (const int result =
            libusb_get_string_descriptor_ascii(handle, index, text, sizeof(text) - 1);
        result < 0) {
        OVEX_LOG_ERROR("Failed to read string descriptor at index %d: %s.", index,
                       libusb_strerror(result));
        return "UNKNOWN";
    }
    return reinterpret_cast<const char*>(text);
}

std::error_code UsbDevice::GetInfo(DeviceInfo& info) {
    libusb_device_handle* handle = m_handle;
    if (handle == nullptr) {
        if (const int result = libusb_open(m_device, &handle); result != 0) {
            OVEX_LOG_ERROR("Failed to open device %s: %s.", GetPath().c_str(),
                           libusb_strerror(result));
            return error::MakeLibusbError(result);
        }
    }
    std::error_code error;
    libusb_device_descriptor descriptor{};
    if (const int result = libusb_get_device_descriptor(m_device, &descriptor); result != 0) {
        OVEX_LOG_ERROR("Failed to read device descriptor of device %s: %s.", GetPath().c_str(),
                       libusb_strerror(result));
        error = error::MakeLibusbError(result);
    } else {
        info.product = ReadString(handle, descriptor.iProduct);
        info.manufacturer = ReadString(handle, descriptor.iManufacturer);
        info.serial = ReadString(handle, descriptor.iSerialNumber);
        info.version = VersionText(descriptor.bcdDevice);
        info.path = GetPath();
    }
    if (handle != m_handle) {
        libusb_close(handle);
    }
    return error;
}

UsbControlEp& UsbDevice::GetControlEndpoint() {
    UsbControlEp* control =
        m_endpoints.empty() ? nullptr : std::get_if<UsbControlEp>(&m_endpoints.front());
    OVEX_CHECK(control != nullptr,
               "BUG: UsbDevice %s (%p) doesn't have control endpoint. Forgot to call Open()?",
               GetPath().c_str(), static_cast<void*>(this));
    return *control;
}

std::error_code UsbDevice::IsEndpointHalted(const UsbEndpoint& endpoint, bool& halted) {
    if (m_handle == nullptr) {
        return std::make_error_code(std::errc::not_connected);
    }
    bool known = false;
    for (const AnyEndpoint& any : m_endpoints) {
        std::visit([&](const UsbEndpoint& candidate) { known = known || &candidate == &endpoint; },
                   any);
    }
    if (!known) {
        return std::make_error_code(std::errc::invalid_argument);
    }
    std::uint8_t status[2] = {};
    const ControlSetup setup{0x82, LIBUSB_REQUEST_GET_STATUS, 0, endpoint.GetAddress(), 2};
    if (const auto error = GetControlEndpoint().ControlIn(setup, status, kHaltQueryTimeout)) {
        return error;
    }
    halted = (status[0] & 1) != 0;
    return {};
}

}  // namespace ovex::usb::device
