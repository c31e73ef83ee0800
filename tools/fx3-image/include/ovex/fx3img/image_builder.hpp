#pragma once

// Builds boot images for the board's USB controller: the image header, a descriptor section at
// the entry point, body sections of deterministic filler, the terminator and the checksum.

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace ovex::fx3img {

struct AppIdentity {
    std::string board_id;          // "TPX3EFE"
    std::string pcb_version;       // "3.03"
    std::string firmware_version;  // "0.24.3-TPX3"
};

// A sound image of exactly `total_size` bytes whose descriptor names `identity`. The same
// identity and size give the same bytes. std::invalid_argument if `total_size` isn't a multiple
// of 4 or is too small for the descriptor and one body word, or above 524288.
std::vector<std::uint8_t> BuildApplicationImage(const AppIdentity& identity,
                                                std::size_t total_size);

}  // namespace ovex::fx3img
