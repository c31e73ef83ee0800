#pragma once

// The Timepix3 chip behind the front end, as its firmware drives it: bias DACs with the sense pin
// on one of them, polarity and operating mode, the pixel configuration memory that the host fills
// double column by double column and reads back as configuration packets on the data endpoint,
// the shutter with its exposures, which the chip reads out as frames into the board's FIFO on the
// data endpoint or, in the data-driven mode, streams hit by hit while the shutter is open, and
// the chip's resets. The chip runs on its own rails: while they are off it
// answers nothing and forgets its memory and registers. A board without the chip's items has no
// chip.

#include <cstdint>
#include <optional>
#include <span>
#include <vector>

#include "frame_fifo.hpp"
#include "hardware_faults.hpp"
#include "hit_stream.hpp"
#include "ovex/vboard/item_tables.hpp"
#include "timepix_chip.hpp"
#include "tpx3_shutter.hpp"

namespace ovex::vboard {

class Tpx3Chip final : public TimepixChip {
public:
    // Packed pixel configuration: four 6-bit pixels in three bytes, 65536 pixels.
    static constexpr std::size_t kMatrixBytes = 49152;
    static constexpr std::size_t kDoubleColumnBytes = 384;
    static constexpr std::size_t kPacketBytes = 6;
    static constexpr std::size_t kPixels = 65536;
    static constexpr std::uint8_t kPixelBits = 63;

    // `faults` must outlive the object.
    Tpx3Chip(const ItemTables& tables, const HardwareFaults& faults);

    // The word a command or a state switch of the chip is refused with, kNoError if it may run;
    // other items are no concern of the chip's.
    std::uint32_t CommandRefusal(std::size_t command, std::span<const std::uint8_t> input,
                                 const std::vector<int>& states) const;
    std::uint32_t StateRefusal(std::size_t state, const std::vector<int>& states) const;

    // What a command that ran at `now` (seconds on the board's clock) did to the chip and its
    // states.
    void AfterCommand(std::size_t command, std::span<const std::uint8_t> input,
                      std::vector<int>& states, double now);
    // The board's clock moved on to `now`: a shutter whose time ran out closes.
    void Advance(const std::vector<int>& states, double now);
    // The board's trigger input goes to `high` at `now`.
    void SetTriggerInput(bool high, const std::vector<int>& states, double now);
    // The board's power-on: memory cleared, no write or read-back under way, registers at their
    // defaults, the shutter closed and no frame waiting; the trigger input unwired.
    void PowerOn(std::vector<int>& states);

    // The frames read out, for the data endpoint and the test bed.
    FrameFifo& Frames() { return m_frames; }
    const FrameFifo& Frames() const { return m_frames; }
    // The data-driven stream, likewise.
    Tpx3HitStream& Hits() { return m_hits; }
    const Tpx3HitStream& Hits() const { return m_hits; }

    // Pixel k's six configuration bits in packed bytes in the order the chip's columns take
    // them (k in the chip's own order).
    static std::uint8_t PixelBits(const std::vector<std::uint8_t>& stream, std::size_t k);

    // The configuration bytes as the chip holds them, in the order they came.
    const std::vector<std::uint8_t>& Matrix() const { return m_matrix; }

private:
    // The chip's rails went off, or its reset: its memory, registers and exposure go; the frames
    // already in the back end's FIFO stay.
    void Clear(std::vector<int>& states) override;
    // TPX_DAC_SELECT's value.
    int SelectedDac(const std::vector<int>& states) const override { return states[m_select]; }
    // What the shutter just did, `closed` an exposure it ended: a frame read out, or a
    // data-driven line ended; a new opening starts a line in the data-driven mode.
    void FollowShutter(bool was_open, const std::optional<Tpx3Shutter::Closed>& closed);
    // The frame of an exposure that ended, in the mode the chip is in.
    void ReadOutFrame(const Tpx3Shutter::Closed& exposure);
    // A non-zero byte for every host pixel that bit 0 of its configuration masks.
    std::vector<std::uint8_t> MaskedPixels() const;
    // Every pixel as a configuration packet, in the chip's pixel order.
    // The six configuration bits of each pixel in device order, as the pixels hold them: the
    // matrix loaded, with the stuck pixels' bits.
    std::vector<std::uint8_t> PixelConfiguration() const;
    std::vector<std::uint8_t> ReadBack() const;

    std::vector<std::size_t> m_chip_states;  // switched only while the chip is powered
    std::size_t m_load;
    std::size_t m_read;
    std::size_t m_opmode;
    std::size_t m_channels;
    std::size_t m_polarity;
    std::size_t m_select;

    std::vector<std::uint8_t> m_matrix;
    std::optional<std::size_t> m_next_column;  // set once a write started
    std::uint8_t m_mode = 0;                   // TPX_OPMODE
    Tpx3Shutter m_shutter;
    bool m_input_high = false;  // the trigger input, as wired
    FrameFifo m_frames;
    Tpx3HitStream m_hits;
};

}  // namespace ovex::vboard
