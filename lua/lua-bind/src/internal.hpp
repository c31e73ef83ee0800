#pragma once

// Shared between the layer's sources.

#include <lua.hpp>

namespace ovex::lua::bind::detail {

// __gc of every userdata the layer makes: destroys the C++ object once.
int Finalize(lua_State* L);

// Pushes the metatable of a registered type; raises if the type isn't registered.
void PushMetatable(lua_State* L, const void* type_key);

// The registered name of the userdata's type at `index`, or the Lua type name.
const char* TypeName(lua_State* L, int index);

}  // namespace ovex::lua::bind::detail
