// Listing the attached boards and describing one: an enumerated element, or the open board read
// anew into the handle, with the constants that every board of the family shares.

#include "legacy/legacy_core.hpp"

using namespace ovex::sdk::legacy;

namespace {

constexpr std::uint64_t kListedBoards = 16;
constexpr const char* kManufacturer = "Ovexlight";
constexpr std::uint16_t kVendorId = 0x1209;
constexpr std::uint16_t kProductId = 0xAD0E;

// Answers from an element that ovex_dev_enumerate handed out.
template <class Answer, class... Out>
std::int32_t FromElement(const ovexsdk_enum_info* element, Answer answer, Out*... out) {
    if (AnyNull(element, out...)) {
        return OVEX_ERR_HANDLE;
    }
    answer(*element);
    return OVEX_OK;
}

// Answers from the open board's identity, read into the handle so that its texts outlive the
// call.
template <class Answer, class... Out>
std::int32_t FromDevice(LegacyContext* ctx, Answer answer, Out*... out) {
    if (!IsLive(ctx) || AnyNull(out...)) {
        return OVEX_ERR_HANDLE;
    }
    const ovexsdk_err_code read = ovexsdk_dev_get_info(&ctx->context, &ctx->device_info);
    if (read != OVEXSDK_OK) {
        return Map(read);
    }
    answer(ctx->device_info);
    return OVEX_OK;
}

}  // namespace

extern "C" {

OVEXSDK_API int32_t ovex_dev_enumerate(ovex_ctx* ctx, ovex_enum_callback callback, void* user,
                                       uint32_t* count) {
    // The listing needs no context, so the handle is only asked to be there.
    if (AnyNull(ctx) || callback == nullptr) {
        return OVEX_ERR_HANDLE;
    }
    ovexsdk_enum_info elements[kListedBoards];
    std::uint64_t listed = kListedBoards;
    const ovexsdk_err_code result = ovexsdk_enum_get_info(elements, &listed);
    if (result != OVEXSDK_OK) {
        return Map(result);
    }
    for (std::uint64_t i = 0; i < listed; ++i) {
        callback(&elements[i], user);
    }
    if (count != nullptr) {
        *count = static_cast<std::uint32_t>(listed);
    }
    return OVEX_OK;
}

OVEXSDK_API int32_t ovex_enum_get_connection_string(const ovexsdk_enum_info* element,
                                                    const char** text) {
    return FromElement(
        element, [=](const ovexsdk_enum_info& info) { *text = info.connection_string; }, text);
}

OVEXSDK_API int32_t ovex_enum_get_product(const ovexsdk_enum_info* element, const char** text) {
    return FromElement(
        element, [=](const ovexsdk_enum_info& info) { *text = info.product; }, text);
}

OVEXSDK_API int32_t ovex_enum_get_serial_number(const ovexsdk_enum_info* element,
                                                const char** text) {
    return FromElement(
        element, [=](const ovexsdk_enum_info& info) { *text = info.serial_number; }, text);
}

OVEXSDK_API int32_t ovex_enum_usb_get_instance_path(const ovexsdk_enum_info* element,
                                                    const char** text) {
    return FromElement(
        element, [=](const ovexsdk_enum_info& info) { *text = info.instance_path; }, text);
}

OVEXSDK_API int32_t ovex_enum_get_manufacturer(const ovexsdk_enum_info* element,
                                               const char** text) {
    return FromElement(
        element, [=](const ovexsdk_enum_info&) { *text = kManufacturer; }, text);
}

OVEXSDK_API int32_t ovex_enum_usb_get_vid_pid(const ovexsdk_enum_info* element, uint16_t* vid,
                                              uint16_t* pid) {
    return FromElement(
        element,
        [=](const ovexsdk_enum_info&) {
            *vid = kVendorId;
            *pid = kProductId;
        },
        vid, pid);
}

OVEXSDK_API int32_t ovex_enum_usb_is_high_speed(const ovexsdk_enum_info* element, int32_t* yes) {
    return FromElement(
        element, [=](const ovexsdk_enum_info&) { *yes = 0; }, yes);
}

OVEXSDK_API int32_t ovex_enum_usb_is_super_speed(const ovexsdk_enum_info* element, int32_t* yes) {
    return FromElement(
        element, [=](const ovexsdk_enum_info&) { *yes = 1; }, yes);
}

OVEXSDK_API int32_t ovex_enum_get_last_error(const ovexsdk_enum_info* element, const char** text) {
    return AnyNull(element, text) ? OVEX_ERR_HANDLE : OVEX_ERR_UNAVAILABLE;
}

OVEXSDK_API int32_t ovex_dev_prop_get_connection_string(ovex_ctx* ctx, const char** text) {
    return FromDevice(
        ctx, [=](const ovexsdk_enum_info& info) { *text = info.connection_string; }, text);
}

OVEXSDK_API int32_t ovex_dev_prop_get_manufacturer(ovex_ctx* ctx, const char** text) {
    return FromDevice(
        ctx, [=](const ovexsdk_enum_info&) { *text = kManufacturer; }, text);
}

OVEXSDK_API int32_t ovex_dev_prop_get_product(ovex_ctx* ctx, const char** text) {
    return FromDevice(
        ctx, [=](const ovexsdk_enum_info& info) { *text = info.product; }, text);
}

OVEXSDK_API int32_t ovex_dev_prop_get_serial_number(ovex_ctx* ctx, const char** text) {
    return FromDevice(
        ctx, [=](const ovexsdk_enum_info& info) { *text = info.serial_number; }, text);
}

OVEXSDK_API int32_t ovex_dev_prop_usb_get_instance_path(ovex_ctx* ctx, const char** text) {
    return FromDevice(
        ctx, [=](const ovexsdk_enum_info& info) { *text = info.instance_path; }, text);
}

OVEXSDK_API int32_t ovex_dev_prop_usb_get_vid_pid(ovex_ctx* ctx, uint16_t* vid, uint16_t* pid) {
    return FromDevice(
        ctx,
        [=](const ovexsdk_enum_info&) {
            *vid = kVendorId;
            *pid = kProductId;
        },
        vid, pid);
}

OVEXSDK_API int32_t ovex_dev_prop_usb_is_high_speed(ovex_ctx* ctx, int32_t* yes) {
    return FromDevice(
        ctx, [=](const ovexsdk_enum_info&) { *yes = 0; }, yes);
}

OVEXSDK_API int32_t ovex_dev_prop_usb_is_super_speed(ovex_ctx* ctx, int32_t* yes) {
    return FromDevice(
        ctx, [=](const ovexsdk_enum_info&) { *yes = 1; }, yes);
}

}  // extern "C"
