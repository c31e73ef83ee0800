// The chips of the older interface: their ids, polarity, configuration and pixel mask.

#include "legacy/legacy_chip.hpp"

#include <new>
#include <string_view>

#include "api_internal.hpp"

using namespace ovex::sdk::legacy;

namespace ovex::sdk::legacy {

std::int32_t ReadChipInfos(LegacyContext* ctx, std::uint8_t& count) {
    count = kLegacyChips;
    const ovexsdk_err_code described = ovexsdk_chip_get_info(&ctx->context, ctx->chips, &count);
    if (described != OVEXSDK_OK) {
        return Map(described);
    }
    return count == 0 ? OVEX_ERR_HANDLE : OVEX_OK;
}

}  // namespace ovex::sdk::legacy

namespace {

// The configuration formats that ovexsdk_chip_configure_from_string tells apart by itself.
bool IsConfigurationFormat(std::string_view format) {
    return format == "xml" || format == "yml" || format == "yaml";
}

}  // namespace

extern "C" {

OVEXSDK_API int32_t ovex_chip_count(ovex_ctx* ctx, uint32_t* count) {
    if (!IsLive(ctx) || AnyNull(count)) {
        return OVEX_ERR_HANDLE;
    }
    std::uint8_t chips = 0;
    const ovexsdk_err_code counted = ovexsdk_chip_get_count(&ctx->context, &chips);
    if (counted == OVEXSDK_OK) {
        *count = chips;
    }
    return Map(counted);
}

OVEXSDK_API int32_t ovex_chip_id(ovex_ctx* ctx, uint32_t index, const char** id) {
    if (!IsLive(ctx) || AnyNull(id) || index >= kLegacyChips) {
        return OVEX_ERR_HANDLE;
    }
    std::uint8_t count = 0;
    if (const std::int32_t read = ReadChipInfos(ctx, count); read != OVEX_OK) {
        return read;
    }
    if (index >= count) {
        return OVEX_ERR_HANDLE;
    }
    *id = ctx->chips[index].chip_id;
    return OVEX_OK;
}

OVEXSDK_API int32_t ovex_chip_get_polarity(ovex_ctx* ctx, uint32_t index, int32_t* polarity) {
    if (!IsLive(ctx) || AnyNull(polarity) || index >= kLegacyChips) {
        return OVEX_ERR_HANDLE;
    }
    ovexsdk_chip_settings settings[kLegacyChips]{};
    std::uint8_t count = kLegacyChips;
    const ovexsdk_err_code read = ovexsdk_chip_get_settings(&ctx->context, settings, &count);
    if (read != OVEXSDK_OK) {
        return Map(read);
    }
    if (index >= count) {
        return OVEX_ERR_HANDLE;
    }
    *polarity = settings[index].polarity == OVEXSDK_POLARITY_2 ? 1 : 0;
    return OVEX_OK;
}

OVEXSDK_API int32_t ovex_chip_set_polarity(ovex_ctx* ctx, uint32_t index, int32_t polarity) {
    if (!IsLive(ctx) || index >= kLegacyChips) {
        return OVEX_ERR_HANDLE;
    }
    // Older hosts count polarities from 0; any value but 1 means the first.
    const ovexsdk_chip_polarity chosen = polarity == 1 ? OVEXSDK_POLARITY_2 : OVEXSDK_POLARITY_1;
    return Map(ovexsdk_chip_set_polarity(&ctx->context, static_cast<std::uint8_t>(index), chosen));
}

OVEXSDK_API int32_t ovex_chip_refresh(ovex_ctx* ctx) {
    if (!IsLive(ctx)) {
        return OVEX_ERR_HANDLE;
    }
    std::uint8_t count = 0;
    const ovexsdk_err_code counted = ovexsdk_chip_get_count(&ctx->context, &count);
    if (counted != OVEXSDK_OK) {
        return Map(counted);
    }
    for (std::uint8_t chip = 0; chip < count; ++chip) {
        const ovexsdk_err_code configured = ovexsdk_chip_configure(&ctx->context, chip);
        if (configured != OVEXSDK_OK) {
            return Map(configured);
        }
    }
    return OVEX_OK;
}

OVEXSDK_API int32_t ovex_load_configuration(ovex_ctx* ctx, const char* format, const char* text) {
    if (!IsLive(ctx) || AnyNull(format, text) || !IsConfigurationFormat(format)) {
        return OVEX_ERR_HANDLE;
    }
    return Map(ovexsdk_chip_configure_from_string(&ctx->context, 0, text));
}

OVEXSDK_API int32_t ovex_load_configuration_matrix(ovex_ctx* ctx, const uint8_t* matrix,
                                                   uint64_t size, ovex_bad_pixels_cb callback,
                                                   void* user) {
    if (!IsLive(ctx) || AnyNull(matrix) || callback == nullptr) {
        return OVEX_ERR_HANDLE;
    }
    std::uint8_t count = 0;
    if (const std::int32_t read = ReadChipInfos(ctx, count); read != OVEX_OK) {
        return read;
    }
    const std::uint64_t pixels = std::uint64_t{ctx->chips[0].width} * ctx->chips[0].height;
    // The digital test may find every pixel bad: the list has room for all of them.
    auto* indices = new (std::nothrow) ovexsdk_chip_pix_indices[pixels];
    if (indices == nullptr) {
        return OVEX_ERR_NO_MEMORY;
    }
    // The library only reads the host's matrix.
    ovexsdk_chip_matrix host{const_cast<std::uint8_t*>(matrix), size};
    std::uint64_t bad = 0;
    const ovexsdk_err_code configured =
        ovex::sdk::ovexsdk_chip_configure_from_matrix(&ctx->context, 0, &host, indices, &bad);
    if (configured == OVEXSDK_OK) {
        callback(indices, bad, user);
    }
    delete[] indices;
    return Map(configured);
}

OVEXSDK_API int32_t ovex_get_pixel_mask_size(ovex_ctx* ctx, ovex_pixel_mask_size* size) {
    if (!IsLive(ctx) || AnyNull(size)) {
        return OVEX_ERR_HANDLE;
    }
    std::uint8_t count = 0;
    if (const std::int32_t read = ReadChipInfos(ctx, count); read != OVEX_OK) {
        return read;
    }
    size->height = ctx->chips[0].height;
    size->width = ctx->chips[0].width;
    return OVEX_OK;
}

OVEXSDK_API int32_t ovex_get_pixel_mask(ovex_ctx* ctx, uint8_t* mask, uint64_t* size) {
    if (!IsLive(ctx) || AnyNull(mask, size)) {
        return OVEX_ERR_HANDLE;
    }
    ovexsdk_chip_pixel_mask buffer{mask, *size};
    return Map(ovexsdk_chip_get_pixel_mask(&ctx->context, 0, &buffer));
}

OVEXSDK_API int32_t ovex_set_pixel_mask(ovex_ctx* ctx, const ovexsdk_chip_pixel_mask* mask) {
    if (!IsLive(ctx) || AnyNull(mask)) {
        return OVEX_ERR_HANDLE;
    }
    return Map(ovexsdk_chip_set_pixel_mask(&ctx->context, 0, mask));
}

}  // extern "C"
