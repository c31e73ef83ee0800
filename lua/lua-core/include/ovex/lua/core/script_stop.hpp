#pragma once

// Stopping a runaway script from another thread. The thread that runs a state arms a request
// for the length of one script; any thread may then raise it. A raised request ends a wait in
// Std.sleep at once and any Lua code within a few thousand instructions, with the Lua error
// "forced exit detected while in function '<name>' at line <n>." (or "C code"). A raise while
// nothing is armed is dropped, so it reaches neither a later script nor code that runs unarmed,
// such as the library's own power sequences.

#include <lua.hpp>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <memory>
#include <mutex>

namespace ovex::lua::core {

class StopRequest {
public:
    // Any thread. Answers whether an armed script takes the stop.
    bool Raise();
    bool Raised() const noexcept { return m_raised.load(std::memory_order_acquire); }
    // Waits up to `duration`; true if a raise ended the wait.
    bool WaitFor(std::chrono::duration<double> duration);

private:
    friend class StoppableRun;
    void Arm(bool armed);

    std::mutex m_mutex;
    std::condition_variable m_wake;
    bool m_armed = false;
    std::atomic<bool> m_raised{false};
};

// Std.sleep and the stop hook of this state obey `request` from now on.
void SetStopRequest(lua_State* L, std::shared_ptr<StopRequest> request);

// While it lives, the script that runs in `L` on this thread can be stopped through the state's
// request (SetStopRequest): the request is armed, and a count hook watches it unless the state
// has a hook already. A script's own hook is left alone; such a script stops only in Std.sleep.
class StoppableRun {
public:
    explicit StoppableRun(lua_State* L);
    ~StoppableRun();
    StoppableRun(const StoppableRun&) = delete;
    StoppableRun& operator=(const StoppableRun&) = delete;

    // Whether a raise reached this run.
    bool Stopped() const noexcept { return m_request != nullptr && m_request->Raised(); }

private:
    lua_State* m_lua;
    StopRequest* m_request;
};

}  // namespace ovex::lua::core
