// Listing the attached boards.

#include <algorithm>

#include "api_internal.hpp"
#include "api_utils.hpp"
#include "find_device.hpp"
#include "ovex/log/log.hpp"
#include "ovex/usb/usb_device.hpp"
#include "ovexsdk.h"

using namespace ovex::sdk;

extern "C" {

// No context: the listing has a USB context of its own for the length of the call.
OVEXSDK_API ovexsdk_err_code ovexsdk_enum_get_info(ovexsdk_enum_info infos[],
                                                   uint64_t* info_count) {
    if (LogInvalidPointer(infos, "infos") || LogInvalidPointer(info_count, "info_count")) {
        return OVEXSDK_ERR_INVALID;
    }
    std::vector<ovex::usb::device::UsbDevice> boards;
    try {
        boards = ListBoards();
    } catch (const std::exception& e) {
        // A C host can't take an exception: a USB layer that can't start is a failed call.
        OVEX_LOG_ERROR("SDK API call failed with an exception: %s.", e.what());
        return OVEXSDK_ERR_FAILED;
    }
    const std::uint64_t capacity = *info_count;
    if (boards.size() > capacity) {
        OVEX_LOG_WARN(
            "Cannot fit all device information structs into the array: provided array of size "
            "%lu, got %lu elements",
            static_cast<unsigned long>(capacity), static_cast<unsigned long>(boards.size()));
    }
    const auto considered = std::min<std::uint64_t>(capacity, boards.size());
    std::uint64_t filled = 0;
    for (std::uint64_t i = 0; i < considered; ++i) {
        ovex::usb::device::DeviceInfo info;
        if (boards[i].GetInfo(info)) {
            OVEX_LOG_WARN("Unable to read device information, device skipped");
            continue;
        }
        FillEnumInfo(info, infos[filled++]);
    }
    *info_count = filled;
    return OVEXSDK_OK;
}

}  // extern "C"
