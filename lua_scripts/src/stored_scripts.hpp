#pragma once

#include <span>
#include <string_view>

namespace ovex::lua_scripts::detail {

struct StoredScript {
    std::string_view name;
    std::string_view text;
};

// Every stored script; defined by the source that the build generates from the script files.
std::span<const StoredScript> StoredScripts();

}  // namespace ovex::lua_scripts::detail
