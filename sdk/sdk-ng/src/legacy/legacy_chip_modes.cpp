// Chip modes by the older interface's ids: each id names a chip mode and a processing mode.

#include <cstring>

#include "legacy/legacy_chip.hpp"

using namespace ovex::sdk::legacy;

namespace {

struct ModeRow {
    const char* id;
    ovexsdk_chip_mode chip_mode;
    ovexsdk_acq_process_mode processing_mode;
};

constexpr ModeRow kModes[] = {
    {"tpx2-cont-evcount-8bit", EvCount8Bit, DefaultProcessing},
    {"tpx2-cont-evcount-10bit", EvCount10Bit, DefaultProcessing},
    {"tpx2-cont-evcount-14bit", EvCount14Bit, DefaultProcessing},
    {"tpx2-itot-10bit", IToT10Bit, DefaultProcessing},
    {"tpx1-tpx2-itot-14bit", IToT14Bit, DefaultProcessing},
    {"tpx3-toa-tot-fb-zs", ToAToTFBZS, DefaultProcessing},
    {"tpx3-itot-evcount-zs", IToTEvCountFBZS, DefaultProcessing},
    {"tpx3-toa-tot-dd", ToAToTDD, DefaultProcessing},
    {"tpx3-toa-tot-dd-s", ToAToTDD, SortByToa},
    {"tpx3-count-img", ToAToTDD, BinEvcountImage},
    {"tpx3-itot-img", ToAToTDD, BinItotImage},
    {"tpx3-itot-count-bin", ToAToTDD, BinCompletely},
};

const ModeRow* FindMode(const char* id) {
    for (const ModeRow& row : kModes) {
        if (std::strcmp(row.id, id) == 0) {
            return &row;
        }
    }
    return nullptr;
}

// Walks the rows that chip 0 offers: its modes in its order, for each the rows in table order.
// `visit` returns true to stop the walk.
template <class Visit>
std::int32_t WalkOfferedModes(LegacyContext* ctx, Visit visit) {
    std::uint8_t count = 0;
    if (const std::int32_t read = ReadChipInfos(ctx, count); read != OVEX_OK) {
        return read;
    }
    for (const ovexsdk_chip_mode mode : ctx->chips[0].modes) {
        for (const ModeRow& row : kModes) {
            if (row.chip_mode == mode && visit(row)) {
                return OVEX_OK;
            }
        }
    }
    return OVEX_OK;
}

std::int32_t SelectMode(LegacyContext* ctx, const char* id) {
    const ModeRow* row = FindMode(id);
    if (row == nullptr) {
        return OVEX_ERR_INVALID;
    }
    const ovexsdk_err_code set = ovexsdk_chip_set_mode(&ctx->context, row->chip_mode);
    if (set != OVEXSDK_OK) {
        return Map(set);
    }
    ctx->chip_mode = row->chip_mode;
    const ovexsdk_err_code selected =
        ovexsdk_acq_select_processing(&ctx->context, row->processing_mode);
    if (selected != OVEXSDK_OK) {
        return Map(selected);
    }
    ctx->processing_mode = row->processing_mode;
    return OVEX_OK;
}

}  // namespace

extern "C" {

OVEXSDK_API int32_t ovex_chip_mode_count(ovex_ctx* ctx, uint32_t* count) {
    if (!IsLive(ctx) || AnyNull(count)) {
        return OVEX_ERR_HANDLE;
    }
    std::uint32_t offered = 0;
    const std::int32_t walked = WalkOfferedModes(ctx, [&offered](const ModeRow&) {
        ++offered;
        return false;
    });
    if (walked == OVEX_OK) {
        *count = offered;
    }
    return walked;
}

OVEXSDK_API int32_t ovex_chip_mode_id(ovex_ctx* ctx, uint32_t index, const char** id) {
    if (!IsLive(ctx) || AnyNull(id)) {
        return OVEX_ERR_HANDLE;
    }
    const char* found = nullptr;
    std::uint32_t place = 0;
    const std::int32_t walked = WalkOfferedModes(ctx, [&](const ModeRow& row) {
        if (place++ == index) {
            found = row.id;
        }
        return found != nullptr;
    });
    if (walked != OVEX_OK) {
        return walked;
    }
    if (found == nullptr) {
        return OVEX_ERR_HANDLE;
    }
    *id = found;
    return OVEX_OK;
}

OVEXSDK_API int32_t ovex_chip_mode_select(ovex_ctx* ctx, const char* id) {
    if (!IsLive(ctx) || AnyNull(id)) {
        return OVEX_ERR_HANDLE;
    }
    return SelectMode(ctx, id);
}

OVEXSDK_API int32_t ovex_chip_mode_select_ex(ovex_ctx* ctx, const char* id,
                                             const ovexsdk_acq_params* params) {
    if (!IsLive(ctx) || AnyNull(id, params)) {
        return OVEX_ERR_HANDLE;
    }
    // The acquisition's start reads them from the handle.
    ctx->params = *params;
    return SelectMode(ctx, id);
}

}  // extern "C"
