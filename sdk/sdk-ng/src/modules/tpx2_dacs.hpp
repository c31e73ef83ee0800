#pragma once

#include <cstdint>
#include <system_error>
#include <vector>

#include "modules/timepix_dacs.hpp"

namespace ovex::sdk {

// The 19 bias DACs of a Timepix2 chip, each a state of the board, and the chip's sense pin,
// which a command switches.
class Tpx2Dacs final : public ITimepixDacs {
public:
    // The item sets belong to the board, which outlives the module.
    Tpx2Dacs(Commands* commands, States* states);

    const char* GetName() const override { return "Timepix 2 DACs"; }
    // The limits are asked for each DAC at every call; a DAC whose limits don't come gets
    // -32768..32767.
    std::vector<DacInfo> GetDacList() override;
    std::error_code SetDac(std::uint8_t id, std::uint32_t value) override;
    std::error_code GetDac(std::uint8_t id, std::uint32_t& value) override;
    // BiasRes (19) can't be measured. Blocks for 200 ms after a successful selection, while the
    // analog output settles.
    std::error_code SelectSenseDac(std::uint8_t id) override;
    // In the unit the board reads its sense pin in; a failure is only returned.
    std::error_code ReadDacOut(float& value) override;

private:
    Commands& BoardCommands() const;
    States& BoardStates() const;
};

}  // namespace ovex::sdk
