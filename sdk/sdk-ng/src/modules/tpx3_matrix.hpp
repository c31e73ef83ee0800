#pragma once

// The Timepix3 pixel configuration matrix in its three forms, and the transforms between them.
// Host form: one byte per pixel, index y * 256 + x, bit 0 the mask, bits 1..4 the threshold
// trim, bit 5 the test bit. Device order: the host form mirrored on the anti-diagonal with the
// trim bits reversed, as the chip's columns take it. Packed form: four 6-bit pixels in three
// big-endian bytes.

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

namespace ovex::sdk::tpx3 {

inline constexpr std::size_t kMatrixSide = 256;
inline constexpr std::size_t kPixelCount = kMatrixSide * kMatrixSide;
inline constexpr std::size_t kPackedSize = kPixelCount / 4 * 3;
// One 6-byte configuration packet per pixel.
inline constexpr std::size_t kReadbackSize = kPixelCount * 6;
inline constexpr std::uint8_t kPixelBits = 0x3F;

// Host form <-> device order, both of kPixelCount bytes: out[y * 256 + x] is
// in[(255 - x) * 256 + (255 - y)] with bits 1 and 4 and bits 2 and 3 swapped, bits 6 and 7
// dropped. The transform is its own inverse.
void ToDeviceOrder(std::span<const std::uint8_t> in, std::span<std::uint8_t> out) noexcept;

// kPixelCount pixels into kPackedSize bytes, and back.
void Pack(std::span<const std::uint8_t> pixels, std::span<std::uint8_t> packed) noexcept;
void Unpack(std::span<const std::uint8_t> packed, std::span<std::uint8_t> pixels) noexcept;

// The bytes that the chip's double columns take, first byte first: a host-form matrix
// (kPixelCount bytes) in device order and packed, or a packed one (kPackedSize bytes) as it is,
// then reversed end for end. Other sizes give an empty vector.
std::vector<std::uint8_t> MakeDeviceStream(std::span<const std::uint8_t> matrix);

// The configuration packets of a read-back placed at their pixels and brought into host form.
// Pixels without a packet stay 0; packets of other types are skipped.
std::vector<std::uint8_t> DecodeReadback(std::span<const std::uint8_t> readback);

}  // namespace ovex::sdk::tpx3
