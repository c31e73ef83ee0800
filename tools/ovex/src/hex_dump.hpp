// Bytes as a hex dump: one line per 16 bytes with the address of the first, the bytes in hex
// and the printable ones as text.
#pragma once

#include <cstdint>
#include <span>
#include <string>

namespace ovex::cli {

// "00000800  4f 56 58 24 c5 12 00 01  9a 3c 71 0e d2 48 65 b7  |OVX$.....<q..He.|\n"; lines
// count from `address`, a short last line keeps the text column in place.
std::string HexDump(std::uint64_t address, std::span<const std::uint8_t> bytes);

}  // namespace ovex::cli
