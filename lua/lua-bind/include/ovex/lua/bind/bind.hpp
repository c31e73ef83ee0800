#pragma once

// The whole binding layer; see README.md in lua/lua-bind.

#include "ovex/lua/bind/convert.hpp"
#include "ovex/lua/bind/enum_table.hpp"
#include "ovex/lua/bind/function.hpp"
#include "ovex/lua/bind/messages.hpp"
#include "ovex/lua/bind/state.hpp"
#include "ovex/lua/bind/user_type.hpp"
#include "ovex/lua/bind/userdata.hpp"
