// Picks one of a board's named parts (a power unit, an EEPROM, a flash) by what a user typed:
// its index or its name, case-insensitive.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

namespace ovex::cli {

// The index of the part that `text` names among `names`; a UsageError that lists the names when
// it names none. `what` says what is looked for: "power unit", "EEPROM".
std::size_t IndexByNameOrNumber(std::string_view text, const std::vector<std::string>& names,
                                std::string_view what);

}  // namespace ovex::cli
