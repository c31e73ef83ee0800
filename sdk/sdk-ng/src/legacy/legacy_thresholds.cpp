// Chip thresholds by the older interface's ids: the id's first digit is the chip's index.

#include <cctype>
#include <iterator>

#include "legacy/legacy_core.hpp"

using namespace ovex::sdk::legacy;

namespace {

constexpr const char* kThresholdIds[] = {"0", "1"};

// The chip an id names: its first character, a digit, below the chip count.
std::int32_t ChipOf(ovex_ctx* ctx, const char* id, std::uint8_t& chip) {
    if (!std::isdigit(static_cast<unsigned char>(id[0]))) {
        return OVEX_ERR_HANDLE;
    }
    std::uint8_t count = 0;
    const ovexsdk_err_code counted = ovexsdk_chip_get_count(&ctx->context, &count);
    if (counted != OVEXSDK_OK) {
        return Map(counted);
    }
    chip = static_cast<std::uint8_t>(id[0] - '0');
    return chip < count ? OVEX_OK : OVEX_ERR_HANDLE;
}

// The threshold range of the chip an id names.
std::int32_t RangeOf(ovex_ctx* ctx, const char* id, ovexsdk_chip_thld_info& range) {
    std::uint8_t chip = 0;
    if (const std::int32_t named = ChipOf(ctx, id, chip); named != OVEX_OK) {
        return named;
    }
    ovexsdk_chip_thld_info infos[kLegacyChips]{};
    std::uint8_t count = kLegacyChips;
    const ovexsdk_err_code read = ovexsdk_chip_get_thld_info(&ctx->context, infos, &count);
    if (read != OVEXSDK_OK) {
        return Map(read);
    }
    if (chip >= count) {
        return OVEX_ERR_HANDLE;
    }
    range = infos[chip];
    return OVEX_OK;
}

}  // namespace

extern "C" {

OVEXSDK_API int32_t ovex_chip_threshold_count(ovex_ctx* ctx, uint32_t* count) {
    return ovex_chip_count(ctx, count);
}

OVEXSDK_API int32_t ovex_chip_threshold_id(ovex_ctx* ctx, uint32_t index, const char** id) {
    if (!IsLive(ctx) || AnyNull(id) || index >= std::size(kThresholdIds)) {
        return OVEX_ERR_HANDLE;
    }
    std::uint8_t count = 0;
    const ovexsdk_err_code counted = ovexsdk_chip_get_count(&ctx->context, &count);
    if (counted != OVEXSDK_OK) {
        return Map(counted);
    }
    if (index >= count) {
        return OVEX_ERR_HANDLE;
    }
    *id = kThresholdIds[index];
    return OVEX_OK;
}

OVEXSDK_API int32_t ovex_chip_threshold_get(ovex_ctx* ctx, const char* id, float* value) {
    if (!IsLive(ctx) || AnyNull(id, value)) {
        return OVEX_ERR_HANDLE;
    }
    std::uint8_t chip = 0;
    if (const std::int32_t named = ChipOf(ctx, id, chip); named != OVEX_OK) {
        return named;
    }
    return Map(ovexsdk_chip_get_thld(&ctx->context, chip, value));
}

OVEXSDK_API int32_t ovex_chip_threshold_set(ovex_ctx* ctx, const char* id, float value) {
    if (!IsLive(ctx) || AnyNull(id)) {
        return OVEX_ERR_HANDLE;
    }
    std::uint8_t chip = 0;
    if (const std::int32_t named = ChipOf(ctx, id, chip); named != OVEX_OK) {
        return named;
    }
    return Map(ovexsdk_chip_set_thld(&ctx->context, chip, value));
}

OVEXSDK_API int32_t ovex_chip_threshold_raw_get(ovex_ctx* ctx, const char* id, uint32_t* value) {
    if (!IsLive(ctx) || AnyNull(id, value)) {
        return OVEX_ERR_HANDLE;
    }
    std::uint8_t chip = 0;
    if (const std::int32_t named = ChipOf(ctx, id, chip); named != OVEX_OK) {
        return named;
    }
    return Map(ovexsdk_chip_get_raw_thld(&ctx->context, chip, value));
}

OVEXSDK_API int32_t ovex_chip_threshold_raw_set(ovex_ctx* ctx, const char* id, uint32_t value) {
    if (!IsLive(ctx) || AnyNull(id)) {
        return OVEX_ERR_HANDLE;
    }
    std::uint8_t chip = 0;
    if (const std::int32_t named = ChipOf(ctx, id, chip); named != OVEX_OK) {
        return named;
    }
    return Map(ovexsdk_chip_set_raw_thld(&ctx->context, chip, value));
}

OVEXSDK_API int32_t ovex_chip_threshold_range(ovex_ctx* ctx, const char* id, float* energy_low,
                                              float* energy_high, float* min_threshold) {
    if (!IsLive(ctx) || AnyNull(id, energy_low, energy_high, min_threshold)) {
        return OVEX_ERR_HANDLE;
    }
    ovexsdk_chip_thld_info range{};
    if (const std::int32_t read = RangeOf(ctx, id, range); read != OVEX_OK) {
        return read;
    }
    *energy_low = range.energy_low;
    *energy_high = range.energy_high;
    *min_threshold = range.min_threshold;
    return OVEX_OK;
}

OVEXSDK_API int32_t ovex_chip_threshold_raw_range(ovex_ctx* ctx, const char* id, uint32_t* min,
                                                  uint32_t* max) {
    if (!IsLive(ctx) || AnyNull(id, min, max)) {
        return OVEX_ERR_HANDLE;
    }
    ovexsdk_chip_thld_info range{};
    if (const std::int32_t read = RangeOf(ctx, id, range); read != OVEX_OK) {
        return read;
    }
    *min = range.raw_min;
    *max = range.raw_max;
    return OVEX_OK;
}

OVEXSDK_API int32_t ovex_chip_threshold_is_calibrated(ovex_ctx* ctx, const char* id,
                                                      int32_t* calibrated) {
    if (!IsLive(ctx) || AnyNull(id, calibrated)) {
        return OVEX_ERR_HANDLE;
    }
    ovexsdk_chip_thld_info range{};
    if (const std::int32_t read = RangeOf(ctx, id, range); read != OVEX_OK) {
        return read;
    }
    *calibrated = range.calibrated != 0 ? 1 : 0;
    return OVEX_OK;
}

}  // extern "C"
