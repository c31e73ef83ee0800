#include "ovex/vendor_cmd/codec.hpp"

#include <bit>
#include <cmath>
#include <limits>

namespace ovex::usb::vendor_cmd::impl {
namespace {

std::uint32_t Word(std::span<const std::uint8_t> field, std::size_t offset = 0) {
    if (field.size() < offset + 4) {
        return 0;
    }
    return static_cast<std::uint32_t>(field[offset]) |
           static_cast<std::uint32_t>(field[offset + 1]) << 8 |
           static_cast<std::uint32_t>(field[offset + 2]) << 16 |
           static_cast<std::uint32_t>(field[offset + 3]) << 24;
}

float Float(std::span<const std::uint8_t> field, std::size_t offset = 0) {
    if (field.size() < offset + 4) {
        return std::numeric_limits<float>::quiet_NaN();
    }
    return std::bit_cast<float>(Word(field, offset));
}

void PutWord(std::span<std::uint8_t, 4> field, std::uint32_t word) {
    for (std::size_t i = 0; i < 4; ++i) {
        field[i] = static_cast<std::uint8_t>(word >> (8 * i));
    }
}

}  // namespace

bool Decode(std::span<const std::uint8_t> field, int& value) {
    value = static_cast<int>(Word(field));
    return true;
}

bool Decode(std::span<const std::uint8_t> field, unsigned int& value) {
    value = Word(field);
    return true;
}

bool Decode(std::span<const std::uint8_t> field, float& value) {
    value = Float(field);
    return !std::isnan(value);
}

bool Decode(std::span<std::uint8_t> field, std::string& value) {
    if (field.empty()) {
        value.clear();
        return false;
    }
    field.back() = 0;
    const auto* text = reinterpret_cast<const char*>(field.data());
    value.assign(text, std::char_traits<char>::length(text));
    return !value.empty();
}

bool Decode(std::span<const std::uint8_t> field, range::Range<int>& value) {
    value = range::Range<int>(static_cast<int>(Word(field)), static_cast<int>(Word(field, 4)));
    return true;
}

bool Decode(std::span<const std::uint8_t> field, range::Range<float>& value) {
    const float min = Float(field);
    const float max = Float(field, 4);
    value = range::Range<float>(min, max);
    return !std::isnan(min) && !std::isnan(max);
}

void Encode(std::span<std::uint8_t, 4> field, int value) {
    PutWord(field, static_cast<std::uint32_t>(value));
}

void Encode(std::span<std::uint8_t, 4> field, unsigned int value) {
    PutWord(field, value);
}

void Encode(std::span<std::uint8_t, 4> field, float value) {
    PutWord(field, std::bit_cast<std::uint32_t>(value));
}

}  // namespace ovex::usb::vendor_cmd::impl
