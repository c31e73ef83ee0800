// The EEPROMs and flash memories of a board, by their index among the device's modules of each
// kind.

#include <cstdint>
#include <cstring>
#include <span>
#include <string>
#include <string_view>

#include "api_internal.hpp"
#include "api_utils.hpp"
#include "context.hpp"
#include "modules/eeprom_ctrl.hpp"
#include "modules/flash_ctrl.hpp"
#include "ovex/log/log.hpp"
#include "ovexsdk.h"

namespace ovex::sdk {

namespace {

// The EEPROM of this index, or the refusal of the call.
ovexsdk_err_code FindEeprom(Context& context, std::uint8_t id, IEepromControl*& eeprom) {
    eeprom = context.Device()->GetModule<IEepromControl>(id);
    if (eeprom == nullptr) {
        OVEX_LOG_ERROR("Value '%d' is not a valid EEPROM ID.", id);
        return OVEXSDK_ERR_FAILED;
    }
    return OVEXSDK_OK;
}

ovexsdk_err_code EepromGetCount(Context& context, std::uint8_t* count) {
    if (LogMissingDevice(context)) {
        return OVEXSDK_ERR_NO_DEVICE;
    }
    if (LogInvalidPointer(count, "count")) {
        return OVEXSDK_ERR_INVALID;
    }
    *count = static_cast<std::uint8_t>(context.Device()->GetModules<IEepromControl>().size());
    return OVEXSDK_OK;
}

ovexsdk_err_code EepromGetInfo(Context& context, std::uint8_t id, ovexsdk_eeprom_info* out_info) {
    if (LogMissingDevice(context)) {
        return OVEXSDK_ERR_NO_DEVICE;
    }
    if (LogInvalidPointer(out_info, "out_info")) {
        return OVEXSDK_ERR_INVALID;
    }
    IEepromControl* eeprom = nullptr;
    if (const auto result = FindEeprom(context, id, eeprom); result != OVEXSDK_OK) {
        return result;
    }
    EepromInfo info;
    if (const auto ec = eeprom->GetInfo(info)) {
        OVEX_LOG_EC(ovex::log::kError, "Failed to get EEPROM info for id %d: - %s: %s.", ec, id);
        return OVEXSDK_ERR_FAILED;
    }
    CopyTextField(out_info->id, info.id);
    CopyTextField(out_info->part_number, info.part_number);
    out_info->region_count = static_cast<std::uint8_t>(info.regions.size());
    return OVEXSDK_OK;
}

ovexsdk_err_code EepromGetRegionInfo(Context& context, std::uint8_t id, std::uint8_t region,
                                     ovexsdk_eeprom_region* region_out) {
    if (LogMissingDevice(context)) {
        return OVEXSDK_ERR_NO_DEVICE;
    }
    if (LogInvalidPointer(region_out, "region_out")) {
        return OVEXSDK_ERR_INVALID;
    }
    IEepromControl* eeprom = nullptr;
    if (const auto result = FindEeprom(context, id, eeprom); result != OVEXSDK_OK) {
        return result;
    }
    EepromInfo info;
    if (const auto ec = eeprom->GetInfo(info)) {
        OVEX_LOG_EC(ovex::log::kError, "Failed to get region info: - %s: %s.", ec);
        return OVEXSDK_ERR_FAILED;
    }
    if (region >= info.regions.size()) {
        OVEX_LOG_ERROR("Region %d is not a valid region index.", region);
        return OVEXSDK_ERR_INVALID;
    }
    const EepromRegion& found = info.regions[region];
    *region_out = {found.kind, found.sector_count, found.sector_size,
                   static_cast<std::uint16_t>(found.first), static_cast<std::uint16_t>(found.last)};
    return OVEXSDK_OK;
}

// Runs one operation of the EEPROM over a range: `*length` goes in as the bytes asked for and
// comes back as the bytes done, also when the operation fails part way.
template <typename Operation, typename LogFailure>
ovexsdk_err_code EepromRange(Context& context, std::uint8_t id, std::uint64_t* length,
                             Operation operation, LogFailure log_failure) {
    IEepromControl* eeprom = nullptr;
    if (const auto result = FindEeprom(context, id, eeprom); result != OVEXSDK_OK) {
        return result;
    }
    std::uint64_t done = 0;
    const std::error_code ec = operation(*eeprom, done);
    *length = done;
    if (ec) {
        log_failure(ec);
        return OVEXSDK_ERR_FAILED;
    }
    return OVEXSDK_OK;
}

ovexsdk_err_code EepromRead(Context& context, std::uint8_t id, std::uint16_t address,
                            std::uint8_t* buffer, std::uint64_t* length) {
    if (LogMissingDevice(context)) {
        return OVEXSDK_ERR_NO_DEVICE;
    }
    if (LogInvalidPointer(buffer, "buffer") || LogInvalidPointer(length, "length")) {
        return OVEXSDK_ERR_INVALID;
    }
    return EepromRange(
        context, id, length,
        [&](IEepromControl& eeprom, std::uint64_t& done) {
            return eeprom.Read(address, std::span(buffer, *length), done);
        },
        [address](const std::error_code& ec) {
            OVEX_LOG_EC(ovex::log::kError, "Failed to read from memory at address %d. - %s: %s.",
                        ec, address);
        });
}

ovexsdk_err_code EepromWrite(Context& context, std::uint8_t id, std::uint16_t address,
                             const std::uint8_t* buffer, std::uint64_t* length) {
    if (LogMissingDevice(context)) {
        return OVEXSDK_ERR_NO_DEVICE;
    }
    if (LogInvalidPointer(buffer, "buffer") || LogInvalidPointer(length, "length")) {
        return OVEXSDK_ERR_INVALID;
    }
    return EepromRange(
        context, id, length,
        [&](IEepromControl& eeprom, std::uint64_t& done) {
            return eeprom.Write(address, std::span(buffer, *length), done);
        },
        [address](const std::error_code& ec) {
            OVEX_LOG_EC(ovex::log::kError, "Failed to write to memory at address %d. - %s: %s.", ec,
                        address);
        });
}

ovexsdk_err_code EepromErase(Context& context, std::uint8_t id, std::uint16_t address,
                             std::uint64_t* length) {
    if (LogMissingDevice(context)) {
        return OVEXSDK_ERR_NO_DEVICE;
    }
    if (LogInvalidPointer(length, "length")) {
        return OVEXSDK_ERR_INVALID;
    }
    return EepromRange(
        context, id, length,
        [&](IEepromControl& eeprom, std::uint64_t& done) {
            return eeprom.Erase(address, *length, done);
        },
        [address](const std::error_code& ec) {
            OVEX_LOG_EC(ovex::log::kError, "Failed to erase memory at address %d. - %s: %s.", ec,
                        address);
        });
}

ovexsdk_err_code EepromLegacyIdToIdx(Context& context, const char* legacy_id, int* idx) {
    if (LogMissingDevice(context)) {
        return OVEXSDK_ERR_NO_DEVICE;
    }
    if (LogInvalidPointer(legacy_id, "legacy_id") || LogInvalidPointer(idx, "idx")) {
        return OVEXSDK_ERR_INVALID;
    }
    const auto eeproms = context.Device()->GetModules<IEepromControl>();
    if (eeproms.empty()) {
        OVEX_LOG_ERROR("Device doesn't have EEPROM module.");
        return OVEXSDK_ERR_INVALID;
    }
    for (std::size_t index = 0; index < eeproms.size(); ++index) {
        EepromInfo info;
        if (!eeproms[index]->GetInfo(info) && info.id == legacy_id) {
            *idx = static_cast<int>(index);
            return OVEXSDK_OK;
        }
    }
    OVEX_LOG_INFO("Legacy flash id '%s' not found.", legacy_id);
    return OVEXSDK_ERR_INVALID;
}

// The flash of this index, or the refusal of the call.
ovexsdk_err_code FindFlash(Context& context, std::uint8_t id, IFlashControl*& flash) {
    if (LogMissingDevice(context)) {
        return OVEXSDK_ERR_NO_DEVICE;
    }
    flash = context.Device()->GetModule<IFlashControl>(id);
    if (flash == nullptr) {
        OVEX_LOG_ERROR("Value '%d' is not a valid flash controller ID.", id);
        return OVEXSDK_ERR_FAILED;
    }
    return OVEXSDK_OK;
}

// The flash's description; a failure is logged.
bool FlashInfoOf(IFlashControl& flash, FlashInfo& info) {
    if (const auto ec = flash.GetInfo(info)) {
        OVEX_LOG_EC(ovex::log::kError, "Retrieval of flash memory info has failed - %s: %s.", ec);
        return false;
    }
    return true;
}

ovexsdk_err_code FlashGetCount(Context& context, std::uint8_t* count) {
    if (LogMissingDevice(context)) {
        return OVEXSDK_ERR_NO_DEVICE;
    }
    if (LogInvalidPointer(count, "count")) {
        return OVEXSDK_ERR_INVALID;
    }
    *count = static_cast<std::uint8_t>(context.Device()->GetModules<IFlashControl>().size());
    return OVEXSDK_OK;
}

ovexsdk_err_code FlashGetInfo(Context& context, std::uint8_t id, ovexsdk_flash_info* out) {
    IFlashControl* flash = nullptr;
    if (const auto result = FindFlash(context, id, flash); result != OVEXSDK_OK) {
        return result;
    }
    if (LogInvalidPointer(out, "info")) {
        return OVEXSDK_ERR_INVALID;
    }
    FlashInfo info;
    if (!FlashInfoOf(*flash, info)) {
        return OVEXSDK_ERR_FAILED;
    }
    OVEX_CHECK(info.id.size() <= OVEXSDK_FLASH_ID_MAX_SIZE,
               "Bug: Flash memory id of length %d exceeds maximum flash id length %d.",
               static_cast<int>(info.id.size()), OVEXSDK_FLASH_ID_MAX_SIZE);
    CopyTextField(out->id, info.id);
    CopyTextField(out->part_number, info.part_number);
    out->first_number = info.flash_size;
    out->second_number = info.page_size;
    out->region_count = static_cast<std::uint16_t>(info.regions.size());
    return OVEXSDK_OK;
}

ovexsdk_err_code FlashGetRegionInfo(Context& context, std::uint8_t id, std::uint16_t region,
                                    ovexsdk_flash_region_info* out) {
    IFlashControl* flash = nullptr;
    if (const auto result = FindFlash(context, id, flash); result != OVEXSDK_OK) {
        return result;
    }
    if (LogInvalidPointer(out, "info")) {
        return OVEXSDK_ERR_INVALID;
    }
    FlashInfo info;
    if (!FlashInfoOf(*flash, info)) {
        return OVEXSDK_ERR_FAILED;
    }
    if (region >= info.regions.size()) {
        OVEX_LOG_ERROR("Flash memory region with index %d does not exist.", region);
        return OVEXSDK_ERR_FAILED;
    }
    const FlashRegion& found = info.regions[region];
    *out = {found.start, found.sector_count, found.sector_size};
    return OVEXSDK_OK;
}

// Reads `read_input->length` bytes into the host's buffer, which must hold that many.
ovexsdk_err_code FlashRead(Context& context, const ovexsdk_flash_read_input* read_input,
                           ovexsdk_flash_buffer* buffer) {
    if (LogInvalidPointer(read_input, "read_input") || LogInvalidPointer(buffer, "buffer") ||
        LogInvalidPointer(buffer->data, "buffer->data")) {
        return OVEXSDK_ERR_INVALID;
    }
    IFlashControl* flash = nullptr;
    if (const auto result = FindFlash(context, read_input->flash_id, flash); result != OVEXSDK_OK) {
        return result;
    }
    if (const auto ec =
            flash->Read(read_input->address, std::span(buffer->data, read_input->length))) {
        OVEX_LOG_EC(ovex::log::kError,
                    "Reading %d bytes from flash memory %d at address 0x%08x has failed - %s: %s.",
                    ec, static_cast<int>(read_input->length), read_input->flash_id,
                    read_input->address);
        return OVEXSDK_ERR_FAILED;
    }
    buffer->size = read_input->length;
    return OVEXSDK_OK;
}

ovexsdk_err_code FlashProgramSector(Context& context,
                                    const ovexsdk_flash_program_input* program_input) {
    if (LogInvalidPointer(program_input, "program_input") ||
        LogInvalidPointer(program_input->buffer, "program_input->buffer") ||
        LogInvalidPointer(program_input->buffer->data, "program_input->buffer->data")) {
        return OVEXSDK_ERR_INVALID;
    }
    IFlashControl* flash = nullptr;
    if (const auto result = FindFlash(context, program_input->flash_id, flash);
        result != OVEXSDK_OK) {
        return result;
    }
    const ovexsdk_flash_buffer& data = *program_input->buffer;
    if (const auto ec =
            flash->ProgramSector(program_input->address, std::span(data.data, data.size))) {
        OVEX_LOG_EC(ovex::log::kError,
                    "Writing %d bytes to flash memory %d at address 0x%08x has failed - %s: %s.",
                    ec, static_cast<int>(data.size), program_input->flash_id,
                    program_input->address);
        return OVEXSDK_ERR_FAILED;
    }
    return OVEXSDK_OK;
}

ovexsdk_err_code FlashEraseSector(Context& context, std::uint8_t id, std::uint32_t address) {
    IFlashControl* flash = nullptr;
    if (const auto result = FindFlash(context, id, flash); result != OVEXSDK_OK) {
        return result;
    }
    if (const auto ec = flash->EraseSector(address)) {
        OVEX_LOG_EC(ovex::log::kError,
                    "Erasing flash memory block of flash memory %d at address 0x%08x has failed "
                    "- %s: %s.",
                    ec, id, address);
        return OVEXSDK_ERR_FAILED;
    }
    return OVEXSDK_OK;
}

ovexsdk_err_code FlashLegacyIdToIdx(Context& context, const char* legacy_id, std::uint8_t* idx) {
    if (LogMissingDevice(context)) {
        return OVEXSDK_ERR_NO_DEVICE;
    }
    if (LogInvalidPointer(legacy_id, "legacy_id") || LogInvalidPointer(idx, "idx")) {
        return OVEXSDK_ERR_INVALID;
    }
    const auto flashes = context.Device()->GetModules<IFlashControl>();
    for (std::size_t index = 0; index < flashes.size(); ++index) {
        FlashInfo info;
        if (!flashes[index]->GetInfo(info) && info.id == std::string_view(legacy_id)) {
            *idx = static_cast<std::uint8_t>(index);
            return OVEXSDK_OK;
        }
    }
    OVEX_LOG_INFO("Legacy flash id '%s' not found.", legacy_id);
    return OVEXSDK_ERR_INVALID;
}

}  // namespace

ovexsdk_err_code ovexsdk_eeprom_convert_legacy_id_to_idx(ovexsdk_dev_ctx* ctx,
                                                         const char* legacy_id, int* idx) {
    return OVEXSDK_FRAME(&Exclusive<&EepromLegacyIdToIdx>::Call, ctx, legacy_id, idx);
}

ovexsdk_err_code ovexsdk_flash_legacy_id_to_idx(ovexsdk_dev_ctx* ctx, const char* legacy_id,
                                                std::uint8_t* idx) {
    return OVEXSDK_FRAME(&Exclusive<&FlashLegacyIdToIdx>::Call, ctx, legacy_id, idx);
}

}  // namespace ovex::sdk

