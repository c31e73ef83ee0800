#include "ovex/vendor_cmd/item_collection.hpp"

#include <stdexcept>

#include "ovex/log/log.hpp"
#include "ovex/vendor_cmd/items.hpp"

namespace ovex::usb::vendor_cmd::impl {

template <typename Id>
ItemCollection<Id>::ItemCollection(device::UsbDevice& device, std::uint8_t bRequest)
    : m_device(&device) {
    if (const auto error = ReadItemNames(device, bRequest, m_names)) {
        throw std::runtime_error(std::string(error.category().name()) + ": " + error.message());
    }
}

template <typename Id>
std::error_code ItemCollection<Id>::Find(std::string_view name, Id& id) const {
    const auto found = FindItem(m_names, name);
    if (!found) {
        const std::string text(name);
        OVEX_LOG_ERROR("%s '%s' is not recognized by the device.", ItemType(), text.c_str());
        return std::make_error_code(std::errc::invalid_argument);
    }
    id = Id(*found);
    return {};
}

template class ItemCollection<command::CmdId>;
template class ItemCollection<state::StateId>;
template class ItemCollection<monitor::MonitorId>;
template class ItemCollection<version::VersionId>;

Commands::Commands(device::UsbDevice& device) : ItemCollection(device, request::kCommand) {}

std::error_code Commands::invoke(std::string_view name, double timeout) {
    return OnItem(name, [&](device::UsbDevice& device, command::CmdId id) {
        return command::Invoke(device, id, timeout);
    });
}

std::error_code Commands::invoke_out(std::string_view name, std::span<const std::uint8_t> data,
                                     double timeout) {
    return OnItem(name, [&](device::UsbDevice& device, command::CmdId id) {
        return command::InvokeWithInput(device, id, data, timeout);
    });
}

std::error_code Commands::invoke_in(std::string_view name, std::span<std::uint8_t> data,
                                    double timeout) {
    return OnItem(name, [&](device::UsbDevice& device, command::CmdId id) {
        return command::InvokeWithOutput(device, id, data, timeout);
    });
}

States::States(device::UsbDevice& device) : ItemCollection(device, request::kState) {}

std::error_code States::get_value(std::string_view name, int& value, double timeout) {
    return OnItem(name, [&](device::UsbDevice& device, state::StateId id) {
        return state::GetValue(device, id, value, timeout);
    });
}

std::error_code States::set_value(std::string_view name, int value, double timeout) {
    return OnItem(name, [&](device::UsbDevice& device, state::StateId id) {
        return state::SetValue(device, id, value, timeout);
    });
}

std::error_code States::get_limits(std::string_view name, range::Range<int>& limits,
                                   double timeout) {
    return OnItem(name, [&](device::UsbDevice& device, state::StateId id) {
        return state::GetLimits(device, id, limits, timeout);
    });
}

Monitors::Monitors(device::UsbDevice& device) : ItemCollection(device, request::kMonitor) {}

std::error_code Monitors::get_value(std::string_view name, float& value, double timeout) {
    return OnItem(name, [&](device::UsbDevice& device, monitor::MonitorId id) {
        return monitor::GetValue(device, id, value, timeout);
    });
}

std::error_code Monitors::get_range(std::string_view name, range::Range<float>& range,
                                    double timeout) {
    return OnItem(name, [&](device::UsbDevice& device, monitor::MonitorId id) {
        return monitor::GetRange(device, id, range, timeout);
    });
}

Versions::Versions(device::UsbDevice& device) : ItemCollection(device, request::kVersion) {}

std::error_code Versions::get_value(std::string_view name, std::string& value, double timeout) {
    return OnItem(name, [&](device::UsbDevice& device, version::VersionId id) {
        return version::GetValue(device, id, value, timeout);
    });
}

}  // namespace ovex::usb::vendor_cmd::impl
