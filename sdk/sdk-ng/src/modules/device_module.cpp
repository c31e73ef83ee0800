#include "modules/device_module.hpp"

#include <stdexcept>

#include "ovex/log/log.hpp"

namespace ovex::sdk {

namespace {

// Logs every required name the set lacks; answers whether all were there.
template <typename Set>
bool CheckGroup(const std::optional<std::pair<Set*, std::vector<std::string>>>& group) {
    if (!group) {
        return true;
    }
    const auto& [set, names] = *group;
    bool complete = true;
    for (const auto& name : names) {
        if (set == nullptr || !set->IndexOf(name)) {
            const char* type = set != nullptr ? set->ItemTypeName() : "item";
            OVEX_LOG_ERROR("Item collection of %ss doesn't contain '%s' required by the module.",
                           type, name.c_str());
            complete = false;
        }
    }
    return complete;
}

}  // namespace

DeviceModule::DeviceModule(ModuleRequirements requirements, bool strict)
    : m_requirements(std::make_unique<ModuleRequirements>(std::move(requirements))) {
    const auto& r = *m_requirements;
    if (!r.commands && !r.states && !r.monitors) {
        OVEX_LOG_ERROR("BUG: No items specified for the module.");
        if (strict) {
            throw std::runtime_error("no items specified for the module");
        }
        return;
    }
    // Every group is checked, so that all missing names are logged at once.
    const bool commands_ok = CheckGroup(r.commands);
    const bool states_ok = CheckGroup(r.states);
    const bool monitors_ok = CheckGroup(r.monitors);
    if (strict && !(commands_ok && states_ok && monitors_ok)) {
        throw std::runtime_error("module requirements not met");
    }
}

Commands* DeviceModule::GetCommands() const noexcept {
    return m_requirements && m_requirements->commands ? m_requirements->commands->first : nullptr;
}

States* DeviceModule::GetStates() const noexcept {
    return m_requirements && m_requirements->states ? m_requirements->states->first : nullptr;
}

Monitors* DeviceModule::GetMonitors() const noexcept {
    return m_requirements && m_requirements->monitors ? m_requirements->monitors->first : nullptr;
}

}  // namespace ovex::sdk
