// The versions of the board's components: firmware, FPGA design and the like, as the board names
// them. The library keeps these functions for its legacy interface and doesn't export them.

#include <algorithm>
#include <cstdint>
#include <string>

#include "api_internal.hpp"
#include "api_utils.hpp"
#include "context.hpp"
#include "ovex/log/log.hpp"

namespace ovex::sdk {

namespace {

// The device's version set, or null after the refusal of the call.
ovexsdk_err_code FindVersions(Context& context, Versions*& versions) {
    if (LogMissingDevice(context)) {
        return OVEXSDK_ERR_NO_DEVICE;
    }
    versions = context.Device()->GetVersions();
    if (versions == nullptr) {
        OVEX_LOG_ERROR("Device component versions are unavailable.");
        return OVEXSDK_ERR_FAILED;
    }
    return OVEXSDK_OK;
}

ovexsdk_err_code CompGetVerCount(Context& context, std::uint8_t* count) {
    if (LogInvalidPointer(count, "count")) {
        return OVEXSDK_ERR_INVALID;
    }
    Versions* versions = nullptr;
    if (const auto result = FindVersions(context, versions); result != OVEXSDK_OK) {
        return result;
    }
    *count = static_cast<std::uint8_t>(versions->Names().size());
    return OVEXSDK_OK;
}

ovexsdk_err_code CompGetInfo(Context& context, ovexsdk_comp_info* infos, std::uint8_t* count) {
    if (LogInvalidPointer(infos, "infos") || LogInvalidPointer(count, "count")) {
        return OVEXSDK_ERR_INVALID;
    }
    Versions* versions = nullptr;
    if (const auto result = FindVersions(context, versions); result != OVEXSDK_OK) {
        return result;
    }
    const auto& names = versions->Names();
    if (names.size() > *count) {
        OVEX_LOG_WARN(
            "Cannot fit all component information structs into the array: provided array of "
            "size %lu, got %lu elements",
            static_cast<unsigned long>(*count), static_cast<unsigned long>(names.size()));
    }
    const std::size_t filled = std::min<std::size_t>(*count, names.size());
    for (std::size_t index = 0; index < filled; ++index) {
        std::string version;
        if (const auto ec = versions->Get(names[index], version)) {
            OVEX_LOG_EC(ovex::log::kError,
                        "Failed to obtain version string for component '%s' - %s: %s.", ec,
                        names[index].c_str());
            continue;
        }
        CopyTextField(infos[index].name, names[index]);
        CopyTextField(infos[index].version, version);
    }
    *count = static_cast<std::uint8_t>(filled);
    return OVEXSDK_OK;
}

}  // namespace

ovexsdk_err_code ovexsdk_comp_get_ver_count(ovexsdk_dev_ctx* ctx, std::uint8_t* count) {
    return OVEXSDK_FRAME(&Exclusive<&CompGetVerCount>::Call, ctx, count);
}

ovexsdk_err_code ovexsdk_comp_get_info(ovexsdk_dev_ctx* ctx, ovexsdk_comp_info infos[],
                                       std::uint8_t* count) {
    return OVEXSDK_FRAME(&Exclusive<&CompGetInfo>::Call, ctx, infos, count);
}

}  // namespace ovex::sdk
