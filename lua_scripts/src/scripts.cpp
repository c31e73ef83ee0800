#include "ovex/lua_scripts/scripts.hpp"

#include "stored_scripts.hpp"

namespace ovex::lua_scripts {

std::optional<std::string_view> Find(std::string_view name) {
    for (const auto& script : detail::StoredScripts()) {
        if (script.name == name) {
            return script.text;
        }
    }
    return std::nullopt;
}

}  // namespace ovex::lua_scripts
