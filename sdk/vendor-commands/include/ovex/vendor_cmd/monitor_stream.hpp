#pragma once

// The board's asynchronous monitor stream: the board pushes the values of its monitors by itself
// over an interrupt IN endpoint, in frames of 10-byte records. The receiver reads what monitors
// the board has, runs a perpetual transfer on the endpoint, decodes the frames on a thread of
// its own and tells an observer, on short-lived asynchronous tasks, about new values and changes
// of availability.

#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <system_error>

#include "ovex/usb/async_state.hpp"
#include "thread_mgmt/thread_mgmt.hpp"

namespace ovex::usb::device {
class UsbDevice;
class UsbInterruptEp;
}  // namespace ovex::usb::device

namespace ovex::usb::vendor_cmd {

namespace monitor {

// The flags byte of a record. Bits other than the three named ones are kept and ignored.
struct Flags {
    std::uint8_t bits = 0;

    bool is_available() const noexcept { return (bits & 0x01) != 0; }
    bool is_warning() const noexcept { return (bits & 0x02) != 0; }
    bool is_error() const noexcept { return (bits & 0x04) != 0; }
};

// Told about the stream's news. The calls come on short-lived tasks, several at a time and in no
// fixed order between monitors: an implementation must be thread-safe.
class IValueObserver {
public:
    virtual void OnAvailabilityChange(std::string_view name, Flags flags,
                                      std::uint32_t timestamp) = 0;
    virtual void OnIntUpdate(std::string_view name, Flags flags, std::int32_t value,
                             std::uint32_t timestamp) = 0;
    virtual void OnFloatUpdate(std::string_view name, Flags flags, float value,
                               std::uint32_t timestamp) = 0;
    virtual ~IValueObserver() = default;
};

}  // namespace monitor

// How the host reads a monitor's value; on the wire it is always a float, and an integer
// monitor's value is truncated.
enum class ValueType : std::uint8_t {
    Integer = 1,
    Float = 2,
};

// What the user knows of one monitor.
struct TypeInfo {
    std::string name;
    ValueType type = ValueType::Float;
};

namespace impl {

class UpdateReceiver {
public:
    // By monitor id, the id of the board's monitor list.
    using TypeInfos = std::map<std::uint16_t, TypeInfo>;

    // Throws std::invalid_argument for a null device or one without an interrupt endpoint of
    // this address.
    UpdateReceiver(std::shared_ptr<device::UsbDevice> device, std::uint8_t endpoint);
    // Stops a running stream.
    ~UpdateReceiver();
    UpdateReceiver(const UpdateReceiver&) = delete;
    UpdateReceiver& operator=(const UpdateReceiver&) = delete;

    // Reads the board's monitors, merges `type_infos` into them and starts the stream; `timeout`
    // is that of each transfer on the endpoint, in seconds. The observer is held weakly: once it
    // is gone, the values are logged instead. A running stream gives operation_not_permitted.
    std::error_code Start(std::weak_ptr<monitor::IValueObserver> observer,
                          const TypeInfos& type_infos, double timeout);
    // Ends the stream and the receiver's thread; operation_not_permitted if it isn't running.
    std::error_code Stop();
    bool IsRunning() const noexcept { return m_state.has_value(); }

private:
    std::optional<device::AsyncState> m_state;
    thread::WrappedThread<> m_thread;
    device::UsbInterruptEp* m_ep;
    std::shared_ptr<device::UsbDevice> m_device;
};

}  // namespace impl

}  // namespace ovex::usb::vendor_cmd
