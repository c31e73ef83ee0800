#include "impl/item_set.hpp"

#include "ovex/log/log.hpp"

namespace ovex::sdk {

std::optional<std::uint16_t> ItemSet::IndexOf(std::string_view name) const noexcept {
    for (std::size_t i = 0; i < m_names.size(); ++i) {
        if (m_names[i] == name) {
            return static_cast<std::uint16_t>(i);
        }
    }
    return std::nullopt;
}

std::optional<std::uint16_t> ItemSet::Lookup(std::string_view name) const {
    auto index = IndexOf(name);
    if (!index) {
        const std::string item(name);
        OVEX_LOG_ERROR("%s '%s' is not recognized by the device.", ItemTypeName(), item.c_str());
    }
    return index;
}

}  // namespace ovex::sdk