using namespace ovex::sdk;

extern "C" {

OVEXSDK_API ovexsdk_err_code ovexsdk_eeprom_get_count(ovexsdk_dev_ctx* ctx, uint8_t* count) {
    return OVEXSDK_FRAME(&Exclusive<&EepromGetCount>::Call, ctx, count);
}

OVEXSDK_API ovexsdk_err_code ovexsdk_eeprom_get_info(ovexsdk_dev_ctx* ctx, uint8_t id,
                                                     ovexsdk_eeprom_info* out_info) {
    return OVEXSDK_FRAME(&Exclusive<&EepromGetInfo>::Call, ctx, id, out_info);
}

OVEXSDK_API ovexsdk_err_code ovexsdk_eeprom_get_region_info(ovexsdk_dev_ctx* ctx, uint8_t id,
                                                            uint8_t region,
                                                            ovexsdk_eeprom_region* region_out) {
    return OVEXSDK_FRAME(&Exclusive<&EepromGetRegionInfo>::Call, ctx, id, region, region_out);
}

OVEXSDK_API ovexsdk_err_code ovexsdk_eeprom_read(ovexsdk_dev_ctx* ctx, uint8_t id, uint16_t address,
                                                 uint8_t* buffer, uint64_t* length) {
    return OVEXSDK_FRAME(&Exclusive<&EepromRead>::Call, ctx, id, address, buffer, length);
}

OVEXSDK_API ovexsdk_err_code ovexsdk_eeprom_write(ovexsdk_dev_ctx* ctx, uint8_t id,
                                                  uint16_t address, const uint8_t* buffer,
                                                  uint64_t* length) {
    return OVEXSDK_FRAME(&Exclusive<&EepromWrite>::Call, ctx, id, address, buffer, length);
}

OVEXSDK_API ovexsdk_err_code ovexsdk_eeprom_erase(ovexsdk_dev_ctx* ctx, uint8_t id,
                                                  uint16_t address, uint64_t* length) {
    return OVEXSDK_FRAME(&Exclusive<&EepromErase>::Call, ctx, id, address, length);
}

OVEXSDK_API ovexsdk_err_code ovexsdk_flash_get_count(ovexsdk_dev_ctx* ctx, uint8_t* count) {
    return OVEXSDK_FRAME(&Exclusive<&FlashGetCount>::Call, ctx, count);
}

OVEXSDK_API ovexsdk_err_code ovexsdk_flash_get_info(ovexsdk_dev_ctx* ctx, uint8_t id,
                                                    ovexsdk_flash_info* info) {
    return OVEXSDK_FRAME(&Exclusive<&FlashGetInfo>::Call, ctx, id, info);
}

OVEXSDK_API ovexsdk_err_code ovexsdk_flash_get_region_info(ovexsdk_dev_ctx* ctx, uint8_t id,
                                                           uint16_t region,
                                                           ovexsdk_flash_region_info* info) {
    return OVEXSDK_FRAME(&Exclusive<&FlashGetRegionInfo>::Call, ctx, id, region, info);
}

OVEXSDK_API ovexsdk_err_code ovexsdk_flash_read(ovexsdk_dev_ctx* ctx,
                                                const ovexsdk_flash_read_input* read_input,
                                                ovexsdk_flash_buffer* buffer) {
    return OVEXSDK_FRAME(&Exclusive<&FlashRead>::Call, ctx, read_input, buffer);
}

OVEXSDK_API ovexsdk_err_code ovexsdk_flash_program_sector(
    ovexsdk_dev_ctx* ctx, const ovexsdk_flash_program_input* program_input) {
    return OVEXSDK_FRAME(&Exclusive<&FlashProgramSector>::Call, ctx, program_input);
}

OVEXSDK_API ovexsdk_err_code ovexsdk_flash_erase_sector(ovexsdk_dev_ctx* ctx, uint8_t id,
                                                        uint32_t address) {
    return OVEXSDK_FRAME(&Exclusive<&FlashEraseSector>::Call, ctx, id, address);
}

}  // extern "C"
