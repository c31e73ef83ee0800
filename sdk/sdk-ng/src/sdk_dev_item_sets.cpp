#include "sdk_dev_item_sets.hpp"

#include <cmath>
#include <limits>
#include <stdexcept>

#include "ovex/log/log.hpp"
#include "ovex/vendor_cmd/items.hpp"

namespace ovex::sdk {
namespace {

namespace vc = usb::vendor_cmd;

std::vector<std::string> ReadNames(usb::device::UsbDevice& device, std::uint8_t family) {
    std::vector<std::string> names;
    if (const auto error = vc::impl::ReadItemNames(device, family, names, ItemSet::kTimeout)) {
        throw std::runtime_error(error.message() + ": " + error.category().name());
    }
    return names;
}

// `request(id)` for the item of this name; invalid_argument after the set has logged the miss.
template <typename Id, typename Request>
std::error_code OnItem(const ItemSet& set, std::string_view name, Request request) {
    const auto index = set.Lookup(name);
    if (!index) {
        return std::make_error_code(std::errc::invalid_argument);
    }
    return request(Id(*index));
}

// printf needs the name terminated.
std::string Text(std::string_view name) {
    return std::string(name);
}

}  // namespace

int TruncateToInt(float value) noexcept {
    if (std::isnan(value)) {
        return 0;
    }
    const float truncated = std::trunc(value);
    if (truncated <= static_cast<float>(std::numeric_limits<int>::min())) {
        return std::numeric_limits<int>::min();
    }
    if (truncated >= static_cast<float>(std::numeric_limits<int>::max())) {
        return std::numeric_limits<int>::max();
    }
    return static_cast<int>(truncated);
}

UsbCommands::UsbCommands(usb::device::UsbDevice& device)
    : Commands(ReadNames(device, vc::request::kCommand)), m_device(&device) {}

std::error_code UsbCommands::Invoke(std::string_view name) {
    OVEX_LOG_INFO("Command %s invoked.", Text(name).c_str());
    return OnItem<vc::command::CmdId>(*this, name, [&](vc::command::CmdId id) {
        return vc::command::Invoke(*m_device, id, kTimeout);
    });
}

std::error_code UsbCommands::Invoke(std::string_view name, std::span<std::uint8_t> output) {
    std::size_t received = 0;
    return Invoke(name, output, received);
}

std::error_code UsbCommands::Invoke(std::string_view name, std::span<std::uint8_t> output,
                                    std::size_t& received) {
    OVEX_LOG_INFO("Command %s invoked.", Text(name).c_str());
    const auto ec = OnItem<vc::command::CmdId>(*this, name, [&](vc::command::CmdId id) {
        return vc::command::InvokeWithOutput(*m_device, id, output, kTimeout, &received);
    });
    if (ec) {
        received = 0;  // a refused answer isn't one
    }
    return ec;
}

std::error_code UsbCommands::Invoke(std::string_view name, std::span<const std::uint8_t> input) {
    OVEX_LOG_INFO("Command %s invoked.", Text(name).c_str());
    return OnItem<vc::command::CmdId>(*this, name, [&](vc::command::CmdId id) {
        return vc::command::InvokeWithInput(*m_device, id, input, kTimeout);
    });
}

UsbStates::UsbStates(usb::device::UsbDevice& device)
    : States(ReadNames(device, vc::request::kState)), m_device(&device) {}

std::error_code UsbStates::Get(std::string_view name, int& value) {
    return OnItem<vc::state::StateId>(*this, name, [&](vc::state::StateId id) {
        return vc::state::GetValue(*m_device, id, value, kTimeout);
    });
}

std::error_code UsbStates::Set(std::string_view name, int value) {
    OVEX_LOG_INFO("State %s set to %d.", Text(name).c_str(), value);
    return OnItem<vc::state::StateId>(*this, name, [&](vc::state::StateId id) {
        return vc::state::SetValue(*m_device, id, value, kTimeout);
    });
}

std::error_code UsbStates::GetRange(std::string_view name, range::Range<int>& range) {
    return OnItem<vc::state::StateId>(*this, name, [&](vc::state::StateId id) {
        return vc::state::GetLimits(*m_device, id, range, kTimeout);
    });
}

UsbMonitors::UsbMonitors(usb::device::UsbDevice& device)
    : Monitors(ReadNames(device, vc::request::kMonitor)), m_device(&device) {}

std::error_code UsbMonitors::Get(std::string_view name, float& value) {
    return OnItem<vc::monitor::MonitorId>(*this, name, [&](vc::monitor::MonitorId id) {
        return vc::monitor::GetValue(*m_device, id, value, kTimeout);
    });
}

std::error_code UsbMonitors::Get(std::string_view name, int& value) {
    float measured = 0;
    const auto error = Get(name, measured);
    if (!error) {
        value = TruncateToInt(measured);
    }
    return error;
}

std::error_code UsbMonitors::GetRange(std::string_view name, range::Range<float>& range) {
    return OnItem<vc::monitor::MonitorId>(*this, name, [&](vc::monitor::MonitorId id) {
        return vc::monitor::GetRange(*m_device, id, range, kTimeout);
    });
}

std::error_code UsbMonitors::GetRange(std::string_view name, range::Range<int>& range) {
    range::Range<float> measured;
    const auto error = GetRange(name, measured);
    if (!error) {
        range = range::Range<int>(TruncateToInt(measured.min()), TruncateToInt(measured.max()));
    }
    return error;
}

UsbVersions::UsbVersions(usb::device::UsbDevice& device)
    : Versions(ReadNames(device, vc::request::kVersion)), m_device(&device) {}

std::error_code UsbVersions::Get(std::string_view name, std::string& version) {
    return OnItem<vc::version::VersionId>(*this, name, [&](vc::version::VersionId id) {
        return vc::version::GetValue(*m_device, id, version, kTimeout);
    });
}

}  // namespace ovex::sdk
