#include "memories.hpp"

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <cinttypes>
#include <cstdio>
#include <cstring>

#include "hex_dump.hpp"
#include "name_lookup.hpp"
#include "power_units.hpp"
#include "session.hpp"

namespace ovex::cli {
namespace {

Memory EepromOf(ovexsdk_dev_ctx* ctx, std::uint8_t index) {
    ovexsdk_eeprom_info info{};
    Check(ovexsdk_eeprom_get_info(ctx, index, &info), "ovexsdk_eeprom_get_info");
    Memory memory{index, info.id, info.part_number, 0, 0, {}};
    for (std::uint8_t r = 0; r < info.region_count; ++r) {
        ovexsdk_eeprom_region region{};
        Check(ovexsdk_eeprom_get_region_info(ctx, index, r, &region),
              "ovexsdk_eeprom_get_region_info");
        memory.regions.push_back({region.first_address, region.last_address, region.sector_count,
                                  region.sector_size, region.kind == 0 ? "ro" : "rw"});
    }
    return memory;
}

Memory FlashOf(ovexsdk_dev_ctx* ctx, std::uint8_t index) {
    ovexsdk_flash_info info{};
    Check(ovexsdk_flash_get_info(ctx, index, &info), "ovexsdk_flash_get_info");
    // The library gives the flash's size and page size as its first and second number.
    Memory memory{index, info.id, info.part_number, info.first_number, info.second_number, {}};
    for (std::uint16_t r = 0; r < info.region_count; ++r) {
        ovexsdk_flash_region_info region{};
        Check(ovexsdk_flash_get_region_info(ctx, index, r, &region),
              "ovexsdk_flash_get_region_info");
        const std::uint64_t bytes = std::uint64_t{region.sector_count} * region.sector_size;
        memory.regions.push_back({region.start_address, region.start_address + bytes - 1,
                                  region.sector_count, region.sector_size, ""});
    }
    return memory;
}

std::string_view KindName(MemoryKind kind) {
    return kind == MemoryKind::kEeprom ? "EEPROM" : "flash";
}

std::vector<std::uint8_t> ReadPiece(ovexsdk_dev_ctx* ctx, MemoryKind kind, const Memory& memory,
                                    const MemoryPiece& piece) {
    std::vector<std::uint8_t> bytes(piece.length);
    if (kind == MemoryKind::kEeprom) {
        std::uint64_t done = piece.length;
        Check(ovexsdk_eeprom_read(ctx, memory.index, static_cast<std::uint16_t>(piece.address),
                                  bytes.data(), &done),
              "ovexsdk_eeprom_read");
        if (done != piece.length) {
            throw CommandError(kExitFailed, "the EEPROM read " + std::to_string(done) + " of " +
                                                std::to_string(piece.length) + " bytes");
        }
    } else {
        const ovexsdk_flash_read_input input{
            memory.index, static_cast<std::uint32_t>(piece.address), piece.length};
        ovexsdk_flash_buffer buffer{bytes.data(), 0};
        Check(ovexsdk_flash_read(ctx, &input, &buffer), "ovexsdk_flash_read");
    }
    return bytes;
}

void WriteFile(const std::string& file, const std::vector<std::uint8_t>& bytes) {
    std::FILE* out = std::fopen(file.c_str(), "wb");
    if (out == nullptr) {
        throw CommandError(kExitFile, "cannot write " + file + ": " + std::strerror(errno));
    }
    const bool written = std::fwrite(bytes.data(), 1, bytes.size(), out) == bytes.size();
    const int error = errno;
    if (std::fclose(out) != 0 || !written) {
        throw CommandError(kExitFile,
                           "cannot write " + file + ": " + std::strerror(written ? errno : error));
    }
}

int ListMemories(Args& args, MemoryKind kind, bool power_up) {
    const std::string locator = LocatorOf(args.Positional("LOCATOR"));
    args.Finish();
    Session session(locator, args.Verbosity());
    session.Open();
    if (power_up) {
        PowerUpWholeBoard(session.Ctx());
    }
    PrintMemories(MemoriesOf(session.Ctx(), kind), kind, "");
    return kExitOk;
}

int ReadMemory(Args& args, MemoryKind kind, bool power_up) {
    const auto output = args.Value("-o");
    const std::string locator = LocatorOf(args.Positional("LOCATOR"));
    const std::string id = args.Positional("ID");
    // An EEPROM's addresses are 16 bits wide, a flash's 32.
    const std::uint64_t top = kind == MemoryKind::kEeprom ? 0xFFFF : 0xFFFFFFFF;
    const std::uint64_t address = ParseAddress(args.Positional("ADDRESS"), "ADDRESS", top);
    const std::uint64_t length = ParseAddress(args.Positional("LENGTH"), "LENGTH", top + 1);
    if (length == 0) {
        throw UsageError("LENGTH takes at least 1");
    }
    args.Finish();

    Session session(locator, args.Verbosity());
    session.Open();
    ovexsdk_dev_ctx* ctx = session.Ctx();
    if (power_up) {
        PowerUpWholeBoard(ctx);
    }
    const std::vector<Memory> memories = MemoriesOf(ctx, kind);
    std::vector<std::string> names;
    for (const Memory& memory : memories) {
        names.push_back(memory.id);
    }
    const Memory& memory = memories[IndexByNameOrNumber(id, names, KindName(kind))];
    std::vector<std::uint8_t> bytes;
    for (const MemoryPiece& piece : ReadablePieces(memory, address, length)) {
        const auto read = ReadPiece(ctx, kind, memory, piece);
        bytes.insert(bytes.end(), read.begin(), read.end());
    }
    if (output) {
        WriteFile(*output, bytes);
        std::printf("%zu bytes of %s from 0x%" PRIx64 " written to %s\n", bytes.size(),
                    memory.id.c_str(), address, output->c_str());
    } else {
        std::fputs(HexDump(address, bytes).c_str(), stdout);
    }
    return kExitOk;
}

}  // namespace

std::vector<Memory> MemoriesOf(ovexsdk_dev_ctx* ctx, MemoryKind kind) {
    std::uint8_t count = 0;
    if (kind == MemoryKind::kEeprom) {
        Check(ovexsdk_eeprom_get_count(ctx, &count), "ovexsdk_eeprom_get_count");
    } else {
        Check(ovexsdk_flash_get_count(ctx, &count), "ovexsdk_flash_get_count");
    }
    std::vector<Memory> memories;
    for (std::uint8_t i = 0; i < count; ++i) {
        memories.push_back(kind == MemoryKind::kEeprom ? EepromOf(ctx, i) : FlashOf(ctx, i));
    }
    return memories;
}

void PrintMemories(const std::vector<Memory>& memories, MemoryKind kind, const char* indent) {
    if (memories.empty()) {
        std::printf("%snone%s\n", indent,
                    kind == MemoryKind::kFlash
                        ? ": a board has its flashes once the units behind them are up"
                        : "");
        return;
    }
    std::size_t id_width = 0;
    for (const Memory& memory : memories) {
        id_width = std::max(id_width, memory.id.size());
    }
    // Addresses as wide as the memory's largest.
    const int digits = kind == MemoryKind::kEeprom ? 4 : 8;
    for (const Memory& memory : memories) {
        std::printf("%s%u  %-*s  %s", indent, memory.index, static_cast<int>(id_width),
                    memory.id.c_str(), memory.part_number.c_str());
        if (memory.size != 0) {
            std::printf("  %" PRIu64 " bytes, pages of %u", memory.size, memory.page_size);
        }
        std::printf("\n");
        for (const MemoryRegion& region : memory.regions) {
            std::printf("%s     0x%0*" PRIX64 "-0x%0*" PRIX64 "  %s%s%u x %u bytes\n", indent,
                        digits, region.first, digits, region.last, region.access,
                        *region.access == '\0' ? "" : "  ", region.sector_count,
                        region.sector_size);
        }
    }
}

std::vector<MemoryPiece> ReadablePieces(const Memory& memory, std::uint64_t address,
                                        std::uint64_t length) {
    const std::uint64_t end = address + length;
    if (memory.size != 0) {
        if (end > memory.size) {
            throw UsageError(memory.id + " holds " + std::to_string(memory.size) +
                             " bytes, so ADDRESS + LENGTH can't pass " +
                             std::to_string(memory.size));
        }
        return {{address, length}};
    }
    std::vector<MemoryPiece> pieces;
    for (std::uint64_t at = address; at < end;) {
        const auto region =
            std::find_if(memory.regions.begin(), memory.regions.end(),
                         [at](const MemoryRegion& r) { return r.first <= at && at <= r.last; });
        if (region == memory.regions.end()) {
            std::string held;
            for (const MemoryRegion& r : memory.regions) {
                char range[48];
                std::snprintf(range, sizeof range, "%s0x%04" PRIX64 "-0x%04" PRIX64,
                              held.empty() ? "" : ", ", r.first, r.last);
                held += range;
            }
            char where[32];
            std::snprintf(where, sizeof where, "0x%04" PRIX64, at);
            throw UsageError(memory.id + " has no byte at " + where + "; it holds " +
                             (held.empty() ? "none" : held));
        }
        const std::uint64_t piece_end = std::min(end, region->last + 1);
        pieces.push_back({at, piece_end - at});
        at = piece_end;
    }
    return pieces;
}

int RunMemoryCommand(Args& args, MemoryKind kind) {
    const bool power_up = args.Flag("--power-up");
    const std::string action = args.Positional("list or read");
    if (action == "list") {
        return ListMemories(args, kind, power_up);
    }
    if (action == "read") {
        return ReadMemory(args, kind, power_up);
    }
    throw UsageError("the first word is list or read, not '" + action + "'");
}

std::uint64_t ParseAddress(std::string_view text, std::string_view what, std::uint64_t max) {
    if (!text.starts_with("0x") && !text.starts_with("0X")) {
        return ParseCount(text, what, 0, max);
    }
    const std::string_view digits = text.substr(2);
    std::uint64_t value = 0;
    const auto [end, error] =
        std::from_chars(digits.data(), digits.data() + digits.size(), value, 16);
    if (digits.empty() || error != std::errc() || end != digits.data() + digits.size() ||
        value > max) {
        throw UsageError(std::string(what) + " takes a whole number from 0 to " +
                         std::to_string(max) + ", not '" + std::string(text) + "'");
    }
    return value;
}

}  // namespace ovex::cli
