#include "modules/timepix2_frontends.hpp"

#include "ovex/log/log.hpp"

namespace ovex::sdk {

namespace {

using trigger::ExceedsTicks;
using trigger::kLongestShutter;
using trigger::kLongestShutterText;

ModuleRequirements TriggerItems(Commands* commands, States* states) {
    return ModuleRequirements{
        .commands = {{commands, {"TPX_SHUT_EXT", "TPX_TRIG_SINGLE", "TPX_TRIG_CONT"}}},
        .states = {{states, {"TPX_SHUT_DUR"}}},
        .monitors = {}};
}

std::error_code ConfigureTrigger(std::uint8_t type, double duration,
                                 trigger::InternalTrigger& single,
                                 trigger::InternalTrigger& continuous,
                                 trigger::ExternalTrigger& external) {
    switch (type) {
        case 1:
            single.SetDuration(duration);
            return single.Configure();
        case 2:
            continuous.SetDuration(duration);
            return continuous.Configure();
        case 5:
            return external.Configure();
        default:
            OVEX_LOG_ERROR("Invalid Tpx2 trigger type: %u", unsigned{type});
            return std::make_error_code(std::errc::invalid_argument);
    }
}

TriggerRef SelectTrigger(std::uint8_t type, trigger::InternalTrigger& single,
                         trigger::InternalTrigger& continuous, trigger::ExternalTrigger& external) {
    switch (type) {
        case 1:
            return &single;
        case 2:
            return &continuous;
        case 5:
            return &external;
        default:
            return {};
    }
}

}  // namespace

Tp2fe::Tp2fe(Commands* commands, States* states)
    : IFrontend(TriggerItems(commands, states), false),
      m_single(commands, states),
      m_external(commands, states),
      m_continuous(commands, states) {}

TriggerRef Tp2fe::GetTrigger() {
    return SelectTrigger(m_type, m_single, m_continuous, m_external);
}

std::error_code Tp2fe::SetTrigger(std::uint8_t type, double duration) {
    m_type = type;
    if (ExceedsTicks(duration)) {
        OVEX_LOG_WARN(
            "Cannot set more than %s for internal trigger. Adjusting shutter duration to %s.",
            kLongestShutterText, kLongestShutterText);
        duration = kLongestShutter;
    }
    return ConfigureTrigger(type, duration, m_single, m_continuous, m_external);
}

Tpx2Chipboard::Tpx2Chipboard(Commands* commands, States* states)
    : IFrontend(TriggerItems(commands, states), false),
      m_single(commands, states),
      m_external(commands, states),
      m_continuous(commands, states),
      m_pipeline(commands) {}

TriggerRef Tpx2Chipboard::GetTrigger() {
    return SelectTrigger(m_type, m_single, m_continuous, m_external);
}

std::error_code Tpx2Chipboard::SetTrigger(std::uint8_t type, double duration) {
    m_type = type;
    return ConfigureTrigger(type, trigger::CountableShutter(duration), m_single, m_continuous,
                            m_external);
}

}  // namespace ovex::sdk
