#include "ovex/vboard/usb_attachment.hpp"

#include <linux/ioctl.h>
#include <linux/usbdevice_fs.h>
#include <umockdev.h>

#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <set>
#include <stdexcept>
#include <utility>

namespace ovex::vboard {
namespace {

std::string Hex(const std::vector<std::uint8_t>& bytes) {
    std::string text;
    char digits[3];
    for (const std::uint8_t byte : bytes) {
        std::snprintf(digits, sizeof(digits), "%02x", byte);
        text += digits;
    }
    return text;
}

std::string Escaped(const std::string& value) {
    return value + "\\n";
}

struct DataRef {
    UMockdevIoctlData* data = nullptr;
    DataRef() = default;
    explicit DataRef(UMockdevIoctlData* d) : data(d) {}
    DataRef(DataRef&& other) noexcept : data(std::exchange(other.data, nullptr)) {}
    DataRef& operator=(DataRef&& other) noexcept {
        std::swap(data, other.data);
        return *this;
    }
    ~DataRef() {
        if (data != nullptr) {
            umockdev_ioctl_data_unref(data);
        }
    }
};

usbdevfs_urb* UrbOf(UMockdevIoctlData* data) {
    return reinterpret_cast<usbdevfs_urb*>(data->data);
}

}  // namespace

struct UsbAttachment::Urb {
    UMockdevIoctlClient* client = nullptr;  // reference held
    DataRef urb;                            // the host's struct usbdevfs_urb
    DataRef buffer;                         // its buffer, once resolved
    unsigned long address = 0;              // the URB's address in the host, as DISCARDURB names it
    std::uint8_t type = 0;
    std::uint8_t endpoint = 0;
    int length = 0;
    int filled = 0;
    int status = 0;

