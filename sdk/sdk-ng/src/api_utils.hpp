#pragma once

// The frame of every exported call: handle check, call announcement, exception barrier.

#include <cstdint>
#include <cstring>
#include <exception>
#include <mutex>
#include <source_location>
#include <string>
#include <string_view>
#include <type_traits>
#include <utility>

#include "ovex/log/log.hpp"
#include "ovexsdk.h"
#include "sdk_logger.hpp"

namespace ovex::sdk {

class Context;

namespace api_detail {

bool HasMagic(const ovexsdk_dev_ctx* handle) noexcept;
Context& ContextOf(ovexsdk_dev_ctx* handle) noexcept;
void StoreLastException(Context& context, std::string text);

// The bare function name of a compiler-supplied signature: the word before the first "(".
std::string_view BareFunctionName(std::string_view signature);

void LogInvocation(const std::source_location& location);

}  // namespace api_detail

// Logs the refusal of a call on a context that is being released; answers whether it is.
bool LogReleasing(const Context& context);

// Runs `impl` on the context behind `handle`. A null handle or one without the magic gives
// OVEXSDK_ERR_INVALID and no log line; a context being released gives it with a log line. No
// exception leaves: its text is kept in the context, logged, and the call gives
// OVEXSDK_ERR_FAILED.
template <typename... Params, typename... Args>
ovexsdk_err_code api_call(ovexsdk_dev_ctx* handle, ovexsdk_err_code (*impl)(Context&, Params...),
                          const std::source_location& location, Args&&... args) noexcept {
    if (!api_detail::HasMagic(handle)) {
        return OVEXSDK_ERR_INVALID;
    }
    Context& context = api_detail::ContextOf(handle);
    try {
        const Logger::CallbackCall callback_call;
        if (ovex::log::Admits(ovex::log::kDebug)) {
            api_detail::LogInvocation(location);
        }
        if (LogReleasing(context)) {
            return OVEXSDK_ERR_INVALID;
        }
        return impl(context, std::forward<Args>(args)...);
    } catch (const std::exception& e) {
        try {
            api_detail::StoreLastException(context, e.what());
            OVEX_LOG_ERROR("SDK API call failed with an exception: %s.", e.what());
        } catch (...) {
        }
        return OVEXSDK_ERR_FAILED;
    } catch (...) {
        try {
            api_detail::StoreLastException(context, "unknown exception");
            OVEX_LOG_ERROR("SDK API call failed with an unknown exception.");
        } catch (...) {
        }
        return OVEXSDK_ERR_FAILED;
    }
}

// Marks the thread as inside one of the host's callbacks (monitor or acquisition data) while it
// lives.
class HostCallbackScope {
public:
    HostCallbackScope() noexcept;
    ~HostCallbackScope();
    HostCallbackScope(const HostCallbackScope&) = delete;
    HostCallbackScope& operator=(const HostCallbackScope&) = delete;

    static bool Active() noexcept;
};

// Holds the context's device mutex for one call (see Context). A call from a log or monitor
// callback doesn't wait for it, since the call that holds it may be waiting for that callback's
// thread: it is refused with OVEXSDK_ERR_BUSY. A context being released refuses the call too.
class DeviceAccess {
public:
    explicit DeviceAccess(Context& context);
    // OVEXSDK_OK when the call may go on; otherwise the result of the refused call, logged.
    ovexsdk_err_code Result() const noexcept { return m_result; }

private:
    std::unique_lock<std::mutex> m_lock;
    ovexsdk_err_code m_result = OVEXSDK_OK;
};

// The implementation `impl` run with DeviceAccess: OVEXSDK_FRAME(&Exclusive<&Impl>::Call, ...).
template <auto impl>
struct Exclusive;

template <typename... Params, ovexsdk_err_code (*impl)(Context&, Params...)>
struct Exclusive<impl> {
    static ovexsdk_err_code Call(Context& context, Params... params) {
        const DeviceAccess access(context);
        if (access.Result() != OVEXSDK_OK) {
            return access.Result();
        }
        return impl(context, params...);
    }
};

// Logs "Parameter pointer '<name>' is invalid." for a null pointer; answers whether it was null.
bool LogInvalidPointer(const void* pointer, const char* name);

// Logs "Device pointer 'device' is invalid." for a context without a device; answers whether it
// has none.
bool LogMissingDevice(Context& context);

// Copies text into a fixed field: zero-filled, at most N - 1 characters, always terminated.
template <std::size_t N>
void CopyTextField(char (&field)[N], std::string_view text) noexcept {
    std::memset(field, 0, N);
    std::memcpy(field, text.data(), text.size() < N - 1 ? text.size() : N - 1);
}

}  // namespace ovex::sdk

// Declares the shell of an exported function: it hands its arguments to the implementation
// through the frame, with the shell's own source location.
#define OVEXSDK_FRAME(impl, handle, ...) \
    ::ovex::sdk::api_call((handle), (impl), std::source_location::current(), ##__VA_ARGS__)
