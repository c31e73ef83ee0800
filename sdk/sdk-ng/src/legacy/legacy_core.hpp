#pragma once

// The records of the older interface and the checks every ovex_* function starts with.

#include <cmath>
#include <cstdint>

#include "ovexlegacy.h"


// What a monitor callback gets, kept per monitor index in the handle and reused.
struct ovex_mon_event {
    void* user;
    ovex_mon_event_cb callback;
    std::uint8_t warning;
    std::uint8_t error;
    std::uint8_t available;
    ovexsdk_mon_value value;
    const char* id;      // the legacy id
    std::uint32_t type;  // 1 integer, 2 float
};

// One bin of the complete binning as the older interface describes it.
using LegacyBinDescriptor = ovex_bin_descriptor;

// The record the data callback gets; the buffers live until the callback returns.
struct ovex_acq {
    ovexsdk_dev_ctx* context;
    std::uint8_t* raw;
    std::uint32_t flags;
    std::uint16_t* frames;
    std::uint32_t chip_mode;
    std::uint32_t processing_mode;
    LegacyBinDescriptor* bins;
};

inline constexpr int kLegacyMonitors = 64;
inline constexpr int kLegacyEeproms = 16;
inline constexpr int kLegacyFlashes = 4;
inline constexpr int kLegacyChips = 4;

// The handle. Every field the constructor doesn't set starts at zero.
struct ovex_ctx {
    char magic[4];
    ovexsdk_dev_ctx context;
    ovexsdk_enum_info device_info;
    void* log_user;
    ovex_log_func log_function;
    ovex_mon_event availability_events[kLegacyMonitors];
    ovex_mon_event value_events[kLegacyMonitors];
    struct {
        char id[64];
        char part_number[64];
    } eeprom_texts[kLegacyEeproms];
    struct {
        char id[32];
        char part_number[32];
    } flash_texts[kLegacyFlashes];
    ovexsdk_chip_info chips[kLegacyChips];
    ovexsdk_acq_params params;
    ovex_acq* acquisition;
    ovex_data_cb data_callback;
    void* data_user;
    ovexsdk_trigger_config trigger;
    std::uint32_t chip_mode;
    std::uint32_t processing_mode;
};

namespace ovex::sdk::legacy {

using LegacyContext = ovex_ctx;

inline constexpr char kMagic[4] = {'X', 'E', 'V', 'O'};

// A handle that ovex_ctx_new made and ovex_ctx_delete hasn't released.
bool IsLive(const LegacyContext* ctx);

// True when any of the pointers is null.
template <class... Pointers>
bool AnyNull(const Pointers*... pointers) {
    return ((pointers == nullptr) || ...);
}

// The class of a result of the current interface, once.
std::int32_t Map(ovexsdk_err_code code);

// Frees the buffers that the acquisition getters filled and clears their pointers.
void ReleaseBuffers(ovex_acq& acquisition);

// Frees the handle's acquisition record with its buffers, if it has one.
void ReleaseAcquisition(LegacyContext* ctx);

}  // namespace ovex::sdk::legacy
