// Context creation and release, device open and close, power units.

#include <algorithm>
#include <memory>
#include <mutex>
#include <source_location>
#include <vector>

#include "api_internal.hpp"
#include "api_utils.hpp"
#include "context.hpp"
#include "find_device.hpp"
#include "modules/device_module.hpp"
#include "modules/usb_device_props.hpp"
#include "ovex/log/log.hpp"
#include "ovex/usb/usb_device.hpp"
#include "ovexsdk.h"
#include "sdk_logger.hpp"
#include "sdk_nobe.hpp"
#include "sdk_ovexboard_tpx2cb.hpp"
#include "sdk_ovexboard_tpx3.hpp"
#include "sdk_ovexboard_tpx4cb.hpp"
#include "usb_inspector.hpp"

namespace ovex::sdk {

namespace {

constexpr ovexsdk_version kVersion{0, 10, 1};

// The device's power units, in the order the device added them. A device whose items didn't load
// has none.
std::vector<IPowerControl*> PowerUnits(Context& context) {
    auto units = context.Device()->GetModules<IPowerControl>();
    if (units.empty()) {
        OVEX_LOG_ERROR("Device does not have a power control module.");
    }
    return units;
}

// The device's power unit of this index; null if `unit` isn't one.
IPowerControl* FindUnit(Context& context, std::uint8_t unit) {
    auto* module = context.Device()->GetModule<IPowerControl>(unit);
    if (module == nullptr) {
        OVEX_LOG_ERROR("Value '%d' is not a valid power controller ID.", unit);
    }
    return module;
}

// The device object for a board of this kind, or the result code of a kind that is refused.
ovexsdk_err_code BuildDevice(BoardKind kind, std::shared_ptr<usb::device::UsbDevice> usb_device,
                             usb::device::DeviceInfo info, std::unique_ptr<SdkDevice>& device) {
    switch (kind) {
        case BoardKind::kOvbdPcb2:
        case BoardKind::kOvbdPcb300:
        case BoardKind::kOvbdPcb301:
        case BoardKind::kOvbdPcb302:
            OVEX_LOG_ERROR("Unsupported ovexboard PCB version");
            return OVEXSDK_ERR_INVALID;
        case BoardKind::kNobePcb201:
        case BoardKind::kNobePcb210:
        case BoardKind::kNobePcb211:
        case BoardKind::kNobePcb300:
            device = std::make_unique<Nobe>(std::move(usb_device), std::move(info));
            return OVEXSDK_OK;
        case BoardKind::kTimepix3:
            device = std::make_unique<OvexBoardTpx3>(std::move(usb_device), std::move(info));
            return OVEXSDK_OK;
        case BoardKind::kTimepix2Cb:
            device = std::make_unique<OvexBoardTpx2Cb>(std::move(usb_device), std::move(info));
            return OVEXSDK_OK;
        case BoardKind::kTimepix4Cb:
            device = std::make_unique<OvexBoardTpx4Cb>(std::move(usb_device), std::move(info));
            return OVEXSDK_OK;
    }
    OVEX_LOG_ERROR("BUG: Board kind %d has no device class.", static_cast<int>(kind));
    return OVEXSDK_ERR_FAILED;
}

ovexsdk_err_code DiscoverDevice(Context& context) {
    std::shared_ptr<usb::device::UsbDevice> usb_device;
    if (FindDevice(context.Locator(), usb_device)) {
        OVEX_LOG_ERROR("USB device unavailable.");
        return OVEXSDK_ERR_NO_DEVICE;
    }
    usb::device::DeviceInfo info;
    BoardKind kind{};
    if (const auto ec = InspectDevice(*usb_device, info, kind)) {
        OVEX_LOG_EC(ovex::log::kError, "Failed to inspect the device: - %s: %s.", ec);
        return OVEXSDK_ERR_FAILED;
    }
    std::error_code shared = std::make_error_code(std::errc::invalid_argument);
    if (context.Lua() == nullptr) {
        OVEX_LOG_ERROR("Lua is not initialized, device will not be available in Lua scripts.");
    } else {
        shared = context.Lua()->ShareDevice(usb_device);
    }
    if (shared) {
        OVEX_LOG_EC(ovex::log::kError,
                    "Failed to share the device object with the Lua state: - %s: %s.", shared);
        return OVEXSDK_ERR_FAILED;
    }
    return BuildDevice(kind, std::move(usb_device), std::move(info), context.Device());
}

ovexsdk_err_code DevOpen(Context& context) {
    auto& device = context.Device();
    if (!device) {
        if (const auto result = DiscoverDevice(context); result != OVEXSDK_OK) {
            return result;
        }
    } else {
        OVEX_LOG_WARN("There is already a device, device discovery skipped.");
    }

    auto* connection = device->GetModule<IDeviceConnection>();
    if (connection == nullptr) {
        OVEX_LOG_ERROR("Device doesn't have connection management module.");
        return OVEXSDK_ERR_FAILED;
    }
    OVEX_LOG_DEBUG("Device is using the '%s' as a connection module.", connection->GetName());

    bool open = false;
    if (const auto ec = connection->IsOpen(open)) {
        OVEX_LOG_EC(ovex::log::kError, "Failed to determine the device connection state: - %s: %s.",
                    ec);
        return OVEXSDK_ERR_FAILED;
    }
    if (open) {
        OVEX_LOG_WARN("Device is already connected.");
        return OVEXSDK_ERR_BUSY;
    }
    if (const auto ec = connection->Open()) {
        OVEX_LOG_EC(ovex::log::kError, "Failed to connect to the device: - %s: %s.", ec);
        return OVEXSDK_ERR_FAILED;
    }
    OVEX_LOG_INFO("Open successful, connected to the device.");

    if (const auto ec = device->LoadItems(*context.Lua())) {
        OVEX_LOG_EC(ovex::log::kError, "Failed to load device items: - %s: %s.", ec);
        return OVEXSDK_ERR_FAILED;
    }
    if (const auto ec = device->Prologue()) {
        OVEX_LOG_EC(ovex::log::kError, "Device prologue failed: - %s: %s.", ec);
        return OVEXSDK_ERR_FAILED;
    }
    return OVEXSDK_OK;
}

ovexsdk_err_code DevClose(Context& context) {
    if (LogMissingDevice(context)) {
        return OVEXSDK_ERR_NO_DEVICE;
    }
    auto& device = context.Device();
    if (const auto ec = device->Epilogue()) {
        OVEX_LOG_EC(ovex::log::kError, "Device epilogue failed: - %s: %s.", ec);
        return OVEXSDK_ERR_FAILED;
    }
    auto* connection = device->GetModule<IDeviceConnection>();
    if (connection == nullptr) {
        OVEX_LOG_ERROR("Device doesn't have connection management module.");
        return OVEXSDK_ERR_FAILED;
    }
    if (const auto ec = connection->Close()) {
        OVEX_LOG_EC(ovex::log::kError, "Failed to disconnect the device: - %s: %s.", ec);
        return OVEXSDK_ERR_FAILED;
    }
    if (context.Lua() == nullptr) {
        OVEX_LOG_WARN("Lua is not initialized.");
    } else if (const auto ec = context.Lua()->ReleaseDevice()) {
        OVEX_LOG_EC(ovex::log::kError,
                    "Failed to remove the device object from the Lua state: - %s: %s.", ec);
    }
    device.reset();
    return OVEXSDK_OK;
}

ovexsdk_err_code DevIsOpen(Context& context, bool* is_open) {
    if (LogInvalidPointer(is_open, "is_open")) {
        return OVEXSDK_ERR_INVALID;
    }
    if (!context.Device()) {
        *is_open = false;
        return OVEXSDK_OK;
    }
    auto* connection = context.Device()->GetModule<IDeviceConnection>();
    if (connection == nullptr) {
        OVEX_LOG_ERROR("Device doesn't have connection management module.");
        return OVEXSDK_ERR_FAILED;
    }
    if (const auto ec = connection->IsOpen(*is_open)) {
        OVEX_LOG_EC(ovex::log::kError, "Failed to check device connection state: - %s: %s.", ec);
        return OVEXSDK_ERR_FAILED;
    }
    return OVEXSDK_OK;
}

ovexsdk_err_code DevGetInfo(Context& context, ovexsdk_enum_info* properties) {
    if (LogInvalidPointer(properties, "properties")) {
        return OVEXSDK_ERR_INVALID;
    }
    if (LogMissingDevice(context)) {
        return OVEXSDK_ERR_NO_DEVICE;
    }
    auto* module = context.Device()->GetModule<UsbDeviceProperties>();
    if (module == nullptr) {
        OVEX_LOG_ERROR("Device has no USB properties.");
        return OVEXSDK_ERR_UNAVAILABLE;
    }
    usb::device::DeviceInfo info;
    if (const auto ec = module->ReadInfo(info)) {
        OVEX_LOG_EC(ovex::log::kError, "Failed to obtain device USB properties: %s: %s", ec);
        return OVEXSDK_ERR_FAILED;
    }
    FillEnumInfo(info, *properties);
    return OVEXSDK_OK;
}

ovexsdk_err_code DevGetUnitCount(Context& context, std::uint8_t* count) {
    if (LogInvalidPointer(count, "count")) {
        return OVEXSDK_ERR_INVALID;
    }
    if (LogMissingDevice(context)) {
        return OVEXSDK_ERR_NO_DEVICE;
    }
    const auto units = PowerUnits(context);
    if (units.empty()) {
        return OVEXSDK_ERR_FAILED;
    }
    *count = static_cast<std::uint8_t>(units.size());
    return OVEXSDK_OK;
}

ovexsdk_err_code DevGetUnitInfo(Context& context, ovexsdk_dev_unit_info* unit_infos,
                                std::uint8_t* count) {
    if (LogInvalidPointer(unit_infos, "unit_infos") || LogInvalidPointer(count, "count")) {
        return OVEXSDK_ERR_INVALID;
    }
    if (LogMissingDevice(context)) {
        return OVEXSDK_ERR_NO_DEVICE;
    }
    const auto units = context.Device()->GetModules<IPowerControl>();
    const unsigned capacity = *count;
    if (units.size() > capacity) {
        OVEX_LOG_WARN(
            "Cannot fit all threshold information structs into the array: provided array of "
            "size %u, got %llu elements",
            capacity, static_cast<unsigned long long>(units.size()));
    }
    const std::size_t filled = std::min<std::size_t>(capacity, units.size());
    for (std::size_t i = 0; i < filled; ++i) {
        unit_infos[i].index = static_cast<std::uint8_t>(i);
        CopyTextField(unit_infos[i].name, units[i]->GetName());
    }
    *count = static_cast<std::uint8_t>(filled);
    return OVEXSDK_OK;
}

ovexsdk_err_code DevIsUnitPowered(Context& context, std::uint8_t unit, bool* is_powered) {
    if (LogInvalidPointer(is_powered, "is_powered")) {
        return OVEXSDK_ERR_INVALID;
    }
    if (LogMissingDevice(context)) {
        return OVEXSDK_ERR_NO_DEVICE;
    }
    auto* module = FindUnit(context, unit);
    if (module == nullptr) {
        return OVEXSDK_ERR_FAILED;
    }
    if (const auto ec = module->IsPowered(*is_powered)) {
        *is_powered = false;
        OVEX_LOG_EC(ovex::log::kError, "Failed to read status of unit %d ('%s'): - %s: %s.", ec,
                    unit, module->GetName());
        return OVEXSDK_ERR_FAILED;
    }
    return OVEXSDK_OK;
}

// Powers one unit up or down; both directions share the checks and differ in words and codes.
ovexsdk_err_code SwitchUnit(Context& context, std::uint8_t unit, bool up) {
    if (LogMissingDevice(context)) {
        return OVEXSDK_ERR_NO_DEVICE;
    }
    auto* module = FindUnit(context, unit);
    if (module == nullptr) {
        return OVEXSDK_ERR_FAILED;
    }
    bool powered = false;
    if (const auto ec = module->IsPowered(powered)) {
        OVEX_LOG_EC(ovex::log::kError, "Failed to read status of unit %d ('%s'): - %s: %s.", ec,
                    unit, module->GetName());
        return OVEXSDK_ERR_FAILED;
    }
    if (up && powered) {
        OVEX_LOG_WARN("Unit %d ('%s') is already powered.", unit, module->GetName());
        return OVEXSDK_ERR_BUSY;
    }
    if (!up && !powered) {
        OVEX_LOG_WARN("Unit %d ('%s') is already powered down.", unit, module->GetName());
        return OVEXSDK_ERR_UNAVAILABLE;
    }
    if (up) {
        if (const auto ec = module->PowerUp()) {
            OVEX_LOG_EC(ovex::log::kError, "Failed to power up unit: %d ('%s'): - %s: %s.", ec,
                        unit, module->GetName());
            return OVEXSDK_ERR_FAILED;
        }
        OVEX_LOG_INFO("Unit %d ('%s') successfully powered up.", unit, module->GetName());
    } else {
        if (const auto ec = module->PowerDown()) {
            OVEX_LOG_EC(ovex::log::kError, "Failed to power down unit: %d ('%s'): - %s: %s.", ec,
                        unit, module->GetName());
            return OVEXSDK_ERR_FAILED;
        }
        OVEX_LOG_INFO("Unit %d ('%s') successfully powered down.", unit, module->GetName());
    }
    return OVEXSDK_OK;
}

ovexsdk_err_code DevPowerUpUnit(Context& context, std::uint8_t unit) {
    return SwitchUnit(context, unit, true);
}

ovexsdk_err_code DevPowerDownUnit(Context& context, std::uint8_t unit) {
    return SwitchUnit(context, unit, false);
}

// Switches every unit, first to last when powering up and last to first when powering down.
// Units already in the wanted state are counted; any other failure ends the walk.
ovexsdk_err_code SwitchDevice(Context& context, bool up) {
    if (LogMissingDevice(context)) {
        return OVEXSDK_ERR_NO_DEVICE;
    }
    const auto count = PowerUnits(context).size();
    if (count == 0) {
        return OVEXSDK_ERR_FAILED;
    }
    const ovexsdk_err_code already = up ? OVEXSDK_ERR_BUSY : OVEXSDK_ERR_UNAVAILABLE;
    std::size_t already_count = 0;
    for (std::size_t step = 0; step < count; ++step) {
        const auto unit = static_cast<std::uint8_t>(up ? step : count - 1 - step);
        const auto result = SwitchUnit(context, unit, up);
        if (result == already) {
            ++already_count;
        } else if (result != OVEXSDK_OK) {
            return result;
        }
    }
    if (already_count == count) {
        OVEX_LOG_WARN(up ? "Device is already fully powered up."
                         : "Device is already fully powered down.");
        return already;
    }
    OVEX_LOG_INFO(up ? "Device successfully powered up." : "Device successfully powered down.");
    return OVEXSDK_OK;
}

ovexsdk_err_code DevPowerUp(Context& context) {
    return SwitchDevice(context, true);
}

ovexsdk_err_code DevPowerDown(Context& context) {
    return SwitchDevice(context, false);
}

ovexsdk_err_code DevIsPowered(Context& context, bool* is_powered) {
    if (LogInvalidPointer(is_powered, "is_powered")) {
        return OVEXSDK_ERR_INVALID;
    }
    *is_powered = false;
    if (LogMissingDevice(context)) {
        return OVEXSDK_ERR_NO_DEVICE;
    }
    const auto units = context.Device()->GetModules<IPowerControl>();
    if (units.empty()) {
        return OVEXSDK_OK;
    }
    for (std::size_t index = 0; index < units.size(); ++index) {
        bool powered = false;
        if (const auto ec = units[index]->IsPowered(powered)) {
            OVEX_LOG_EC(ovex::log::kError, "Failed to read status of unit %d ('%s'): - %s: %s.", ec,
                        static_cast<int>(index), units[index]->GetName());
            return OVEXSDK_ERR_FAILED;
        }
        if (!powered) {
            return OVEXSDK_OK;
        }
    }
    *is_powered = true;
    return OVEXSDK_OK;
}

ovexsdk_err_code CtxReplaceLocator(Context& context, const char* locator) {
    if (LogInvalidPointer(locator, "locator")) {
        return OVEXSDK_ERR_INVALID;
    }
    auto parsed = ParseUsbLocator(locator);
    if (!parsed) {
        return OVEXSDK_ERR_INVALID;
    }
    context.ReplaceLocator(std::move(*parsed));
    OVEX_LOG_DEBUG("Context USB locator changed to '%s'.", locator);
    return OVEXSDK_OK;
}

}  // namespace

void FillEnumInfo(const usb::device::DeviceInfo& info, ovexsdk_enum_info& record) {
    CopyTextField(record.serial_number, info.serial);
    CopyTextField(record.product, info.product);
    CopyTextField(record.connection_string, "usb:sn:" + info.serial);
    CopyTextField(record.instance_path, info.path);
    if (info.serial.size() != kLocatorSerialLength) {
        OVEX_LOG_WARN(
            "Serial number '%s' of device '%s' is not %zu characters long: its connection string "
            "is no locator, open the device by its index.",
            info.serial.c_str(), info.path.c_str(), kLocatorSerialLength);
    }
}

ovexsdk_err_code ovexsdk_ctx_replace_locator(ovexsdk_dev_ctx* ctx, const char* locator) {
    return OVEXSDK_FRAME(&Exclusive<&CtxReplaceLocator>::Call, ctx, locator);
}

}  // namespace ovex::sdk

