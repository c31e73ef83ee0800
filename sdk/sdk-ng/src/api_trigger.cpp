// Triggers: the shutter modes that both the board's backend and its frontend offer, their
// configuration, and the host's shutter.

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <iterator>
#include <set>
#include <variant>

#include "api_names.hpp"
#include "api_utils.hpp"
#include "context.hpp"
#include "modules/acquisition.hpp"
#include "modules/backend.hpp"
#include "modules/triggers/trigger.hpp"
#include "ovex/log/log.hpp"
#include "ovexsdk.h"

namespace ovex::sdk {

namespace {

std::set<std::uint8_t> CommonTriggerTypes(IBackend& backend, IFrontend& frontend) {
    const std::set<std::uint8_t> ours = backend.GetTriggerTypes();
    const std::set<std::uint8_t> theirs = frontend.GetTriggerTypes();
    std::set<std::uint8_t> common;
    std::set_intersection(ours.begin(), ours.end(), theirs.begin(), theirs.end(),
                          std::inserter(common, common.end()));
    return common;
}

ovexsdk_err_code TriggerConfigure(Context& context, const ovexsdk_trigger_config* config) {
    if (LogMissingDevice(context)) {
        return OVEXSDK_ERR_NO_DEVICE;
    }
    SdkDevice& device = *context.Device();
    auto* backend = device.GetModule<IBackend>();
    if (backend == nullptr) {
        OVEX_LOG_ERROR("Backend module is not available.");
        return OVEXSDK_ERR_FAILED;
    }
    auto* frontend = device.GetModule<IFrontend>();
    if (frontend == nullptr) {
        OVEX_LOG_ERROR("Frontend module is not available.");
        return OVEXSDK_ERR_FAILED;
    }
    // A single internal shutter makes one frame; every other trigger reads out until stopped.
    const auto mode = static_cast<std::uint32_t>(config->mode);
    std::error_code counted;
    for (auto* module : device.GetModules<acquisition::IAcquisition>()) {
        counted = module->SetFrameCount(mode == InternalStartShutterDuration ? 1 : -1);
    }
    if (counted) {
        OVEX_LOG_EC(log::kError, "Failed to configure trigger - %s: %s.", counted);
        return OVEXSDK_ERR_BUSY;
    }
    if (mode > UINT8_MAX ||
        !CommonTriggerTypes(*backend, *frontend).contains(static_cast<std::uint8_t>(mode))) {
        OVEX_LOG_ERROR("Unsupported trigger mode (%d).", static_cast<int>(config->mode));
        return OVEXSDK_ERR_INVALID;
    }
    // A negative or endless shutter, or one that isn't a number, is refused; the frontends take
    // care of shutters too long for the board's counter.
    const double duration = config->shutter_duration;
    if (mode <= ExternalStartShutterDuration && (!std::isfinite(duration) || duration < 0.0)) {
        OVEX_LOG_ERROR("Invalid shutter duration %g s.", duration);
        return OVEXSDK_ERR_INVALID;
    }
    OVEX_LOG_INFO("Setting trigger for %s to %s.", frontend->GetId().c_str(),
                  TriggerModeName(mode));
    const auto type = static_cast<std::uint8_t>(mode);
    std::error_code failed = backend->SetTriggerInput(type);
    if (!failed) {
        failed = frontend->SetTrigger(type, duration);
    }
    if (failed) {
        OVEX_LOG_EC(log::kError, "Failed to configure trigger - %s: %s.", failed);
        return OVEXSDK_ERR_FAILED;
    }
    return OVEXSDK_OK;
}

ovexsdk_err_code TriggerList(Context& context, ovexsdk_trigger_mode* modes,
                             std::uint64_t* mode_count) {
    if (LogMissingDevice(context)) {
        return OVEXSDK_ERR_NO_DEVICE;
    }
    auto* backend = context.Device()->GetModule<IBackend>();
    auto* frontend = context.Device()->GetModule<IFrontend>();
    if (backend == nullptr || frontend == nullptr) {
        OVEX_LOG_ERROR("Frontend or backend module is not available.");
        return OVEXSDK_ERR_FAILED;
    }
    const std::set<std::uint8_t> common = CommonTriggerTypes(*backend, *frontend);
    const std::uint64_t capacity = *mode_count;
    if (common.size() > capacity) {
        OVEX_LOG_WARN(
            "Cannot fit all trigger modes into the array: provided array of size %zu, got %zu "
            "elements",
            static_cast<std::size_t>(capacity), common.size());
    }
    std::uint64_t filled = 0;
    for (auto it = common.begin(); it != common.end() && filled < capacity; ++it) {
        modes[filled++] = static_cast<ovexsdk_trigger_mode>(*it);
    }
    *mode_count = filled;
    return OVEXSDK_OK;
}

ovexsdk_err_code TriggerNow(Context& context) {
    if (LogMissingDevice(context)) {
        return OVEXSDK_ERR_NO_DEVICE;
    }
    auto* frontend = context.Device()->GetModule<IFrontend>();
    if (frontend == nullptr) {
        OVEX_LOG_ERROR("Frontend module is not available.");
        return OVEXSDK_ERR_FAILED;
    }
    const TriggerRef trigger = frontend->GetTrigger();
    if (const auto* internal = std::get_if<trigger::InternalTrigger*>(&trigger)) {
        // The trigger logs its own failure.
        return (*internal)->Fire() ? OVEXSDK_ERR_INVALID : OVEXSDK_OK;
    }
    OVEX_LOG_ERROR("Cannot fire external shutter triggers.");
    return OVEXSDK_ERR_INVALID;
}

// The pointers are checked before the device is taken, so that a bad pointer is refused as such
// even while another thread holds the device.
ovexsdk_err_code CheckedTriggerConfigure(Context& context, const ovexsdk_trigger_config* config) {
    if (LogInvalidPointer(config, "config")) {
        return OVEXSDK_ERR_INVALID;
    }
    return Exclusive<&TriggerConfigure>::Call(context, config);
}

ovexsdk_err_code CheckedTriggerList(Context& context, ovexsdk_trigger_mode* modes,
                                    std::uint64_t* mode_count) {
    if (LogInvalidPointer(modes, "modes") || LogInvalidPointer(mode_count, "mode_count")) {
        return OVEXSDK_ERR_INVALID;
    }
    return Exclusive<&TriggerList>::Call(context, modes, mode_count);
}

}  // namespace

}  // namespace ovex::sdk

using namespace ovex::sdk;

extern "C" {

OVEXSDK_API ovexsdk_err_code ovexsdk_trigger_configure(ovexsdk_dev_ctx* ctx,
                                                       const ovexsdk_trigger_config* config) {
    return OVEXSDK_FRAME(&CheckedTriggerConfigure, ctx, config);
}

OVEXSDK_API ovexsdk_err_code ovexsdk_trigger_list(ovexsdk_dev_ctx* ctx,
                                                  ovexsdk_trigger_mode modes[],
                                                  uint64_t* mode_count) {
    return OVEXSDK_FRAME(&CheckedTriggerList, ctx, modes, mode_count);
}

OVEXSDK_API ovexsdk_err_code ovexsdk_trigger_now(ovexsdk_dev_ctx* ctx) {
    return OVEXSDK_FRAME(&Exclusive<&TriggerNow>::Call, ctx);
}

}  // extern "C"
