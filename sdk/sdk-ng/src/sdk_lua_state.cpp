#include "sdk_lua_state.hpp"

#include <lua.hpp>

#include <new>
#include <utility>

#include "ovex/log/log.hpp"
#include "ovex/lua/bind/state.hpp"
#include "ovex/lua/core/lua_core.hpp"
#include "ovex/usb/lua_bindings.hpp"
#include "ovex/vendor_cmd/lua_bindings.hpp"

namespace ovex::sdk {

namespace {

// In this order; os, io, math, table, coroutine and utf8 stay closed.
constexpr luaL_Reg kOpenLibraries[] = {
    {LUA_GNAME, luaopen_base},
    {LUA_LOADLIBNAME, luaopen_package},
    {LUA_STRLIBNAME, luaopen_string},
    {LUA_DBLIBNAME, luaopen_debug},
};

// The package library could load any native library's opener, `os` and `io` among them; scripts
// keep `require` for Lua modules, not for native code.
void CloseNativeLoading(lua_State* L) {
    lua_getglobal(L, LUA_LOADLIBNAME);
    lua_pushnil(L);
    lua_setfield(L, -2, "loadlib");
    lua_pushliteral(L, "");
    lua_setfield(L, -2, "cpath");
    lua_getfield(L, -1, "searchers");
    // The searchers are: preload, Lua files, native libraries, native all-in-one libraries.
    for (lua_Integer i = luaL_len(L, -1); i > 2; --i) {
        lua_pushnil(L);
        lua_rawseti(L, -2, i);
    }
    lua_pop(L, 2);
}

}  // namespace

void LuaState::Closer::operator()(lua_State* state) const noexcept {
    lua_close(state);
}

LuaState::LuaState() : m_state(luaL_newstate()) {
    lua_State* L = m_state.get();
    if (L == nullptr) {
        throw std::bad_alloc();
    }
    // An error outside any protected call becomes a lua::bind::Error exception.
    lua_atpanic(L, &lua::bind::Panic);
    for (const auto& library : kOpenLibraries) {
        luaL_requiref(L, library.name, library.func, 1);
        lua_pop(L, 1);
    }
    CloseNativeLoading(L);
    if (const auto ec = lua::core::AddLogBindings(L)) {
        OVEX_LOG_EC(log::kError, "Failed to add bindings of logging functions: %s: %s", ec);
    }
    if (const auto ec = lua::core::AddStdBindings(L)) {
        OVEX_LOG_EC(log::kError, "Failed to add stdlib bindings to Lua state: %s: %s", ec);
    }
    if (const auto ec = usb::device::AddLuaBindings(L)) {
        OVEX_LOG_EC(log::kError, "Failed to add USB device bindings to Lua state: %s: %s", ec);
    }
    if (const auto ec = usb::vendor_cmd::AddLuaBindings(L)) {
        OVEX_LOG_EC(log::kError, "Failed to add vendor commands bindings to Lua state: %s: %s", ec);
    }
}

LuaState::~LuaState() = default;

std::error_code LuaState::ExecuteScript(const char* text) {
    if (text == nullptr || *text == '\0') {
        OVEX_LOG_ERROR("Empty script.");
        return std::make_error_code(std::errc::invalid_argument);
    }
    lua_State* L = m_state.get();
    const int top = lua_gettop(L);
    int status = lua::bind::LoadChunk(L, text);
    if (status == LUA_OK) {
        status = lua::bind::ProtectedCall(L, 0, LUA_MULTRET);
    }
    if (status != LUA_OK) {
        const char* trace = lua_tostring(L, -1);
        OVEX_LOG_ERROR("Execution of script failed, stack trace as follows:");
        OVEX_LOG_ERROR("%s", trace != nullptr ? trace : "(no error message)");
    }
    // The chunk's results, or the error, are dropped.
    lua_settop(L, top);
    return status == LUA_OK ? std::error_code{} : std::make_error_code(std::errc::invalid_argument);
}

std::error_code LuaState::ShareDevice(std::shared_ptr<usb::device::UsbDevice> device) {
    if (!device) {
        OVEX_LOG_ERROR("Attempted to share null USB device with Lua");
        return std::make_error_code(std::errc::invalid_argument);
    }
    lua_State* L = m_state.get();
    usb::device::PushSharedDevice(L, std::move(device));
    lua_setglobal(L, "device");
    return {};
}

std::error_code LuaState::ReleaseDevice() {
    lua_State* L = m_state.get();
    lua_pushnil(L);
    lua_setglobal(L, "device");
    return {};
}

}  // namespace ovex::sdk
