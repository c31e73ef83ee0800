#pragma once

// The triggers of the Timepix3 extended frontend: one shutter that the host opens for a set
// time, and one that the board's sync input opens. There is no continuous trigger.

#include <cstdint>
#include <system_error>

#include "modules/triggers/trigger.hpp"

namespace ovex::sdk::trigger {

class IntSingleTpx3efe final : public InternalTrigger {
public:
    // Sends of "TPX_SHUT_STOP" that Stop makes at most, so that a board that refuses or has gone
    // doesn't hold the caller.
    static constexpr int kStopAttempts = 10;

    IntSingleTpx3efe(Commands* commands, States* states) noexcept;

    std::error_code Fire() override;
    // Repeats the stop while the board refuses it, up to kStopAttempts sends; a board that has
    // left the bus or doesn't answer in time ends the repeats at once. The last error is
    // returned.
    std::error_code Stop() override;
    std::error_code Configure() override;
};

class ExtTpx3efe final : public ExternalTrigger {
public:
    // `type` is 3 (shutter of set duration), 4 (level) or 5 (edge).
    ExtTpx3efe(std::uint8_t type, Commands* commands, States* states) noexcept;

    std::error_code Stop() override;
    // Enables the external shutter and writes the ticks of the duration: 0 for the types whose
    // hardware stop ends the shutter, as their frontend sets no duration.
    std::error_code Configure() override;
};

}  // namespace ovex::sdk::trigger
