// Flash memories and EEPROMs in one id space: the EEPROMs first, then the flashes. A memory is
// named by its module's id text; the index functions count the EEPROMs before the flashes.

#include <cstddef>
#include <cstring>
#include <limits>
#include <optional>

#include "api_internal.hpp"
#include "legacy/legacy_core.hpp"

using namespace ovex::sdk::legacy;

namespace {

// The memory that an id names: an EEPROM or a flash, by its index among its kind.
struct Memory {
    bool eeprom;
    std::uint8_t index;
};

// One region of a memory, inclusive addresses.
struct Region {
    std::uint32_t first;
    std::uint32_t last;
    std::uint32_t sector_count;
    std::uint32_t sector_size;
};

std::optional<Memory> Find(LegacyContext* ctx, const char* id) {
    int eeprom = 0;
    if (ovex::sdk::ovexsdk_eeprom_convert_legacy_id_to_idx(&ctx->context, id, &eeprom) ==
        OVEXSDK_OK) {
        return Memory{true, static_cast<std::uint8_t>(eeprom)};
    }
    std::uint8_t flash = 0;
    if (ovex::sdk::ovexsdk_flash_legacy_id_to_idx(&ctx->context, id, &flash) == OVEXSDK_OK) {
        return Memory{false, flash};
    }
    return std::nullopt;
}

template <std::size_t N>
void CopyText(char (&to)[N], const char (&from)[N]) {
    std::memcpy(to, from, N);
}

// Describes the memory and keeps its id and part number in the handle's slot for it, where the
// texts outlive the call.
std::int32_t KeepTexts(LegacyContext* ctx, Memory memory, const char** id,
                       const char** part_number) {
    if (memory.eeprom) {
        if (memory.index >= kLegacyEeproms) {
            return OVEX_ERR_HANDLE;
        }
        ovexsdk_eeprom_info info{};
        const ovexsdk_err_code result = ovexsdk_eeprom_get_info(&ctx->context, memory.index, &info);
        if (result != OVEXSDK_OK) {
            return Map(result);
        }
        auto& slot = ctx->eeprom_texts[memory.index];
        CopyText(slot.id, info.id);
        CopyText(slot.part_number, info.part_number);
        *id = slot.id;
        *part_number = slot.part_number;
        return OVEX_OK;
    }
    if (memory.index >= kLegacyFlashes) {
        return OVEX_ERR_HANDLE;
    }
    ovexsdk_flash_info info{};
    const ovexsdk_err_code result = ovexsdk_flash_get_info(&ctx->context, memory.index, &info);
    if (result != OVEXSDK_OK) {
        return Map(result);
    }
    auto& slot = ctx->flash_texts[memory.index];
    CopyText(slot.id, info.id);
    CopyText(slot.part_number, info.part_number);
    *id = slot.id;
    *part_number = slot.part_number;
    return OVEX_OK;
}

std::int32_t RegionCount(LegacyContext* ctx, Memory memory, std::uint32_t* count) {
    ovexsdk_err_code result = OVEXSDK_OK;
    if (memory.eeprom) {
        ovexsdk_eeprom_info info{};
        result = ovexsdk_eeprom_get_info(&ctx->context, memory.index, &info);
        *count = info.region_count;
    } else {
        ovexsdk_flash_info info{};
        result = ovexsdk_flash_get_info(&ctx->context, memory.index, &info);
        *count = info.region_count;
    }
    return Map(result);
}

std::int32_t GetRegion(LegacyContext* ctx, Memory memory, std::uint32_t index, Region& region) {
    if (memory.eeprom) {
        // The library numbers an EEPROM's regions in a byte: a larger index must not wrap.
        if (index > std::numeric_limits<std::uint8_t>::max()) {
            return OVEX_ERR_INVALID;
        }
        ovexsdk_eeprom_region info{};
        const ovexsdk_err_code result = ovexsdk_eeprom_get_region_info(
            &ctx->context, memory.index, static_cast<std::uint8_t>(index), &info);
        region = {info.first_address, info.last_address, info.sector_count, info.sector_size};
        return Map(result);
    }
    if (index > std::numeric_limits<std::uint16_t>::max()) {
        return OVEX_ERR_INVALID;
    }
    ovexsdk_flash_region_info info{};
    const ovexsdk_err_code result = ovexsdk_flash_get_region_info(
        &ctx->context, memory.index, static_cast<std::uint16_t>(index), &info);
    const std::uint64_t bytes = std::uint64_t{info.sector_count} * info.sector_size;
    region = {info.start_address, static_cast<std::uint32_t>(info.start_address + bytes - 1),
              info.sector_count, info.sector_size};
    return Map(result);
}

// A flash's sectors are numbered across its regions, in order.
std::int32_t FlashSectorRange(LegacyContext* ctx, Memory memory, std::uint32_t sector,
                              std::uint32_t* first, std::uint32_t* last) {
    std::uint32_t regions = 0;
    if (const std::int32_t result = RegionCount(ctx, memory, &regions); result != OVEX_OK) {
        return result;
    }
    std::uint64_t sectors_before = 0;
    for (std::uint32_t index = 0; index < regions; ++index) {
        Region region{};
        if (const std::int32_t result = GetRegion(ctx, memory, index, region); result != OVEX_OK) {
            return result;
        }
        if (sector < sectors_before + region.sector_count) {
            const std::uint64_t start =
                region.first + (sector - sectors_before) * std::uint64_t{region.sector_size};
            *first = static_cast<std::uint32_t>(start);
            *last = static_cast<std::uint32_t>(start + region.sector_size - 1);
            return OVEX_OK;
        }
        sectors_before += region.sector_count;
    }
    return OVEX_ERR_HANDLE;
}

// One figure of region `index` of the memory named `id`.
std::int32_t RegionField(LegacyContext* ctx, const char* id, std::uint32_t index,
                         std::uint32_t* out, std::uint32_t Region::*field) {
    if (!IsLive(ctx) || AnyNull(id, out)) {
        return OVEX_ERR_HANDLE;
    }
    const std::optional<Memory> memory = Find(ctx, id);
    if (!memory) {
        return OVEX_ERR_HANDLE;
    }
    Region found{};
    const std::int32_t result = GetRegion(ctx, *memory, index, found);
    if (result == OVEX_OK) {
        *out = found.*field;
    }
    return result;
}

}  // namespace

