#include "impl/item_set.hpp"

#include "ovex/log/log.hpp"
#include "ovex/vendor_cmd/items.hpp"

namespace ovex::sdk {

std::optional<std::uint16_t> ItemSet::IndexOf(std::string_view name) const noexcept {
    return usb::vendor_cmd::impl::FindItem(m_names, name);
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
