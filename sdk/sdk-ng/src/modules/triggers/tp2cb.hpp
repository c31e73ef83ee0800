#pragma once

// The triggers of the Timepix2 chip board: a single shutter and a continuous train of shutters
// that the host opens, and a shutter that the board's sync input opens on an edge.

#include <system_error>

#include "modules/triggers/trigger.hpp"

namespace ovex::sdk::trigger {

class IntSingleTp2Cb : public InternalTrigger {
public:
    IntSingleTp2Cb(Commands* commands, States* states) noexcept;

    std::error_code Fire() override;
    std::error_code Stop() override;
    // Writes the ticks of the duration and takes the shutter off the sync input.
    std::error_code Configure() override;
};

class IntContTp2Cb : public InternalTrigger {
public:
    // The board can't repeat shutters shorter than this.
    static constexpr double kMinDuration = 0.0002;

    IntContTp2Cb(Commands* commands, States* states) noexcept;

    std::error_code Fire() override;
    std::error_code Stop() override;
    std::error_code Configure() override;
    // A duration below kMinDuration is raised to it, with a warning.
    void SetDuration(double seconds) override;
};

class ExtTp2Cb : public ExternalTrigger {
public:
    ExtTp2Cb(Commands* commands, States* states) noexcept;

    // Takes the shutter off the sync input, then ends the acquisition.
    std::error_code Stop() override;
    // The edges of the sync input open and close the shutter, so no duration is written.
    std::error_code Configure() override;
};

}  // namespace ovex::sdk::trigger
