// The board's power units, which the older interface calls boards and names.

#include <algorithm>
#include <cstring>

#include "legacy/legacy_core.hpp"

using namespace ovex::sdk::legacy;

namespace {

constexpr std::uint8_t kUnitRows = 5;

// The units table: one for the whole process, filled anew by each call that names a unit, so
// that the names it hands out stay valid after the call.
ovexsdk_dev_unit_info g_units[kUnitRows];

// Fills the units table from the board; `rows` gets the number of units.
std::int32_t FillUnits(LegacyContext* ctx, std::uint8_t& rows) {
    std::uint8_t units = 0;
    const ovexsdk_err_code counted = ovexsdk_dev_get_unit_count(&ctx->context, &units);
    if (counted != OVEXSDK_OK) {
        return Map(counted);
    }
    if (units > kUnitRows) {
        return OVEX_ERR_HANDLE;
    }
    rows = kUnitRows;
    return Map(ovexsdk_dev_get_unit_info(&ctx->context, g_units, &rows));
}

// The named unit's index and whether it is powered.
std::int32_t UnitState(LegacyContext* ctx, const char* name, std::uint8_t& unit, bool& powered) {
    std::uint8_t rows = 0;
    const std::int32_t filled = FillUnits(ctx, rows);
    if (filled != OVEX_OK) {
        return filled;
    }
    auto* end = g_units + rows;
    const auto* row = std::find_if(g_units, end, [name](const ovexsdk_dev_unit_info& info) {
        return std::strcmp(info.name, name) == 0;
    });
    if (row == end) {
        return OVEX_ERR_HANDLE;
    }
    unit = row->index;
    return Map(ovexsdk_dev_is_unit_powered(&ctx->context, unit, &powered));
}

// Powers the named unit up or down unless it already is.
std::int32_t SwitchUnit(LegacyContext* ctx, const char* name, bool up) {
    if (!IsLive(ctx) || AnyNull(name)) {
        return OVEX_ERR_HANDLE;
    }
    std::uint8_t unit = 0;
    bool powered = false;
    const std::int32_t state = UnitState(ctx, name, unit, powered);
    if (state != OVEX_OK) {
        return state;
    }
    if (powered == up) {
        return OVEX_ERR_UNAVAILABLE;
    }
    return Map(up ? ovexsdk_dev_power_up_unit(&ctx->context, unit)
                  : ovexsdk_dev_power_down_unit(&ctx->context, unit));
}

}  // namespace

extern "C" {

OVEXSDK_API int32_t ovex_board_count(ovex_ctx* ctx, uint32_t* count) {
    if (!IsLive(ctx) || AnyNull(count)) {
        return OVEX_ERR_HANDLE;
    }
    std::uint8_t units = 0;
    const ovexsdk_err_code result = ovexsdk_dev_get_unit_count(&ctx->context, &units);
    if (result == OVEXSDK_OK) {
        *count = units;
    }
    return Map(result);
}

OVEXSDK_API int32_t ovex_board_id(ovex_ctx* ctx, uint32_t index, const char** name) {
    if (!IsLive(ctx) || AnyNull(name)) {
        return OVEX_ERR_HANDLE;
    }
    std::uint8_t rows = 0;
    const std::int32_t filled = FillUnits(ctx, rows);
    if (filled != OVEX_OK) {
        return filled;
    }
    if (index >= rows) {
        return OVEX_ERR_HANDLE;
    }
    *name = g_units[index].name;
    return OVEX_OK;
}

OVEXSDK_API int32_t ovex_board_is_powered(ovex_ctx* ctx, const char* name, int32_t* powered) {
    if (!IsLive(ctx) || AnyNull(name, powered)) {
        return OVEX_ERR_HANDLE;
    }
    std::uint8_t unit = 0;
    bool state = false;
    const std::int32_t result = UnitState(ctx, name, unit, state);
    if (result == OVEX_OK) {
        *powered = state ? 1 : 0;
    }
    return result;
}

OVEXSDK_API int32_t ovex_board_power_on(ovex_ctx* ctx, const char* name) {
    return SwitchUnit(ctx, name, true);
}

OVEXSDK_API int32_t ovex_board_power_off(ovex_ctx* ctx, const char* name) {
    return SwitchUnit(ctx, name, false);
}

}  // extern "C"
