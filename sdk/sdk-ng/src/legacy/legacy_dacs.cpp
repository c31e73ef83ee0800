// The DACs of chip 0 by name, through a table that every handle of the process shares and that
// each call fills afresh.

#include <algorithm>
#include <cstring>

#include "api_internal.hpp"
#include "legacy/legacy_core.hpp"

using namespace ovex::sdk::legacy;

namespace {

constexpr std::uint8_t kDacRows = 32;
// A NoBE names its DACs as "<chip>:<name>" in the older interface.
constexpr char kNobePrefix[] = "0:";
constexpr std::size_t kNobePrefixLength = sizeof kNobePrefix - 1;

struct DacTable {
    ovexsdk_chip_dac_info rows[kDacRows];
    std::uint8_t count;
};

DacTable& Table() {
    static DacTable table{};
    return table;
}

std::int32_t PrefixNames(DacTable& table) {
    for (std::uint8_t row = 0; row < table.count; ++row) {
        char* name = table.rows[row].name;
        const std::size_t length = std::strlen(name);
        if (kNobePrefixLength + length + 1 > sizeof table.rows[row].name) {
            return OVEX_ERR_UNAVAILABLE;
        }
        std::memmove(name + kNobePrefixLength, name, length + 1);
        std::memcpy(name, kNobePrefix, kNobePrefixLength);
    }
    return OVEX_OK;
}

// Fills the table with the DACs of chip 0, the names as the older interface gives them.
std::int32_t RefillTable(LegacyContext* ctx) {
    DacTable& table = Table();
    table.count = 0;
    std::uint8_t count = 0;
    const ovexsdk_err_code counted =
        ovex::sdk::ovexsdk_chip_get_dac_count(&ctx->context, 0, &count);
    if (counted != OVEXSDK_OK) {
        return Map(counted);
    }
    std::uint8_t filled = std::min(count, kDacRows);
    const ovexsdk_err_code described =
        ovex::sdk::ovexsdk_chip_get_dac_info(&ctx->context, 0, table.rows, &filled);
    if (described != OVEXSDK_OK) {
        return Map(described);
    }
    table.count = filled;
    ovexsdk_enum_info device{};
    const ovexsdk_err_code identified = ovexsdk_dev_get_info(&ctx->context, &device);
    if (identified != OVEXSDK_OK) {
        return Map(identified);
    }
    if (std::strcmp(device.product, "NOBE") != 0) {
        return OVEX_OK;
    }
    if (count > kDacRows) {
        return OVEX_ERR_HANDLE;
    }
    return PrefixNames(table);
}

// The row of the `index`-th DAC of the kind asked for, or null.
const ovexsdk_chip_dac_info* NthDac(std::uint32_t index, bool sense) {
    const DacTable& table = Table();
    for (std::uint8_t row = 0; row < table.count; ++row) {
        if ((table.rows[row].is_sense != 0) == sense && index-- == 0) {
            return &table.rows[row];
        }
    }
    return nullptr;
}

std::uint32_t CountDacs(bool sense) {
    const DacTable& table = Table();
    return static_cast<std::uint32_t>(
        std::count_if(table.rows, table.rows + table.count,
                      [sense](const auto& row) { return (row.is_sense != 0) == sense; }));
}

// The place of the named DAC in the table, or -1.
int FindDac(const char* name) {
    const DacTable& table = Table();
    for (std::uint8_t row = 0; row < table.count; ++row) {
        if (std::strcmp(table.rows[row].name, name) == 0) {
            return row;
        }
    }
    return -1;
}

// The current interface's id of a DAC: its place in the table plus 1.
std::uint8_t DacId(int place) {
    return static_cast<std::uint8_t>(place + 1);
}

// Refills the table and finds the named DAC in it; an unknown name gives OVEX_ERR_HANDLE.
std::int32_t RefillAndFind(LegacyContext* ctx, const char* name, int& place) {
    if (const std::int32_t refilled = RefillTable(ctx); refilled != OVEX_OK) {
        return refilled;
    }
    place = FindDac(name);
    return place < 0 ? OVEX_ERR_HANDLE : OVEX_OK;
}

std::int32_t CountOfKind(ovex_ctx* ctx, uint32_t* count, bool sense) {
    if (!IsLive(ctx) || AnyNull(count)) {
        return OVEX_ERR_HANDLE;
    }
    if (const std::int32_t refilled = RefillTable(ctx); refilled != OVEX_OK) {
        return refilled;
    }
    *count = CountDacs(sense);
    return OVEX_OK;
}

std::int32_t NameOfKind(ovex_ctx* ctx, uint32_t index, const char** name, bool sense) {
    if (!IsLive(ctx) || AnyNull(name)) {
        return OVEX_ERR_HANDLE;
    }
    if (const std::int32_t refilled = RefillTable(ctx); refilled != OVEX_OK) {
        return refilled;
    }
    const ovexsdk_chip_dac_info* dac = NthDac(index, sense);
    if (dac == nullptr) {
        return OVEX_ERR_HANDLE;
    }
    *name = dac->name;
    return OVEX_OK;
}

}  // namespace

