#include "hex_dump.hpp"

#include <algorithm>
#include <cinttypes>
#include <cstdio>

namespace ovex::cli {

std::string HexDump(std::uint64_t address, std::span<const std::uint8_t> bytes) {
    constexpr std::size_t kPerLine = 16;
    std::string dump;
    for (std::size_t start = 0; start < bytes.size(); start += kPerLine) {
        const auto line = bytes.subspan(start, std::min(kPerLine, bytes.size() - start));
        char field[24];
        std::snprintf(field, sizeof field, "%08" PRIx64, address + start);
        dump += field;
        std::string text;
        for (std::size_t i = 0; i < kPerLine; ++i) {
            // An extra space splits the line into two halves of eight.
            dump += i % 8 == 0 ? "  " : " ";
            if (i < line.size()) {
                std::snprintf(field, sizeof field, "%02x", line[i]);
                dump += field;
                text += line[i] >= 0x20 && line[i] < 0x7F ? static_cast<char>(line[i]) : '.';
            } else {
                dump += "  ";
            }
        }
        dump += "  |" + text + "|\n";
    }
    return dump;
}

}  // namespace ovex::cli
