#pragma once

// The Timepix2 chip sends a frame bit-packed at the depth its mode sets. A descrambler unpacks
// the board's bytes into one 16-bit value per pixel, as counted: no counter code is decoded.
//
// 8 bits: byte i is pixel i. 10 bits: one little-endian bit stream, pixel i in bits 10i to
// 10i + 9. 14 bits: two parts, first the low 10 bits of every value as the 10-bit stream, then
// their high 4 bits, two values a byte, low nibble first; the chip shifts its pixels out in
// reverse order at this depth, so the p-th value is pixel L − 1 − p.

#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>

namespace ovex::sdk::acquisition {

class FrameDescrambler {
public:
    virtual ~FrameDescrambler() = default;
    // Unpacks one received part of a frame into the whole frame `output`. A part that is
    // shorter than the frame needs fills the pixels its whole groups of bytes hold.
    virtual void Descramble(std::span<const std::byte> input, std::span<std::uint16_t> output) = 0;
    virtual std::uint8_t BitsPerPixel() const = 0;
};

class Tpx2Descrambler8Bit final : public FrameDescrambler {
public:
    Tpx2Descrambler8Bit();
    void Descramble(std::span<const std::byte> input, std::span<std::uint16_t> output) override;
    std::uint8_t BitsPerPixel() const override { return 8; }
};

class Tpx2Descrambler10Bit final : public FrameDescrambler {
public:
    Tpx2Descrambler10Bit();
    void Descramble(std::span<const std::byte> input, std::span<std::uint16_t> output) override;
    std::uint8_t BitsPerPixel() const override { return 10; }
};

class Tpx2Descrambler14Bit final : public FrameDescrambler {
public:
    // The two parts of a 256 × 256 frame, told apart by their length; the low part comes first.
    static constexpr std::size_t kLowBitsPart = 0x14000;
    static constexpr std::size_t kHighBitsPart = 0x8000;

    Tpx2Descrambler14Bit();
    // A part of any other length leaves `output` as it is.
    void Descramble(std::span<const std::byte> input, std::span<std::uint16_t> output) override;
    std::uint8_t BitsPerPixel() const override { return 14; }
};

// The descrambler of a pixel depth (0 8 bits, 1 10 bits, 2 14 bits); null for any other.
std::unique_ptr<FrameDescrambler> MakeDescrambler(std::uint8_t depth);

// The bytes a frame of `pixels` takes at `bits_per_pixel`.
constexpr std::uint32_t FrameBytes(std::uint8_t bits_per_pixel, std::uint64_t pixels) noexcept {
    return static_cast<std::uint32_t>(bits_per_pixel * pixels / 8);
}

}  // namespace ovex::sdk::acquisition