extern "C" {

OVEXSDK_API int32_t ovex_chip_dac_count(ovex_ctx* ctx, uint32_t* count) {
    return CountOfKind(ctx, count, false);
}

OVEXSDK_API int32_t ovex_chip_dac_name(ovex_ctx* ctx, uint32_t index, const char** name) {
    return NameOfKind(ctx, index, name, false);
}

OVEXSDK_API int32_t ovex_chip_dac_limits(ovex_ctx* ctx, const char* name, int32_t* min,
                                         int32_t* max) {
    if (!IsLive(ctx) || AnyNull(name)) {
        return OVEX_ERR_HANDLE;
    }
    int place = -1;
    if (const std::int32_t found = RefillAndFind(ctx, name, place); found != OVEX_OK) {
        return found;
    }
    const ovexsdk_chip_dac_info& dac = Table().rows[place];
    if (min != nullptr) {
        *min = dac.min;
    }
    if (max != nullptr) {
        *max = dac.max;
    }
    return OVEX_OK;
}

OVEXSDK_API int32_t ovex_chip_dac_value_get(ovex_ctx* ctx, const char* name, uint16_t* value) {
    if (!IsLive(ctx) || AnyNull(name, value)) {
        return OVEX_ERR_HANDLE;
    }
    int place = -1;
    if (const std::int32_t found = RefillAndFind(ctx, name, place); found != OVEX_OK) {
        return found;
    }
    return Map(ovex::sdk::ovexsdk_chip_get_dac(&ctx->context, 0, DacId(place), value));
}

OVEXSDK_API int32_t ovex_chip_dac_value_set(ovex_ctx* ctx, const char* name, uint16_t value) {
    if (!IsLive(ctx) || AnyNull(name)) {
        return OVEX_ERR_HANDLE;
    }
    int place = -1;
    if (const std::int32_t found = RefillAndFind(ctx, name, place); found != OVEX_OK) {
        return found;
    }
    return Map(ovex::sdk::ovexsdk_chip_set_dac(&ctx->context, 0, DacId(place), value));
}

OVEXSDK_API int32_t ovex_chip_dac_measure(ovex_ctx* ctx, const char* name, float* volts) {
    if (!IsLive(ctx) || AnyNull(name, volts)) {
        return OVEX_ERR_HANDLE;
    }
    int place = -1;
    if (const std::int32_t found = RefillAndFind(ctx, name, place); found != OVEX_OK) {
        return found;
    }
    return Map(ovex::sdk::ovexsdk_chip_measure_dac(&ctx->context, 0, DacId(place), volts));
}

OVEXSDK_API int32_t ovex_chip_sense_dac_count(ovex_ctx* ctx, uint32_t* count) {
    return CountOfKind(ctx, count, true);
}

OVEXSDK_API int32_t ovex_chip_sense_dac_name(ovex_ctx* ctx, uint32_t index, const char** name) {
    return NameOfKind(ctx, index, name, true);
}

OVEXSDK_API int32_t ovex_chip_sense_dac_sel(ovex_ctx* ctx, const char* name) {
    if (!IsLive(ctx) || AnyNull(name)) {
        return OVEX_ERR_HANDLE;
    }
    int place = -1;
    if (const std::int32_t found = RefillAndFind(ctx, name, place); found != OVEX_OK) {
        return found;
    }
    // Measuring switches the chip's sense line to the DAC; the reading itself isn't wanted.
    float dropped = 0;
    return Map(ovex::sdk::ovexsdk_chip_measure_dac(&ctx->context, 0, DacId(place), &dropped));
}

}  // extern "C"
