// A board's monitors by their index in its list: description, value, and the callbacks of the
// monitor stream.

#include <algorithm>
#include <cstdint>
#include <string>
#include <variant>

#include "api_internal.hpp"
#include "api_utils.hpp"
#include "context.hpp"
#include "modules/mon_ctrl.hpp"
#include "ovex/log/log.hpp"
#include "ovexsdk.h"

namespace ovex::sdk {

namespace {

constexpr std::uint32_t kInteger = 1;
constexpr std::uint32_t kFloat = 2;

// The device's monitor control, or the refusal of the call.
ovexsdk_err_code FindMonitors(Context& context, IMonitorControl*& monitors) {
    if (LogMissingDevice(context)) {
        return OVEXSDK_ERR_NO_DEVICE;
    }
    monitors = context.Device()->GetModule<IMonitorControl>();
    if (monitors == nullptr) {
        OVEX_LOG_ERROR("Device doesn't have a synchronous monitors module.");
        return OVEXSDK_ERR_FAILED;
    }
    return OVEXSDK_OK;
}

// The monitor at `index` with its name in the module's list and its type. An index beyond the
// list throws std::out_of_range, which the frame reports.
ovexsdk_err_code FindMonitor(Context& context, std::uint32_t index, IMonitorControl*& monitors,
                             const std::string*& name, ValueType& type) {
    if (const auto result = FindMonitors(context, monitors); result != OVEXSDK_OK) {
        return result;
    }
    name = &monitors->GetIds().at(index);
    if (const auto ec = monitors->GetType(*name, type)) {
        OVEX_LOG_EC(ovex::log::kError, "Failed to get monitor value type: - %s: %s.", ec);
        return OVEXSDK_ERR_FAILED;
    }
    return OVEXSDK_OK;
}

// The host's record of a monitor; its name points into `info`.
ovexsdk_mon_info HostInfo(const MonitorInfo& info) {
    ovexsdk_mon_info host{};
    host.id = info.name.c_str();
    if (const auto* range = std::get_if<range::Range<int>>(&info.range)) {
        host.type = kInteger;
        host.minimum.i = range->min();
        host.maximum.i = range->max();
    } else {
        const auto& floats = std::get<range::Range<float>>(info.range);
        host.type = kFloat;
        host.minimum.f = floats.min();
        host.maximum.f = floats.max();
    }
    return host;
}

ovexsdk_err_code MonGetCount(Context& context, std::uint32_t* count) {
    if (LogInvalidPointer(count, "count")) {
        return OVEXSDK_ERR_INVALID;
    }
    IMonitorControl* monitors = nullptr;
    if (const auto result = FindMonitors(context, monitors); result != OVEXSDK_OK) {
        return result;
    }
    *count = static_cast<std::uint32_t>(monitors->GetIds().size());
    return OVEXSDK_OK;
}

ovexsdk_err_code MonGetInfo(Context& context, std::uint32_t index, ovexsdk_mon_info* mon_info) {
    if (LogInvalidPointer(mon_info, "mon_info")) {
        return OVEXSDK_ERR_INVALID;
    }
    IMonitorControl* monitors = nullptr;
    const std::string* found = nullptr;
    ValueType type{};
    if (const auto result = FindMonitor(context, index, monitors, found, type);
        result != OVEXSDK_OK) {
        return result;
    }
    const std::string& name = *found;
    MonitorInfo info{name, range::Range<int>(0, 0)};
    if (type == ValueType::Float) {
        range::Range<float> floats(0.0F, 0.0F);
        if (const auto ec = monitors->GetRange(name, floats)) {
            OVEX_LOG_EC(ovex::log::kError, "Failed to get monitor float value: - %s: %s.", ec);
            return OVEXSDK_ERR_FAILED;
        }
        info.range = floats;
    } else {
        range::Range<int> integers(0, 0);
        if (const auto ec = monitors->GetRange(name, integers)) {
            OVEX_LOG_EC(ovex::log::kError, "Failed to get monitor integer value: - %s: %s.", ec);
            return OVEXSDK_ERR_FAILED;
        }
        info.range = integers;
    }
    *mon_info = HostInfo(info);
    mon_info->id = name.c_str();  // the module's list outlives the local record
    return OVEXSDK_OK;
}

ovexsdk_err_code MonGetValue(Context& context, std::uint32_t index, ovexsdk_mon_value* value) {
    if (LogInvalidPointer(value, "value")) {
        return OVEXSDK_ERR_INVALID;
    }
    IMonitorControl* monitors = nullptr;
    const std::string* found = nullptr;
    ValueType type{};
    if (const auto result = FindMonitor(context, index, monitors, found, type);
        result != OVEXSDK_OK) {
        return result;
    }
    const std::string& name = *found;
    std::error_code ec;
    if (type == ValueType::Float) {
        ec = monitors->GetValue(name, value->f);
    } else {
        int read = 0;
        ec = monitors->GetValue(name, read);
        value->i = read;
    }
    if (ec) {
        OVEX_LOG_EC(ovex::log::kError, "Failed to get monitor value: - %s: %s.", ec);
        return OVEXSDK_ERR_FAILED;
    }
    return OVEXSDK_OK;
}

ovexsdk_err_code MonSetAvailChangedCb(Context& context, std::uint32_t index,
                                      ovexsdk_mon_avail_changed_cb function, void* param) {
    IMonitorControl* monitors = nullptr;
    if (const auto result = FindMonitors(context, monitors); result != OVEXSDK_OK) {
        return result;
    }
    const std::string& name = monitors->GetIds().at(index);
    AvailabilityCallback callback;
    if (function != nullptr) {
        callback = [function](const MonitorAvailability& record, void* user) {
            const ovexsdk_mon_info info = HostInfo(*record.info);
            const ovexsdk_mon_on_avail_changed_args args{&info, record.flags, record.timestamp};
            const HostCallbackScope scope;
            function(&args, user);
        };
    }
    if (const auto ec = monitors->SetOnAvailabilityChange(name, std::move(callback), param)) {
        OVEX_LOG_EC(ovex::log::kError, "Failed to set monitor callback: - %s: %s.", ec);
        return OVEXSDK_ERR_FAILED;
    }
    return OVEXSDK_OK;
}

ovexsdk_err_code MonSetValueChangedCb(Context& context, std::uint32_t index,
                                      ovexsdk_mon_value_changed_cb function, void* param) {
    IMonitorControl* monitors = nullptr;
    if (const auto result = FindMonitors(context, monitors); result != OVEXSDK_OK) {
        return result;
    }
    const std::string& name = monitors->GetIds().at(index);
    ValueCallback callback;
    if (function != nullptr) {
        callback = [function](const MonitorValue& record, void* user) {
            const ovexsdk_mon_info info = HostInfo(*record.info);
            // Warning, error, available: bits 1, 2 and 0 of the notification's flags.
            const std::uint8_t flags[3] = {static_cast<std::uint8_t>(record.flags >> 1 & 1),
                                           static_cast<std::uint8_t>(record.flags >> 2 & 1),
                                           static_cast<std::uint8_t>(record.flags & 1)};
            ovexsdk_mon_on_value_changed_args args{&info, flags, {}, record.timestamp};
            if (record.tag == MonitorValue::kFloat) {
                args.value.f = record.value.f;
            } else {
                args.value.i = record.value.i;
            }
            const HostCallbackScope scope;
            function(&args, user);
        };
    }
    if (const auto ec = monitors->SetOnValueChange(name, std::move(callback), param)) {
        OVEX_LOG_EC(ovex::log::kError, "Failed to set monitor callback: - %s: %s.", ec);
        return OVEXSDK_ERR_FAILED;
    }
    return OVEXSDK_OK;
}

ovexsdk_err_code MonIdxToLegacyId(Context& context, int index, const char** legacy_id) {
    if (LogInvalidPointer(legacy_id, "legacy_id")) {
        return OVEXSDK_ERR_INVALID;
    }
    IMonitorControl* monitors = nullptr;
    if (const auto result = FindMonitors(context, monitors); result != OVEXSDK_OK) {
        return result;
    }
    *legacy_id =
        monitors->ToLegacyId(monitors->GetIds().at(static_cast<std::size_t>(index))).c_str();
    return OVEXSDK_OK;
}

ovexsdk_err_code MonLegacyIdToIdx(Context& context, const char* legacy_id, int* idx) {
    if (LogInvalidPointer(legacy_id, "legacy_id") || LogInvalidPointer(idx, "idx")) {
        return OVEXSDK_ERR_INVALID;
    }
    IMonitorControl* monitors = nullptr;
    if (const auto result = FindMonitors(context, monitors); result != OVEXSDK_OK) {
        return result;
    }
    // A name without a conversion comes back as the argument itself: it must outlive the search.
    const std::string legacy(legacy_id);
    const std::string& name = monitors->FromLegacyId(legacy);
    const auto& ids = monitors->GetIds();
    const auto found = std::find(ids.begin(), ids.end(), name);
    if (found == ids.end()) {
        return OVEXSDK_ERR_FAILED;
    }
    *idx = static_cast<int>(found - ids.begin());
    return OVEXSDK_OK;
}

}  // namespace

ovexsdk_err_code ovexsdk_mon_idx_to_legacy_id(ovexsdk_dev_ctx* ctx, int index,
                                              const char** legacy_id) {
    return OVEXSDK_FRAME(&Exclusive<&MonIdxToLegacyId>::Call, ctx, index, legacy_id);
}

ovexsdk_err_code ovexsdk_mon_legacy_id_to_idx(ovexsdk_dev_ctx* ctx, const char* legacy_id,
                                              int* idx) {
    return OVEXSDK_FRAME(&Exclusive<&MonLegacyIdToIdx>::Call, ctx, legacy_id, idx);
}

}  // namespace ovex::sdk

