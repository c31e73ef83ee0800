#include "modules/temp_control.hpp"

#include <cmath>

#include "ovex/log/log.hpp"
#include "ovex/range/range.hpp"
#include "sdk_dev_item_sets.hpp"

namespace ovex::sdk {
namespace {

ModuleRequirements ElementItems(States* states, Monitors* monitors,
                                const TemperatureControl::ITempElement* element) {
    OVEX_CHECK(element != nullptr, "BUG: Temperature element is invalid.");
    ModuleRequirements requirements;
    requirements.states = {{states, {element->GetStateName()}}};
    if (const auto& monitor = element->GetMonitorName()) {
        requirements.monitors = {{monitors, {*monitor}}};
    }
    return requirements;
}

}  // namespace

TemperatureControl::TemperatureControl(States* states, Monitors* monitors,
                                       std::unique_ptr<ITempElement> element)
    : DeviceModule(ElementItems(states, monitors, element.get()), false),
      m_element(std::move(element)) {}

const char* TemperatureControl::GetName() const {
    return GetUnit() == kDegreesCelsius ? "Temperature control (degree Celsius)"
                                        : "Temperature control (percentage)";
}

std::uint8_t TemperatureControl::GetUnit() const {
    return Element().GetUnit();
}

const TemperatureControl::ITempElement& TemperatureControl::Element() const {
    OVEX_CHECK(m_element != nullptr, "BUG: Temperature element is invalid.");
    return *m_element;
}

States& TemperatureControl::BoardStates() const {
    States* maybe_states = GetStates();
    OVEX_CHECK(maybe_states != nullptr, "BUG: States object is invalid.");
    return *maybe_states;
}

Monitors& TemperatureControl::BoardMonitors() const {
    Monitors* maybe_monitors = GetMonitors();
    OVEX_CHECK(maybe_monitors != nullptr, "BUG: Monitors object is invalid.");
    return *maybe_monitors;
}

std::error_code TemperatureControl::GetDesired(float& value) {
    const auto& element = Element();
    int raw = 0;
    if (const auto ec = BoardStates().Get(element.GetStateName(), raw)) {
        OVEX_LOG_EC(log::kError, "Desired temperature value cannot be retrieved: - %s: %s.", ec);
        return ec;
    }
    value = element.RawToValue(raw);
    return {};
}

std::error_code TemperatureControl::GetActual(float& value) {
    const auto& element = Element();
    const auto& monitor = element.GetMonitorName();
    if (!monitor) {
        return GetDesired(value);
    }
    float measured = 0.0F;
    if (const auto ec = BoardMonitors().Get(*monitor, measured)) {
        OVEX_LOG_EC(log::kError, "Measured temperature value cannot be retrieved: - %s: %s.", ec);
        return ec;
    }
    value = element.MeasuredToValue(measured);
    return {};
}

std::error_code TemperatureControl::GetLimits(std::pair<float, float>& limits) {
    const auto& element = Element();
    range::Range<int> raw;
    if (const auto ec = BoardStates().GetRange(element.GetStateName(), raw)) {
        OVEX_LOG_EC(log::kError, "Failed to get limits for %s: - %s: %s.", ec,
                    element.GetStateName().c_str());
        return ec;
    }
    limits = {element.RawToValue(raw.min()), element.RawToValue(raw.max())};
    return {};
}

std::error_code TemperatureControl::SetDesired(float value) {
    std::pair<float, float> limits;
    if (const auto ec = GetLimits(limits)) {
        OVEX_LOG_EC(log::kError, "Temperature value range cannot be retrieved: - %s: %s.", ec);
        return ec;
    }
    const auto [low, high] = limits;
    // A NaN is neither inside the range nor 0.0.
    if (!range::Range<float>(low, high).Contains(value) && value != 0.0F) {
        OVEX_LOG_ERROR("Desired temperature value == %f is not within range [%f, %f].",
                       static_cast<double>(value), static_cast<double>(low),
                       static_cast<double>(high));
        return std::make_error_code(std::errc::argument_out_of_domain);
    }
    const auto& element = Element();
    return BoardStates().Set(element.GetStateName(), element.ValueToRaw(value));
}

float DefaultTempElement::RawToValue(std::int32_t raw) const {
    return static_cast<float>(raw) / 10.0F;
}

std::int32_t DefaultTempElement::ValueToRaw(float value) const {
    return TruncateToInt(std::floor(value * 10.0F));
}

}  // namespace ovex::sdk
