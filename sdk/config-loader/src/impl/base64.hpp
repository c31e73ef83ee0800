#pragma once

// Standard Base64 ("A-Z a-z 0-9 + /", '=' padding). White space between the characters is
// passed over, as line breaks are common in files.

#include <cstdint>
#include <optional>
#include <string_view>
#include <vector>

namespace ovex::configuration::impl {

// Nothing for a character outside the alphabet, misplaced padding or a dangling character.
std::optional<std::vector<std::uint8_t>> DecodeBase64(std::string_view text);

}  // namespace ovex::configuration::impl
