#pragma once

// Read-only tables of named integers. Reads and pairs() work as on a plain table; assignments
// raise "sol: cannot modify the elements of an enumeration table".

#include <lua.hpp>

#include <span>

namespace ovex::lua::bind {

struct EnumEntry {
    const char* name;
    lua_Integer value;
};

// Pushes the table.
void PushEnumTable(lua_State* L, std::span<const EnumEntry> entries);

}  // namespace ovex::lua::bind
