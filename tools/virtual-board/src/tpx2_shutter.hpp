#pragma once

// The Timepix2 front end's shutter, as its firmware drives it. TPX_TRIG_SINGLE opens it for
// TPX_SHUT_DUR ticks; TPX_TRIG_CONT opens it for that long again and again, kReadoutGapTicks
// apart (the chip's readout between two exposures), until TPX_TRIG_ABORT. TPX_SHUT_EXT 1 arms
// the trigger input: a rising edge opens the shutter, the next one closes it; TPX_SHUT_EXT 0
// disarms it. TPX_TRIG_ABORT ends whatever runs and drops an open exposure unread, so that no
// frame of a cut length reaches a host that stopped listening. The input is active high unless
// bit 0 of SYNC_IO_ACT_LOW is set. Times are ticks of the board's 40 MHz clock.

#include <cstdint>
#include <optional>
#include <span>
#include <vector>

#include "ovex/vboard/item_tables.hpp"
#include "trigger_input.hpp"

namespace ovex::vboard {

class Tpx2Shutter {
public:
    // 1 ms between the shutters of a continuous run.
    static constexpr std::uint64_t kReadoutGapTicks = 40000;

    struct Closed {
        std::uint64_t open_tick = 0;
        std::uint64_t close_tick = 0;
    };

    // A board without all of the shutter's items has no shutter.
    explicit Tpx2Shutter(const ItemTables& tables);

    bool Present() const { return m_present; }
    // An exposure is open, a run goes on or the input is armed.
    bool Busy() const { return m_run != Run::kNone || m_armed || m_open_tick.has_value(); }
    // The commands that need the chip powered; TPX_SHUT_EXT only to arm.
    bool NeedsChip(std::size_t command, std::span<const std::uint8_t> input) const;

    // The word a command of the shutter's is refused with, kNoError if it may run (power aside).
    std::uint32_t CommandRefusal(std::size_t command, std::span<const std::uint8_t> input,
                                 const std::vector<int>& states) const;
    // A run of timed shutters may start now: kNoError, or why not.
    std::uint32_t StartRefusal(const std::vector<int>& states) const;
    void AfterCommand(std::size_t command, std::span<const std::uint8_t> input, std::uint64_t now);
    // A single shutter, or a continuous run, of TPX_SHUT_DUR ticks from `now`.
    void Start(bool continuous, std::uint64_t now);
    // Ends what runs, dropping an open exposure.
    void Abort();
    // The exposures whose duration ran out by `now`, in order.
    std::vector<Closed> Advance(const std::vector<int>& states, std::uint64_t now);
    // The trigger input goes to `high` at `now`; an exposure that this ended.
    std::optional<Closed> SetInput(bool high, const std::vector<int>& states, std::uint64_t now);
    // The board's reset: nothing runs and the input reads low.
    void PowerOn();

private:
    enum class Run : std::uint8_t { kNone, kSingle, kContinuous };

    bool m_present = false;
    std::size_t m_single;
    std::size_t m_continuous;
    std::size_t m_abort;
    std::size_t m_external;
    std::size_t m_duration;  // state

    Run m_run = Run::kNone;
    bool m_armed = false;
    TriggerInput m_input;
    std::optional<std::uint64_t> m_open_tick;
    std::uint64_t m_next_open = 0;  // of a continuous run between two shutters
};

}  // namespace ovex::vboard
