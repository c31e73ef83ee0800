#pragma once

#include <memory>
#include <string_view>
#include <system_error>

struct lua_State;

namespace ovex::lua::core {
class StopRequest;
}

namespace ovex::usb::device {
class UsbDevice;
}

namespace ovex::sdk {

// The context's Lua interpreter. Only the libraries base, package, string and debug are open,
// so scripts can reach neither files nor processes; the tables Log and Std are added to it.
//
// Host scripts and the library's own scripts (the power sequences) share the interpreter but
// not their surroundings: the library's scripts run in an environment of their own, a copy of
// the global tables made before any host script ran, and are called without the host's debug
// hook and with the original string metatable. So a host script that sets `device` or `Std` to
// nil, or replaces the string metatable, changes what host scripts see and nothing else.
//
// Not thread-safe: its owner runs it from one thread at a time; RequestStop is the exception.
class LuaState {
public:
    // Failures to add a table are logged; the state then lacks that table. Throws when the
    // library's environment can't be made.
    LuaState();
    ~LuaState();

    LuaState(const LuaState&) = delete;
    LuaState& operator=(const LuaState&) = delete;

    // Runs the text in the global environment. An empty text, a syntax error and a run-time
    // error give invalid_argument; the last two log the traceback. A script stopped through
    // RequestStop gives operation_canceled. The stack is left as it was.
    std::error_code ExecuteScript(const char* text);

    // Any thread: stops the script that ExecuteScript runs now, at its next instruction check
    // or at once in Std.sleep. Answers false, and does nothing, when no script runs.
    bool RequestStop();

    // Sets the global `device` to a userdata that shares the ownership of the device, so that a
    // script keeps it alive as long as it holds it; invalid_argument for an empty owner.
    std::error_code ShareDevice(std::shared_ptr<usb::device::UsbDevice> device);
    // Sets the global `device` to nil; always succeeds.
    std::error_code ReleaseDevice();

    // Loads one of the library's own scripts (text, not binary) into the library's environment
    // and pushes the chunk, or the error message; the status of the load.
    int LoadLibraryScript(std::string_view name, std::string_view text);

    // lua_pcall, without a message handler, of a function of the library's own scripts: the
    // host's debug hook and string metatable make way for the call and come back after it.
    static int CallLibraryFunction(lua_State* L, int nargs, int nresults);

    lua_State* Raw() const noexcept { return m_state.get(); }

private:
    struct Closer {
        void operator()(lua_State* state) const noexcept;
    };
    std::shared_ptr<lua::core::StopRequest> m_stop;
    std::unique_ptr<lua_State, Closer> m_state;
};

}  // namespace ovex::sdk
