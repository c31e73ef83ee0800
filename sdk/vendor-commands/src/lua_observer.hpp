#pragma once

// The monitor stream's observer for scripts: forwards each notification to a function of a Lua
// table, on a Lua thread of its own, one call at a time. The interpreter has no lock of its own:
// while the stream runs, the host must not run another script in the same state.

#include <lua.hpp>

#include <map>
#include <mutex>
#include <string>

#include "ovex/vendor_cmd/monitor_stream.hpp"

namespace ovex::usb::vendor_cmd::impl {

class LuaObserver final : public monitor::IValueObserver {
public:
    // The table at `index`: looks up "on_avail_change", "on_float_update" and "on_int_update".
    // Throws std::invalid_argument if none of them is a function.
    LuaObserver(lua_State* L, int index);
    // Detach must have run: the functions live in the state's registry.
    ~LuaObserver() override = default;
    LuaObserver(const LuaObserver&) = delete;
    LuaObserver& operator=(const LuaObserver&) = delete;

    // A failing Lua function throws std::runtime_error with the error's text.
    void OnAvailabilityChange(std::string_view name, monitor::Flags flags,
                              std::uint32_t timestamp) override;
    void OnIntUpdate(std::string_view name, monitor::Flags flags, std::int32_t value,
                     std::uint32_t timestamp) override;
    void OnFloatUpdate(std::string_view name, monitor::Flags flags, float value,
                       std::uint32_t timestamp) override;

    // On the script's thread, before the state closes: releases the functions; later
    // notifications call nothing.
    void Detach();

private:
    // Calls the function `callback` with name, flags and the values pushed by `push_rest`.
    template <typename PushRest>
    void Invoke(const char* callback, std::string_view name, monitor::Flags flags,
                PushRest push_rest);

    std::mutex m_mutex;
    lua_State* m_thread = nullptr;  // null once detached
    int m_thread_ref = LUA_NOREF;
    std::map<std::string, int, std::less<>>
        m_callbacks;  // registry references, LUA_NOREF if absent
};

}  // namespace ovex::usb::vendor_cmd::impl
