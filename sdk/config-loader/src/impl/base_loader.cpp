#include "impl/base_loader.hpp"

#include "ovex/log/log.hpp"

namespace ovex::configuration::impl {

namespace {

std::vector<std::string> Names(KeyTable table) {
    std::vector<std::string> names;
    names.reserve(table.size());
    for (const KeyEntry& entry : table) {
        names.emplace_back(entry.name);
    }
    return names;
}

}  // namespace

std::vector<std::string> BaseLoader::GetChipKeyNames() const {
    return Names(GetChipKeyTable());
}

std::vector<std::string> BaseLoader::GetDeviceKeyNames() const {
    return Names(GetDeviceKeyTable());
}

void BaseLoader::Reset() {
    m_chips.clear();
    m_device.clear();
    m_source.clear();
    m_loaded = false;
}

bool BaseLoader::Finish() {
    if (!PostProcess()) {
        return false;
    }
    bool complete = true;
    for (const auto& [chip, keys] : m_chips) {
        for (const auto& [key, value] : keys) {
            if (std::holds_alternative<std::monostate>(value)) {
                OVEX_LOG_DEBUG("Key '%s' for chip '%s' was not loaded from configuration file.",
                               key.c_str(), chip.c_str());
                complete = false;
            }
        }
    }
    for (const auto& [key, value] : m_device) {
        if (std::holds_alternative<std::monostate>(value)) {
            OVEX_LOG_DEBUG("Device key '%s' was not loaded from configuration file.", key.c_str());
            complete = false;
        }
    }
    return complete;
}

}  // namespace ovex::configuration::impl
