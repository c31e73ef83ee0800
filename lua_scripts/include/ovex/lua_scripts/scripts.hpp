#pragma once

#include <optional>
#include <string_view>

// The power sequences of the boards, stored in the library as Lua texts. Each text, run once,
// returns a table of the functions powerup_unit, powerdown_unit and is_unit_powered.
namespace ovex::lua_scripts {

// Backend units.
inline constexpr std::string_view kPowerOvbd = "lua_scripts/power_ovbd.lua";
inline constexpr std::string_view kPowerNobe = "lua_scripts/power_nobe.lua";

// Frontend units.
inline constexpr std::string_view kPowerTpx3efe = "lua_scripts/power_tpx3efe.lua";
inline constexpr std::string_view kPowerTpx2cb = "lua_scripts/power_tpx2cb.lua";
inline constexpr std::string_view kPowerTpx4cb = "lua_scripts/power_tpx4cb.lua";
inline constexpr std::string_view kPowerTp2fe = "lua_scripts/power_tp2fe.lua";

// The text of the stored script of that name, with CR LF line ends; nothing for any other name.
std::optional<std::string_view> Find(std::string_view name);

}  // namespace ovex::lua_scripts
