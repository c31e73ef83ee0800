#pragma once

// Text to number as the configuration files expect it: leading white space and a sign are
// taken, the number ends at the first character that can't continue it, and a text without a
// number or beyond the 32-bit range throws with a message that names the conversion.

#include <cstdint>
#include <string>

namespace ovex::configuration::impl {

// Throws std::invalid_argument "invalid stoi argument" or std::out_of_range "stoi argument out
// of range".
std::int32_t TextToInt(const std::string& text);
// Throws "invalid stod argument" or "stod argument out of range" likewise.
double TextToDouble(const std::string& text);

}  // namespace ovex::configuration::impl
