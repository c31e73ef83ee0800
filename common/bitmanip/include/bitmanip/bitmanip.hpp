#pragma once

// Byte and bit helpers shared by the library, its Lua bindings and the board firmware model.
// Bit numbers count from the least significant bit. Span readers answer 0 (NaN for floats) and
// span writers leave the span untouched when it is shorter than the value.

#include <bit>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <span>

namespace ovex::bitmanip {

using ConstByteSpan = std::span<const std::uint8_t>;
using ByteSpan = std::span<std::uint8_t>;

constexpr std::uint8_t get_byte_u32(std::uint32_t value, std::uint32_t index) noexcept {
    return index < 4 ? static_cast<std::uint8_t>(value >> (8 * index)) : 0;
}

constexpr std::uint16_t bytes_to_u16(std::uint8_t high, std::uint8_t low) noexcept {
    return static_cast<std::uint16_t>((high << 8) | low);
}

constexpr std::uint32_t bytes_to_u32(std::uint8_t b3, std::uint8_t b2, std::uint8_t b1,
                                     std::uint8_t b0) noexcept {
    return (std::uint32_t{b3} << 24) | (std::uint32_t{b2} << 16) | (std::uint32_t{b1} << 8) | b0;
}

constexpr std::uint32_t u16_to_u32(std::uint16_t high, std::uint16_t low) noexcept {
    return (std::uint32_t{high} << 16) | low;
}

constexpr std::uint32_t u32_from_span_le(ConstByteSpan span) noexcept {
    return span.size() < 4 ? 0 : bytes_to_u32(span[3], span[2], span[1], span[0]);
}

constexpr std::uint32_t u32_from_span_be(ConstByteSpan span) noexcept {
    return span.size() < 4 ? 0 : bytes_to_u32(span[0], span[1], span[2], span[3]);
}

constexpr void u32_to_span_le(std::uint32_t value, ByteSpan span) noexcept {
    if (span.size() < 4) {
        return;
    }
    for (std::uint32_t i = 0; i < 4; ++i) {
        span[i] = get_byte_u32(value, i);
    }
}

constexpr void u32_to_span_be(std::uint32_t value, ByteSpan span) noexcept {
    if (span.size() < 4) {
        return;
    }
    for (std::uint32_t i = 0; i < 4; ++i) {
        span[i] = get_byte_u32(value, 3 - i);
    }
}

constexpr std::int32_t i32_from_span_le(ConstByteSpan span) noexcept {
    return static_cast<std::int32_t>(u32_from_span_le(span));
}

constexpr std::int32_t i32_from_span_be(ConstByteSpan span) noexcept {
    return static_cast<std::int32_t>(u32_from_span_be(span));
}

constexpr void i32_to_span_le(std::int32_t value, ByteSpan span) noexcept {
    u32_to_span_le(static_cast<std::uint32_t>(value), span);
}

constexpr void i32_to_span_be(std::int32_t value, ByteSpan span) noexcept {
    u32_to_span_be(static_cast<std::uint32_t>(value), span);
}

constexpr float float_from_span_le(ConstByteSpan span) noexcept {
    return span.size() < 4 ? std::numeric_limits<float>::quiet_NaN()
                           : std::bit_cast<float>(u32_from_span_le(span));
}

constexpr float float_from_span_be(ConstByteSpan span) noexcept {
    return span.size() < 4 ? std::numeric_limits<float>::quiet_NaN()
                           : std::bit_cast<float>(u32_from_span_be(span));
}

constexpr void float_to_span_le(float value, ByteSpan span) noexcept {
    u32_to_span_le(std::bit_cast<std::uint32_t>(value), span);
}

constexpr void float_to_span_be(float value, ByteSpan span) noexcept {
    u32_to_span_be(std::bit_cast<std::uint32_t>(value), span);
}

constexpr std::uint8_t bit_reverse_u8(std::uint8_t value) noexcept {
    std::uint32_t v = value;
    v = ((v & 0xF0u) >> 4) | ((v & 0x0Fu) << 4);
    v = ((v & 0xCCu) >> 2) | ((v & 0x33u) << 2);
    v = ((v & 0xAAu) >> 1) | ((v & 0x55u) << 1);
    return static_cast<std::uint8_t>(v);
}

constexpr std::uint16_t bit_reverse_u16(std::uint16_t value) noexcept {
    return static_cast<std::uint16_t>((bit_reverse_u8(static_cast<std::uint8_t>(value)) << 8) |
                                      bit_reverse_u8(static_cast<std::uint8_t>(value >> 8)));
}

constexpr std::uint32_t bit_reverse_u32(std::uint32_t value) noexcept {
    return u16_to_u32(bit_reverse_u16(static_cast<std::uint16_t>(value)),
                      bit_reverse_u16(static_cast<std::uint16_t>(value >> 16)));
}

// destination[i] = reverse(source[n-1-i]): the whole span read as one bit string, reversed.
// Spans of different lengths are left alone.
constexpr void bit_reverse_span(ConstByteSpan source, ByteSpan destination) noexcept {
    if (source.size() != destination.size()) {
        return;
    }
    const std::size_t n = source.size();
    for (std::size_t i = 0; i < n; ++i) {
        destination[i] = bit_reverse_u8(source[n - 1 - i]);
    }
}

// Mask of the bits top..bottom inclusive; an empty mask when top < bottom or bottom > 31.
constexpr std::uint32_t bit_slice_mask(std::uint32_t top, std::uint32_t bottom) noexcept {
    if (bottom > 31 || top < bottom) {
        return 0;
    }
    const std::uint32_t width = (top > 31 ? 31 : top) - bottom + 1;
    const std::uint32_t low_bits = width >= 32 ? 0xFFFFFFFFu : (1u << width) - 1;
    return low_bits << bottom;
}

constexpr std::uint32_t get_bit_slice(std::uint32_t value, std::uint32_t top,
                                      std::uint32_t bottom) noexcept {
    const std::uint32_t mask = bit_slice_mask(top, bottom);
    return mask == 0 ? 0 : (value & mask) >> bottom;
}

constexpr std::uint32_t set_bit_slice(std::uint32_t value, std::uint32_t slice, std::uint32_t top,
                                      std::uint32_t bottom) noexcept {
    const std::uint32_t mask = bit_slice_mask(top, bottom);
    return mask == 0 ? value : (value & ~mask) | ((slice << bottom) & mask);
}

constexpr std::uint32_t left_shift_bits(std::uint32_t value, std::uint32_t count) noexcept {
    return value << (count % 32);
}

constexpr std::uint8_t lower_nibble(std::uint8_t byte) noexcept {
    return byte & 0x0Fu;
}

constexpr std::uint8_t upper_nibble(std::uint8_t byte) noexcept {
    return byte >> 4;
}

constexpr bool get_bit(std::uint32_t value, std::uint32_t bit) noexcept {
    return bit < 32 && ((value >> bit) & 1u) != 0;
}

constexpr std::uint32_t write_bit(std::uint32_t value, std::uint32_t bit, bool on) noexcept {
    if (bit >= 32) {
        return value;
    }
    const std::uint32_t mask = 1u << bit;
    return on ? (value | mask) : (value & ~mask);
}

}  // namespace ovex::bitmanip
