#pragma once

#include <string>
#include <system_error>
#include <utility>

#include "modules/device_module.hpp"

namespace ovex::sdk {

// The sensor's bias voltage, in volts.
class IBiasControl : public DeviceModule {
public:
    using DeviceModule::DeviceModule;
    virtual std::error_code GetDesired(float& volts) = 0;
    virtual std::error_code SetDesired(float volts) = 0;
    virtual std::error_code GetActual(float& volts) = 0;
    // Low and high.
    virtual std::error_code GetLimits(std::pair<float, float>& limits) = 0;
};

// The bias supply as a state that counts whole volts, and the monitor that measures its output.
class BiasCtrl final : public IBiasControl {
public:
    BiasCtrl(States* states, Monitors* monitors, std::string state, std::string monitor);

    const char* GetName() const override { return "Bias control"; }
    std::error_code GetDesired(float& volts) override;
    // Rounds to whole volts, halves away from zero.
    std::error_code SetDesired(float volts) override;
    std::error_code GetActual(float& volts) override;
    std::error_code GetLimits(std::pair<float, float>& limits) override;

private:
    States& BoardStates() const;
    Monitors& BoardMonitors() const;

    std::string m_state;
    std::string m_monitor;
};

}  // namespace ovex::sdk