using namespace ovex::sdk;

extern "C" {

OVEXSDK_API const ovexsdk_version* ovexsdk_version_get(void) {
    return &kVersion;
}

// The frame of its own: a record without a context is the normal case here, one that holds a
// live context is refused, so that its logger thread and device don't leak.
OVEXSDK_API ovexsdk_err_code ovexsdk_ctx_create(ovexsdk_dev_ctx* ctx, const char* locator) {
    if (ctx == nullptr) {
        return OVEXSDK_ERR_INVALID;
    }
    try {
        if (ovex::log::Admits(ovex::log::kDebug)) {
            api_detail::LogInvocation(std::source_location::current());
        }
        if (record::HasMagic(ctx)) {
            OVEX_LOG_ERROR("Context record already holds a context; release it first.");
            return OVEXSDK_ERR_BUSY;
        }
        if (LogInvalidPointer(locator, "locator")) {
            return OVEXSDK_ERR_INVALID;
        }
        auto parsed = ParseUsbLocator(locator);
        if (!parsed) {
            OVEX_LOG_ERROR("Device locator '%s' is not valid.", locator);
            return OVEXSDK_ERR_INVALID;
        }
        record::Create(ctx, std::move(*parsed));
        OVEX_LOG_INFO("Context for device '%s' created, SDK version %d.%d.%d", locator,
                      kVersion.major, kVersion.minor, kVersion.patch);
        return OVEXSDK_OK;
    } catch (const std::exception& e) {
        OVEX_LOG_ERROR("SDK API call failed with an exception: %s.", e.what());
    } catch (...) {
        OVEX_LOG_ERROR("SDK API call failed with an unknown exception.");
    }
    return OVEXSDK_ERR_FAILED;
}

OVEXSDK_API ovexsdk_err_code ovexsdk_ctx_release(ovexsdk_dev_ctx* ctx) {
    if (!record::HasMagic(ctx)) {
        return OVEXSDK_ERR_INVALID;
    }
    if (ovex::log::Admits(ovex::log::kDebug)) {
        api_detail::LogInvocation(std::source_location::current());
    }
    // The release waits for logger threads, maybe for the caller's own.
    if (Logger::OnLoggerThread()) {
        OVEX_LOG_ERROR("A context can't be released from a log callback.");
        return OVEXSDK_ERR_BUSY;
    }
    if (!record::Get(ctx).BeginRelease()) {
        LogReleasing(record::Get(ctx));
        return OVEXSDK_ERR_INVALID;
    }
    record::Destroy(ctx);
    OVEX_LOG_INFO("Context released.");
    return OVEXSDK_OK;
}

OVEXSDK_API ovexsdk_err_code ovexsdk_dev_open(ovexsdk_dev_ctx* ctx) {
    return OVEXSDK_FRAME(&Exclusive<&DevOpen>::Call, ctx);
}

OVEXSDK_API ovexsdk_err_code ovexsdk_dev_close(ovexsdk_dev_ctx* ctx) {
    return OVEXSDK_FRAME(&Exclusive<&DevClose>::Call, ctx);
}

OVEXSDK_API ovexsdk_err_code ovexsdk_dev_is_open(ovexsdk_dev_ctx* ctx, bool* is_open) {
    return OVEXSDK_FRAME(&Exclusive<&DevIsOpen>::Call, ctx, is_open);
}

OVEXSDK_API ovexsdk_err_code ovexsdk_dev_get_info(ovexsdk_dev_ctx* ctx,
                                                  ovexsdk_enum_info* properties) {
    return OVEXSDK_FRAME(&Exclusive<&DevGetInfo>::Call, ctx, properties);
}

OVEXSDK_API ovexsdk_err_code ovexsdk_dev_get_unit_count(ovexsdk_dev_ctx* ctx, uint8_t* count) {
    return OVEXSDK_FRAME(&Exclusive<&DevGetUnitCount>::Call, ctx, count);
}

OVEXSDK_API ovexsdk_err_code ovexsdk_dev_get_unit_info(ovexsdk_dev_ctx* ctx,
                                                       ovexsdk_dev_unit_info unit_infos[],
                                                       uint8_t* count) {
    return OVEXSDK_FRAME(&Exclusive<&DevGetUnitInfo>::Call, ctx, unit_infos, count);
}

OVEXSDK_API ovexsdk_err_code ovexsdk_dev_is_unit_powered(ovexsdk_dev_ctx* ctx, uint8_t unit,
                                                         bool* is_powered) {
    return OVEXSDK_FRAME(&Exclusive<&DevIsUnitPowered>::Call, ctx, unit, is_powered);
}

OVEXSDK_API ovexsdk_err_code ovexsdk_dev_power_up_unit(ovexsdk_dev_ctx* ctx, uint8_t unit) {
    return OVEXSDK_FRAME(&Exclusive<&DevPowerUpUnit>::Call, ctx, unit);
}

OVEXSDK_API ovexsdk_err_code ovexsdk_dev_power_down_unit(ovexsdk_dev_ctx* ctx, uint8_t unit) {
    return OVEXSDK_FRAME(&Exclusive<&DevPowerDownUnit>::Call, ctx, unit);
}

OVEXSDK_API ovexsdk_err_code ovexsdk_dev_is_powered(ovexsdk_dev_ctx* ctx, bool* is_powered) {
    return OVEXSDK_FRAME(&Exclusive<&DevIsPowered>::Call, ctx, is_powered);
}

OVEXSDK_API ovexsdk_err_code ovexsdk_dev_power_up(ovexsdk_dev_ctx* ctx) {
    return OVEXSDK_FRAME(&Exclusive<&DevPowerUp>::Call, ctx);
}

OVEXSDK_API ovexsdk_err_code ovexsdk_dev_power_down(ovexsdk_dev_ctx* ctx) {
    return OVEXSDK_FRAME(&Exclusive<&DevPowerDown>::Call, ctx);
}

}  // extern "C"
