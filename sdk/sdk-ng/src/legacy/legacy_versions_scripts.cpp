// The board's component versions, the context's scripts and the board's AXI-Lite registers.

#include <algorithm>
#include <cstring>

#include "api_internal.hpp"
#include "legacy/legacy_core.hpp"
#include "modules/axi_internal.hpp"

using namespace ovex::sdk::legacy;

namespace {

constexpr std::uint8_t kComponentRows = 16;

// The component table: one for the whole process, filled anew by each call that names a
// component, so that the texts it hands out stay valid after the call.
ovexsdk_comp_info g_components[kComponentRows];

// Fills the component table from the board; `rows` gets the number of components. A component
// whose version can't be read keeps an empty row rather than one of an earlier call.
std::int32_t FillComponents(LegacyContext* ctx, std::uint8_t& rows) {
    std::memset(g_components, 0, sizeof g_components);
    rows = kComponentRows;
    return Map(ovex::sdk::ovexsdk_comp_get_info(&ctx->context, g_components, &rows));
}

}  // namespace

extern "C" {

OVEXSDK_API int32_t ovex_hw_version_count(ovex_ctx* ctx, uint32_t* count) {
    if (!IsLive(ctx) || AnyNull(count)) {
        return OVEX_ERR_HANDLE;
    }
    std::uint8_t components = 0;
    const ovexsdk_err_code result =
        ovex::sdk::ovexsdk_comp_get_ver_count(&ctx->context, &components);
    if (result == OVEXSDK_OK) {
        *count = components;
    }
    return Map(result);
}

OVEXSDK_API int32_t ovex_hw_version_id(ovex_ctx* ctx, uint32_t index, const char** name) {
    if (!IsLive(ctx) || AnyNull(name)) {
        return OVEX_ERR_HANDLE;
    }
    std::uint8_t rows = 0;
    const std::int32_t filled = FillComponents(ctx, rows);
    if (filled != OVEX_OK) {
        return filled;
    }
    if (index >= rows) {
        return OVEX_ERR_HANDLE;
    }
    *name = g_components[index].name;
    return OVEX_OK;
}

OVEXSDK_API int32_t ovex_hw_version_string(ovex_ctx* ctx, const char* name, const char** version) {
    if (!IsLive(ctx) || AnyNull(name, version)) {
        return OVEX_ERR_HANDLE;
    }
    std::uint8_t rows = 0;
    const std::int32_t filled = FillComponents(ctx, rows);
    if (filled != OVEX_OK) {
        return filled;
    }
    auto* end = g_components + rows;
    const auto* row = std::find_if(g_components, end, [name](const ovexsdk_comp_info& info) {
        return std::strcmp(info.name, name) == 0;
    });
    if (row == end) {
        return OVEX_ERR_HANDLE;
    }
    *version = row->version;
    return OVEX_OK;
}

OVEXSDK_API int32_t ovex_script_run(ovex_ctx* ctx, const char* text) {
    if (!IsLive(ctx) || AnyNull(text)) {
        return OVEX_ERR_HANDLE;
    }
    return Map(ovexsdk_script_execute(&ctx->context, text));
}

OVEXSDK_API int32_t ovex_script_get_state(ovex_ctx* ctx, void** state) {
    if (!IsLive(ctx) || AnyNull(state)) {
        return OVEX_ERR_HANDLE;
    }
    return Map(ovex::sdk::ovexsdk_get_script_state(&ctx->context, state));
}

// Not mapped: the number that tells a refused access also tells the bus's own code.
OVEXSDK_API int32_t ovex_axi_read(ovex_ctx* ctx, uint32_t address, uint32_t* value) {
    if (!IsLive(ctx) || AnyNull(value)) {
        return OVEX_ERR_HANDLE;
    }
    return ovex::sdk::ovexsdk_axi_read(&ctx->context, address, value);
}

OVEXSDK_API int32_t ovex_axi_write(ovex_ctx* ctx, uint32_t address, uint32_t value) {
    if (!IsLive(ctx)) {
        return OVEX_ERR_HANDLE;
    }
    return ovex::sdk::ovexsdk_axi_write(&ctx->context, address, value);
}

}  // extern "C"
