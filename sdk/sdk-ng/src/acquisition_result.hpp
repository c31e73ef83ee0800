#pragma once

// What the host reads from its data callback: the result of the acquisition that calls it, as
// the exported records, and the raw buffers behind it. Written by the acquisition's thread alone,
// read by the host inside that thread's callback.

#include <array>
#include <cstdint>
#include <optional>
#include <span>
#include <vector>

#include "ovexsdk.h"

namespace ovex::sdk {

struct AcquisitionResult {
    // Which record holds the result; the numbering is that of the getters' checks.
    enum Tag : std::uint8_t {
        kEmpty = 0,
        kTpx2Frames = 1,
        kToaTot = 2,
        kItotEvcount = 3,
        kItotFragment = 4,
        kEvcountFragment = 5,
        kBinned = 6
    };

    Tag tag = kEmpty;
    std::vector<ovexsdk_acq_tpx2_frame> tpx2_frames;
    ovexsdk_acq_tpx3_acq_toa_tot toa_tot{};
    std::array<ovexsdk_acq_tpx3_tdc_list, 3> tdc{};  // what toa_tot points at in data-driven modes
    std::span<const ovexsdk_acq_tpx3_itot_evcount> itot_evcount;
    ovexsdk_acq_tpx3_itot_fragment itot_fragment{};
    ovexsdk_acq_tpx3_evcount_fragment evcount_fragment{};
    ovexsdk_tpx3_acq_itot_evcount_bins bins{};
    std::vector<ovexsdk_tpx3_bin_descriptor> bin_list;  // what bins points at
    // The raw buffers of the last callback; none before the first.
    std::optional<std::vector<ovexsdk_acq_raw_data>> raw;
};

}  // namespace ovex::sdk
