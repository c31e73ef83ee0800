#include "legacy/legacy_core.hpp"

#include <cstring>

namespace ovex::sdk::legacy {

bool IsLive(const LegacyContext* ctx) {
    // Compared byte by byte without touching a member: a host may pass any record by mistake,
    // such as the current interface's, which is only 4-byte aligned.
    return ctx != nullptr &&
           std::memcmp(reinterpret_cast<const char*>(ctx), kMagic, sizeof kMagic) == 0;
}

std::int32_t Map(ovexsdk_err_code code) {
    switch (code) {
        case OVEXSDK_OK:
            return OVEX_OK;
        case OVEXSDK_ERR_FAILED:
        case OVEXSDK_ERR_BUSY:
        case OVEXSDK_ERR_UNAVAILABLE:
            return OVEX_ERR_UNAVAILABLE;
        case OVEXSDK_ERR_NO_DEVICE:
            return OVEX_ERR_HANDLE;
        case OVEXSDK_ERR_NO_MEMORY:
            return OVEX_ERR_NO_MEMORY;
        case OVEXSDK_ERR_INVALID:
            return OVEX_ERR_INVALID;
    }
    return OVEX_ERR_OTHER;
}

void ReleaseBuffers(ovex_acq& acquisition) {
    delete[] acquisition.raw;
    acquisition.raw = nullptr;
    delete[] acquisition.frames;
    acquisition.frames = nullptr;
    delete[] acquisition.bins;
    acquisition.bins = nullptr;
}

void ReleaseAcquisition(LegacyContext* ctx) {
    if (ctx->acquisition == nullptr) {
        return;
    }
    ReleaseBuffers(*ctx->acquisition);
    delete ctx->acquisition;
    ctx->acquisition = nullptr;
}

}  // namespace ovex::sdk::legacy
