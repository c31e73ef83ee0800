// The board's monitors by the older interface's ids, and their callbacks, which get the handle's
// event record of the monitor.

#include <cstring>
#include <mutex>

#include "api_internal.hpp"
#include "legacy/legacy_core.hpp"

using namespace ovex::sdk::legacy;

namespace {

// Notifications run on several tasks at once, also for one monitor, while the host may replace
// a callback. Every access to an event record holds this lock, and so does the host's callback,
// so the record it reads is its own notification's. Recursive: a callback may read its event
// and set callbacks.
std::recursive_mutex& EventLock() {
    static std::recursive_mutex lock;
    return lock;
}

void OnAvailabilityChanged(const ovexsdk_mon_on_avail_changed_args* args, void* param) {
    auto* event = static_cast<ovex_mon_event*>(param);
    const std::lock_guard lock(EventLock());
    event->available = args->available;
    event->callback(event, event->user);
}

void OnValueChanged(const ovexsdk_mon_on_value_changed_args* args, void* param) {
    auto* event = static_cast<ovex_mon_event*>(param);
    const std::lock_guard lock(EventLock());
    event->warning = args->flags[0];
    event->error = args->flags[1];
    event->available = args->flags[2];
    event->value = args->value;
    event->callback(event, event->user);
}

// The index of the monitor an id names; an id that names none gives OVEX_ERR_HANDLE.
std::int32_t MonitorIndex(ovex_ctx* ctx, const char* id, int& index) {
    const ovexsdk_err_code found =
        ovex::sdk::ovexsdk_mon_legacy_id_to_idx(&ctx->context, id, &index);
    if (found == OVEXSDK_ERR_FAILED) {
        return OVEX_ERR_HANDLE;
    }
    return Map(found);
}

std::int32_t FetchValue(ovex_ctx* ctx, const char* id, ovexsdk_mon_value& value) {
    int index = 0;
    if (const std::int32_t found = MonitorIndex(ctx, id, index); found != OVEX_OK) {
        return found;
    }
    return Map(ovexsdk_mon_get_value(&ctx->context, static_cast<std::uint32_t>(index), &value));
}

using EventRecords = ovex_mon_event[kLegacyMonitors];

// Fills the monitor's record among the handle's `events` and registers `bridge` for it.
template <class Bridge, class Register>
std::int32_t SetEvent(ovex_ctx* ctx, const char* id, ovex_mon_event_cb callback, void* user,
                      EventRecords ovex_ctx::*events, Bridge bridge, Register register_bridge) {
    if (!IsLive(ctx) || AnyNull(id) || callback == nullptr) {
        return OVEX_ERR_HANDLE;
    }
    int index = 0;
    if (const std::int32_t found = MonitorIndex(ctx, id, index); found != OVEX_OK) {
        return found;
    }
    if (index >= kLegacyMonitors) {
        return OVEX_ERR_HANDLE;
    }
    const auto monitor = static_cast<std::uint32_t>(index);
    ovexsdk_mon_info info{};
    const ovexsdk_err_code described = ovexsdk_mon_get_info(&ctx->context, monitor, &info);
    if (described != OVEXSDK_OK) {
        return Map(described);
    }
    const char* legacy_id = nullptr;
    const ovexsdk_err_code named =
        ovex::sdk::ovexsdk_mon_idx_to_legacy_id(&ctx->context, index, &legacy_id);
    if (named != OVEXSDK_OK) {
        return Map(named);
    }
    ovex_mon_event& event = (ctx->*events)[index];
    {
        const std::lock_guard lock(EventLock());
        event.callback = callback;
        event.user = user;
        event.id = legacy_id;
        event.type = info.type;
    }
    return Map(register_bridge(&ctx->context, monitor, bridge, &event));
}

// Reads one field of an event record under the events' lock.
template <class Out, class Read>
std::int32_t ReadEvent(const ovex_mon_event* event, Out* out, Read read) {
    if (AnyNull(event, out)) {
        return OVEX_ERR_HANDLE;
    }
    const std::lock_guard lock(EventLock());
    *out = read(*event);
    return OVEX_OK;
}

// The monitor's value as its 32 bits are, whatever the monitor's type.
template <class T>
std::int32_t FetchBits(LegacyContext* ctx, const char* id, T* value) {
    static_assert(sizeof(T) == sizeof(ovexsdk_mon_value));
    if (!IsLive(ctx) || AnyNull(id, value)) {
        return OVEX_ERR_HANDLE;
    }
    ovexsdk_mon_value fetched{};
    const std::int32_t result = FetchValue(ctx, id, fetched);
    if (result == OVEX_OK) {
        std::memcpy(value, &fetched, sizeof *value);
    }
    return result;
}

}  // namespace

