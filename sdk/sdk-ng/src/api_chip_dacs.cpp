// A chip's DACs by id: the list, values, and the sense pin's measurement. The library keeps these
// functions for its legacy interface and doesn't export them.

#include <algorithm>
#include <cstdint>
#include <vector>

#include "api_chip_lookup.hpp"
#include "api_internal.hpp"
#include "api_utils.hpp"
#include "context.hpp"
#include "modules/timepix_chip.hpp"
#include "ovex/log/log.hpp"

namespace ovex::sdk {

namespace {

// The chip's DACs, or null after the refusal of the call: no device, or no such chip.
ovexsdk_err_code FindDacs(Context& context, std::uint8_t chip, ITimepixDacs*& dacs) {
    if (LogMissingDevice(context)) {
        return OVEXSDK_ERR_NO_DEVICE;
    }
    auto* module = FindChip(context, chip);
    if (module == nullptr) {
        return OVEXSDK_ERR_INVALID;
    }
    dacs = &module->GetDacs();
    return OVEXSDK_OK;
}

// As FindDacs, for a call on one DAC: an id that the chip's list lacks is refused too.
ovexsdk_err_code FindDac(Context& context, std::uint8_t chip, std::uint8_t dac,
                         ITimepixDacs*& dacs) {
    if (const auto result = FindDacs(context, chip, dacs); result != OVEXSDK_OK) {
        return result;
    }
    const auto list = dacs->GetDacList();
    if (std::none_of(list.begin(), list.end(),
                     [dac](const DacInfo& info) { return info.id == dac; })) {
        OVEX_LOG_ERROR("Value %d is not a valid DAC identifier.", dac);
        return OVEXSDK_ERR_FAILED;
    }
    return OVEXSDK_OK;
}

ovexsdk_err_code ChipGetDacCount(Context& context, std::uint8_t chip, std::uint8_t* count) {
    if (LogInvalidPointer(count, "count")) {
        return OVEXSDK_ERR_INVALID;
    }
    ITimepixDacs* dacs = nullptr;
    if (const auto result = FindDacs(context, chip, dacs); result != OVEXSDK_OK) {
        return result;
    }
    *count = static_cast<std::uint8_t>(dacs->GetDacList().size());
    return OVEXSDK_OK;
}

ovexsdk_err_code ChipGetDacInfo(Context& context, std::uint8_t chip, ovexsdk_chip_dac_info* infos,
                                std::uint8_t* count) {
    if (LogInvalidPointer(infos, "infos") || LogInvalidPointer(count, "count")) {
        return OVEXSDK_ERR_INVALID;
    }
    ITimepixDacs* dacs = nullptr;
    if (const auto result = FindDacs(context, chip, dacs); result != OVEXSDK_OK) {
        return result;
    }
    const auto list = dacs->GetDacList();
    if (list.size() > *count) {
        OVEX_LOG_WARN(
            "Cannot fit all DAC information structs into the array: provided array of size %hhu, "
            "got %zu elements",
            *count, list.size());
    }
    const std::size_t filled = std::min<std::size_t>(*count, list.size());
    for (std::size_t index = 0; index < filled; ++index) {
        auto& record = infos[index];
        record.id = list[index].id;
        CopyTextField(record.name, list[index].name);
        record.min = list[index].min;
        record.max = list[index].max;
        record.is_sense = list[index].is_sense ? 1 : 0;
        record.flag = list[index].measurable ? 1 : 0;
    }
    *count = static_cast<std::uint8_t>(filled);
    return OVEXSDK_OK;
}

ovexsdk_err_code ChipSetDac(Context& context, std::uint8_t chip, std::uint8_t dac,
                            std::uint16_t value) {
    ITimepixDacs* dacs = nullptr;
    if (const auto result = FindDac(context, chip, dac, dacs); result != OVEXSDK_OK) {
        return result;
    }
    if (const auto ec = dacs->SetDac(dac, value)) {
        OVEX_LOG_EC(ovex::log::kError, "Failed to set DAC value - %s: %s", ec);
        return OVEXSDK_ERR_FAILED;
    }
    return OVEXSDK_OK;
}

ovexsdk_err_code ChipGetDac(Context& context, std::uint8_t chip, std::uint8_t dac,
                            std::uint16_t* value) {
    if (LogInvalidPointer(value, "value")) {
        return OVEXSDK_ERR_INVALID;
    }
    ITimepixDacs* dacs = nullptr;
    if (const auto result = FindDac(context, chip, dac, dacs); result != OVEXSDK_OK) {
        return result;
    }
    std::uint32_t read = 0;
    if (const auto ec = dacs->GetDac(dac, read)) {
        OVEX_LOG_EC(ovex::log::kError, "Failed to get DAC value - %s: %s", ec);
        return OVEXSDK_ERR_FAILED;
    }
    *value = static_cast<std::uint16_t>(read);
    return OVEXSDK_OK;
}

ovexsdk_err_code ChipMeasureDac(Context& context, std::uint8_t chip, std::uint8_t dac,
                                float* value) {
    if (LogInvalidPointer(value, "value")) {
        return OVEXSDK_ERR_INVALID;
    }
    ITimepixDacs* dacs = nullptr;
    if (const auto result = FindDac(context, chip, dac, dacs); result != OVEXSDK_OK) {
        return result;
    }
    if (const auto ec = dacs->SelectSenseDac(dac)) {
        OVEX_LOG_EC(ovex::log::kError, "Failed to select DAC for measurement - %s: %s", ec);
        return OVEXSDK_ERR_FAILED;
    }
    if (const auto ec = dacs->ReadDacOut(*value)) {
        OVEX_LOG_EC(ovex::log::kError, "Failed to measure sense DAC output - %s: %s", ec);
        return OVEXSDK_ERR_FAILED;
    }
    return OVEXSDK_OK;
}

}  // namespace

ovexsdk_err_code ovexsdk_chip_get_dac_count(ovexsdk_dev_ctx* ctx, std::uint8_t chip,
                                            std::uint8_t* count) {
    return OVEXSDK_FRAME(&Exclusive<&ChipGetDacCount>::Call, ctx, chip, count);
}

ovexsdk_err_code ovexsdk_chip_get_dac_info(ovexsdk_dev_ctx* ctx, std::uint8_t chip,
                                           ovexsdk_chip_dac_info infos[], std::uint8_t* count) {
    return OVEXSDK_FRAME(&Exclusive<&ChipGetDacInfo>::Call, ctx, chip, infos, count);
}

ovexsdk_err_code ovexsdk_chip_set_dac(ovexsdk_dev_ctx* ctx, std::uint8_t chip, std::uint8_t dac,
                                      std::uint16_t value) {
    return OVEXSDK_FRAME(&Exclusive<&ChipSetDac>::Call, ctx, chip, dac, value);
}

ovexsdk_err_code ovexsdk_chip_get_dac(ovexsdk_dev_ctx* ctx, std::uint8_t chip, std::uint8_t dac,
                                      std::uint16_t* value) {
    return OVEXSDK_FRAME(&Exclusive<&ChipGetDac>::Call, ctx, chip, dac, value);
}

ovexsdk_err_code ovexsdk_chip_measure_dac(ovexsdk_dev_ctx* ctx, std::uint8_t chip, std::uint8_t dac,
                                          float* value) {
    return OVEXSDK_FRAME(&Exclusive<&ChipMeasureDac>::Call, ctx, chip, dac, value);
}

}  // namespace ovex::sdk
