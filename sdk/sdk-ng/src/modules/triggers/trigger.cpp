#include "modules/triggers/trigger.hpp"

#include <cmath>
#include <span>

#include "ovex/log/log.hpp"

namespace ovex::sdk::trigger {

namespace {

constexpr double kTicksPerSecond = 4e7;
constexpr double kTickWrap = 4294967296.0;  // 2^32

std::error_code Checked(std::error_code ec, const char* failure) {
    if (ec) {
        OVEX_LOG_EC(log::kError, "%s - %s: %s.", ec, failure);
    }
    return ec;
}

}  // namespace

double CountableShutter(double seconds) {
    if (!ExceedsTicks(seconds)) {
        return seconds;
    }
    OVEX_LOG_WARN(
        "Specified shutter duration exceeds allowed maximum of %s. Setting shutter to maximum.",
        kLongestShutterText);
    return kLongestShutter;
}

std::uint32_t Ticks(double seconds) noexcept {
    // fmod is exact, so the remainder is the low 32 bits of the truncated count, negative counts
    // in two's complement; a count that isn't a number gives 0.
    double low = std::fmod(std::trunc(seconds * kTicksPerSecond), kTickWrap);
    if (std::isnan(low)) {
        return 0;
    }
    if (low < 0.0) {
        low += kTickWrap;
    }
    return static_cast<std::uint32_t>(low);
}

InternalTrigger::InternalTrigger(std::uint8_t type, Commands* commands, States* states) noexcept
    : type(type), m_commands(commands), m_states(states) {}

void InternalTrigger::SetDuration(double seconds) {
    duration = seconds;
}

ExternalTrigger::ExternalTrigger(std::uint8_t type, Commands* commands, States* states) noexcept
    : type(type), m_commands(commands), m_states(states) {}

void ExternalTrigger::SetDuration(double seconds) {
    duration = seconds;
}

std::error_code InvokeStep(Commands* commands, std::string_view command, const char* failure) {
    OVEX_CHECK(commands != nullptr, "BUG: Command items are invalid");
    return Checked(commands->Invoke(command), failure);
}

std::error_code InvokeStep(Commands* commands, std::string_view command, std::uint8_t argument,
                           const char* failure) {
    OVEX_CHECK(commands != nullptr, "BUG: Command items are invalid");
    const std::uint8_t payload[] = {argument};
    return Checked(commands->Invoke(command, std::span<const std::uint8_t>(payload)), failure);
}

std::error_code SetShutterTicks(States* states, std::uint32_t ticks, const char* failure) {
    OVEX_CHECK(states != nullptr, "BUG: State items are invalid");
    // The state carries the 32 bits of the count in an int.
    return Checked(states->Set("TPX_SHUT_DUR", static_cast<int>(ticks)), failure);
}

}  // namespace ovex::sdk::trigger
