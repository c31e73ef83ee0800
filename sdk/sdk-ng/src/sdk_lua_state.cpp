#include "sdk_lua_state.hpp"

#include <lua.hpp>

#include <new>
#include <string>
#include <utility>

#include "ovex/log/log.hpp"
#include "ovex/lua/bind/state.hpp"
#include "ovex/lua/core/lua_core.hpp"
#include "ovex/lua/core/script_stop.hpp"
#include "ovex/usb/lua_bindings.hpp"
#include "ovex/vendor_cmd/lua_bindings.hpp"

namespace ovex::sdk {

namespace {

// Registry keys of the library's environment and of its string metatable.
const char kLibraryEnvironmentKey = 0;
const char kLibraryStringMetatableKey = 0;

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

// Pushes a copy of the value at `index`: a table without a metatable is copied with every such
// table in it, through `copies` (a stack index), which maps each table to its copy so that
// shared and cyclic tables stay so. Tables with a metatable (the enumerations, which refuse
// changes) and all other values are the same value. Keys are not copied.
void PushCopy(lua_State* L, int index, int copies) {
    index = lua_absindex(L, index);
    if (lua_type(L, index) != LUA_TTABLE) {
        lua_pushvalue(L, index);
        return;
    }
    if (lua_getmetatable(L, index) != 0) {
        lua_pop(L, 1);
        lua_pushvalue(L, index);
        return;
    }
    lua_pushvalue(L, index);
    if (lua_rawget(L, copies) == LUA_TTABLE) {
        return;
    }
    lua_pop(L, 1);
    luaL_checkstack(L, 4, "nested tables");
    lua_newtable(L);
    const int copy = lua_gettop(L);
    lua_pushvalue(L, index);
    lua_pushvalue(L, copy);
    lua_rawset(L, copies);
    lua_pushnil(L);
    while (lua_next(L, index) != 0) {
        PushCopy(L, -1, copies);
        lua_pushvalue(L, -3);
        lua_insert(L, -2);
        lua_rawset(L, copy);
        lua_pop(L, 1);
    }
}

// The library's environment: the globals as they are now, before any host script ran, and the
// string metatable whose methods are those of that environment's `string`.
int KeepLibraryEnvironment(lua_State* L) {
    lua_newtable(L);
    const int copies = lua_gettop(L);
    lua_pushglobaltable(L);
    PushCopy(L, -1, copies);
    lua_rawsetp(L, LUA_REGISTRYINDEX, &kLibraryEnvironmentKey);
    lua_pushliteral(L, "");
    if (lua_getmetatable(L, -1) != 0) {
        PushCopy(L, -1, copies);
        lua_rawsetp(L, LUA_REGISTRYINDEX, &kLibraryStringMetatableKey);
    }
    return 0;
}

// Sets `device` of the global table and of the library's environment to the value on top, and
// pops it.
void SetDevice(lua_State* L) {
    lua_pushvalue(L, -1);
    lua_setglobal(L, "device");
    lua_rawgetp(L, LUA_REGISTRYINDEX, &kLibraryEnvironmentKey);
    lua_insert(L, -2);
    lua_setfield(L, -2, "device");
    lua_pop(L, 1);
}

// Makes the string metatable the value on top of the stack, and pops it.
void SetStringMetatable(lua_State* L) {
    lua_pushliteral(L, "");
    lua_insert(L, -2);
    lua_setmetatable(L, -2);
    lua_pop(L, 1);
}

// The host's debug hook and string metatable, put aside for the library's call.
class HostSurroundings {
public:
    explicit HostSurroundings(lua_State* L)
        : m_lua(L),
          m_hook(lua_gethook(L)),
          m_mask(lua_gethookmask(L)),
          m_count(lua_gethookcount(L)) {
        lua_pushliteral(L, "");
        if (lua_getmetatable(L, -1) == 0) {
            lua_pushnil(L);
        }
        m_string_metatable = luaL_ref(L, LUA_REGISTRYINDEX);
        lua_pop(L, 1);
        lua_sethook(L, nullptr, 0, 0);
        lua_rawgetp(L, LUA_REGISTRYINDEX, &kLibraryStringMetatableKey);
        SetStringMetatable(L);
    }
    ~HostSurroundings() {
        lua_rawgeti(m_lua, LUA_REGISTRYINDEX, m_string_metatable);
        SetStringMetatable(m_lua);
        luaL_unref(m_lua, LUA_REGISTRYINDEX, m_string_metatable);
        lua_sethook(m_lua, m_hook, m_mask, m_count);
    }
    HostSurroundings(const HostSurroundings&) = delete;
    HostSurroundings& operator=(const HostSurroundings&) = delete;

private:
    lua_State* m_lua;
    lua_Hook m_hook;
    int m_mask;
    int m_count;
    int m_string_metatable = LUA_NOREF;
};

}  // namespace

void LuaState::Closer::operator()(lua_State* state) const noexcept {
    lua_close(state);
}

LuaState::LuaState()
    : m_stop(std::make_shared<lua::core::StopRequest>()), m_state(luaL_newstate()) {
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
    lua::core::SetStopRequest(L, m_stop);
    if (const auto ec = lua::bind::RunProtected(L, &KeepLibraryEnvironment)) {
        throw std::system_error(ec, "Failed to keep the library's Lua environment");
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
    int status = LUA_OK;
    bool stopped = false;
    {
        const lua::core::StoppableRun run(L);
        status = lua::bind::LoadChunk(L, text);
        if (status == LUA_OK) {
            status = lua::bind::ProtectedCall(L, 0, LUA_MULTRET);
        }
        stopped = status != LUA_OK && run.Stopped();
    }
    std::error_code result;
    if (status != LUA_OK) {
        const char* message = lua_tostring(L, -1);
        const std::string error = message != nullptr ? message : "(no error message)";
        if (stopped) {
            // The first line says where the script was; the traceback adds nothing to it.
            OVEX_LOG_WARN("Script stopped at the host's request: %s",
                          error.substr(0, error.find('\n')).c_str());
            result = std::make_error_code(std::errc::operation_canceled);
        } else {
            OVEX_LOG_ERROR("Execution of script failed, stack trace as follows:");
            OVEX_LOG_ERROR("%s", error.c_str());
            result = std::make_error_code(std::errc::invalid_argument);
        }
    }
    // The chunk's results, or the error, are dropped.
    lua_settop(L, top);
    return result;
}

bool LuaState::RequestStop() {
    return m_stop->Raise();
}

std::error_code LuaState::ShareDevice(std::shared_ptr<usb::device::UsbDevice> device) {
    if (!device) {
        OVEX_LOG_ERROR("Attempted to share null USB device with Lua");
        return std::make_error_code(std::errc::invalid_argument);
    }
    lua_State* L = m_state.get();
    usb::device::PushSharedDevice(L, std::move(device));
    SetDevice(L);
    return {};
}

std::error_code LuaState::ReleaseDevice() {
    lua_State* L = m_state.get();
    lua_pushnil(L);
    SetDevice(L);
    return {};
}

int LuaState::LoadLibraryScript(std::string_view name, std::string_view text) {
    lua_State* L = m_state.get();
    std::string chunk_name(1, '=');
    chunk_name.append(name);
    const int status = luaL_loadbufferx(L, text.data(), text.size(), chunk_name.c_str(), "t");
    if (status == LUA_OK) {
        // A main chunk's one upvalue is its _ENV.
        lua_rawgetp(L, LUA_REGISTRYINDEX, &kLibraryEnvironmentKey);
        lua_setupvalue(L, -2, 1);
    }
    return status;
}

int LuaState::CallLibraryFunction(lua_State* L, int nargs, int nresults) {
    const HostSurroundings aside(L);
    return lua_pcall(L, nargs, nresults, 0);
}

}  // namespace ovex::sdk
