// Stopping a script from another thread: the request, the count hook that watches it and the
// error that ends the script.

#include "ovex/lua/core/script_stop.hpp"

#include <cstring>
#include <utility>

#include "bindings.hpp"
#include "ovex/lua/bind/userdata.hpp"

namespace ovex::lua::core {

namespace {

const char kStopRequestKey = 0;

// Instructions between two looks at the request: a look costs a registry lookup and an atomic
// load, and a thousand instructions take microseconds.
constexpr int kInstructionsPerLook = 1000;

void StopHook(lua_State* L, lua_Debug*) {
    const StopRequest* request = detail::StopRequestOf(L);
    if (request == nullptr || !request->Raised()) {
        return;
    }
    // From now on at every instruction, so that a script that catches the error can't go on.
    lua_sethook(L, &StopHook, LUA_MASKCOUNT, 1);
    detail::RaiseForcedExit(L, 0);
}

}  // namespace

bool StopRequest::Raise() {
    std::lock_guard lock(m_mutex);
    if (!m_armed) {
        return false;
    }
    m_raised.store(true, std::memory_order_release);
    m_wake.notify_all();
    return true;
}

bool StopRequest::WaitFor(std::chrono::duration<double> duration) {
    std::unique_lock lock(m_mutex);
    return m_wake.wait_for(lock, duration, [this] { return Raised(); });
}

void StopRequest::Arm(bool armed) {
    std::lock_guard lock(m_mutex);
    m_armed = armed;
    m_raised.store(false, std::memory_order_release);
}

void SetStopRequest(lua_State* L, std::shared_ptr<StopRequest> request) {
    bind::Stash(L, &kStopRequestKey, std::move(request));
}

StoppableRun::StoppableRun(lua_State* L) : m_lua(L), m_request(detail::StopRequestOf(L)) {
    if (m_request == nullptr) {
        return;
    }
    m_request->Arm(true);
    if (lua_gethook(L) == nullptr) {
        lua_sethook(L, &StopHook, LUA_MASKCOUNT, kInstructionsPerLook);
    }
}

StoppableRun::~StoppableRun() {
    if (m_request == nullptr) {
        return;
    }
    if (lua_gethook(m_lua) == &StopHook) {
        lua_sethook(m_lua, nullptr, 0, 0);
    }
    m_request->Arm(false);
}

namespace detail {

StopRequest* StopRequestOf(lua_State* L) {
    auto* request = bind::Stashed<std::shared_ptr<StopRequest>>(L, &kStopRequestKey);
    return request != nullptr ? request->get() : nullptr;
}

int RaiseForcedExit(lua_State* L, int level) {
    lua_Debug where{};
    if (lua_getstack(L, level, &where) == 0 || lua_getinfo(L, "Sln", &where) == 0 ||
        std::strcmp(where.what, "C") == 0) {
        lua_pushliteral(L, "forced exit detected while in C code.");
    } else {
        const char* name = where.name;
        if (name == nullptr) {
            name = std::strcmp(where.what, "main") == 0 ? "main chunk" : "?";
        }
        lua_pushfstring(L, "forced exit detected while in function '%s' at line %d.", name,
                        where.currentline);
    }
    return lua_error(L);
}

}  // namespace detail

}  // namespace ovex::lua::core
