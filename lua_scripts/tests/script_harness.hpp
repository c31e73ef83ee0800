#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

struct lua_State;

namespace ovex::lua_scripts::testing {

using Lines = std::vector<std::string>;

// The last count lines, or all of them when there are fewer.
Lines Tail(const Lines& lines, std::size_t count);
bool Contains(const Lines& lines, std::string_view line);

// Runs one stored power script in a plain Lua state that has only the libraries a script gets
// (base, package, string, debug) and stand-ins, written in Lua, for the tables the library
// provides: Std, Log, Usb.VendorCmd and the global device. The stand-ins work over a scripted
// board and record every call in a journal, every Std.sleep included, and every log line.
//
// Journal entries: "set NAME VALUE", "get NAME", "monitor NAME", "version NAME",
// "invoke NAME[ TIMEOUT]", "invoke_out NAME [HEX BYTES][ TIMEOUT]", "sleep SECONDS".
// Log lines: "LEVEL: TEXT" with LEVEL one of debug, info, warn, error.
//
// Globals are strict: a script that reads an undefined global or sets one raises an error.
class ScriptHarness {
public:
    explicit ScriptHarness(std::string_view script_name);
    ~ScriptHarness();
    ScriptHarness(const ScriptHarness&) = delete;
    ScriptHarness& operator=(const ScriptHarness&) = delete;

    // Runs Lua with the board's tables as its globals:
    //   states   = { NAME = integer }  only these states exist; set_value writes them
    //   monitors = { NAME = number or { successive readings, the last one repeats } }
    //   versions = { NAME = 'text' }
    //   commands = { 'NAME', ... }
    //   faults   = { ['set NAME' | 'get NAME' | 'monitor NAME' | 'version NAME' |
    //                 'invoke NAME' | 'invoke_out NAME'] = { outcome of call 1, of call 2, ... } }
    //              an outcome of 0 or none is success, any other number a fault of that value
    //              whose text is "board: fault N"; a call's journal entry is made all the same.
    // An unknown name answers with the code 22, "generic: Invalid argument".
    void Board(const std::string& lua);

    struct Outcome {
        std::string kind;   // "code", "boolean", "raised" (the call raised a Lua error), ...
        std::string value;  // the code's value, "true"/"false", the error message
    };
    Outcome Call(const char* function);
    // The code that the function returned; a test failure if it returned anything else.
    int Code(const char* function);
    // The answer of is_unit_powered; a test failure if it isn't a boolean.
    bool Powered();

    // The global device becomes another object: anything a script kept from an earlier call
    // refuses to work.
    void ReplaceDevice();
    // Forgets journal and log, to look at the next call alone.
    void ClearRecords();

    Lines Journal() const;
    Lines Log() const;
    int Sleeps() const;

private:
    void Run(const std::string& lua, const char* chunk_name);
    Lines Strings(const char* list) const;

    lua_State* state_;
};

}  // namespace ovex::lua_scripts::testing
