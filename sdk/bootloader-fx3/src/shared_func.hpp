#pragma once

// What the RAM and the EEPROM downloads share.

#include <cstdint>
#include <span>
#include <system_error>

namespace ovex::fx3::impl {

// Compares what was written with what came back; a difference is logged with its offset and
// gives "bootloader" 2.
std::error_code CompareContent(std::span<const std::uint8_t> written,
                               std::span<const std::uint8_t> read);

}  // namespace ovex::fx3::impl
