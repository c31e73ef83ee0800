#include "script_harness.hpp"

#include <gtest/gtest.h>

#include <lua.hpp>

#include <algorithm>
#include <new>

#include "ovex/lua_scripts/scripts.hpp"

namespace ovex::lua_scripts::testing {

namespace {

constexpr luaL_Reg kScriptLibraries[] = {
    {LUA_GNAME, luaopen_base},
    {LUA_LOADLIBNAME, luaopen_package},
    {LUA_STRLIBNAME, luaopen_string},
    {LUA_DBLIBNAME, luaopen_debug},
};

// The stand-ins check what the library's bindings would refuse too: objects made from and used
// with the current device, integer state values, a span (never a slab or a string) as payload,
// a timeout that is a number when given at all, strings for the log.
constexpr const char* kStandIns = R"lua(
Board = {
    states = {}, monitors = {}, versions = {}, commands = {}, faults = {},
    journal = {}, log = {}, calls = {},
}

local function record(entry)
    Board.journal[#Board.journal + 1] = entry
end

local ErrorCode = {}
ErrorCode.__index = ErrorCode
ErrorCode.__tostring = function(err) return err.text end
function ErrorCode:value() return self.code end
local function error_code(code, text)
    return setmetatable({ code = code, text = text }, ErrorCode)
end
local function success() return error_code(0, 'generic: Success') end
local function unknown_name() return error_code(22, 'generic: Invalid argument') end

-- Counts the calls of one kind and gives the injected fault of this call, if any.
local function next_call(key)
    local n = (Board.calls[key] or 0) + 1
    Board.calls[key] = n
    local outcomes = Board.faults[key]
    local code = outcomes and outcomes[n]
    if code and code ~= 0 then
        return n, error_code(code, 'board: fault ' .. code)
    end
    return n, nil
end

local function bind(class, dev)
    if dev == nil or not rawequal(dev, device) then
        error(class.kind .. '.new needs the current device', 3)
    end
    return setmetatable({ device = dev }, class)
end

local function check(self, class)
    if getmetatable(self) ~= class then
        error(class.kind .. ' method called without its object', 3)
    end
    if not rawequal(self.device, device) then
        error(class.kind .. ' object of a device that is gone', 3)
    end
end

local function with_timeout(entry, ...)
    local count = select('#', ...)
    if count == 0 then
        return entry
    end
    local timeout = ...
    if count > 1 or type(timeout) ~= 'number' then
        error('bad timeout argument', 3)
    end
    return entry .. ' ' .. tostring(timeout)
end

local function class(kind)
    local c = { kind = kind }
    c.__index = c
    c.new = function(dev) return bind(c, dev) end
    return c
end

local States = class('States')
function States:set_value(name, value, ...)
    check(self, States)
    if type(value) ~= 'number' or value % 1 ~= 0 or select('#', ...) ~= 0 then
        error('set_value takes a name and an integer', 2)
    end
    record(string.format('set %s %d', name, value))
    if Board.states[name] == nil then return unknown_name() end
    local _, fault = next_call('set ' .. name)
    if fault then return fault end
    Board.states[name] = value
    return success()
end
function States:get_value(name, ...)
    check(self, States)
    record(with_timeout('get ' .. name, ...))
    if Board.states[name] == nil then return unknown_name() end
    local _, fault = next_call('get ' .. name)
    return fault or Board.states[name]
end

local Monitors = class('Monitors')
function Monitors:get_value(name, ...)
    check(self, Monitors)
    record(with_timeout('monitor ' .. name, ...))
    local readings = Board.monitors[name]
    if readings == nil then return unknown_name() end
    local n, fault = next_call('monitor ' .. name)
    if fault then return fault end
    if type(readings) == 'table' then
        return readings[n] or readings[#readings]
    end
    return readings
end

local Versions = class('Versions')
function Versions:get_value(name, ...)
    check(self, Versions)
    record(with_timeout('version ' .. name, ...))
    if Board.versions[name] == nil then return unknown_name() end
    local _, fault = next_call('version ' .. name)
    return fault or Board.versions[name]
end

local Span = {}
Span.__index = Span
local MemSlab = {}
MemSlab.__index = MemSlab
function MemSlab.new(bytes)
    if type(bytes) ~= 'string' then error('MemSlab.new takes the bytes as a string', 2) end
    return setmetatable({ bytes = bytes }, MemSlab)
end
function MemSlab:as_span() return setmetatable({ bytes = self.bytes }, Span) end

local function hex(bytes)
    local text = bytes:gsub('.', function(c) return string.format(' %02X', c:byte()) end)
    return text:sub(2)
end

local Commands = class('Commands')
local function run_command(kind, name)
    local known = false
    for _, command in ipairs(Board.commands) do
        known = known or command == name
    end
    if not known then return unknown_name() end
    local _, fault = next_call(kind .. ' ' .. name)
    return fault or success()
end
function Commands:invoke(name, ...)
    check(self, Commands)
    record(with_timeout('invoke ' .. name, ...))
    return run_command('invoke', name)
end
function Commands:invoke_out(name, span, ...)
    check(self, Commands)
    if getmetatable(span) ~= Span then error('invoke_out takes a span', 2) end
    record(with_timeout('invoke_out ' .. name .. ' [' .. hex(span.bytes) .. ']', ...))
    return run_command('invoke_out', name)
end

Std = {
    Errc = { invalid_argument = 22, timed_out = 110 },
    ErrorCode = { new = success },
    MemSlab = MemSlab,
}
function Std.make_error_code(errc)
    local texts = { [22] = 'generic: Invalid argument', [110] = 'generic: Connection timed out' }
    return error_code(errc, texts[errc])
end
function Std.sleep(seconds)
    if type(seconds) ~= 'number' then error('sleep takes seconds', 2) end
    record('sleep ' .. tostring(seconds))
end

local function logger(level)
    return function(message)
        if type(message) ~= 'string' then error('log messages are strings', 2) end
        Board.log[#Board.log + 1] = level .. ': ' .. message
    end
end
Log = { debug = logger('debug'), info = logger('info'), warn = logger('warn'),
        error = logger('error') }

Usb = { VendorCmd = { States = States, Monitors = Monitors, Versions = Versions,
                      Commands = Commands } }
device = {}

function Harness_setup(text)
    assert(load(text, '=board', 't', Board))()
end

function Harness_call(name)
    local ok, result = pcall(rawget(_G, 'Script')[name])
    if not ok then return 'raised', tostring(result) end
    if getmetatable(result) == ErrorCode then return 'code', tostring(result.code) end
    return type(result), tostring(result)
end

function Harness_replace_device()
    rawset(_G, 'device', {})
end

function Harness_clear_records()
    Board.journal, Board.log = {}, {}
end

setmetatable(_G, {
    __index = function(_, name) error('undefined global ' .. tostring(name), 2) end,
    __newindex = function(_, name) error('script sets the global ' .. tostring(name), 2) end,
})
)lua";

}  // namespace

Lines Tail(const Lines& lines, std::size_t count) {
    return Lines(lines.end() - static_cast<std::ptrdiff_t>(std::min(count, lines.size())),
                 lines.end());
}

bool Contains(const Lines& lines, std::string_view line) {
    return std::find(lines.begin(), lines.end(), line) != lines.end();
}

ScriptHarness::ScriptHarness(std::string_view script_name) : state_(luaL_newstate()) {
    if (state_ == nullptr) {
        throw std::bad_alloc();
    }
    for (const auto& library : kScriptLibraries) {
        luaL_requiref(state_, library.name, library.func, 1);
        lua_pop(state_, 1);
    }
    Run(kStandIns, "=stand-ins");

    const auto text = Find(script_name);
    if (!text) {
        ADD_FAILURE() << "no stored script " << script_name;
        return;
    }
    // Appended, not concatenated: GCC 12 misreads the concatenation as overlapping copies at -O3.
    std::string chunk_name(1, '=');
    chunk_name.append(script_name);
    if (luaL_loadbufferx(state_, text->data(), text->size(), chunk_name.c_str(), "t") != LUA_OK ||
        lua_pcall(state_, 0, 1, 0) != LUA_OK) {
        ADD_FAILURE() << script_name << ": " << lua_tostring(state_, -1);
        lua_pop(state_, 1);
        return;
    }
    // The script's result goes past the strict globals, as a host holds it outside Lua.
    lua_pushglobaltable(state_);
    lua_insert(state_, -2);
    lua_pushliteral(state_, "Script");
    lua_insert(state_, -2);
    lua_rawset(state_, -3);
    lua_pop(state_, 1);
}

ScriptHarness::~ScriptHarness() {
    lua_close(state_);
}

void ScriptHarness::Run(const std::string& lua, const char* chunk_name) {
    if (luaL_loadbufferx(state_, lua.data(), lua.size(), chunk_name, "t") != LUA_OK ||
        lua_pcall(state_, 0, 0, 0) != LUA_OK) {
        ADD_FAILURE() << chunk_name << ": " << lua_tostring(state_, -1);
        lua_pop(state_, 1);
    }
}

void ScriptHarness::Board(const std::string& lua) {
    lua_getglobal(state_, "Harness_setup");
    lua_pushlstring(state_, lua.data(), lua.size());
    if (lua_pcall(state_, 1, 0, 0) != LUA_OK) {
        ADD_FAILURE() << "board: " << lua_tostring(state_, -1);
        lua_pop(state_, 1);
    }
}

ScriptHarness::Outcome ScriptHarness::Call(const char* function) {
    lua_getglobal(state_, "Harness_call");
    lua_pushstring(state_, function);
    if (lua_pcall(state_, 1, 2, 0) != LUA_OK) {
        Outcome broken{"harness", lua_tostring(state_, -1)};
        lua_pop(state_, 1);
        return broken;
    }
    Outcome outcome{lua_tostring(state_, -2), lua_tostring(state_, -1)};
    lua_pop(state_, 2);
    return outcome;
}

int ScriptHarness::Code(const char* function) {
    const auto outcome = Call(function);
    EXPECT_EQ(outcome.kind, "code") << function << ": " << outcome.value;
    return outcome.kind == "code" ? std::stoi(outcome.value) : -1;
}

bool ScriptHarness::Powered() {
    const auto outcome = Call("is_unit_powered");
    EXPECT_EQ(outcome.kind, "boolean") << outcome.value;
    return outcome.value == "true";
}

void ScriptHarness::ReplaceDevice() {
    Run("Harness_replace_device()", "=replace device");
}

void ScriptHarness::ClearRecords() {
    Run("Harness_clear_records()", "=clear records");
}

Lines ScriptHarness::Strings(const char* list) const {
    Lines strings;
    lua_getglobal(state_, "Board");
    lua_getfield(state_, -1, list);
    const auto count = luaL_len(state_, -1);
    for (lua_Integer i = 1; i <= count; ++i) {
        lua_rawgeti(state_, -1, i);
        strings.emplace_back(lua_tostring(state_, -1));
        lua_pop(state_, 1);
    }
    lua_pop(state_, 2);
    return strings;
}

Lines ScriptHarness::Journal() const {
    return Strings("journal");
}

Lines ScriptHarness::Log() const {
    return Strings("log");
}

int ScriptHarness::Sleeps() const {
    const auto journal = Journal();
    return static_cast<int>(std::count(journal.begin(), journal.end(), "sleep 1"));
}

}  // namespace ovex::lua_scripts::testing
