#pragma once

// How the firmware puts values on the wire: little-endian integers, IEEE floats, fixed text
// fields padded with NULs, and the Timepix3 chip's 6-byte packets.

#include <algorithm>
#include <bit>
#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace ovex::vboard::wire {

inline void PutU32(std::vector<std::uint8_t>& out, std::uint32_t value) {
    for (int shift = 0; shift < 32; shift += 8) {
        out.push_back(static_cast<std::uint8_t>(value >> shift));
    }
}

inline void PutI32(std::vector<std::uint8_t>& out, int value) {
    PutU32(out, static_cast<std::uint32_t>(value));
}

inline void PutFloat(std::vector<std::uint8_t>& out, float value) {
    PutU32(out, std::bit_cast<std::uint32_t>(value));
}

inline std::vector<std::uint8_t> U32(std::uint32_t value) {
    std::vector<std::uint8_t> out;
    PutU32(out, value);
    return out;
}

// The first four bytes, which the caller has checked are there.
inline std::uint32_t GetU32(std::span<const std::uint8_t> in) {
    return static_cast<std::uint32_t>(in[0]) | static_cast<std::uint32_t>(in[1]) << 8 |
           static_cast<std::uint32_t>(in[2]) << 16 | static_cast<std::uint32_t>(in[3]) << 24;
}

// A text field of `size` bytes: the text cut to the field, the rest NUL. A text as long as the
// field leaves no NUL.
inline std::vector<std::uint8_t> TextField(std::string_view text, std::size_t size) {
    std::vector<std::uint8_t> out(size, 0);
    for (std::size_t i = 0; i < size && i < text.size(); ++i) {
        out[i] = static_cast<std::uint8_t>(text[i]);
    }
    return out;
}

// The text of a field: up to its first NUL, or all of it.
inline std::string FieldText(std::span<const std::uint8_t> field) {
    const auto end = std::find(field.begin(), field.end(), std::uint8_t{0});
    return {field.begin(), end};
}

// A Timepix3 packet: 48 bits, least significant byte first.
inline constexpr std::size_t kPacketBytes = 6;

inline void PutPacket(std::uint8_t* at, std::uint64_t packet) {
    for (std::size_t b = 0; b < kPacketBytes; ++b) {
        at[b] = static_cast<std::uint8_t>(packet >> (8 * b));
    }
}

inline std::uint64_t GetPacket(const std::uint8_t* at) {
    std::uint64_t packet = 0;
    for (std::size_t b = 0; b < kPacketBytes; ++b) {
        packet |= std::uint64_t{at[b]} << (8 * b);
    }
    return packet;
}

inline constexpr std::size_t kTextFieldSize = 33;
inline constexpr std::size_t kIdFieldSize = 32;

}  // namespace ovex::vboard::wire