extern "C" {

OVEXSDK_API int32_t ovex_flash_count(ovex_ctx* ctx, uint32_t* count) {
    if (!IsLive(ctx) || AnyNull(count)) {
        return OVEX_ERR_HANDLE;
    }
    std::uint8_t eeproms = 0;
    if (const ovexsdk_err_code result = ovexsdk_eeprom_get_count(&ctx->context, &eeproms);
        result != OVEXSDK_OK) {
        return Map(result);
    }
    std::uint8_t flashes = 0;
    const ovexsdk_err_code result = ovexsdk_flash_get_count(&ctx->context, &flashes);
    if (result == OVEXSDK_OK) {
        *count = std::uint32_t{eeproms} + flashes;
    }
    return Map(result);
}

OVEXSDK_API int32_t ovex_flash_id(ovex_ctx* ctx, uint32_t index, const char** id) {
    if (!IsLive(ctx) || AnyNull(id)) {
        return OVEX_ERR_HANDLE;
    }
    std::uint8_t eeproms = 0;
    if (const ovexsdk_err_code result = ovexsdk_eeprom_get_count(&ctx->context, &eeproms);
        result != OVEXSDK_OK) {
        return Map(result);
    }
    const bool eeprom = index < eeproms;
    const std::uint32_t own_index = eeprom ? index : index - eeproms;
    if (own_index > std::numeric_limits<std::uint8_t>::max()) {
        return OVEX_ERR_HANDLE;
    }
    const char* part_number = nullptr;
    return KeepTexts(ctx, {eeprom, static_cast<std::uint8_t>(own_index)}, id, &part_number);
}

OVEXSDK_API int32_t ovex_flash_part_nr(ovex_ctx* ctx, const char* id, const char** text) {
    if (!IsLive(ctx) || AnyNull(id, text)) {
        return OVEX_ERR_HANDLE;
    }
    const std::optional<Memory> memory = Find(ctx, id);
    if (!memory) {
        return OVEX_ERR_HANDLE;
    }
    const char* kept_id = nullptr;
    return KeepTexts(ctx, *memory, &kept_id, text);
}

OVEXSDK_API int32_t ovex_flash_regions(ovex_ctx* ctx, const char* id, uint32_t* count) {
    if (!IsLive(ctx) || AnyNull(id, count)) {
        return OVEX_ERR_HANDLE;
    }
    const std::optional<Memory> memory = Find(ctx, id);
    if (!memory) {
        return OVEX_ERR_HANDLE;
    }
    std::uint32_t regions = 0;
    const std::int32_t result = RegionCount(ctx, *memory, &regions);
    if (result == OVEX_OK) {
        *count = regions;
    }
    return result;
}

OVEXSDK_API int32_t ovex_flash_sector_count(ovex_ctx* ctx, const char* id, uint32_t region,
                                            uint32_t* count) {
    return RegionField(ctx, id, region, count, &Region::sector_count);
}

OVEXSDK_API int32_t ovex_flash_sector_size(ovex_ctx* ctx, const char* id, uint32_t region,
                                           uint32_t* size) {
    return RegionField(ctx, id, region, size, &Region::sector_size);
}

OVEXSDK_API int32_t ovex_flash_sector_address_range(ovex_ctx* ctx, const char* id, uint32_t sector,
                                                    uint32_t* first, uint32_t* last) {
    if (!IsLive(ctx) || AnyNull(id, first, last)) {
        return OVEX_ERR_HANDLE;
    }
    const std::optional<Memory> memory = Find(ctx, id);
    if (!memory) {
        return OVEX_ERR_HANDLE;
    }
    if (!memory->eeprom) {
        return FlashSectorRange(ctx, *memory, sector, first, last);
    }
    // An EEPROM's "sector" here is one of its regions.
    Region region{};
    const std::int32_t result = GetRegion(ctx, *memory, sector, region);
    if (result == OVEX_OK) {
        *first = region.first;
        *last = region.last;
    }
    return result;
}

OVEXSDK_API int32_t ovex_flash_read(ovex_ctx* ctx, const char* id, uint32_t address,
                                    uint8_t* buffer, uint64_t* length) {
    if (!IsLive(ctx) || AnyNull(id, buffer, length)) {
        return OVEX_ERR_HANDLE;
    }
    const std::optional<Memory> memory = Find(ctx, id);
    if (!memory) {
        return OVEX_ERR_HANDLE;
    }
    if (memory->eeprom) {
        return Map(ovexsdk_eeprom_read(&ctx->context, memory->index,
                                       static_cast<std::uint16_t>(address), buffer, length));
    }
    const ovexsdk_flash_read_input input{memory->index, address, *length};
    ovexsdk_flash_buffer target{buffer, 0};
    const ovexsdk_err_code result = ovexsdk_flash_read(&ctx->context, &input, &target);
    if (result == OVEXSDK_OK) {
        *length = target.size;
    }
    return Map(result);
}

OVEXSDK_API int32_t ovex_flash_program(ovex_ctx* ctx, const char* id, uint32_t address,
                                       const uint8_t* data, uint64_t* length) {
    if (!IsLive(ctx) || AnyNull(id, data, length)) {
        return OVEX_ERR_HANDLE;
    }
    const std::optional<Memory> memory = Find(ctx, id);
    if (!memory) {
        return OVEX_ERR_HANDLE;
    }
    if (memory->eeprom) {
        return Map(ovexsdk_eeprom_write(&ctx->context, memory->index,
                                        static_cast<std::uint16_t>(address), data, length));
    }
    // A flash only clears bits when it programs: the sector is erased first, always.
    if (const ovexsdk_err_code erased =
            ovexsdk_flash_erase_sector(&ctx->context, memory->index, address);
        erased != OVEXSDK_OK) {
        return Map(erased);
    }
    // The library only reads the bytes it programs.
    const ovexsdk_flash_buffer source{const_cast<std::uint8_t*>(data), *length};
    const ovexsdk_flash_program_input input{memory->index, address, &source};
    return Map(ovexsdk_flash_program_sector(&ctx->context, &input));
}

}  // extern "C"
