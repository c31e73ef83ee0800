#include "tpx3_shutter.hpp"

#include <algorithm>
#include <array>

#include "item_ids.hpp"
#include "ovex/vboard/error_words.hpp"

// ITEMS.md gives the shutter's refusals and the choices behind them.

namespace ovex::vboard {

Tpx3Shutter::Tpx3Shutter(const ItemTables& tables)
    : m_immediate(ItemIdOr(tables.commands, "TPX_SHUT_IMM")),
      m_stop(ItemIdOr(tables.commands, "TPX_SHUT_STOP")),
      m_external(ItemIdOr(tables.commands, "TPX_SHUT_EXT")),
      m_sync(ItemIdOr(tables.commands, "TPX_T0_SYNC")),
      m_duration(ItemIdOr(tables.states, "TPX_SHUT_DUR")),
      m_pulse_input(ItemIdOr(tables.commands, "TRIG_I_1PULSE")),
      m_level_input(ItemIdOr(tables.commands, "TRIG_I_LEVEL")),
      m_edge_input(ItemIdOr(tables.commands, "TRIG_I_EDGE")),
      m_input(tables) {
    const std::array ids = {m_immediate, m_stop,        m_external,    m_sync,
                            m_duration,  m_pulse_input, m_level_input, m_edge_input};
    m_present = std::none_of(ids.begin(), ids.end(), [](std::size_t id) { return id == kNoItem; });
}

std::vector<std::size_t> Tpx3Shutter::ChipCommands() const {
    // TPX_SHUT_STOP runs whatever the chip's power: an unpowered chip has nothing open, and a
    // host that repeats a failed stop would never get out.
    if (!m_present) {
        return {};
    }
    return {m_immediate, m_external, m_sync};
}

std::uint32_t Tpx3Shutter::CommandRefusal(std::size_t command,
                                          std::span<const std::uint8_t> input) const {
    if (!m_present) {
        return kNoError;
    }
    const bool mine =
        command == m_immediate || command == m_stop || command == m_external || command == m_sync;
    if (!mine) {
        return kNoError;
    }
    if (!input.empty()) {
        return kBadArgument;  // none of them takes an argument
    }
    if ((command == m_immediate || command == m_external) && IsOpen()) {
        return kChipBusy;  // an exposure is under way: stop it first
    }
    if (command == m_external && m_wiring == Input::kNone) {
        return kNotConfigured;  // no TRIG_I_* said what the input means
    }
    return kNoError;
}

std::optional<Tpx3Shutter::Closed> Tpx3Shutter::AfterCommand(std::size_t command,
                                                             std::uint64_t now) {
    if (!m_present) {
        return std::nullopt;
    }
    if (command == m_pulse_input) {
        m_wiring = Input::kPulse;
    } else if (command == m_level_input) {
        m_wiring = Input::kLevel;
    } else if (command == m_edge_input) {
        m_wiring = Input::kEdge;
    } else if (command == m_immediate) {
        m_armed = Input::kNone;  // the host takes the shutter over from the input
        Open(now, true);
    } else if (command == m_external) {
        m_armed = m_wiring;
        if (m_armed == Input::kLevel && m_input.Active()) {
            Open(now, false);  // the level is already there
        }
    } else if (command == m_sync) {
        m_toa_origin = now;
    } else if (command == m_stop) {
        m_armed = Input::kNone;
        if (IsOpen()) {
            return Close(now);
        }
    }
    return std::nullopt;
}

std::optional<Tpx3Shutter::Closed> Tpx3Shutter::Advance(const std::vector<int>& states,
                                                        std::uint64_t now) {
    // The duration counter compares with TPX_SHUT_DUR as it stands, not as it stood at the
    // opening: a host that arms the input before it writes the duration still gets its length.
    if (!IsOpen() || !m_timed) {
        return std::nullopt;
    }
    const std::uint32_t duration = ShutterTicks(states, m_duration);
    if (duration != 0 && *m_open_tick + duration <= now) {
        return Close(*m_open_tick + duration);
    }
    return std::nullopt;
}

std::optional<Tpx3Shutter::Closed> Tpx3Shutter::SetInput(bool high, const std::vector<int>& states,
                                                         std::uint64_t now) {
    const auto [rising, falling] = m_input.Set(high, states);
    switch (m_armed) {
        case Input::kPulse:
            if (rising && !IsOpen()) {
                Open(now, true);
            }
            break;
        case Input::kLevel:
            if (rising && !IsOpen()) {
                Open(now, false);
            } else if (falling && IsOpen()) {
                return Close(now);
            }
            break;
        case Input::kEdge:
            if (rising) {
                if (IsOpen()) {
                    return Close(now);
                }
                Open(now, false);
            }
            break;
        case Input::kNone:
            break;
    }
    return std::nullopt;
}

void Tpx3Shutter::Stop() {
    m_armed = Input::kNone;
    m_open_tick.reset();
}

void Tpx3Shutter::PowerOn() {
    Stop();
    m_wiring = Input::kNone;
}

void Tpx3Shutter::Open(std::uint64_t now, bool timed) {
    m_open_tick = now;
    m_timed = timed;
}

Tpx3Shutter::Closed Tpx3Shutter::Close(std::uint64_t at) {
    const std::uint64_t open = *m_open_tick;
    m_open_tick.reset();
    // The ToA clock counts from its last sync; a sync during the exposure puts the opening
    // before its 0, where the clock's counter wrapped.
    return {open, at, open - m_toa_origin, at - m_toa_origin};
}

}  // namespace ovex::vboard
