#include "api_utils.hpp"

#include "context.hpp"

namespace ovex::sdk {

bool LogInvalidPointer(const void* pointer, const char* name) {
    if (pointer == nullptr) {
        OVEX_LOG_ERROR("Parameter pointer '%s' is invalid.", name);
        return true;
    }
    return false;
}

bool LogMissingDevice(Context& context) {
    if (!context.Device()) {
        OVEX_LOG_ERROR("Device pointer '%s' is invalid.", "device");
        return true;
    }
    return false;
}

namespace {
thread_local bool t_in_monitor_callback = false;
}  // namespace

HostCallbackScope::HostCallbackScope() noexcept {
    t_in_monitor_callback = true;
}

HostCallbackScope::~HostCallbackScope() {
    t_in_monitor_callback = false;
}

bool HostCallbackScope::Active() noexcept {
    return t_in_monitor_callback;
}

DeviceAccess::DeviceAccess(Context& context) : m_lock(context.DeviceMutex(), std::defer_lock) {
    if (!Logger::OnLoggerThread() && !HostCallbackScope::Active()) {
        m_lock.lock();
    } else if (!m_lock.try_lock()) {
        OVEX_LOG_WARN("Context is busy with another call; the call from a callback is refused.");
        m_result = OVEXSDK_ERR_BUSY;
        return;
    }
    if (LogReleasing(context)) {
        m_result = OVEXSDK_ERR_INVALID;
    }
}

bool LogReleasing(const Context& context) {
    if (context.Releasing()) {
        OVEX_LOG_ERROR("Context is being released; the call is refused.");
        return true;
    }
    return false;
}

}  // namespace ovex::sdk

namespace ovex::sdk::api_detail {

bool HasMagic(const ovexsdk_dev_ctx* handle) noexcept {
    return record::HasMagic(handle);
}

Context& ContextOf(ovexsdk_dev_ctx* handle) noexcept {
    return record::Get(handle);
}

void StoreLastException(Context& context, std::string text) {
    context.SetLastException(std::move(text));
}

std::string_view BareFunctionName(std::string_view signature) {
    const auto paren = signature.find('(');
    OVEX_CHECK(paren != std::string_view::npos, "BUG: Code location is not a callable.");
    const std::string_view head = signature.substr(0, paren);
    const auto blank = head.find_last_of(' ');
    return blank == std::string_view::npos ? head : head.substr(blank + 1);
}

void LogInvocation(const std::source_location& location) {
    const std::string name(BareFunctionName(location.function_name()));
    ovex::log::Write(ovex::log::kDebug, location.file_name(), location.line(),
                     "Invoking SDK API '%s'.", name.c_str());
}

}  // namespace ovex::sdk::api_detail
