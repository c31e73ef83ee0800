#include "modules/tpx3efe.hpp"

#include "ovex/log/log.hpp"

namespace ovex::sdk {

Tpx3efe::Tpx3efe(Commands* commands, States* states)
    : IFrontend(
          ModuleRequirements{
              .commands = {{commands, {"TPX_SHUT_EXT", "TPX_SHUT_IMM", "TPX_SHUT_STOP"}}},
              .states = {{states, {"TPX_SHUT_DUR"}}},
              .monitors = {}},
          false),
      m_internal(commands, states) {}

TriggerRef Tpx3efe::GetTrigger() {
    switch (m_type) {
        case 1:
            return &m_internal;
        case 3:
        case 4:
        case 5:
            if (m_external) {
                return m_external.get();
            }
            OVEX_LOG_ERROR("External trigger not configured!");
            return {};
        default:
            return {};
    }
}

std::error_code Tpx3efe::SetTrigger(std::uint8_t type, double duration) {
    m_external.reset();
    m_type = type;
    // A longer shutter would wrap to a short one, and the host would wait for the long one.
    if (type == 1 || type == 3) {
        duration = trigger::CountableShutter(duration);
    }
    switch (type) {
        case 1:
            m_internal.SetDuration(duration);
            return m_internal.Configure();
        case 3:
        case 4:
        case 5:
            m_external = std::make_unique<trigger::ExtTpx3efe>(type, GetCommands(), GetStates());
            if (type == 3) {
                m_external->SetDuration(duration);
            }
            return m_external->Configure();
        default:
            OVEX_LOG_ERROR("Invalid Tpx3 trigger type: %hhd", type);
            return std::make_error_code(std::errc::invalid_argument);
    }
}

}  // namespace ovex::sdk
