#include "ovex/vendor_cmd/items.hpp"

#include <algorithm>

#include "ovex/vendor_cmd/rules.hpp"

namespace ovex::usb::vendor_cmd {
namespace {

// wValue of the item requests. Commands are invoked with the same wValue whether or not data
// travel, and in either direction.
constexpr std::uint16_t kCount = 0;
constexpr std::uint16_t kName = 1;
constexpr std::uint16_t kValue = 2;
constexpr std::uint16_t kStateSet = 3;
constexpr std::uint16_t kStateLimits = 4;
constexpr std::uint16_t kMonitorRange = 3;

VendorCommand Item(std::uint8_t family, std::uint16_t operation, std::uint16_t id = 0) {
    return {family, operation, id};
}

}  // namespace

namespace command {

std::error_code GetCount(device::UsbDevice& device, unsigned int& count, double timeout) {
    return impl::RecvViaCmd(device, Item(request::kCommand, kCount), count, timeout);
}

std::error_code GetName(device::UsbDevice& device, CmdId id, std::string& name, double timeout) {
    return impl::RecvViaCmd(device, Item(request::kCommand, kName, id.get()), name, timeout);
}

std::error_code Invoke(device::UsbDevice& device, CmdId id, double timeout) {
    return impl::SendOut(device, Item(request::kCommand, kValue, id.get()), {}, timeout);
}

std::error_code InvokeWithOutput(device::UsbDevice& device, CmdId id,
                                 std::span<std::uint8_t> output, double timeout,
                                 std::size_t* received) {
    return impl::SendIn(device, Item(request::kCommand, kValue, id.get()), output, timeout,
                        received);
}

std::error_code InvokeWithInput(device::UsbDevice& device, CmdId id,
                                std::span<const std::uint8_t> input, double timeout) {
    return impl::SendOut(device, Item(request::kCommand, kValue, id.get()), input, timeout);
}

}  // namespace command

namespace version {

std::error_code GetCount(device::UsbDevice& device, unsigned int& count, double timeout) {
    return impl::RecvViaCmd(device, Item(request::kVersion, kCount), count, timeout);
}

std::error_code GetName(device::UsbDevice& device, VersionId id, std::string& name,
                        double timeout) {
    return impl::RecvViaCmd(device, Item(request::kVersion, kName, id.get()), name, timeout);
}

std::error_code GetValue(device::UsbDevice& device, VersionId id, std::string& value,
                         double timeout) {
    return impl::RecvViaCmd(device, Item(request::kVersion, kValue, id.get()), value, timeout);
}

}  // namespace version

namespace state {

std::error_code GetCount(device::UsbDevice& device, unsigned int& count, double timeout) {
    return impl::RecvViaCmd(device, Item(request::kState, kCount), count, timeout);
}

std::error_code GetName(device::UsbDevice& device, StateId id, std::string& name, double timeout) {
    return impl::RecvViaCmd(device, Item(request::kState, kName, id.get()), name, timeout);
}

std::error_code GetValue(device::UsbDevice& device, StateId id, int& value, double timeout) {
    return impl::RecvViaCmd(device, Item(request::kState, kValue, id.get()), value, timeout);
}

std::error_code SetValue(device::UsbDevice& device, StateId id, int value, double timeout) {
    return impl::SendViaCmd(device, Item(request::kState, kStateSet, id.get()), value, timeout);
}

std::error_code GetLimits(device::UsbDevice& device, StateId id, range::Range<int>& limits,
                          double timeout) {
    return impl::RecvViaCmd(device, Item(request::kState, kStateLimits, id.get()), limits, timeout);
}

}  // namespace state

namespace monitor {

std::error_code GetCount(device::UsbDevice& device, unsigned int& count, double timeout) {
    return impl::RecvViaCmd(device, Item(request::kMonitor, kCount), count, timeout);
}

std::error_code GetName(device::UsbDevice& device, MonitorId id, std::string& name,
                        double timeout) {
    return impl::RecvViaCmd(device, Item(request::kMonitor, kName, id.get()), name, timeout);
}

std::error_code GetValue(device::UsbDevice& device, MonitorId id, float& value, double timeout) {
    return impl::RecvViaCmd(device, Item(request::kMonitor, kValue, id.get()), value, timeout);
}

std::error_code GetRange(device::UsbDevice& device, MonitorId id, range::Range<float>& range,
                         double timeout) {
    return impl::RecvViaCmd(device, Item(request::kMonitor, kMonitorRange, id.get()), range,
                            timeout);
}

}  // namespace monitor
}  // namespace ovex::usb::vendor_cmd

namespace ovex::usb::vendor_cmd::impl {

std::error_code ReadItemNames(device::UsbDevice& device, std::uint8_t family,
                              std::vector<std::string>& names, double timeout) {
    unsigned int count = 0;
    if (const auto error = RecvViaCmd(device, Item(family, kCount), count, timeout)) {
        return error;
    }
    names.clear();
    names.reserve(std::min(count, 0x10000u));
    for (unsigned int id = 0; id < count && id <= 0xFFFF; ++id) {
        std::string name;
        if (const auto error = RecvViaCmd(
                device, Item(family, kName, static_cast<std::uint16_t>(id)), name, timeout)) {
            return error;
        }
        names.push_back(std::move(name));
    }
    return {};
}

std::optional<std::uint16_t> FindItem(const std::vector<std::string>& names,
                                      std::string_view name) noexcept {
    const auto count = std::min<std::size_t>(names.size(), 0x10000);
    for (std::size_t id = 0; id < count; ++id) {
        if (names[id] == name) {
            return static_cast<std::uint16_t>(id);
        }
    }
    return std::nullopt;
}

}  // namespace ovex::usb::vendor_cmd::impl
