#pragma once

#include <cstdint>
#include <system_error>
#include <vector>

#include "modules/timepix_dacs.hpp"

namespace ovex::sdk {

// The 18 bias DACs of a Timepix3 chip, each a state of the board, and the chip's sense pin.
class Tpx3Dacs final : public ITimepixDacs {
public:
    explicit Tpx3Dacs(States* states);

    const char* GetName() const override { return "Timepix 3 DACs"; }
    // The limits are asked for each DAC at every call; a DAC whose limits don't come gets
    // -32768..32767.
    std::vector<DacInfo> GetDacList() override;
    std::error_code SetDac(std::uint8_t id, std::uint32_t value) override;
    std::error_code GetDac(std::uint8_t id, std::uint32_t& value) override;
    // Blocks for 200 ms after a successful selection, while the analog output settles.
    std::error_code SelectSenseDac(std::uint8_t id) override;
    // In millivolts, as the board reads its sense pin.
    std::error_code ReadDacOut(float& value) override;

private:
    States& BoardStates() const;
};

}  // namespace ovex::sdk
