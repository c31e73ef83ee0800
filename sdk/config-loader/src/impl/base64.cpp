#include "impl/base64.hpp"

#include <array>

namespace ovex::configuration::impl {

namespace {

constexpr std::int8_t kInvalid = -1;
constexpr std::int8_t kSpace = -2;

constexpr std::array<std::int8_t, 256> MakeTable() {
    std::array<std::int8_t, 256> table{};
    table.fill(kInvalid);
    constexpr std::string_view alphabet =
        "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    for (std::size_t i = 0; i < alphabet.size(); ++i) {
        table[static_cast<std::uint8_t>(alphabet[i])] = static_cast<std::int8_t>(i);
    }
    for (const char c : {' ', '\t', '\r', '\n'}) {
        table[static_cast<std::uint8_t>(c)] = kSpace;
    }
    return table;
}

constexpr auto kTable = MakeTable();

}  // namespace

std::optional<std::vector<std::uint8_t>> DecodeBase64(std::string_view text) {
    std::vector<std::uint8_t> bytes;
    bytes.reserve(text.size() / 4 * 3);
    std::uint32_t bits = 0;
    int count = 0;    // sextets in the current group
    int padding = 0;  // '=' seen; only white space and more '=' may follow
    for (const char c : text) {
        const std::int8_t value = kTable[static_cast<std::uint8_t>(c)];
        if (value == kSpace) {
            continue;
        }
        if (c == '=') {
            ++padding;
            continue;
        }
        if (value == kInvalid || padding > 0) {
            return std::nullopt;
        }
        bits = (bits << 6) | static_cast<std::uint32_t>(value);
        if (++count == 4) {
            bytes.push_back(static_cast<std::uint8_t>(bits >> 16));
            bytes.push_back(static_cast<std::uint8_t>(bits >> 8));
            bytes.push_back(static_cast<std::uint8_t>(bits));
            bits = 0;
            count = 0;
        }
    }
    // A last group of two or three sextets gives one or two bytes, padded to four characters.
    if (count == 1 || (count == 0 ? padding != 0 : count + padding != 4)) {
        return std::nullopt;
    }
    if (count >= 2) {
        bits <<= 6 * (4 - count);
        bytes.push_back(static_cast<std::uint8_t>(bits >> 16));
        if (count == 3) {
            bytes.push_back(static_cast<std::uint8_t>(bits >> 8));
        }
    }
    return bytes;
}

}  // namespace ovex::configuration::impl
