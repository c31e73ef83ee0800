#pragma once

// A board that comes up without an application: its USB controller runs the boot loader, which
// answers its id with " BL" behind it, gives its own version, lets the host write and read the
// controller's RAM and starts the application image found there.

#include <array>
#include <cstdint>
#include <string>

namespace ovex::vboard {

struct BootLoaderMode {
    std::string board_id;  // answered as "<board_id> BL"
    std::array<std::uint8_t, 4> version{1, 3, 4, 0};
};

}  // namespace ovex::vboard
