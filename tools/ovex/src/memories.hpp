// A board's EEPROMs and flash memories: listing them and reading from them, for `ovex info`,
// `ovex eeprom` and `ovex flash`.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "cli.hpp"

namespace ovex::cli {

enum class MemoryKind { kEeprom, kFlash };

struct MemoryRegion {
    std::uint64_t first;
    std::uint64_t last;
    std::uint32_t sector_count;
    std::uint32_t sector_size;
    const char* access;  // "ro" or "rw"; empty where the library doesn't say
};

struct Memory {
    std::uint8_t index;
    std::string id;
    std::string part_number;
    std::uint64_t size;       // bytes; 0 where the library doesn't say (EEPROMs)
    std::uint32_t page_size;  // 0 where the library doesn't say
    std::vector<MemoryRegion> regions;
};

std::vector<Memory> MemoriesOf(ovexsdk_dev_ctx* ctx, MemoryKind kind);

// One line a memory, then one a region, "<indent>     0x0800-0x087F  ro  1 x 128 B".
void PrintMemories(const std::vector<Memory>& memories, MemoryKind kind, const char* indent);

// How [address, address + length) is read: in one piece from a memory of known size, else in
// pieces that each lie in one region (an EEPROM reads within one region only), in order. A
// range that the memory doesn't hold all of is a UsageError that says what it holds.
struct MemoryPiece {
    std::uint64_t address;
    std::uint64_t length;
    bool operator==(const MemoryPiece&) const = default;
};
std::vector<MemoryPiece> ReadablePieces(const Memory& memory, std::uint64_t address,
                                        std::uint64_t length);

// `ovex eeprom|flash list|read ...`: the whole command but its text.
int RunMemoryCommand(Args& args, MemoryKind kind);

// A whole number in decimal or, after 0x, in hex, from 0 to max; a UsageError naming `what`
// otherwise.
std::uint64_t ParseAddress(std::string_view text, std::string_view what, std::uint64_t max);

}  // namespace ovex::cli
