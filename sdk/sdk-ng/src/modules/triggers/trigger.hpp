#pragma once

// Trigger objects: how the chip's shutter opens and closes. A frontend owns its triggers, picks
// one when the host configures the trigger and hands it out for firing and stopping. The
// concrete classes of each board differ only in the commands they send and the words of their
// failures.

#include <cstdint>
#include <string_view>
#include <system_error>

#include "impl/item_set.hpp"

namespace ovex::sdk::trigger {

// The board counts the shutter in ticks of a 40 MHz clock, 32 bits wide: the seconds times 4e7,
// truncated toward zero, of which the low 32 bits are kept. A longer shutter wraps.
std::uint32_t Ticks(double seconds) noexcept;

// The longest shutter whose ticks fit 32 bits, and its text in the frontends' warnings.
inline constexpr double kLongestShutter = 107.374182375;
inline constexpr const char* kLongestShutterText = "4294967295[1/40000000]s";
// True if the ticks of `seconds` don't fit 32 bits; the frontends then take the longest shutter.
constexpr bool ExceedsTicks(double seconds) noexcept {
    return seconds * 40000000.0 > 4294967295.0;
}
// `seconds`, or the longest shutter with the warning "Specified shutter duration exceeds allowed
// maximum of ..." when its ticks don't fit.
double CountableShutter(double seconds);

// A shutter that the host opens. `type` is the trigger mode of the exported interface.
class InternalTrigger {
public:
    // Both sets belong to the device and outlive the trigger.
    InternalTrigger(std::uint8_t type, Commands* commands, States* states) noexcept;
    virtual ~InternalTrigger() = default;

    InternalTrigger(const InternalTrigger&) = delete;
    InternalTrigger& operator=(const InternalTrigger&) = delete;

    virtual std::error_code Fire() = 0;
    virtual std::error_code Stop() = 0;
    // Writes the shutter settings to the board.
    virtual std::error_code Configure() = 0;
    // Seconds of the shutter; stored as given.
    virtual void SetDuration(double seconds);

    std::uint8_t GetType() const noexcept { return type; }
    double GetDuration() const noexcept { return duration; }

protected:
    std::uint8_t type;
    double duration = 0.0;
    Commands* m_commands;
    States* m_states;
};

// A shutter that a hardware input opens; it has no Fire.
class ExternalTrigger {
public:
    ExternalTrigger(std::uint8_t type, Commands* commands, States* states) noexcept;
    virtual ~ExternalTrigger() = default;

    ExternalTrigger(const ExternalTrigger&) = delete;
    ExternalTrigger& operator=(const ExternalTrigger&) = delete;

    virtual std::error_code Stop() = 0;
    virtual std::error_code Configure() = 0;
    virtual void SetDuration(double seconds);

    std::uint8_t GetType() const noexcept { return type; }
    double GetDuration() const noexcept { return duration; }

protected:
    std::uint8_t type;
    double duration = 0.0;
    Commands* m_commands;
    States* m_states;
};

// The steps of trigger operations. A failure is logged at error severity as
// "<failure> - <category>: <message>." and returned unchanged.
std::error_code InvokeStep(Commands* commands, std::string_view command, const char* failure);
// The same with a payload of one byte.
std::error_code InvokeStep(Commands* commands, std::string_view command, std::uint8_t argument,
                           const char* failure);
// Writes the shutter duration state "TPX_SHUT_DUR".
std::error_code SetShutterTicks(States* states, std::uint32_t ticks, const char* failure);

}  // namespace ovex::sdk::trigger
