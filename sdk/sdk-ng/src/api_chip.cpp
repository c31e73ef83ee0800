// The chips of a powered board: their description, operating mode, polarity and user pixel mask.

#include <algorithm>
#include <cstdint>
#include <span>
#include <vector>

#include "api_chip_lookup.hpp"
#include "api_utils.hpp"
#include "context.hpp"
#include "modules/acquisition.hpp"
#include "modules/backend.hpp"
#include "modules/timepix_chip.hpp"
#include "ovex/log/log.hpp"
#include "ovexsdk.h"

namespace ovex::sdk {

namespace {

// A mode that isn't one of the interface's becomes Unknown.
ovexsdk_chip_mode KnownMode(ovexsdk_chip_mode mode) {
    return mode >= EvCount8Bit && mode <= IToTEvCountFBZS ? mode : Unknown;
}

// How many bits a pixel takes in the board's pipeline for a chip mode: the acquisition's depth
// class. Unknown and anything else is class 4, which no pipeline takes.
std::uint8_t DepthClass(ovexsdk_chip_mode mode) {
    switch (mode) {
        case EvCount8Bit:
            return 0;
        case EvCount10Bit:
        case IToT10Bit:
            return 1;
        case EvCount14Bit:
        case IToT14Bit:
            return 2;
        case ToAToTDD:
        case ToAToTFBZS:
        case IToTEvCountFBZS:
            return 3;
        default:
            return 4;
    }
}

// Tells the device's pipelines the bit depth that a depth class needs.
std::error_code ConfigurePipelines(SdkDevice& device, std::uint8_t depth_class) {
    static constexpr std::uint8_t kPipelineDepth[] = {1, 2, 3, 0};
    if (depth_class >= std::size(kPipelineDepth)) {
        OVEX_LOG_ERROR("BUG: Acquisition pixel depth '%d' is unhandled.", depth_class);
        return std::make_error_code(std::errc::invalid_argument);
    }
    const std::uint8_t depth = kPipelineDepth[depth_class];
    auto* backend = device.GetModule<IBackend>();
    auto* frontend = device.GetModule<IFrontend>();
    if (backend == nullptr && frontend == nullptr) {
        OVEX_LOG_ERROR("Device has neither a backend nor a frontend module.");
        return std::make_error_code(std::errc::not_supported);
    }
    if (backend != nullptr) {
        if (auto* pipeline = backend->GetPipeline()) {
            if (const auto ec = pipeline->SetBitDepth(depth)) {
                OVEX_LOG_EC(ovex::log::kError,
                            "Failed to set the backend pipeline bit depth - %s: %s", ec);
                return ec;
            }
        } else {
            OVEX_LOG_DEBUG("Backend %s doesn't have pipeline, skipping.", backend->GetName());
        }
    }
    if (frontend != nullptr) {
        if (auto* pipeline = frontend->GetPipeline()) {
            if (const auto ec = pipeline->SetBitDepth(depth)) {
                OVEX_LOG_EC(ovex::log::kError,
                            "Failed to set the frontend pipeline bit depth - %s: %s", ec);
                return ec;
            }
        } else {
            OVEX_LOG_DEBUG("Frontend %s doesn't have pipeline, skipping.", frontend->GetName());
        }
    }
    return {};
}

ovexsdk_err_code ChipGetCount(Context& context, std::uint8_t* count) {
    if (count == nullptr) {
        OVEX_LOG_ERROR("Count pointer is not valid.");
        return OVEXSDK_ERR_INVALID;
    }
    if (LogMissingDevice(context)) {
        return OVEXSDK_ERR_NO_DEVICE;
    }
    *count = static_cast<std::uint8_t>(context.Device()->GetModules<ITimepixChip>().size());
    return OVEXSDK_OK;
}

ovexsdk_err_code ChipGetInfo(Context& context, ovexsdk_chip_info* infos, std::uint8_t* count) {
    if (LogMissingDevice(context)) {
        return OVEXSDK_ERR_NO_DEVICE;
    }
    if (LogInvalidPointer(infos, "infos") || LogInvalidPointer(count, "count")) {
        return OVEXSDK_ERR_INVALID;
    }
    const auto chips = context.Device()->GetModules<ITimepixChip>();
    if (chips.size() > *count) {
        OVEX_LOG_WARN(
            "Cannot fit all chip information structs into the array: provided array of size "
            "%hhu, got %zu elements",
            *count, chips.size());
    }
    const std::size_t filled = std::min<std::size_t>(*count, chips.size());
    for (std::size_t index = 0; index < filled; ++index) {
        const auto info = chips[index]->GetInfo();
        if (!info) {
            OVEX_LOG_ERROR("Unable to read chip information for chip '%zu'.", index);
            return OVEXSDK_ERR_FAILED;
        }
        auto& record = infos[index];
        record = {};
        CopyTextField(record.chip_id, chips[index]->GetChipId());
        for (std::size_t m = 0; m < std::min(info->modes.size(), std::size(record.modes)); ++m) {
            record.modes[m] = KnownMode(info->modes[m]);
        }
        for (std::size_t p = 0; p < std::min(info->polarities.size(), std::size(record.polarities));
             ++p) {
            record.polarities[p] = static_cast<ovexsdk_chip_polarity>(info->polarities[p]);
        }
        record.width = info->width;
        record.height = info->height;
    }
    *count = static_cast<std::uint8_t>(filled);
    return OVEXSDK_OK;
}

ovexsdk_err_code ChipGetSettings(Context& context, ovexsdk_chip_settings* settings,
                                 std::uint8_t* count) {
    if (LogMissingDevice(context)) {
        return OVEXSDK_ERR_NO_DEVICE;
    }
    if (LogInvalidPointer(settings, "settings") || LogInvalidPointer(count, "count")) {
        return OVEXSDK_ERR_INVALID;
    }
    const auto chips = context.Device()->GetModules<ITimepixChip>();
    if (chips.size() > *count) {
        OVEX_LOG_WARN(
            "Cannot fit all chip settings structs into the array: provided array of size %hhu, "
            "got %zu elements",
            *count, chips.size());
    }
    const std::size_t filled = std::min<std::size_t>(*count, chips.size());
    for (std::size_t index = 0; index < filled; ++index) {
        std::uint8_t polarity = 0;
        if (chips[index]->GetPolarity(polarity)) {
            OVEX_LOG_ERROR("Unable to obtain polarity of chip '%s'.",
                           chips[index]->GetChipId().c_str());
            return OVEXSDK_ERR_FAILED;
        }
        settings[index].polarity = static_cast<ovexsdk_chip_polarity>(polarity);
        settings[index].mode = KnownMode(chips[index]->GetMode());
    }
    *count = static_cast<std::uint8_t>(filled);
    return OVEXSDK_OK;
}

// The mode is the device's: every pipeline learns the bit depth it needs, then the first chip
// takes the mode.
ovexsdk_err_code ChipSetMode(Context& context, ovexsdk_chip_mode mode) {
    if (LogMissingDevice(context)) {
        return OVEXSDK_ERR_NO_DEVICE;
    }
    auto& device = *context.Device();
    auto* chip = device.GetModule<ITimepixChip>();
    if (chip == nullptr) {
        OVEX_LOG_ERROR("Failed to set chip mode, chip module is missing.");
        return OVEXSDK_ERR_INVALID;
    }
    if (const auto ec = ConfigurePipelines(device, DepthClass(mode))) {
        OVEX_LOG_EC(ovex::log::kError, "Failed to configure the device - %s: %s", ec);
        return OVEXSDK_ERR_FAILED;
    }
    if (const auto ec = chip->SetMode(mode)) {
        OVEX_LOG_EC(ovex::log::kError, "Failed to configure chip operational mode - %s: %s.", ec);
        return OVEXSDK_ERR_INVALID;
    }
    for (auto* module : device.GetModules<acquisition::IAcquisition>()) {
        if (const auto ec = module->SetPixelDepth(DepthClass(mode))) {
            OVEX_LOG_EC(ovex::log::kError, "Failed to configure acquisition bit depth - %s: %s.",
                        ec);
            return OVEXSDK_ERR_INVALID;
        }
    }
    return OVEXSDK_OK;
}

ovexsdk_err_code ChipSetPolarity(Context& context, std::uint8_t chip,
                                 ovexsdk_chip_polarity polarity) {
    if (LogMissingDevice(context)) {
        return OVEXSDK_ERR_NO_DEVICE;
    }
    auto* module = FindChip(context, chip);
    if (module == nullptr) {
        return OVEXSDK_ERR_INVALID;
    }
    if (polarity != OVEXSDK_POLARITY_1 && polarity != OVEXSDK_POLARITY_2) {
        OVEX_LOG_ERROR("Value '%d' is not a valid Timepix polarity.", static_cast<int>(polarity));
        return OVEXSDK_ERR_INVALID;
    }
    if (const auto ec = module->SetPolarity(static_cast<std::uint8_t>(polarity))) {
        OVEX_LOG_EC(ovex::log::kError, "Failed to configure chip polarity - %s: %s", ec);
        return OVEXSDK_ERR_FAILED;
    }
    return OVEXSDK_OK;
}

bool LogInvalidMask(const ovexsdk_chip_pixel_mask* mask) {
    return LogInvalidPointer(mask, "mask") || LogInvalidPointer(mask->data, "mask->data");
}

ovexsdk_err_code ChipSetPixelMask(Context& context, std::uint8_t chip,
                                  const ovexsdk_chip_pixel_mask* mask) {
    if (LogMissingDevice(context)) {
        return OVEXSDK_ERR_NO_DEVICE;
    }
    if (LogInvalidMask(mask)) {
        return OVEXSDK_ERR_INVALID;
    }
    auto* module = FindChip(context, chip);
    if (module == nullptr) {
        return OVEXSDK_ERR_INVALID;
    }
    if (const auto ec = module->SetMask(std::span(mask->data, mask->size))) {
        OVEX_LOG_EC(ovex::log::kError, "Failed to configure user pixel mask - %s: %s", ec);
        return OVEXSDK_ERR_FAILED;
    }
    return OVEXSDK_OK;
}

ovexsdk_err_code ChipGetPixelMask(Context& context, std::uint8_t chip,
                                  ovexsdk_chip_pixel_mask* mask) {
    if (LogMissingDevice(context)) {
        return OVEXSDK_ERR_NO_DEVICE;
    }
    if (LogInvalidMask(mask)) {
        return OVEXSDK_ERR_INVALID;
    }
    auto* module = FindChip(context, chip);
    if (module == nullptr) {
        return OVEXSDK_ERR_INVALID;
    }
    std::vector<std::uint8_t> stored;
    if (const auto ec = module->GetMask(stored)) {
        OVEX_LOG_EC(ovex::log::kError, "Failed to obtain user pixel mask - %s: %s", ec);
        return OVEXSDK_ERR_FAILED;
    }
    std::copy_n(stored.begin(), std::min<std::uint64_t>(mask->size, stored.size()), mask->data);
    return OVEXSDK_OK;
}

}  // namespace

}  // namespace ovex::sdk

