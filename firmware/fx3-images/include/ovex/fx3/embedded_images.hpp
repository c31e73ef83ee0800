#pragma once

// The controller images linked into the library, by file name ("ovbd-fw_v3_0_3.img").

#include <cstdint>
#include <span>
#include <string_view>

namespace ovex::fx3 {

// The bytes of the image of that name, valid for the life of the process; empty for a name
// that isn't embedded.
std::span<const std::uint8_t> EmbeddedImage(std::string_view file_name);

}  // namespace ovex::fx3
