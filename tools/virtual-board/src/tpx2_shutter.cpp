#include "tpx2_shutter.hpp"

#include <algorithm>
#include <array>

#include "item_ids.hpp"
#include "ovex/vboard/error_words.hpp"

namespace ovex::vboard {

Tpx2Shutter::Tpx2Shutter(const ItemTables& tables)
    : m_single(ItemIdOr(tables.commands, "TPX_TRIG_SINGLE")),
      m_continuous(ItemIdOr(tables.commands, "TPX_TRIG_CONT")),
      m_abort(ItemIdOr(tables.commands, "TPX_TRIG_ABORT")),
      m_external(ItemIdOr(tables.commands, "TPX_SHUT_EXT")),
      m_duration(ItemIdOr(tables.states, "TPX_SHUT_DUR")),
      m_input(tables) {
    const std::array ids = {m_single, m_continuous, m_abort, m_external, m_duration};
    m_present = std::none_of(ids.begin(), ids.end(), [](std::size_t id) { return id == kNoItem; });
}

bool Tpx2Shutter::NeedsChip(std::size_t command, std::span<const std::uint8_t> input) const {
    // Stopping works whatever the chip's power: a host that repeats a failed stop would never
    // get out.
    const bool arming = command == m_external && !(input.size() == 1 && input[0] == 0);
    return m_present && (command == m_single || command == m_continuous || arming);
}

std::uint32_t Tpx2Shutter::CommandRefusal(std::size_t command, std::span<const std::uint8_t> input,
                                          const std::vector<int>& states) const {
    if (!m_present) {
        return kNoError;
    }
    if (command == m_single || command == m_continuous || command == m_abort) {
        if (!input.empty()) {
            return kBadArgument;
        }
        return command == m_abort ? kNoError : StartRefusal(states);
    }
    if (command == m_external) {
        if (input.size() != 1 || input[0] > 1) {
            return kBadArgument;
        }
        // The input can't take over a shutter that the host runs.
        const bool internal = m_run != Run::kNone || (m_open_tick && !m_armed);
        return input[0] == 1 && internal ? kChipBusy : kNoError;
    }
    return kNoError;
}

std::uint32_t Tpx2Shutter::StartRefusal(const std::vector<int>& states) const {
    if (Busy()) {
        return kChipBusy;
    }
    return ShutterTicks(states, m_duration) == 0 ? kNotConfigured : kNoError;
}

void Tpx2Shutter::AfterCommand(std::size_t command, std::span<const std::uint8_t> input,
                               std::uint64_t now) {
    if (!m_present) {
        return;
    }
    if (command == m_single || command == m_continuous) {
        Start(command == m_continuous, now);
    } else if (command == m_abort) {
        Abort();
    } else if (command == m_external) {
        m_armed = input[0] == 1;
    }
}

void Tpx2Shutter::Start(bool continuous, std::uint64_t now) {
    m_run = continuous ? Run::kContinuous : Run::kSingle;
    m_open_tick = now;
}

void Tpx2Shutter::Abort() {
    m_run = Run::kNone;
    m_armed = false;
    m_open_tick.reset();
}

std::vector<Tpx2Shutter::Closed> Tpx2Shutter::Advance(const std::vector<int>& states,
                                                      std::uint64_t now) {
    // The duration counter compares with TPX_SHUT_DUR as it stands; 0 never ends a shutter.
    std::vector<Closed> closed;
    const std::uint64_t duration = ShutterTicks(states, m_duration);
    while (m_run != Run::kNone && duration != 0) {
        if (!m_open_tick) {
            if (m_next_open > now) {
                break;
            }
            m_open_tick = m_next_open;
        }
        const std::uint64_t end = *m_open_tick + duration;
        if (end > now) {
            break;
        }
        closed.push_back({*m_open_tick, end});
        m_open_tick.reset();
        if (m_run == Run::kSingle) {
            m_run = Run::kNone;
        } else {
            m_next_open = end + kReadoutGapTicks;
        }
    }
    return closed;
}

std::optional<Tpx2Shutter::Closed> Tpx2Shutter::SetInput(bool high, const std::vector<int>& states,
                                                         std::uint64_t now) {
    if (!m_input.Set(high, states).rising || !m_armed) {
        return std::nullopt;
    }
    if (m_open_tick) {
        const Closed exposure{*m_open_tick, now};
        m_open_tick.reset();
        return exposure;
    }
    m_open_tick = now;
    return std::nullopt;
}

void Tpx2Shutter::PowerOn() {
    Abort();
    m_input.Reset();
}

}  // namespace ovex::vboard
