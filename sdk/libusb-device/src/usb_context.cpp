#include "ovex/usb/usb_context.hpp"

#include <climits>
#include <cstring>
#include <mutex>
#include <system_error>

#include "ovex/log/log.hpp"
#include "ovex/usb/impl/log_or_drop.hpp"
#include "ovex/usb/usb_error.hpp"

namespace ovex::usb::device {
namespace impl {

std::string RewriteLibusbLine(const char* line) {
    std::string text = line;
    if (!text.empty()) {
        text.pop_back();
    }
    if (text.size() < 6) {
        return text;
    }
    const auto word = text.find("libusb");
    if (word == std::string::npos) {
        return text;
    }
    const auto bracket = text.find('[', word + 1);
    return bracket == std::string::npos ? std::string() : text.substr(bracket);
}

}  // namespace impl

namespace {

int VerbosityOf(libusb_log_level level) {
    switch (level) {
        case LIBUSB_LOG_LEVEL_ERROR:
            return log::kError;
        case LIBUSB_LOG_LEVEL_WARNING:
            return log::kWarning;
        case LIBUSB_LOG_LEVEL_INFO:
            return log::kInfo;
        case LIBUSB_LOG_LEVEL_DEBUG:
            return log::kDebug;
        default:
            return INT_MAX;  // below every sink
    }
}

void LIBUSB_CALL OnLibusbLog(libusb_context*, libusb_log_level level, const char* line) {
    const int verbosity = VerbosityOf(level);
    if (line == nullptr || !log::Admits(verbosity)) {
        return;
    }
    // Called from C: nothing may leave.
    impl::LogOrDrop([&] {
        const std::string text = impl::RewriteLibusbLine(line);
        OVEX_LOG(verbosity, "libusb - %s", text.c_str());
    });
}

// libusb writes each line of its own to stderr unless its process-wide callback takes it. That
// callback also sees every line of every context, so it is the only one registered: a context's
// own would receive each line a second time. It is in place while any context lives.
std::mutex g_route_mutex;
std::size_t g_route_contexts = 0;  // guarded by g_route_mutex

void HoldLogRoute() {
    std::lock_guard lock(g_route_mutex);
    if (g_route_contexts++ == 0) {
        libusb_set_log_cb(nullptr, &OnLibusbLog, LIBUSB_LOG_CB_GLOBAL);
    }
}

void ReleaseLogRoute() {
    std::lock_guard lock(g_route_mutex);
    if (--g_route_contexts == 0) {
        libusb_set_log_cb(nullptr, nullptr, LIBUSB_LOG_CB_GLOBAL);
    }
}

thread::ThreadParams DefaultParams() {
    thread::ThreadParams params;
    params.name = "UsbEvents";
    return params;
}

}  // namespace

UsbContext::UsbContext() : UsbContext(DefaultParams()) {}

UsbContext::UsbContext(const thread::ThreadParams& params) {
    const libusb_version* version = libusb_get_version();
    OVEX_LOG_DEBUG("Using libusb %d.%d.%d.%d%s.", version->major, version->minor, version->micro,
                   version->nano, version->rc);
    // Before init, so that the lines of init and exit are routed too.
    HoldLogRoute();
    libusb_context* context = nullptr;
    if (const int result = libusb_init(&context); result != 0 || context == nullptr) {
        ReleaseLogRoute();
        OVEX_LOG_CRIT("Call of libusb_init failed: %s.", libusb_strerror(result));
        throw std::system_error(error::MakeLibusbError(result != 0 ? result : LIBUSB_ERROR_OTHER));
    }
    m_context = std::shared_ptr<libusb_context>(context, [](libusb_context* ctx) {
        libusb_exit(ctx);
        ReleaseLogRoute();
    });
    if (const int result =
            libusb_set_option(context, LIBUSB_OPTION_LOG_LEVEL, LIBUSB_LOG_LEVEL_WARNING);
        result != 0) {
        OVEX_LOG_WARN("Failed to configure libusb log level: %s.", libusb_strerror(result));
    }
    m_events = std::make_shared<impl::EventHandler>(m_context, params);
}

std::vector<UsbDevice> UsbContext::EnumerateDevices(const Predicate& predicate) const {
    libusb_device** list = nullptr;
    const ssize_t count = libusb_get_device_list(m_context.get(), &list);
    std::vector<libusb_device*> all;
    if (count > 0) {
        all.assign(list, list + count);
    }
    if (list != nullptr) {
        libusb_free_device_list(list, 0);
    }
    OVEX_LOG_DEBUG("Found %zu USB devices connected to the system.", all.size());

    std::vector<libusb_device*> matched;
    std::vector<libusb_device*> rest;
    for (libusb_device* device : all) {
        libusb_device_descriptor descriptor;
        std::memset(&descriptor, 0, sizeof(descriptor));
        if (const int result = libusb_get_device_descriptor(device, &descriptor); result != 0) {
            OVEX_LOG_ERROR(
                "Failed to retrieve device descriptor for device plugged in port %d: %s.",
                libusb_get_port_number(device), libusb_strerror(result));
        }
        (predicate(descriptor) ? matched : rest).push_back(device);
    }
    OVEX_LOG_DEBUG("There %s %zu USB device%s matching predicate %p.",
                   matched.size() >= 2 ? "are" : "is", matched.size(),
                   matched.size() >= 2 ? "s" : "", static_cast<const void*>(&predicate));
    for (libusb_device* device : rest) {
        libusb_unref_device(device);
    }
    std::vector<UsbDevice> devices;
    devices.reserve(matched.size());
    for (libusb_device* device : matched) {
        devices.emplace_back(device, m_events);
    }
    return devices;
}

std::vector<UsbDevice> UsbContext::EnumerateDevices(std::uint16_t vendor_id,
                                                    std::uint16_t product_id) const {
    return EnumerateDevices([vendor_id, product_id](const libusb_device_descriptor& descriptor) {
        return descriptor.idVendor == vendor_id && descriptor.idProduct == product_id;
    });
}

}  // namespace ovex::usb::device
