#pragma once

// Puts a firmware model on the emulated bus: answers the usbdevfs calls libusb makes on the
// board's device node, moves URBs between the host and the model's endpoints, and plugs and
// unplugs the board. Every call of the host is answered at once; a URB that has no data yet
// waits in the pending list until a later reap finds data for it or the host discards it.

#include <cstdint>
#include <deque>
#include <memory>
#include <mutex>
#include <string>

#include "ovex/vboard/firmware_model.hpp"
#include "ovex/vboard/test_bed.hpp"

typedef struct _UMockdevIoctlBase UMockdevIoctlBase;
typedef struct _UMockdevIoctlClient UMockdevIoctlClient;

namespace ovex::vboard {

class UsbAttachment {
public:
    // Plugs the board in at once, at bus 1, the given port.
    UsbAttachment(TestBed& bed, FirmwareModel& model, int port);
    ~UsbAttachment();
    UsbAttachment(const UsbAttachment&) = delete;
    UsbAttachment& operator=(const UsbAttachment&) = delete;

    // Unplug: every pending URB ends with "no device" and every later call fails with ENODEV.
    void Unplug();
    // Plug in again, under a new device number.
    void Replug();
    bool IsPlugged() const;
    // The board stays listed on the bus, but its device node can no longer be opened, as for a
    // node the host isn't allowed to open.
    void RemoveDeviceNode();

    std::string DevNode() const;
    std::string SysPath() const;
    // URBs submitted and not yet reaped.
    std::size_t UrbsInFlight() const;

private:
    struct Urb;

    static int OnIoctl(UMockdevIoctlBase* handler, UMockdevIoctlClient* client, void* self);
    bool HandleIoctl(UMockdevIoctlClient* client);
    void Submit(UMockdevIoctlClient* client);
    void Reap(UMockdevIoctlClient* client);
    void Discard(UMockdevIoctlClient* client);
    void ClearHalt(UMockdevIoctlClient* client);
    void Advance(Urb& urb);
    void Plug();
    void Remove(bool announce);

    TestBed& m_bed;
    FirmwareModel& m_model;
    const int m_port;
    UMockdevIoctlBase* m_handler;

    mutable std::mutex m_mutex;
    bool m_plugged = false;
    std::string m_devnode;
    std::deque<std::unique_ptr<Urb>> m_pending;  // in submission order
    std::deque<std::unique_ptr<Urb>> m_ready;    // completed, in completion order
};

}  // namespace ovex::vboard
