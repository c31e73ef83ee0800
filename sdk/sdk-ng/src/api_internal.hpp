#pragma once

// Functions of the exported layer that the library uses itself but doesn't export.

#include <cstdint>

#include "ovex/usb/device_info.hpp"
#include "ovexsdk.h"

// A pixel matrix in a chip's host form: one byte per pixel.
struct ovexsdk_chip_matrix {
    std::uint8_t* data;
    std::uint64_t size;
};

using ovexsdk_chip_pix_indices = std::uint32_t;

// One DAC of a chip.
struct ovexsdk_chip_dac_info {
    std::uint8_t id;
    char name[64];
    std::int32_t min;
    std::int32_t max;
    std::uint8_t is_sense;  // 1: a sense output that can only be selected and measured
    std::uint8_t flag;      // 1: the chip's sense pin can be switched to this DAC
};

// A component of the board and its version text.
struct ovexsdk_comp_info {
    char name[32];
    char version[32];
};

namespace ovex::sdk {

// Replaces the context's locator if the text is valid; the device already built stays.
ovexsdk_err_code ovexsdk_ctx_replace_locator(ovexsdk_dev_ctx* ctx, const char* locator);

// Writes the address of the context's Lua interpreter state, which stays valid while the
// context lives.
ovexsdk_err_code ovexsdk_get_script_state(ovexsdk_dev_ctx* ctx, void** state);

// The DACs of a chip, for the legacy interface. `*count` is the capacity of `infos` on entry.
ovexsdk_err_code ovexsdk_chip_get_dac_count(ovexsdk_dev_ctx* ctx, std::uint8_t chip,
                                            std::uint8_t* count);
ovexsdk_err_code ovexsdk_chip_get_dac_info(ovexsdk_dev_ctx* ctx, std::uint8_t chip,
                                           ovexsdk_chip_dac_info infos[], std::uint8_t* count);
ovexsdk_err_code ovexsdk_chip_set_dac(ovexsdk_dev_ctx* ctx, std::uint8_t chip, std::uint8_t dac,
                                      std::uint16_t value);
ovexsdk_err_code ovexsdk_chip_get_dac(ovexsdk_dev_ctx* ctx, std::uint8_t chip, std::uint8_t dac,
                                      std::uint16_t* value);
// Switches the chip's sense pin to the DAC and reads it through the board's ADC.
ovexsdk_err_code ovexsdk_chip_measure_dac(ovexsdk_dev_ctx* ctx, std::uint8_t chip, std::uint8_t dac,
                                          float* value);
// Resets the chip, runs its digital test, lists the failing pixels in `indices` (room for every
// pixel of the chip) and their number in `*count`, then writes the host's matrix.
ovexsdk_err_code ovexsdk_chip_configure_from_matrix(ovexsdk_dev_ctx* ctx, std::uint8_t chip,
                                                    ovexsdk_chip_matrix* matrix,
                                                    ovexsdk_chip_pix_indices indices[],
                                                    std::uint64_t* count);

// The board's component versions, for the legacy interface. `*count` is the capacity of `infos`
// on entry; a component whose version can't be read keeps its element as the host left it.
ovexsdk_err_code ovexsdk_comp_get_ver_count(ovexsdk_dev_ctx* ctx, std::uint8_t* count);
ovexsdk_err_code ovexsdk_comp_get_info(ovexsdk_dev_ctx* ctx, ovexsdk_comp_info infos[],
                                       std::uint8_t* count);

// Monitor names of the legacy interface: the legacy name of the monitor at `index` (valid while
// the device lives), and the index of the monitor that a legacy name, or a regular one, names.
ovexsdk_err_code ovexsdk_mon_idx_to_legacy_id(ovexsdk_dev_ctx* ctx, int index,
                                              const char** legacy_id);
ovexsdk_err_code ovexsdk_mon_legacy_id_to_idx(ovexsdk_dev_ctx* ctx, const char* legacy_id,
                                              int* idx);

// The index of the EEPROM, or the flash, whose module name is `legacy_id`.
ovexsdk_err_code ovexsdk_eeprom_convert_legacy_id_to_idx(ovexsdk_dev_ctx* ctx,
                                                         const char* legacy_id, int* idx);
ovexsdk_err_code ovexsdk_flash_legacy_id_to_idx(ovexsdk_dev_ctx* ctx, const char* legacy_id,
                                                std::uint8_t* idx);

// Fills an identity record from a device's USB texts.
void FillEnumInfo(const usb::device::DeviceInfo& info, ovexsdk_enum_info& record);

}  // namespace ovex::sdk