    ~Urb() { g_object_unref(client); }
};

UsbAttachment::UsbAttachment(TestBed& bed, FirmwareModel& model, int port)
    : m_bed(bed), m_model(model), m_port(port), m_handler(umockdev_ioctl_base_new()) {
    g_signal_connect(m_handler, "handle-ioctl", G_CALLBACK(&UsbAttachment::OnIoctl), this);
    Plug();
}

UsbAttachment::~UsbAttachment() {
    // Nobody may be listening for the removal any more: the board just leaves the tree.
    if (IsPlugged()) {
        Remove(false);
    }
    g_signal_handlers_disconnect_by_data(m_handler, this);
    {
        std::lock_guard lock(m_mutex);
        m_pending.clear();
        m_ready.clear();
    }
    m_bed.Adopt(m_handler);
}

std::string UsbAttachment::SysPath() const {
    return "/sys/devices/usb1/1-" + std::to_string(m_port);
}

std::string UsbAttachment::DevNode() const {
    std::lock_guard lock(m_mutex);
    return m_devnode;
}

bool UsbAttachment::IsPlugged() const {
    std::lock_guard lock(m_mutex);
    return m_plugged;
}

std::size_t UsbAttachment::UrbsInFlight() const {
    std::lock_guard lock(m_mutex);
    return m_pending.size() + m_ready.size();
}

void UsbAttachment::Plug() {
    const BoardIdentity& id = m_model.Identity();
    const int devnum = m_bed.NextDeviceNumber();
    char devnode[64];
    std::snprintf(devnode, sizeof(devnode), "/dev/bus/usb/001/%03d", devnum);
    char product[32];
    std::snprintf(product, sizeof(product), "%x/%x/%x", id.vendor_id, id.product_id, id.bcd_device);
    char ids[2][8];
    std::snprintf(ids[0], sizeof(ids[0]), "%04x", id.vendor_id);
    std::snprintf(ids[1], sizeof(ids[1]), "%04x", id.product_id);

    GError* error = nullptr;
    if (!umockdev_testbed_attach_ioctl(m_bed.Get(), devnode, m_handler, &error)) {
        const std::string text = error->message;
        g_error_free(error);
        throw std::runtime_error("Failed to attach the board to " + std::string(devnode) + ": " +
                                 text);
    }
    const std::string syspath = SysPath();
    const std::string record =
        "P: " + syspath.substr(4) + "\n" + "N: " + std::string(devnode + 5) + "\n" +
        "E: SUBSYSTEM=usb\n" + "E: DEVTYPE=usb_device\n" + "E: DRIVER=usb\n" +
        "E: DEVNAME=" + devnode + "\n" + "E: BUSNUM=001\n" +
        "E: DEVNUM=" + std::string(devnode + 17) + "\n" + "E: PRODUCT=" + product + "\n" +
        "A: busnum=" + Escaped("1") + "\n" + "A: devnum=" + Escaped(std::to_string(devnum)) + "\n" +
        "A: speed=" + Escaped("480") + "\n" + "A: bConfigurationValue=" + Escaped("1") + "\n" +
        "A: bNumConfigurations=" + Escaped("1") + "\n" + "A: bNumInterfaces=" + Escaped(" 1") +
        "\n" + "A: idVendor=" + Escaped(ids[0]) + "\n" + "A: idProduct=" + Escaped(ids[1]) + "\n" +
        "A: manufacturer=" + Escaped(id.manufacturer) + "\n" + "A: product=" + Escaped(id.product) +
        "\n" + "A: serial=" + Escaped(id.serial) + "\n" +
        "H: descriptors=" + Hex(DeviceAndConfigDescriptors(id)) + "\n";
    {
        std::lock_guard lock(m_mutex);
        m_devnode = devnode;
        m_plugged = true;
    }
    if (!umockdev_testbed_add_from_string(m_bed.Get(), record.c_str(), &error)) {
        const std::string text = error->message;
        g_error_free(error);
        throw std::runtime_error("Failed to add the board to the test bed: " + text);
    }
}

void UsbAttachment::Unplug() {
    Remove(true);
}

void UsbAttachment::Remove(bool announce) {
    {
        std::lock_guard lock(m_mutex);
        if (!m_plugged) {
            return;
        }
        m_plugged = false;
        // The host controller ends whatever was in flight.
        for (auto& urb : m_pending) {
            urb->status = -ENODEV;
            urb->filled = 0;
            m_ready.push_back(std::move(urb));
        }
        m_pending.clear();
    }
    const std::string syspath = SysPath();
    if (announce) {
        umockdev_testbed_uevent(m_bed.Get(), syspath.c_str(), "remove");
    }
    umockdev_testbed_remove_device(m_bed.Get(), syspath.c_str());
}

void UsbAttachment::RemoveDeviceNode() {
    std::filesystem::remove(m_bed.RootDir() + DevNode());
}

void UsbAttachment::Replug() {
    if (IsPlugged()) {
        return;
    }
    Plug();
    umockdev_testbed_uevent(m_bed.Get(), SysPath().c_str(), "add");
}

int UsbAttachment::OnIoctl(UMockdevIoctlBase*, UMockdevIoctlClient* client, void* self) {
    return static_cast<UsbAttachment*>(self)->HandleIoctl(client) ? TRUE : FALSE;
}

bool UsbAttachment::HandleIoctl(UMockdevIoctlClient* client) {
    const unsigned long request = umockdev_ioctl_client_get_request(client);
    UMockdevIoctlData* arg = umockdev_ioctl_client_get_arg(client);
    {
        std::lock_guard lock(m_mutex);
        // A node of an earlier plug, or any node after an unplug, is a device that has gone.
        const bool gone = !m_plugged || m_devnode != umockdev_ioctl_client_get_devnode(client);
        if (gone && request != USBDEVFS_REAPURBNDELAY && request != USBDEVFS_REAPURB &&
            request != USBDEVFS_DISCARDURB) {
            umockdev_ioctl_client_complete(client, -1, ENODEV);
            return true;
        }
    }
    switch (request) {
        case USBDEVFS_GET_CAPABILITIES: {
            DataRef caps(umockdev_ioctl_data_resolve(arg, 0, sizeof(std::uint32_t), nullptr));
            const std::uint32_t value =
                USBDEVFS_CAP_BULK_SCATTER_GATHER | USBDEVFS_CAP_BULK_CONTINUATION |
                USBDEVFS_CAP_NO_PACKET_SIZE_LIM | USBDEVFS_CAP_REAP_AFTER_DISCONNECT |
                USBDEVFS_CAP_ZERO_PACKET;
            std::memcpy(caps.data->data, &value, sizeof(value));
            umockdev_ioctl_client_complete(client, 0, 0);
            return true;
        }
        case USBDEVFS_SETCONFIGURATION:
        case USBDEVFS_CLAIMINTERFACE:
        case USBDEVFS_RELEASEINTERFACE:
        case USBDEVFS_DISCONNECT_CLAIM:
        case USBDEVFS_IOCTL:
        case USBDEVFS_RESET:
        case USBDEVFS_RESETEP:
            umockdev_ioctl_client_complete(client, 0, 0);
            return true;
        case USBDEVFS_GETDRIVER:
            umockdev_ioctl_client_complete(client, -1, ENODATA);  // no kernel driver bound
            return true;
        case USBDEVFS_CLEAR_HALT:
            ClearHalt(client);
            return true;
        case USBDEVFS_SUBMITURB:
            Submit(client);
            return true;
        case USBDEVFS_REAPURB:
        case USBDEVFS_REAPURBNDELAY:
            Reap(client);
            return true;
        case USBDEVFS_DISCARDURB:
            Discard(client);
            return true;
        default:
            umockdev_ioctl_client_complete(client, -1, ENOTTY);
            return true;
    }
}

void UsbAttachment::ClearHalt(UMockdevIoctlClient* client) {
    DataRef endpoint(umockdev_ioctl_data_resolve(umockdev_ioctl_client_get_arg(client), 0,
                                                 sizeof(unsigned int), nullptr));
    unsigned int address = 0;
    std::memcpy(&address, endpoint.data->data, sizeof(address));
    m_model.ClearHalt(static_cast<std::uint8_t>(address));
    umockdev_ioctl_client_complete(client, 0, 0);
}

void UsbAttachment::Submit(UMockdevIoctlClient* client) {
    UMockdevIoctlData* arg = umockdev_ioctl_client_get_arg(client);
    auto urb = std::make_unique<Urb>();
    urb->client = static_cast<UMockdevIoctlClient*>(g_object_ref(client));
    urb->urb = DataRef(umockdev_ioctl_data_resolve(arg, 0, sizeof(usbdevfs_urb), nullptr));
    if (urb->urb.data == nullptr) {
        umockdev_ioctl_client_complete(client, -1, EFAULT);
        return;
    }
    urb->address = urb->urb.data->client_addr;
    const usbdevfs_urb* host = UrbOf(urb->urb.data);
    urb->type = host->type;
    urb->endpoint = host->endpoint;
    urb->length = host->buffer_length;
    if (urb->length < 0 || (urb->type == USBDEVFS_URB_TYPE_CONTROL && urb->length < 8)) {
        umockdev_ioctl_client_complete(client, -1, EINVAL);
        return;
    }

    const bool out = urb->type == USBDEVFS_URB_TYPE_CONTROL || (urb->endpoint & 0x80) == 0;
    if (out && urb->length > 0) {
        urb->buffer =
            DataRef(umockdev_ioctl_data_resolve(urb->urb.data, offsetof(usbdevfs_urb, buffer),
                                                static_cast<gsize>(urb->length), nullptr));
    }
    bool complete = true;
    if (urb->type == USBDEVFS_URB_TYPE_CONTROL) {
        std::uint8_t* bytes = urb->buffer.data->data;
        SetupPacket setup;
        setup.bmRequestType = bytes[0];
        setup.bRequest = bytes[1];
        setup.wValue = static_cast<std::uint16_t>(bytes[2] | bytes[3] << 8);
        setup.wIndex = static_cast<std::uint16_t>(bytes[4] | bytes[5] << 8);
        setup.wLength = static_cast<std::uint16_t>(bytes[6] | bytes[7] << 8);
        const std::size_t room = static_cast<std::size_t>(urb->length - 8);
        const std::span<const std::uint8_t> payload(
            bytes + 8, setup.IsIn() ? 0 : std::min<std::size_t>(room, setup.wLength));
        const ControlReply reply = m_model.Control(setup, payload);
        switch (reply.kind) {
            case ControlReply::Kind::kAnswer:
                if (setup.IsIn()) {
                    const std::size_t count = std::min(room, reply.data.size());
                    std::copy_n(reply.data.begin(), count, bytes + 8);
                    urb->filled = static_cast<int>(count);
                } else {
                    urb->filled = static_cast<int>(payload.size());
                }
                break;
            case ControlReply::Kind::kStall:
                urb->status = -EPIPE;
                break;
            case ControlReply::Kind::kNoAnswer:
                complete = false;
                break;
        }
    } else if (out) {
        if (m_model.IsHalted(urb->endpoint)) {
            urb->status = -EPIPE;
        } else if (const auto sink = m_model.Sink(urb->endpoint)) {
            sink->Consume({urb->buffer.data ? urb->buffer.data->data : nullptr,
                           static_cast<std::size_t>(urb->length)});
            urb->filled = urb->length;
        } else {
            complete = false;  // nobody takes the data: the host times out
        }
    } else {
        complete = false;
    }
    {
        std::lock_guard lock(m_mutex);
        (complete ? m_ready : m_pending).push_back(std::move(urb));
    }
    umockdev_ioctl_client_complete(client, 0, 0);
}

// Moves data from the endpoint's source into an IN URB.
void UsbAttachment::Advance(Urb& urb) {
    if (m_model.IsHalted(urb.endpoint)) {
        urb.status = -EPIPE;
        return;
    }
    const auto source = m_model.Source(urb.endpoint);
    if (!source) {
        return;
    }
    if (urb.buffer.data == nullptr && urb.length > 0) {
        urb.buffer = DataRef(umockdev_ioctl_data_resolve(
            urb.urb.data, offsetof(usbdevfs_urb, buffer), static_cast<gsize>(urb.length), nullptr));
    }
    if (urb.buffer.data == nullptr) {
        // No buffer to fill: an empty URB is done at once; one whose buffer can no longer be
        // reached (its process is going away) fails, as the kernel fails a URB it can't map.
        urb.status = urb.length > 0 ? -EFAULT : 1;
        return;
    }
    const std::span<std::uint8_t> room(urb.buffer.data->data + urb.filled,
                                       static_cast<std::size_t>(urb.length - urb.filled));
    const Produced produced = source->Produce(room, Clock::now());
    urb.filled += static_cast<int>(produced.bytes);
    if (produced.end_of_transfer || urb.filled == urb.length) {
        urb.status = 1;  // marks completion; reported as 0
    }
}

void UsbAttachment::Reap(UMockdevIoctlClient* client) {
    std::unique_ptr<Urb> done;
    {
        std::lock_guard lock(m_mutex);
        auto mine = [client](const std::unique_ptr<Urb>& urb) { return urb->client == client; };
        auto found = std::find_if(m_ready.begin(), m_ready.end(), mine);
        if (found == m_ready.end() && m_plugged) {
            // Only the oldest URB of each endpoint receives data, so the stream keeps its order.
            std::set<std::uint8_t> served;
            for (auto it = m_pending.begin(); it != m_pending.end(); ++it) {
                Urb& urb = **it;
                if (urb.client != client || urb.type == USBDEVFS_URB_TYPE_CONTROL ||
                    !served.insert(urb.endpoint).second) {
                    continue;
                }
                Advance(urb);
                if (urb.status != 0) {
                    m_ready.push_back(std::move(*it));
                    m_pending.erase(it);
                    found = std::prev(m_ready.end());
                    break;
                }
            }
        }
        if (found == m_ready.end()) {
            umockdev_ioctl_client_complete(client, -1, m_plugged ? EAGAIN : ENODEV);
            return;
        }
        done = std::move(*found);
        m_ready.erase(found);
    }
    usbdevfs_urb* host = UrbOf(done->urb.data);
    host->status = done->status == 1 ? 0 : done->status;
    host->actual_length = done->filled;
    // The URB changed since its submit was answered: make sure it is written back in full.
    DataRef pointer(umockdev_ioctl_data_resolve(umockdev_ioctl_client_get_arg(client), 0,
                                                sizeof(void*), nullptr));
    umockdev_ioctl_data_set_ptr(pointer.data, 0, done->urb.data);
    umockdev_ioctl_client_complete(client, 0, 0);
}

void UsbAttachment::Discard(UMockdevIoctlClient* client) {
    UMockdevIoctlData* arg = umockdev_ioctl_client_get_arg(client);
    unsigned long address = 0;
    std::memcpy(&address, arg->data, sizeof(address));
    std::lock_guard lock(m_mutex);
    const auto found =
        std::find_if(m_pending.begin(), m_pending.end(), [&](const std::unique_ptr<Urb>& urb) {
            return urb->client == client && urb->address == address;
        });
    if (found == m_pending.end()) {
        umockdev_ioctl_client_complete(client, -1, EINVAL);
        return;
    }
    (*found)->status = -ENOENT;  // what arrived before the discard is kept
    m_ready.push_back(std::move(*found));
    m_pending.erase(found);
    umockdev_ioctl_client_complete(client, 0, 0);
}

}  // namespace ovex::vboard
