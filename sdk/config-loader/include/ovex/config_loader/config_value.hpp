#pragma once

// The value of one key of a chip configuration file and the hash that all key maps share.

#include <cstdint>
#include <functional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <variant>
#include <vector>

namespace ovex::configuration {

// The alternatives keep this order: the index of a value is its type in the key tables.
using ConfigValue = std::variant<std::monostate, std::int32_t, double, bool, std::string,
                                 std::vector<std::uint8_t>>;

enum class ValueType : std::uint8_t {
    kEmpty = 0,
    kInteger = 1,
    kDouble = 2,
    kBoolean = 3,
    kString = 4,
    kBytes = 5,
};

// FNV-1a over the key's bytes.
struct KeyHash {
    using is_transparent = void;
    std::size_t operator()(std::string_view key) const noexcept {
        std::uint64_t hash = 0xCBF29CE484222325ull;
        for (const char c : key) {
            hash = (hash ^ static_cast<std::uint8_t>(c)) * 0x100000001B3ull;
        }
        return static_cast<std::size_t>(hash);
    }
};

template <typename Value>
using KeyMap = std::unordered_map<std::string, Value, KeyHash, std::equal_to<>>;

}  // namespace ovex::configuration
