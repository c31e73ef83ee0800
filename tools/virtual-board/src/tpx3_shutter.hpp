#pragma once

// The Timepix3 chip's shutter and its time-of-arrival clock, as the front end's firmware drives
// them. The host opens the shutter itself (TPX_SHUT_IMM) or arms it (TPX_SHUT_EXT) for the
// board's trigger input, wired by the back end's last TRIG_I_* command:
// - TRIG_I_1PULSE (the host's type 3): a rising edge opens it for TPX_SHUT_DUR ticks;
// - TRIG_I_LEVEL (type 4): it is open while the input is high;
// - TRIG_I_EDGE (type 5): a rising edge opens it, the next one closes it.
// TPX_SHUT_DUR 0 keeps a shutter that the duration would close open until TPX_SHUT_STOP. An armed
// shutter stays armed over its exposures until TPX_SHUT_STOP, which also closes an open one.
// TPX_T0_SYNC sets the ToA clock to 0. The input is active high unless bit 0 of SYNC_IO_ACT_LOW
// is set. Times are ticks of the board's 40 MHz clock.

#include <cstdint>
#include <optional>
#include <span>
#include <vector>

#include "ovex/vboard/item_tables.hpp"
#include "trigger_input.hpp"

namespace ovex::vboard {

class Tpx3Shutter {
public:
    // An exposure that ended: on the board's clock, and its opening on the chip's ToA clock.
    struct Closed {
        std::uint64_t open_tick = 0;
        std::uint64_t close_tick = 0;
        std::uint64_t open_toa = 0;
        std::uint64_t close_toa = 0;
    };

    // A board without all of the shutter's items has no shutter: it ignores everything.
    explicit Tpx3Shutter(const ItemTables& tables);

    bool Present() const { return m_present; }
    bool IsOpen() const { return m_open_tick.has_value(); }
    // The board tick the open shutter opened at.
    std::optional<std::uint64_t> OpenTick() const { return m_open_tick; }
    // The chip's ToA clock at board tick `tick`: ticks since its last sync.
    std::uint64_t ToaAt(std::uint64_t tick) const { return tick - m_toa_origin; }
    // TPX_SHUT_IMM and TPX_SHUT_EXT: the commands that lead to an exposure and its frame.
    bool StartsExposure(std::size_t command) const {
        return m_present && (command == m_immediate || command == m_external);
    }
    // The commands that need the chip powered.
    std::vector<std::size_t> ChipCommands() const;

    // The word a command of the shutter's is refused with, kNoError if it may run (power aside).
    std::uint32_t CommandRefusal(std::size_t command, std::span<const std::uint8_t> input) const;
    // What a command that ran did, at `now`; an exposure it ended.
    std::optional<Closed> AfterCommand(std::size_t command, std::uint64_t now);
    // The board's clock moved on to `now`: an exposure whose duration ran out by then, closed
    // at its end.
    std::optional<Closed> Advance(const std::vector<int>& states, std::uint64_t now);
    // The trigger input goes to `high` at `now`; an exposure that this ended.
    std::optional<Closed> SetInput(bool high, const std::vector<int>& states, std::uint64_t now);

    // The chip lost its power or was reset: nothing open, nothing armed.
    void Stop();
    // The board's reset: the trigger input's wiring is forgotten too.
    void PowerOn();

private:
    enum class Input : std::uint8_t { kNone, kPulse, kLevel, kEdge };

    // `timed`: TPX_SHUT_DUR closes it, unless 0.
    void Open(std::uint64_t now, bool timed);
    Closed Close(std::uint64_t at);

    bool m_present = false;
    std::size_t m_immediate;
    std::size_t m_stop;
    std::size_t m_external;
    std::size_t m_sync;
    std::size_t m_duration;  // state
    std::size_t m_pulse_input;
    std::size_t m_level_input;
    std::size_t m_edge_input;

    Input m_wiring = Input::kNone;  // the back end's last choice
    Input m_armed = Input::kNone;   // the external shutter, as armed
    TriggerInput m_input;
    std::optional<std::uint64_t> m_open_tick;
    bool m_timed = false;            // TPX_SHUT_DUR closes the open shutter
    std::uint64_t m_toa_origin = 0;  // the board tick of the ToA clock's 0
};

}  // namespace ovex::vboard