using namespace ovex::sdk;

extern "C" {

OVEXSDK_API ovexsdk_err_code ovexsdk_mon_get_count(ovexsdk_dev_ctx* ctx, uint32_t* count) {
    return OVEXSDK_FRAME(&Exclusive<&MonGetCount>::Call, ctx, count);
}

OVEXSDK_API ovexsdk_err_code ovexsdk_mon_get_info(ovexsdk_dev_ctx* ctx, uint32_t index,
                                                  ovexsdk_mon_info* mon_info) {
    return OVEXSDK_FRAME(&Exclusive<&MonGetInfo>::Call, ctx, index, mon_info);
}

OVEXSDK_API ovexsdk_err_code ovexsdk_mon_get_value(ovexsdk_dev_ctx* ctx, uint32_t index,
                                                   ovexsdk_mon_value* value) {
    return OVEXSDK_FRAME(&Exclusive<&MonGetValue>::Call, ctx, index, value);
}

OVEXSDK_API ovexsdk_err_code ovexsdk_mon_set_avail_changed_cb(ovexsdk_dev_ctx* ctx, uint32_t index,
                                                              ovexsdk_mon_avail_changed_cb function,
                                                              void* param) {
    return OVEXSDK_FRAME(&Exclusive<&MonSetAvailChangedCb>::Call, ctx, index, function, param);
}

OVEXSDK_API ovexsdk_err_code ovexsdk_mon_set_value_changed_cb(ovexsdk_dev_ctx* ctx, uint32_t index,
                                                              ovexsdk_mon_value_changed_cb function,
                                                              void* param) {
    return OVEXSDK_FRAME(&Exclusive<&MonSetValueChangedCb>::Call, ctx, index, function, param);
}

}  // extern "C"
