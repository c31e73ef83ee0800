#pragma once

// The Timepix2 chip behind the Timepix2 chip board's and the NoBE's front end, as their firmware
// drives it: 19 DACs with the sense pin on the selected one, the operating mode, the pixel
// memory (one byte a pixel in the host's form) that the host loads through the configuration
// endpoint and reads back as the CONF and TRIM halves on the data endpoint, both with the
// chip's parallel readout control (PRC) bypassed, the FSR registers, and the shutter whose
// exposures the chip reads out as frames into the board's FIFO at the pipeline's depth. The chip
// runs on its rails: while they are off it refuses what talks to it and forgets its memory and
// registers. A board without the chip's items has no chip.

#include <array>
#include <cstdint>
#include <optional>
#include <span>
#include <vector>

#include "hardware_faults.hpp"
#include "ovex/vboard/item_tables.hpp"
#include "timepix_chip.hpp"
#include "tpx2_frame_fifo.hpp"
#include "tpx2_shutter.hpp"

namespace ovex::vboard {

class Tpx2Chip final : public TimepixChip {
public:
    static constexpr std::size_t kPixels = kTpx2Pixels;
    static constexpr std::size_t kHalfMatrixBytes = kPixels / 2;  // CONF or TRIM
    static constexpr std::size_t kFsrBytes = 32;

    // `faults` must outlive the object.
    Tpx2Chip(const ItemTables& tables, const HardwareFaults& faults);

    using TimepixChip::Powered;
    using TimepixChip::Present;

    // The word a command or a state switch of the chip is refused with, kNoError if it may run;
    // other items are no concern of the chip's.
    std::uint32_t CommandRefusal(std::size_t command, std::span<const std::uint8_t> input,
                                 const std::vector<int>& states) const;
    std::uint32_t StateRefusal(std::size_t state, const std::vector<int>& states) const;
    // What a command that ran at `now` (seconds on the board's clock) did.
    void AfterCommand(std::size_t command, std::span<const std::uint8_t> input,
                      std::vector<int>& states, double now);
    void Advance(const std::vector<int>& states, double now);
    void SetTriggerInput(bool high, const std::vector<int>& states, double now);
    // The board's power-on: the chip's, the pipeline at 8 bits, the FIFO empty.
    void PowerOn(std::vector<int>& states);
    // After anything that may switch the back end: a data path that stopped ends the shutter,
    // the load and the read-back; an FPGA that restarted since the last call (`fpga_restarts`
    // moved) lost the FIFO's frames, the pipeline's depth and the data pump.
    void FollowBackEnd(const std::vector<int>& states, std::uint64_t fpga_restarts);
    // The FPGA moves data to and from the host: configured, its GPIF and main clock on.
    bool DataPathUp(const std::vector<int>& states) const { return !DataPathRefusal(states); }

    // The AXI stream start: the FPGA's data pump runs, which the configuration load needs.
    void StartPump(const std::vector<int>& states) { m_pump_started = DataPathUp(states); }

    // The configuration load (the host's conf_matrix_write): from now on the configuration
    // endpoint's data go to the chip's loader, until TPX_WRITE_MATRIX latches them.
    std::uint32_t ArmLoad(const std::vector<int>& states);
    // Bulk OUT data on the configuration endpoint.
    void TakeConfiguration(std::span<const std::uint8_t> data);
    // A single shutter, or a continuous run, of `ticks` at `now`, as the front end's triggers
    // run them (TPX_SHUT_DUR becomes `ticks`).
    std::uint32_t Acquire(bool continuous, std::uint32_t ticks, std::vector<int>& states,
                          double now);
    void AbortAcquisition() { m_shutter.Abort(); }
    // The FSR registers; empty while the chip is unpowered.
    std::optional<std::array<std::uint8_t, kFsrBytes>> Fsr(const std::vector<int>& states) const;
    std::uint32_t WriteFsr(std::span<const std::uint8_t> data, const std::vector<int>& states);

    Tpx2FrameFifo& Frames() { return m_frames; }
    const Tpx2FrameFifo& Frames() const { return m_frames; }
    // The pixel memory in the host's form, as loaded.
    const std::vector<std::uint8_t>& Matrix() const { return m_matrix; }

private:
    // Its rails went off, or its reset: memory, registers and exposure go; the DACs only with
    // the rails.
    void Reset();
    void Clear(std::vector<int>& states) override;
    // TPX_DAC_SELECT's, kept by the chip.
    int SelectedDac(const std::vector<int>& /*states*/) const override { return m_selected; }
    // The memory as the pixels hold it: the matrix loaded, with the stuck pixels' bits.
    std::vector<std::uint8_t> PixelBytes() const;
    std::vector<std::uint8_t> ReadBack(std::uint8_t half) const;
    void ReadOutFrame(const Tpx2Shutter::Closed& exposure);
    // Why the FPGA can't move data now (GPIF off: not configured; the clock off: not started),
    // kNoError if it can.
    std::uint32_t DataPathRefusal(const std::vector<int>& states) const;
    // A shutter may start now: the data path up, and the PRC in the frames' path.
    std::uint32_t ShutterStartRefusal(const std::vector<int>& states) const;

    std::size_t m_bypass;
    std::size_t m_write;
    std::size_t m_read;
    std::size_t m_opmode;
    std::size_t m_select;
    std::size_t m_depth;
    std::size_t m_duration;
    std::size_t m_gpif = kNoItem;
    std::size_t m_clock = kNoItem;

    std::vector<std::uint8_t> m_matrix;
    bool m_bypassed = false;
    bool m_load_armed = false;
    bool m_pump_started = false;  // by the AXI stream start, until the data path stops
    bool m_data_path_was_up = false;
    std::uint64_t m_fpga_restarts = 0;  // as last seen
    std::vector<std::uint8_t> m_load;   // what came while armed, up to a matrix
    std::size_t m_load_bytes = 0;       // all that came while armed
    std::uint8_t m_mode;
    std::uint8_t m_selected = 0;  // the DAC on the sense pin, 0 none
    Tpx2Depth m_pipeline_depth = Tpx2Depth::k8Bit;
    std::array<std::uint8_t, kFsrBytes> m_fsr{};
    Tpx2Shutter m_shutter;
    Tpx2FrameFifo m_frames;
};

}  // namespace ovex::vboard
