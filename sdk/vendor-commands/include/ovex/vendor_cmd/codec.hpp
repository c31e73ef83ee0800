#pragma once

// Payload encoding of the protocol: integers and IEEE 754 single floats little-endian, assembled
// byte by byte; texts in fixed fields whose last byte the receiver forces to 0. A decoder
// answers false when the field holds no usable value: a NaN float, an empty text.

#include <cstdint>
#include <span>
#include <string>

#include "ovex/range/range.hpp"

namespace ovex::usb::vendor_cmd::impl {

// A field shorter than 4 bytes decodes as 0.
bool Decode(std::span<const std::uint8_t> field, int& value);
bool Decode(std::span<const std::uint8_t> field, unsigned int& value);
// A field shorter than 4 bytes decodes as NaN.
bool Decode(std::span<const std::uint8_t> field, float& value);
// The text up to the first NUL, the field's last byte counting as one.
bool Decode(std::span<std::uint8_t> field, std::string& value);
bool Decode(std::span<const std::uint8_t> field, range::Range<int>& value);
bool Decode(std::span<const std::uint8_t> field, range::Range<float>& value);

void Encode(std::span<std::uint8_t, 4> field, int value);
void Encode(std::span<std::uint8_t, 4> field, unsigned int value);
void Encode(std::span<std::uint8_t, 4> field, float value);

}  // namespace ovex::usb::vendor_cmd::impl
