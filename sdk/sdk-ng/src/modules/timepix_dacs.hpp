#pragma once

#include <cstdint>
#include <system_error>
#include <vector>

#include "modules/device_module.hpp"

namespace ovex::sdk {

// One on-chip bias DAC as the SDK presents it. The limits are the board's, asked afresh.
struct DacInfo {
    std::uint8_t id;
    const char* name;  // what users and configuration files call it
    std::int32_t min;
    std::int32_t max;
    bool is_sense = false;  // a sense output that can only be selected and measured
    bool measurable;        // the chip's DAC_OUT pin can be switched to it
};

// The bias DACs of one chip, by number. The board's states hold the values: a DAC module
// keeps none.
class ITimepixDacs : public DeviceModule {
public:
    using DeviceModule::DeviceModule;
    // In ascending order of id.
    virtual std::vector<DacInfo> GetDacList() = 0;
    virtual std::error_code SetDac(std::uint8_t id, std::uint32_t value) = 0;
    virtual std::error_code GetDac(std::uint8_t id, std::uint32_t& value) = 0;
    // Switches the chip's sense pin to the DAC and waits for the analog output to settle.
    virtual std::error_code SelectSenseDac(std::uint8_t id) = 0;
    // The sense pin's voltage, in the unit the board gives it.
    virtual std::error_code ReadDacOut(float& value) = 0;
};

}  // namespace ovex::sdk
