#include "lua_observer.hpp"

#include <stdexcept>

#include "ovex/log/log.hpp"
#include "ovex/lua/bind/userdata.hpp"

namespace ovex::usb::vendor_cmd::impl {
namespace {

constexpr const char* kCallbacks[] = {"on_avail_change", "on_float_update", "on_int_update"};

}  // namespace

LuaObserver::LuaObserver(lua_State* L, int index) {
    index = lua_absindex(L, index);
    bool any = false;
    for (const char* name : kCallbacks) {
        int reference = LUA_NOREF;
        if (lua_getfield(L, index, name) == LUA_TFUNCTION) {
            reference = luaL_ref(L, LUA_REGISTRYINDEX);
            any = true;
        } else {
            lua_pop(L, 1);
            OVEX_LOG_WARN("Missing '%s' callback in observer table, no callback will be invoked.",
                          name);
        }
        m_callbacks.emplace(name, reference);
    }
    if (!any) {
        for (const auto& entry : m_callbacks) {
            luaL_unref(L, LUA_REGISTRYINDEX, entry.second);
        }
        throw std::invalid_argument("No callback functions were found in the observer table.");
    }
    // The calls come from other threads: they get a stack of their own, never the script's.
    m_thread = lua_newthread(L);
    m_thread_ref = luaL_ref(L, LUA_REGISTRYINDEX);
}

void LuaObserver::Detach() {
    std::lock_guard lock(m_mutex);
    if (m_thread == nullptr) {
        return;
    }
    for (auto& entry : m_callbacks) {
        luaL_unref(m_thread, LUA_REGISTRYINDEX, entry.second);
        entry.second = LUA_NOREF;
    }
    luaL_unref(m_thread, LUA_REGISTRYINDEX, m_thread_ref);
    m_thread = nullptr;
}

template <typename PushRest>
void LuaObserver::Invoke(const char* callback, std::string_view name, monitor::Flags flags,
                         PushRest push_rest) {
    std::lock_guard lock(m_mutex);
    const auto entry = m_callbacks.find(callback);
    OVEX_CHECK(entry != m_callbacks.end(), "BUG: Attempted to invoke unknown Lua callback '%s'.",
               callback);
    if (m_thread == nullptr || entry->second == LUA_NOREF) {
        return;
    }
    lua_State* L = m_thread;
    lua_settop(L, 0);
    lua_rawgeti(L, LUA_REGISTRYINDEX, entry->second);
    lua_pushlstring(L, name.data(), name.size());
    lua::bind::PushObject(L, flags);
    const int arguments = 2 + push_rest(L);
    if (lua_pcall(L, arguments, 0, 0) != LUA_OK) {
        std::string error = luaL_tolstring(L, -1, nullptr);
        lua_settop(L, 0);
        throw std::runtime_error(error);
    }
}

void LuaObserver::OnAvailabilityChange(std::string_view name, monitor::Flags flags,
                                       std::uint32_t timestamp) {
    Invoke("on_avail_change", name, flags, [timestamp](lua_State* L) {
        lua_pushinteger(L, timestamp);
        return 1;
    });
}

void LuaObserver::OnIntUpdate(std::string_view name, monitor::Flags flags, std::int32_t value,
                              std::uint32_t timestamp) {
    Invoke("on_int_update", name, flags, [value, timestamp](lua_State* L) {
        lua_pushinteger(L, value);
        lua_pushinteger(L, timestamp);
        return 2;
    });
}

void LuaObserver::OnFloatUpdate(std::string_view name, monitor::Flags flags, float value,
                                std::uint32_t timestamp) {
    Invoke("on_float_update", name, flags, [value, timestamp](lua_State* L) {
        lua_pushnumber(L, value);
        lua_pushinteger(L, timestamp);
        return 2;
    });
}

}  // namespace ovex::usb::vendor_cmd::impl
