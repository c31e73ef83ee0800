#pragma once

#include <span>

#include "ovex/lua/bind/enum_table.hpp"

namespace ovex::lua::core::detail {

// Every enumerator of std::errc under its own name.
std::span<const bind::EnumEntry> ErrcEntries() noexcept;

}  // namespace ovex::lua::core::detail
