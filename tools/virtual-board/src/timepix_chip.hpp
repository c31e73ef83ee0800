#pragma once

// What the Timepix chip models share: the items they hang on (the chip's resets, its DACs, the
// rails it runs on, the commands refused while it is unpowered), the sense pin that carries the
// selected DAC's output, the read-back that waits for the data endpoint, and the chip forgetting
// what it held when its rails go off. Each chip says what it forgets and which DAC is on the
// pin; a chip whose DACs aren't all on the board isn't there.

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <utility>
#include <vector>

#include "dac_sense.hpp"
#include "frame_exposure.hpp"
#include "hardware_faults.hpp"
#include "item_ids.hpp"
#include "ovex/vboard/item_tables.hpp"

namespace ovex::vboard {

class TimepixChip {
public:
    // The sense pin in millivolts if `state` is the chip's reading, in volts if `monitor` is
    // (a board may have no monitor of it).
    std::optional<int> StateReading(std::size_t state, const std::vector<int>& states) const {
        if (!Present() || state != m_sense_state) {
            return std::nullopt;
        }
        return SenseMillivolts(states);
    }
    std::optional<float> MonitorReading(std::size_t monitor, const std::vector<int>& states) const {
        if (!Present() || m_sense_monitor == kNoItem || monitor != m_sense_monitor) {
            return std::nullopt;
        }
        return static_cast<float>(SenseMillivolts(states)) / 1000.0F;
    }

    // After anything that may switch the chip's rails: a chip whose rails went off forgets what
    // it held (Clear) and comes back as at power-on.
    void FollowSupply(std::vector<int>& states) {
        if (!Present()) {
            return;
        }
        const bool powered = Powered(states);
        if (m_was_powered && !powered) {
            Clear(states);
        }
        m_was_powered = powered;
    }

    // Moves the pending read-back into `out`; the bytes moved.
    std::size_t ReadOut(std::span<std::uint8_t> out) {
        const std::size_t count = std::min(out.size(), m_readout.size() - m_readout_sent);
        std::copy_n(m_readout.begin() + static_cast<std::ptrdiff_t>(m_readout_sent), count,
                    out.begin());
        m_readout_sent += count;
        if (m_readout_sent == m_readout.size()) {
            DropReadBack();
        }
        return count;
    }

protected:
    // `faults` must outlive the object.
    TimepixChip(const ItemTables& tables, const HardwareFaults& faults)
        : m_faults(&faults),
          m_states(tables.states),
          m_init(ItemIdOr(tables.commands, "TPX_INIT")),
          m_default_dac(ItemIdOr(tables.commands, "TPX_DEFAULT_DAC")),
          m_sense_state(ItemIdOr(tables.states, "TPX_DAC_OUT")),
          m_sense_monitor(ItemIdOr(tables.monitors, "TPX_DAC_OUT")) {}
    TimepixChip(const TimepixChip&) = default;
    TimepixChip(TimepixChip&&) = default;
    TimepixChip& operator=(const TimepixChip&) = default;
    TimepixChip& operator=(TimepixChip&&) = default;
    ~TimepixChip() = default;

    // The chip's rails went off, or it came to power-on: what it forgets.
    virtual void Clear(std::vector<int>& states) = 0;
    // The DAC on the sense pin by DAC id (1 the first); any other number puts none on it.
    virtual int SelectedDac(const std::vector<int>& states) const = 0;

    bool Present() const { return !m_dacs.empty(); }
    bool Powered(const std::vector<int>& states) const {
        return std::all_of(m_supply.begin(), m_supply.end(),
                           [&](std::size_t id) { return states[id] != 0; });
    }
    // The board's power-on: the rails as they are now are the ones FollowSupply compares with.
    void NotePowerOn(const std::vector<int>& states) {
        m_was_powered = Present() && Powered(states);
    }
    // The DACs back at their power-on values.
    void DefaultDacs(std::vector<int>& states) const {
        for (const std::size_t id : m_dacs) {
            states[id] = m_states[id].value;
        }
    }
    int SenseMillivolts(const std::vector<int>& states) const {
        const int selected = SelectedDac(states);
        if (!Powered(states) || selected < 1 ||
            static_cast<std::size_t>(selected) > m_dacs.size()) {
            return 0;
        }
        const std::size_t dac = m_dacs[static_cast<std::size_t>(selected) - 1];
        return vboard::SenseMillivolts(m_states[dac], states[dac]);
    }

    // The read-back: `bytes` wait for ReadOut until all went, or until dropped.
    void StartReadBack(std::vector<std::uint8_t> bytes) {
        m_readout = std::move(bytes);
        m_readout_sent = 0;
    }
    bool ReadBackPending() const { return m_readout_sent < m_readout.size(); }
    void DropReadBack() {
        m_readout.clear();
        m_readout_sent = 0;
    }

    static bool Contains(const std::vector<std::size_t>& ids, std::size_t id) {
        return std::find(ids.begin(), ids.end(), id) != ids.end();
    }
    // Seconds on the board's clock in its 40 MHz ticks.
    static std::uint64_t Ticks(double seconds) {
        return static_cast<std::uint64_t>(std::llround(seconds * kTicksPerSecond));
    }

    const HardwareFaults* m_faults;
    std::vector<StateItem> m_states;           // power-on values and limits by id
    std::vector<std::size_t> m_supply;         // enables of the chip's rails
    std::vector<std::size_t> m_dacs;           // DAC states by DAC id − 1; empty: no chip
    std::vector<std::size_t> m_chip_commands;  // refused while the chip is unpowered
    std::size_t m_init;
    std::size_t m_default_dac;
    std::size_t m_sense_state;
    std::size_t m_sense_monitor;  // a board may have none

private:
    bool m_was_powered = false;
    std::vector<std::uint8_t> m_readout;
    std::size_t m_readout_sent = 0;
};

}  // namespace ovex::vboard
