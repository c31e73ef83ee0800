#pragma once

// The four item lists a board publishes: commands to invoke, versions to read, states to get
// and set within their limits, monitors to read. An item's id is its place in its list.

#include <cstdint>
#include <span>
#include <string_view>
#include <vector>

#include "ovex/vboard/firmware_model.hpp"
#include "ovex/vboard/item_tables.hpp"

namespace ovex::vboard {

class ItemRequests {
public:
    explicit ItemRequests(ItemTables tables);

    const ItemTables& Tables() const { return m_tables; }

    ControlReply Command(const SetupPacket& setup, std::span<const std::uint8_t> out);
    ControlReply Version(const SetupPacket& setup, std::span<const std::uint8_t> out) const;
    ControlReply State(const SetupPacket& setup, std::span<const std::uint8_t> out);
    ControlReply Monitor(const SetupPacket& setup, std::span<const std::uint8_t> out) const;

    // States back to their power-on values; monitors keep measuring what they measure.
    void PowerOn();

    // By name, the first item of that name; std::out_of_range for an unknown one.
    void SetMonitorValue(std::string_view name, float value);
    int StateValue(std::string_view name) const;
    std::vector<std::vector<std::uint8_t>> Invocations(std::string_view name) const;

private:
    const ItemTables m_tables;
    std::vector<int> m_states;                                          // current value by id
    std::vector<float> m_monitors;                                      // current value by id
    std::vector<std::vector<std::vector<std::uint8_t>>> m_invocations;  // inputs by command id
};

}  // namespace ovex::vboard