using namespace ovex::sdk;

extern "C" {

OVEXSDK_API ovexsdk_err_code ovexsdk_chip_get_count(ovexsdk_dev_ctx* ctx, uint8_t* count) {
    return OVEXSDK_FRAME(&Exclusive<&ChipGetCount>::Call, ctx, count);
}

OVEXSDK_API ovexsdk_err_code ovexsdk_chip_get_info(ovexsdk_dev_ctx* ctx, ovexsdk_chip_info infos[],
                                                   uint8_t* count) {
    return OVEXSDK_FRAME(&Exclusive<&ChipGetInfo>::Call, ctx, infos, count);
}

OVEXSDK_API ovexsdk_err_code ovexsdk_chip_get_settings(ovexsdk_dev_ctx* ctx,
                                                       ovexsdk_chip_settings settings[],
                                                       uint8_t* count) {
    return OVEXSDK_FRAME(&Exclusive<&ChipGetSettings>::Call, ctx, settings, count);
}

OVEXSDK_API ovexsdk_err_code ovexsdk_chip_set_mode(ovexsdk_dev_ctx* ctx, ovexsdk_chip_mode mode) {
    return OVEXSDK_FRAME(&Exclusive<&ChipSetMode>::Call, ctx, mode);
}

OVEXSDK_API ovexsdk_err_code ovexsdk_chip_set_polarity(ovexsdk_dev_ctx* ctx, uint8_t chip,
                                                       ovexsdk_chip_polarity polarity) {
    return OVEXSDK_FRAME(&Exclusive<&ChipSetPolarity>::Call, ctx, chip, polarity);
}

OVEXSDK_API ovexsdk_err_code ovexsdk_chip_get_pixel_mask(ovexsdk_dev_ctx* ctx, uint8_t chip,
                                                         ovexsdk_chip_pixel_mask* mask) {
    return OVEXSDK_FRAME(&Exclusive<&ChipGetPixelMask>::Call, ctx, chip, mask);
}

OVEXSDK_API ovexsdk_err_code ovexsdk_chip_set_pixel_mask(ovexsdk_dev_ctx* ctx, uint8_t chip,
                                                         const ovexsdk_chip_pixel_mask* mask) {
    return OVEXSDK_FRAME(&Exclusive<&ChipSetPixelMask>::Call, ctx, chip, mask);
}

}  // extern "C"
