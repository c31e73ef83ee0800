#pragma once

// What the Timepix shutters share: the board's trigger input as they see it, active high unless
// bit 0 of SYNC_IO_ACT_LOW is set (a board without that state has an active-high input), with
// its edges those of the active level, judged as the input changes; and TPX_SHUT_DUR as their
// duration counters read it.

#include <cstddef>
#include <cstdint>
#include <vector>

#include "item_ids.hpp"
#include "ovex/vboard/item_tables.hpp"

namespace ovex::vboard {

class TriggerInput {
public:
    struct Edge {
        bool rising = false;
        bool falling = false;
    };

    explicit TriggerInput(const ItemTables& tables)
        : m_polarity(ItemIdOr(tables.states, "SYNC_IO_ACT_LOW")) {}

    // The input goes to `high`: the edge of the active level that makes, if any.
    Edge Set(bool high, const std::vector<int>& states) {
        const bool active_low = m_polarity != kNoItem && (states[m_polarity] & 1) != 0;
        const bool active = high != active_low;
        const Edge edge{.rising = active && !m_active, .falling = !active && m_active};
        m_active = active;
        return edge;
    }
    bool Active() const { return m_active; }
    // The board's reset: the input reads inactive.
    void Reset() { m_active = false; }

private:
    std::size_t m_polarity;  // state
    bool m_active = false;
};

// The duration in ticks that TPX_SHUT_DUR (state `duration`) holds: the host writes the low 32
// bits of its tick count into the signed state.
inline std::uint32_t ShutterTicks(const std::vector<int>& states, std::size_t duration) {
    return static_cast<std::uint32_t>(states[duration]);
}

}  // namespace ovex::vboard
