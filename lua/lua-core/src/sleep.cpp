// Std.sleep, and the per-state replacement of its wait.

#include <thread>
#include <utility>

#include "bindings.hpp"
#include "ovex/lua/bind/function.hpp"
#include "ovex/lua/bind/userdata.hpp"
#include "ovex/lua/core/lua_core.hpp"
#include "ovex/lua/core/script_stop.hpp"
#include "ovex/lua/core/wait_limits.hpp"

namespace ovex::lua::core {

namespace {

const char kSleeperKey = 0;

void Sleep(lua_State* L, double seconds) {
    if (!(seconds >= 0.0 && seconds <= kLongestWait)) {
        luaL_argerror(L, 1, "not a number of seconds from 0 to 86400");
    }
    const std::chrono::duration<double> duration(seconds);
    if (const Sleeper* sleeper = bind::Stashed<Sleeper>(L, &kSleeperKey);
        sleeper != nullptr && *sleeper) {
        (*sleeper)(duration);
        return;
    }
    StopRequest* stop = detail::StopRequestOf(L);
    if (stop == nullptr) {
        std::this_thread::sleep_for(duration);
    } else if (stop->WaitFor(duration)) {
        detail::RaiseForcedExit(L, 1);
    }
}

}  // namespace

void SetSleeper(lua_State* L, Sleeper sleeper) {
    bind::Stash(L, &kSleeperKey, std::move(sleeper));
}

namespace detail {

void AddSleep(lua_State* L, int std_table) {
    lua_pushcfunction(L, bind::Fn<&Sleep>);
    lua_setfield(L, std_table, "sleep");
}

}  // namespace detail

}  // namespace ovex::lua::core
