#include "modules/mon_ctrl.hpp"

#include <algorithm>
#include <utility>

#include "ovex/log/log.hpp"

namespace ovex::sdk {

namespace vc = usb::vendor_cmd;

// AsyncMonitorObserver ---------------------------------------------------------------------

std::shared_ptr<const AsyncMonitorObserver::ObserverEntry> AsyncMonitorObserver::Find(
    std::string_view name) const {
    std::lock_guard lock(m_mutex);
    const auto found = m_entries.find(std::string(name));
    return found != m_entries.end() ? found->second : nullptr;
}

template <typename Change>
void AsyncMonitorObserver::Replace(const std::string& name, Change change) {
    std::lock_guard lock(m_mutex);
    auto& entry = m_entries[name];
    auto replacement =
        entry ? std::make_shared<ObserverEntry>(*entry) : std::make_shared<ObserverEntry>();
    change(*replacement);
    entry = std::move(replacement);
}

void AsyncMonitorObserver::SetOnAvailabilityChange(const std::string& name,
                                                   AvailabilityCallback callback, void* user,
                                                   MonitorInfo info) {
    Replace(name, [&](ObserverEntry& entry) {
        entry.on_availability = std::move(callback);
        entry.availability_user = user;
        entry.info = std::move(info);
    });
}

void AsyncMonitorObserver::SetOnValueChange(const std::string& name, ValueCallback callback,
                                            void* user, MonitorInfo info) {
    Replace(name, [&](ObserverEntry& entry) {
        entry.on_value = std::move(callback);
        entry.value_user = user;
        entry.info = std::move(info);
    });
}

void AsyncMonitorObserver::OnAvailabilityChange(std::string_view name, vc::monitor::Flags flags,
                                                std::uint32_t timestamp) {
    const auto entry = Find(name);
    if (!entry || !entry->on_availability) {
        return;
    }
    const MonitorAvailability record{
        .info = &entry->info, .flags = flags.bits, .timestamp = timestamp};
    entry->on_availability(record, entry->availability_user);
}

void AsyncMonitorObserver::NotifyValue(std::string_view name, std::uint8_t flags,
                                       MonitorValue record) {
    const auto entry = Find(name);
    if (!entry || !entry->on_value) {
        return;
    }
    record.info = &entry->info;
    record.flags = flags;
    entry->on_value(record, entry->value_user);
}

void AsyncMonitorObserver::OnIntUpdate(std::string_view name, vc::monitor::Flags flags,
                                       std::int32_t value, std::uint32_t timestamp) {
    MonitorValue record{};
    record.value.i = value;
    record.tag = MonitorValue::kInt;
    record.timestamp = timestamp;
    NotifyValue(name, flags.bits, record);
}

void AsyncMonitorObserver::OnFloatUpdate(std::string_view name, vc::monitor::Flags flags,
                                         float value, std::uint32_t timestamp) {
    MonitorValue record{};
    record.value.f = value;
    record.tag = MonitorValue::kFloat;
    record.timestamp = timestamp;
    NotifyValue(name, flags.bits, record);
}

// MonitorControl ---------------------------------------------------------------------------

namespace {

constexpr double kStreamTimeout = 10.0;

ModuleRequirements TableItems(Monitors* monitors, const mon_metadata& metadata) {
    std::vector<std::string> names;
    names.reserve(metadata.regular_ids_to_types.size());
    for (const auto& [name, type] : metadata.regular_ids_to_types) {
        names.push_back(name);
    }
    // Missing names are logged in a fixed order.
    std::sort(names.begin(), names.end());
    ModuleRequirements requirements;
    requirements.monitors = {{monitors, std::move(names)}};
    return requirements;
}

// `prefix` and the name, as the first part of "%s - %s: %s.".
void LogMonitorFailure(const char* prefix, const std::string& name, const std::error_code& ec) {
    const std::string text = prefix + name;
    OVEX_LOG_EC(log::kError, "%s - %s: %s.", ec, text.c_str());
}

}  // namespace

MonitorControl::MonitorControl(std::shared_ptr<usb::device::UsbDevice> device,
                               std::uint8_t endpoint, Monitors* monitors, mon_metadata metadata)
    : IMonitorControl(TableItems(monitors, metadata), false),
      m_update_receiver(std::make_unique<vc::impl::UpdateReceiver>(std::move(device), endpoint)),
      m_observer(std::make_shared<AsyncMonitorObserver>()),
      m_metadata(std::move(metadata)) {
    OVEX_CHECK(!m_update_receiver->IsRunning(),
               "Asynchronous monitor update-receiver is already running after MonitorControl "
               "object creation");
}

MonitorControl::~MonitorControl() {
    if (!m_update_receiver->IsRunning()) {
        return;
    }
    if (const auto ec = m_update_receiver->Stop()) {
        OVEX_LOG_EC(log::kError, "Failed to stop monitor update receiver - %s: %s.", ec);
    }
}

Monitors& MonitorControl::BoardMonitors() const {
    Monitors* maybe_monitors = GetMonitors();
    OVEX_CHECK(maybe_monitors != nullptr, "BUG: Monitors object is invalid.");
    return *maybe_monitors;
}

std::error_code MonitorControl::GetValue(std::string_view name, float& value) {
    return BoardMonitors().Get(name, value);
}

std::error_code MonitorControl::GetValue(std::string_view name, int& value) {
    return BoardMonitors().Get(name, value);
}

std::error_code MonitorControl::GetRange(std::string_view name, range::Range<float>& range) {
    return BoardMonitors().GetRange(name, range);
}

std::error_code MonitorControl::GetRange(std::string_view name, range::Range<int>& range) {
    return BoardMonitors().GetRange(name, range);
}

const std::vector<std::string>& MonitorControl::GetIds() {
    return BoardMonitors().Names();
}

std::error_code MonitorControl::GetType(std::string_view name, ValueType& type) {
    const auto found = m_metadata.regular_ids_to_types.find(std::string(name));
    if (found == m_metadata.regular_ids_to_types.end()) {
        const std::string text(name);
        OVEX_LOG_ERROR("Monitor with id \"%s\" has not been recognized.", text.c_str());
        return std::make_error_code(std::errc::invalid_argument);
    }
    type = static_cast<ValueType>(found->second);
    return {};
}

const std::string& MonitorControl::ToLegacyId(const std::string& regular_id) {
    const auto found = m_metadata.regular_ids_to_legacy_ids.find(regular_id);
    if (found != m_metadata.regular_ids_to_legacy_ids.end()) {
        return found->second;
    }
    OVEX_LOG_DEBUG(
        "\"Regular monitor ID\"->\"legacy monitor ID\" conversion not possible,using regular "
        "monitor ID instead.");
    const auto known = m_metadata.regular_ids_to_types.find(regular_id);
    if (known == m_metadata.regular_ids_to_types.end()) {
        OVEX_LOG_ERROR("BUG: Requested type of unrecognized monitor '%s'.", regular_id.c_str());
        return regular_id;
    }
    return known->first;
}

const std::string& MonitorControl::FromLegacyId(const std::string& legacy_id) {
    const auto found = m_metadata.legacy_ids_to_regular_ids.find(legacy_id);
    if (found != m_metadata.legacy_ids_to_regular_ids.end()) {
        return found->second;
    }
    OVEX_LOG_DEBUG(
        "\"Legacy monitor ID\"->\"regular monitor ID\" conversion not possible,using legacy "
        "monitor ID instead.");
    const auto known = m_metadata.regular_ids_to_types.find(legacy_id);
    if (known == m_metadata.regular_ids_to_types.end()) {
        OVEX_LOG_ERROR("BUG: Requested type of unrecognized legacy monitor '%s'.",
                       legacy_id.c_str());
        return legacy_id;
    }
    return known->first;
}

std::error_code MonitorControl::Start() {
    const auto& names = BoardMonitors().Names();
    const auto& types = m_metadata.regular_ids_to_types;
    // The stream would give the firmware's monitors types that were meant for others.
    if (types.size() != names.size()) {
        OVEX_LOG_ERROR(
            "BUG: Number of monitors does not match number of records inside of \"id -> type\" "
            "table (%zu != %zu)",
            names.size(), types.size());
        return std::make_error_code(std::errc::not_supported);
    }
    vc::impl::UpdateReceiver::TypeInfos type_infos;
    for (std::size_t id = 0; id < names.size(); ++id) {
        const auto found = types.find(names[id]);
        if (found != types.end()) {
            type_infos.emplace(static_cast<std::uint16_t>(id),
                               vc::TypeInfo{names[id], static_cast<ValueType>(found->second)});
        }
    }
    if (type_infos.size() != names.size()) {
        OVEX_LOG_ERROR(
            "BUG: Number of monitors does not match number of records inside of "
            "UpdateReceiver::TypeInfos table (%zu != %zu)",
            names.size(), type_infos.size());
        return std::make_error_code(std::errc::not_supported);
    }
    return m_update_receiver->Start(m_observer, type_infos, kStreamTimeout);
}

std::error_code MonitorControl::Stop() {
    return m_update_receiver->Stop();
}

bool MonitorControl::IsRunning() {
    return m_update_receiver->IsRunning();
}

std::error_code MonitorControl::Describe(const std::string& name, MonitorInfo& info) {
    ValueType type{};
    if (const auto ec = GetType(name, type)) {
        LogMonitorFailure("Failed to retrieve the type of monitor ", name, ec);
        return ec;
    }
    std::error_code ec;
    if (type == ValueType::Float) {
        range::Range<float> range;
        ec = GetRange(name, range);
        info.range = range;
    } else {
        range::Range<int> range;
        ec = GetRange(name, range);
        info.range = range;
    }
    if (ec) {
        LogMonitorFailure("Failed to retrieve the range of monitor ", name, ec);
        return ec;
    }
    info.name = name;
    return {};
}

std::error_code MonitorControl::SetOnValueChange(const std::string& name, ValueCallback callback,
                                                 void* user) {
    MonitorInfo info;
    if (const auto ec = Describe(name, info)) {
        return ec;
    }
    m_observer->SetOnValueChange(name, std::move(callback), user, std::move(info));
    return {};
}

std::error_code MonitorControl::SetOnAvailabilityChange(const std::string& name,
                                                        AvailabilityCallback callback, void* user) {
    MonitorInfo info;
    if (const auto ec = Describe(name, info)) {
        return ec;
    }
    m_observer->SetOnAvailabilityChange(name, std::move(callback), user, std::move(info));
    return {};
}

}  // namespace ovex::sdk
