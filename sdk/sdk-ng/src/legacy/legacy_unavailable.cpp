// Acquisition getters that hosts of the older interface may still call but that this library
// doesn't offer: each checks its pointers and answers "not available".

#include "legacy/legacy_core.hpp"

using namespace ovex::sdk::legacy;

namespace {

template <class First, class Second>
std::int32_t Unavailable(const First* first, const Second* second) {
    return AnyNull(first, second) ? OVEX_ERR_HANDLE : OVEX_ERR_UNAVAILABLE;
}

}  // namespace

extern "C" {

OVEXSDK_API int32_t ovex_acq_get_last_error(ovex_ctx* ctx, const char** text) {
    if (!IsLive(ctx)) {
        return OVEX_ERR_HANDLE;
    }
    return Unavailable(ctx, text);
}

OVEXSDK_API int32_t ovex_acq_tpx2_get_toa_frames(ovex_acq* acquisition, const uint16_t** data) {
    return Unavailable(acquisition, data);
}

OVEXSDK_API int32_t ovex_acq_tpx2_get_tot_frames(ovex_acq* acquisition, const uint16_t** data) {
    return Unavailable(acquisition, data);
}

OVEXSDK_API int32_t ovex_acq_tpx3_get_event_vec(ovex_acq* acquisition, const uint32_t** data) {
    return Unavailable(acquisition, data);
}

OVEXSDK_API int32_t ovex_acq_tpx3_get_itot_vec(ovex_acq* acquisition, const uint32_t** data) {
    return Unavailable(acquisition, data);
}

OVEXSDK_API int32_t ovex_acq_tpx3_get_pixel_address_vec(ovex_acq* acquisition,
                                                        const uint32_t** data) {
    return Unavailable(acquisition, data);
}

OVEXSDK_API int32_t ovex_acq_tpx3_get_toa_vec(ovex_acq* acquisition, const uint64_t** data) {
    return Unavailable(acquisition, data);
}

OVEXSDK_API int32_t ovex_acq_tpx3_get_tot_vec(ovex_acq* acquisition, const uint32_t** data) {
    return Unavailable(acquisition, data);
}

OVEXSDK_API int32_t ovex_acq_tpx3_get_vec_length(ovex_acq* acquisition, uint32_t* length) {
    return Unavailable(acquisition, length);
}

OVEXSDK_API int32_t ovex_acq_tpx_get_frame_count(ovex_acq* acquisition, uint32_t* count) {
    return Unavailable(acquisition, count);
}

OVEXSDK_API int32_t ovex_acq_tpx_get_frames(ovex_acq* acquisition, const uint16_t** data) {
    return Unavailable(acquisition, data);
}

}  // extern "C"