extern "C" {

OVEXSDK_API int32_t ovex_mon_count(ovex_ctx* ctx, uint32_t* count) {
    if (!IsLive(ctx) || AnyNull(count)) {
        return OVEX_ERR_HANDLE;
    }
    return Map(ovexsdk_mon_get_count(&ctx->context, count));
}

OVEXSDK_API int32_t ovex_mon_id(ovex_ctx* ctx, uint32_t index, const char** id) {
    if (!IsLive(ctx) || AnyNull(id)) {
        return OVEX_ERR_HANDLE;
    }
    std::uint32_t count = 0;
    const ovexsdk_err_code counted = ovexsdk_mon_get_count(&ctx->context, &count);
    if (counted != OVEXSDK_OK) {
        return Map(counted);
    }
    if (index >= count) {
        return OVEX_ERR_HANDLE;
    }
    return Map(ovex::sdk::ovexsdk_mon_idx_to_legacy_id(&ctx->context, static_cast<int>(index), id));
}

OVEXSDK_API int32_t ovex_mon_datatype(ovex_ctx* ctx, const char* id, const char** type) {
    if (!IsLive(ctx) || AnyNull(id, type)) {
        return OVEX_ERR_HANDLE;
    }
    int index = 0;
    if (const std::int32_t found = MonitorIndex(ctx, id, index); found != OVEX_OK) {
        return found;
    }
    ovexsdk_mon_info info{};
    const ovexsdk_err_code described =
        ovexsdk_mon_get_info(&ctx->context, static_cast<std::uint32_t>(index), &info);
    if (described != OVEXSDK_OK) {
        return Map(described);
    }
    *type = info.type == 2 ? "float" : "int";
    return OVEX_OK;
}

OVEXSDK_API int32_t ovex_mon_fetch_value_float(ovex_ctx* ctx, const char* id, float* value) {
    return FetchBits(ctx, id, value);
}

OVEXSDK_API int32_t ovex_mon_fetch_value_int(ovex_ctx* ctx, const char* id, int32_t* value) {
    return FetchBits(ctx, id, value);
}

OVEXSDK_API int32_t ovex_mon_event_set_onavailabilitychanged(ovex_ctx* ctx, const char* id,
                                                             ovex_mon_event_cb callback,
                                                             void* user) {
    return SetEvent(ctx, id, callback, user, &ovex_ctx::availability_events, &OnAvailabilityChanged,
                    &ovexsdk_mon_set_avail_changed_cb);
}

OVEXSDK_API int32_t ovex_mon_event_set_onvaluechanged(ovex_ctx* ctx, const char* id,
                                                      ovex_mon_event_cb callback, void* user) {
    return SetEvent(ctx, id, callback, user, &ovex_ctx::value_events, &OnValueChanged,
                    &ovexsdk_mon_set_value_changed_cb);
}

OVEXSDK_API int32_t ovex_mon_event_id(const ovex_mon_event* event, const char** id) {
    return ReadEvent(event, id, [](const ovex_mon_event& read) { return read.id; });
}

OVEXSDK_API int32_t ovex_mon_event_datatype(const ovex_mon_event* event, const char** type) {
    return ReadEvent(event, type,
                     [](const ovex_mon_event& read) { return read.type == 1 ? "int" : "float"; });
}

OVEXSDK_API int32_t ovex_mon_event_is_available(const ovex_mon_event* event, int32_t* available) {
    return ReadEvent(event, available,
                     [](const ovex_mon_event& read) { return std::int32_t{read.available}; });
}

OVEXSDK_API int32_t ovex_mon_event_is_warning_condition_met(const ovex_mon_event* event,
                                                            int32_t* met) {
    return ReadEvent(event, met,
                     [](const ovex_mon_event& read) { return std::int32_t{read.warning}; });
}

OVEXSDK_API int32_t ovex_mon_event_is_error_condition_met(const ovex_mon_event* event,
                                                          int32_t* met) {
    return ReadEvent(event, met,
                     [](const ovex_mon_event& read) { return std::int32_t{read.error}; });
}

OVEXSDK_API int32_t ovex_mon_event_get_value_as_float(const ovex_mon_event* event, float* value) {
    return ReadEvent(event, value, [](const ovex_mon_event& read) {
        float bits = 0;
        std::memcpy(&bits, &read.value, sizeof bits);
        return bits;
    });
}

OVEXSDK_API int32_t ovex_mon_event_get_value_as_int(const ovex_mon_event* event, int32_t* value) {
    return ReadEvent(event, value, [](const ovex_mon_event& read) {
        std::int32_t bits = 0;
        std::memcpy(&bits, &read.value, sizeof bits);
        return bits;
    });
}

OVEXSDK_API int32_t ovex_mon_get_last_error(ovex_ctx* ctx, const char** text) {
    if (!IsLive(ctx) || AnyNull(text)) {
        return OVEX_ERR_HANDLE;
    }
    *text = "";
    return OVEX_OK;
}

}  // extern "C"
