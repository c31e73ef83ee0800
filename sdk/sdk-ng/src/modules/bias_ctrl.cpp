#include "modules/bias_ctrl.hpp"

#include <cmath>

#include "ovex/log/log.hpp"
#include "ovex/range/range.hpp"
#include "sdk_dev_item_sets.hpp"

namespace ovex::sdk {
namespace {

ModuleRequirements BiasItems(States* states, Monitors* monitors, const std::string& state,
                             const std::string& monitor) {
    ModuleRequirements requirements;
    requirements.states = {{states, {state}}};
    requirements.monitors = {{monitors, {monitor}}};
    return requirements;
}

}  // namespace

BiasCtrl::BiasCtrl(States* states, Monitors* monitors, std::string state, std::string monitor)
    : IBiasControl(BiasItems(states, monitors, state, monitor), false),
      m_state(std::move(state)),
      m_monitor(std::move(monitor)) {}

States& BiasCtrl::BoardStates() const {
    States* maybe_states = GetStates();
    OVEX_CHECK(maybe_states != nullptr, "BUG: States object is invalid.");
    return *maybe_states;
}

Monitors& BiasCtrl::BoardMonitors() const {
    Monitors* maybe_monitors = GetMonitors();
    OVEX_CHECK(maybe_monitors != nullptr, "BUG: Monitors object is invalid.");
    return *maybe_monitors;
}

std::error_code BiasCtrl::GetDesired(float& volts) {
    int raw = 0;
    const auto ec = BoardStates().Get(m_state, raw);
    if (!ec) {
        volts = static_cast<float>(raw);
    }
    return ec;
}

std::error_code BiasCtrl::SetDesired(float volts) {
    std::pair<float, float> limits;
    if (const auto ec = GetLimits(limits)) {
        OVEX_LOG_ERROR("Bias cannot be set - bias range retrieval failed.");
        return ec;
    }
    const auto [low, high] = limits;
    if (!range::Range<float>(low, high).Contains(volts)) {
        OVEX_LOG_ERROR("Provided bias voltage (%.2fV) is not within valid range [%.2fV, %.2fV].",
                       static_cast<double>(volts), static_cast<double>(low),
                       static_cast<double>(high));
        return std::make_error_code(std::errc::argument_out_of_domain);
    }
    return BoardStates().Set(m_state, TruncateToInt(std::round(volts)));
}

std::error_code BiasCtrl::GetActual(float& volts) {
    return BoardMonitors().Get(m_monitor, volts);
}

std::error_code BiasCtrl::GetLimits(std::pair<float, float>& limits) {
    range::Range<int> raw;
    if (const auto ec = BoardStates().GetRange(m_state, raw)) {
        OVEX_LOG_ERROR("Failed to get limits for state %s: %s", m_state.c_str(),
                       ec.message().c_str());
        return ec;
    }
    limits = {static_cast<float>(raw.min()), static_cast<float>(raw.max())};
    return {};
}

}  // namespace ovex::sdk
