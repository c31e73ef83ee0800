#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <system_error>
#include <utility>

#include "modules/device_module.hpp"

namespace ovex::sdk {

// A Peltier controller: a state that holds the set point and, where the board measures it, a
// monitor. The element says which items these are and how their values map to physical ones.
class TemperatureControl : public DeviceModule {
public:
    class ITempElement {
    public:
        virtual ~ITempElement() = default;
        virtual const std::string& GetStateName() const = 0;
        virtual const std::optional<std::string>& GetMonitorName() const = 0;
        // kDegreesCelsius, any other code a percentage.
        virtual std::uint8_t GetUnit() const = 0;
        virtual float RawToValue(std::int32_t raw) const = 0;
        virtual std::int32_t ValueToRaw(float value) const = 0;
        virtual float MeasuredToValue(float measured) const = 0;
    };

    static constexpr std::uint8_t kDegreesCelsius = 1;

    // `element` must not be null.
    TemperatureControl(States* states, Monitors* monitors, std::unique_ptr<ITempElement> element);

    const char* GetName() const override;
    std::error_code GetDesired(float& value);
    // 0.0 is taken whatever the limits: the scripts switch the controller off with it.
    std::error_code SetDesired(float value);
    // Without a monitor, the set value.
    std::error_code GetActual(float& value);
    // Low and high.
    std::error_code GetLimits(std::pair<float, float>& limits);
    std::uint8_t GetUnit() const;

private:
    States& BoardStates() const;
    Monitors& BoardMonitors() const;
    const ITempElement& Element() const;

    std::unique_ptr<ITempElement> m_element;
};

// A state that counts tenths and a monitor that reads the physical value.
class DefaultTempElement final : public TemperatureControl::ITempElement {
public:
    DefaultTempElement(std::string state, std::optional<std::string> monitor,
                       std::uint8_t unit = TemperatureControl::kDegreesCelsius)
        : m_state(std::move(state)), m_monitor(std::move(monitor)), m_unit(unit) {}

    const std::string& GetStateName() const override { return m_state; }
    const std::optional<std::string>& GetMonitorName() const override { return m_monitor; }
    std::uint8_t GetUnit() const override { return m_unit; }
    float RawToValue(std::int32_t raw) const override;
    // Rounds down, so -0.05 gives -1; values beyond the raw range are held at its ends.
    std::int32_t ValueToRaw(float value) const override;
    float MeasuredToValue(float measured) const override { return measured; }

private:
    std::string m_state;
    std::optional<std::string> m_monitor;
    std::uint8_t m_unit;
};

}  // namespace ovex::sdk
