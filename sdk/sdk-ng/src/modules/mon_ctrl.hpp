#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <system_error>
#include <unordered_map>
#include <variant>
#include <vector>

#include "modules/device_module.hpp"
#include "ovex/range/range.hpp"
#include "ovex/vendor_cmd/monitor_stream.hpp"

namespace ovex::usb::device {
class UsbDevice;
}

namespace ovex::sdk {

using usb::vendor_cmd::ValueType;

// What a board class tells of its monitors: the value type of each (the firmware lists the
// same names), and the names that the legacy interface uses, both ways round.
struct mon_metadata {
    std::unordered_map<std::string, std::uint8_t> regular_ids_to_types;  // 1 Integer, 2 Float
    std::unordered_map<std::string, std::string> regular_ids_to_legacy_ids;
    std::unordered_map<std::string, std::string> legacy_ids_to_regular_ids;
};

struct MonitorInfo {
    std::string name;
    std::variant<range::Range<int>, range::Range<float>> range;
};

// The records handed to the callbacks: valid during the call only.
struct MonitorAvailability {
    const MonitorInfo* info;
    std::uint8_t flags;  // bit 0 available, bit 1 warning, bit 2 error
    std::uint32_t timestamp;
};

struct MonitorValue {
    static constexpr std::uint32_t kInt = 1;
    static constexpr std::uint32_t kFloat = 2;

    const MonitorInfo* info;
    std::uint8_t flags;
    union {
        std::int32_t i;
        float f;
    } value;
    std::uint32_t tag;  // kInt or kFloat: the member of `value` that holds it
    std::uint32_t timestamp;
};

using AvailabilityCallback = std::function<void(const MonitorAvailability&, void*)>;
using ValueCallback = std::function<void(const MonitorValue&, void*)>;

// The board's monitors by name: values and ranges on request, and the stream the board pushes.
class IMonitorControl : public DeviceModule {
public:
    using DeviceModule::DeviceModule;
    virtual std::error_code GetValue(std::string_view name, float& value) = 0;
    // Truncated towards zero.
    virtual std::error_code GetValue(std::string_view name, int& value) = 0;
    virtual std::error_code GetRange(std::string_view name, range::Range<float>& range) = 0;
    virtual std::error_code GetRange(std::string_view name, range::Range<int>& range) = 0;
    virtual std::error_code GetType(std::string_view name, ValueType& type) = 0;
    // A name without a conversion comes back as it is.
    virtual const std::string& ToLegacyId(const std::string& regular_id) = 0;
    virtual const std::string& FromLegacyId(const std::string& legacy_id) = 0;
    // The firmware's monitors, in its order.
    virtual const std::vector<std::string>& GetIds() = 0;
    virtual std::error_code Start() = 0;
    virtual std::error_code Stop() = 0;
    virtual bool IsRunning() = 0;
    // The callback replaces the monitor's earlier one of its kind; the user pointer comes back
    // unchanged in each call. Callbacks run on the stream's notification tasks, several at a
    // time.
    virtual std::error_code SetOnValueChange(const std::string& name, ValueCallback callback,
                                             void* user) = 0;
    virtual std::error_code SetOnAvailabilityChange(const std::string& name,
                                                    AvailabilityCallback callback, void* user) = 0;
};

// Hands the stream's news to the callbacks set for each monitor. Setting a callback while the
// stream runs, also from inside a callback, is safe: an entry is never changed in place but
// replaced, and a notification works on the entry it found.
class AsyncMonitorObserver final : public usb::vendor_cmd::monitor::IValueObserver {
public:
    struct ObserverEntry {
        AvailabilityCallback on_availability;
        void* availability_user = nullptr;
        ValueCallback on_value;
        void* value_user = nullptr;
        MonitorInfo info;
    };

    void SetOnAvailabilityChange(const std::string& name, AvailabilityCallback callback, void* user,
                                 MonitorInfo info);
    void SetOnValueChange(const std::string& name, ValueCallback callback, void* user,
                          MonitorInfo info);

    // A name without an entry, or an entry without a callback of the kind, is ignored.
    void OnAvailabilityChange(std::string_view name, usb::vendor_cmd::monitor::Flags flags,
                              std::uint32_t timestamp) override;
    void OnIntUpdate(std::string_view name, usb::vendor_cmd::monitor::Flags flags,
                     std::int32_t value, std::uint32_t timestamp) override;
    void OnFloatUpdate(std::string_view name, usb::vendor_cmd::monitor::Flags flags, float value,
                       std::uint32_t timestamp) override;

private:
    std::shared_ptr<const ObserverEntry> Find(std::string_view name) const;
    template <typename Change>
    void Replace(const std::string& name, Change change);
    void NotifyValue(std::string_view name, std::uint8_t flags, MonitorValue record);

    mutable std::mutex m_mutex;
    std::unordered_map<std::string, std::shared_ptr<const ObserverEntry>> m_entries;
};

class MonitorControl final : public IMonitorControl {
public:
    // Throws std::invalid_argument for a null device or one without this interrupt endpoint.
    MonitorControl(std::shared_ptr<usb::device::UsbDevice> device, std::uint8_t endpoint,
                   Monitors* monitors, mon_metadata metadata);
    // Stops a running stream.
    ~MonitorControl() override;

    const char* GetName() const override { return "Synchronous and asynchronous monitor control"; }
    std::error_code GetValue(std::string_view name, float& value) override;
    std::error_code GetValue(std::string_view name, int& value) override;
    std::error_code GetRange(std::string_view name, range::Range<float>& range) override;
    std::error_code GetRange(std::string_view name, range::Range<int>& range) override;
    std::error_code GetType(std::string_view name, ValueType& type) override;
    // The text lives as long as the module, but a name that is in neither table: that is logged
    // as an error and comes back as the argument itself, and the monitor functions then refuse
    // it as unknown.
    const std::string& ToLegacyId(const std::string& regular_id) override;
    const std::string& FromLegacyId(const std::string& legacy_id) override;
    const std::vector<std::string>& GetIds() override;
    // A firmware whose monitors differ from the table gets no stream: not_supported, with the
    // line that tells the numbers.
    std::error_code Start() override;
    std::error_code Stop() override;
    bool IsRunning() override;
    std::error_code SetOnValueChange(const std::string& name, ValueCallback callback,
                                     void* user) override;
    std::error_code SetOnAvailabilityChange(const std::string& name, AvailabilityCallback callback,
                                            void* user) override;

private:
    Monitors& BoardMonitors() const;
    // The monitor's name and its range in the form of its type.
    std::error_code Describe(const std::string& name, MonitorInfo& info);

    std::unique_ptr<usb::vendor_cmd::impl::UpdateReceiver> m_update_receiver;
    std::shared_ptr<AsyncMonitorObserver> m_observer;
    mon_metadata m_metadata;
};

}  // namespace ovex::sdk
