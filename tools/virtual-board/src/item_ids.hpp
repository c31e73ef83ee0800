#pragma once

// Item ids for the parts of the firmware that hang on items by name: kNoItem where the board
// doesn't have one, so that a part can tell whether its board carries it.

#include <cstddef>
#include <limits>
#include <string_view>
#include <vector>

#include "ovex/vboard/item_tables.hpp"

namespace ovex::vboard {

inline constexpr std::size_t kNoItem = std::numeric_limits<std::size_t>::max();

template <class Item>
std::size_t ItemIdOr(const std::vector<Item>& items, std::string_view name) {
    return FindItem(items, name).value_or(kNoItem);
}

}  // namespace ovex::vboard
