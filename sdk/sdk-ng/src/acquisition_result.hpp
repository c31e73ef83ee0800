#pragma once

// What the host reads from its data callback: the result of the acquisition that calls it, as
// the exported records, and the raw buffers behind it. Written by the acquisition's thread alone,
// read by the host inside that thread's callback.

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
    ovexsdk_acq_tpx3_acq_toa_tot toa_tot{};
    std::span<const ovexsdk_acq_tpx3_itot_evcount> itot_evcount;
    // The raw buffers of the last callback; none before the first.
    std::optional<std::vector<ovexsdk_acq_raw_data>> raw;
};

}  // namespace ovex::sdk
