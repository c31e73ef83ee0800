#pragma once

// Running Lua from C++: the panic function, the traceback message handler, protected calls, and
// the per-state hook that sees every C++ exception stopped at a binding's boundary.

#include <lua.hpp>

#include <stdexcept>
#include <string>
#include <system_error>

namespace ovex::lua::bind {

// Raised by Panic: a Lua error that no protected call caught. The text reads
// "lua: error: <message>".
class Error : public std::runtime_error {
public:
    explicit Error(const std::string& message) : std::runtime_error("lua: error: " + message) {}
};

// Panic function for lua_atpanic: reports the error on stderr and throws Error, so that an
// unprotected Lua error unwinds to C++ instead of ending the process.
int Panic(lua_State* L);

// Message handler for lua_pcall: the error message followed by a stack traceback.
int Traceback(lua_State* L);

// Loads a zero-terminated script text as a chunk named after the text; text and binary chunks
// are accepted. Status and stack as luaL_loadbufferx.
int LoadChunk(lua_State* L, const char* text);

// lua_pcall of the function below the nargs arguments on top, with Traceback as the message
// handler: on failure the error value is the message with the traceback.
int ProtectedCall(lua_State* L, int nargs, int nresults);

// Runs body (a C function, with the exception guard) in protected mode; the stack is left as
// it was. A memory error gives not_enough_memory, any other error invalid_argument; `error`,
// if given, receives the error text.
std::error_code RunProtected(lua_State* L, lua_CFunction body, std::string* error = nullptr);

// Called with the text of a C++ exception that a bound function let out, before that text is
// raised as the Lua error. Null restores the default, which only raises the error.
using ExceptionHandler = void (*)(lua_State* L, const char* what);
void SetExceptionHandler(lua_State* L, ExceptionHandler handler);

}  // namespace ovex::lua::bind
