#include "modules/triggers/tp2cb.hpp"

#include "ovex/log/log.hpp"

namespace ovex::sdk::trigger {

IntSingleTp2Cb::IntSingleTp2Cb(Commands* commands, States* states) noexcept
    : InternalTrigger(1, commands, states) {}

std::error_code IntSingleTp2Cb::Fire() {
    return InvokeStep(m_commands, "TPX_TRIG_SINGLE", "Failed to fire the single trigger");
}

std::error_code IntSingleTp2Cb::Stop() {
    return InvokeStep(m_commands, "TPX_TRIG_ABORT", "Failed to abort the single trigger");
}

std::error_code IntSingleTp2Cb::Configure() {
    if (const auto ec = SetShutterTicks(m_states, Ticks(duration),
                                        "Failed to configure the shutter duration")) {
        return ec;
    }
    return InvokeStep(m_commands, "TPX_SHUT_EXT", 0, "Failed to disable the external shutter");
}

IntContTp2Cb::IntContTp2Cb(Commands* commands, States* states) noexcept
    : InternalTrigger(2, commands, states) {}

std::error_code IntContTp2Cb::Fire() {
    return InvokeStep(m_commands, "TPX_TRIG_CONT", "Failed to fire the continuous trigger");
}

std::error_code IntContTp2Cb::Stop() {
    return InvokeStep(m_commands, "TPX_TRIG_ABORT", "Failed to stop the trigger");
}

std::error_code IntContTp2Cb::Configure() {
    if (const auto ec = SetShutterTicks(m_states, Ticks(duration),
                                        "Failed to configure the shutter duration")) {
        return ec;
    }
    return InvokeStep(m_commands, "TPX_SHUT_EXT", 0, "Failed to disable the shutter");
}

void IntContTp2Cb::SetDuration(double seconds) {
    constexpr int kMinMicroseconds = 200;
    // A NaN isn't less than the minimum and is kept as given.
    if (seconds * 1e6 < kMinMicroseconds) {
        OVEX_LOG_WARN("Cannot set shutter duration shorter than %d, clamping to %d.",
                      kMinMicroseconds, kMinMicroseconds);
        duration = kMinDuration;
        return;
    }
    duration = seconds;
}

ExtTp2Cb::ExtTp2Cb(Commands* commands, States* states) noexcept
    : ExternalTrigger(5, commands, states) {}

std::error_code ExtTp2Cb::Stop() {
    if (const auto ec =
            InvokeStep(m_commands, "TPX_SHUT_EXT", 0, "Failed to disable the external shutter")) {
        return ec;
    }
    return InvokeStep(m_commands, "TPX_TRIG_ABORT",
                      "Failed to abort the acquisition on the device");
}

std::error_code ExtTp2Cb::Configure() {
    if (const auto ec = SetShutterTicks(m_states, 0, "Failed to reset the shutter duration")) {
        return ec;
    }
    return InvokeStep(m_commands, "TPX_SHUT_EXT", 1, "Failed to enable the external shutter");
}

}  // namespace ovex::sdk::trigger
