#include "modules/triggers/tpx3efe.hpp"

#include "ovex/log/log.hpp"

namespace ovex::sdk::trigger {

IntSingleTpx3efe::IntSingleTpx3efe(Commands* commands, States* states) noexcept
    : InternalTrigger(1, commands, states) {}

std::error_code IntSingleTpx3efe::Fire() {
    return InvokeStep(m_commands, "TPX_SHUT_IMM", "Failed to fire the single trigger");
}

std::error_code IntSingleTpx3efe::Stop() {
    std::error_code ec;
    for (int attempt = 0; attempt < kStopAttempts; ++attempt) {
        ec = InvokeStep(m_commands, "TPX_SHUT_STOP", "Failed to stop the single trigger");
        // A board that has gone or doesn't answer in time won't take the next send either.
        if (!ec || ec == std::errc::no_such_device || ec == std::errc::timed_out) {
            break;
        }
    }
    return ec;
}

std::error_code IntSingleTpx3efe::Configure() {
    const std::uint32_t ticks = Ticks(duration);
    OVEX_LOG_INFO("Setting single internal trigger for %.03fs, ticks: %u", duration, ticks);
    return SetShutterTicks(m_states, ticks, "Failed to reset the single trigger");
}

ExtTpx3efe::ExtTpx3efe(std::uint8_t type, Commands* commands, States* states) noexcept
    : ExternalTrigger(type, commands, states) {}

std::error_code ExtTpx3efe::Stop() {
    return InvokeStep(m_commands, "TPX_SHUT_STOP", "Failed to stop the external trigger");
}

std::error_code ExtTpx3efe::Configure() {
    constexpr const char* kFailure = "Failed to reset the external trigger";
    if (const auto ec = InvokeStep(m_commands, "TPX_SHUT_EXT", kFailure)) {
        return ec;
    }
    return SetShutterTicks(m_states, Ticks(duration), kFailure);
}

}  // namespace ovex::sdk::trigger
