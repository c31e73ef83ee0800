#include "item_requests.hpp"

#include <algorithm>
#include <stdexcept>
#include <string>

#include "request_shape.hpp"
#include "wire_format.hpp"

namespace ovex::vboard {
namespace {

// Sub-functions in wValue, shared by all lists up to 1.
enum SubFunction : std::uint16_t {
    kCount = 0,
    kName = 1,
    kInvokeOrGet = 2,  // command invoke, version value, state get, monitor value
    kStateSet = 3,
    kStateLimits = 4,
    kMonitorRange = 3,
};

template <class Item>
bool HasId(const std::vector<Item>& items, std::uint16_t id) {
    return id < items.size();
}

// Count and name, which every list answers alike; nullopt for the other sub-functions.
template <class Item>
std::optional<ControlReply> CountOrName(const SetupPacket& setup, std::span<const std::uint8_t> out,
                                        const std::vector<Item>& items) {
    if (setup.wValue == kCount) {
        if (const auto error = CheckShape(setup, out, Direction::kIn, 4)) {
            return ControlReply::Stall(error);
        }
        return ControlReply::Answer(wire::U32(static_cast<std::uint32_t>(items.size())));
    }
    if (setup.wValue == kName) {
        if (const auto error = CheckShape(setup, out, Direction::kIn, wire::kTextFieldSize)) {
            return ControlReply::Stall(error);
        }
        if (!HasId(items, setup.wIndex)) {
            return ControlReply::Stall(kBadIndex);
        }
        return ControlReply::Answer(
            wire::TextField(items[setup.wIndex].name, wire::kTextFieldSize));
    }
    return std::nullopt;
}

template <class Item>
std::size_t IdOf(const std::vector<Item>& items, std::string_view name, const char* kind) {
    if (const auto id = FindItem(items, name)) {
        return *id;
    }
    throw std::out_of_range(std::string(kind) + " '" + std::string(name) +
                            "' is not on this board.");
}

}  // namespace

ItemRequests::ItemRequests(ItemTables tables, const HardwareFaults& faults)
    : m_tables(std::move(tables)),
      m_power(m_tables, faults),
      m_chip(m_tables, faults),
      m_tpx2(m_tables, faults),
      m_flash(m_tables),
      m_physics(m_tables),
      m_pinned(m_tables.monitors.size(), false),
      m_invocations(m_tables.commands.size()) {
    for (const MonitorItem& monitor : m_tables.monitors) {
        m_monitors.push_back(monitor.value);
    }
    PowerOn();
}

void ItemRequests::PowerOn() {
    m_states.clear();
    for (const StateItem& state : m_tables.states) {
        m_states.push_back(state.value);
    }
    m_power.PowerOn();
    m_chip.PowerOn(m_states);
    m_tpx2.PowerOn(m_states);
    m_flash.PowerOn();
    m_physics.PowerOn();
}

void ItemRequests::Advance(double seconds) {
    m_physics.Advance(seconds, m_states);
    m_chip.Advance(m_states, BoardTime());
    m_tpx2.Advance(m_states, BoardTime());
}

ControlReply ItemRequests::Command(const SetupPacket& setup, std::span<const std::uint8_t> out) {
    if (auto reply = CountOrName(setup, out, m_tables.commands)) {
        return *std::move(reply);
    }
    if (setup.wValue != kInvokeOrGet) {
        return ControlReply::Stall(kNotSupported);
    }
    if (!HasId(m_tables.commands, setup.wIndex)) {
        return ControlReply::Stall(kBadIndex);
    }
    const CommandItem& command = m_tables.commands[setup.wIndex];
    // The output must fit the host's buffer; a larger buffer gets a short answer.
    if (setup.IsIn() && setup.wLength < command.answer.size()) {
        return ControlReply::Stall(kBadArgument);
    }
    if (const auto refusal = m_power.CommandRefusal(setup.wIndex, out, m_states)) {
        return ControlReply::Stall(refusal);
    }
    if (const auto refusal = m_chip.CommandRefusal(setup.wIndex, out, m_states)) {
        return ControlReply::Stall(refusal);
    }
    if (const auto refusal = m_tpx2.CommandRefusal(setup.wIndex, out, m_states)) {
        return ControlReply::Stall(refusal);
    }
    const std::size_t answer_room = setup.IsIn() ? setup.wLength : 0;
    if (const auto refusal = m_flash.CommandRefusal(setup.wIndex, out, answer_room)) {
        return ControlReply::Stall(refusal);
    }
    m_invocations[setup.wIndex].emplace_back(out.begin(), out.end());
    m_power.AfterCommand(setup.wIndex, out, m_states);
    m_chip.AfterCommand(setup.wIndex, out, m_states, BoardTime());
    m_chip.FollowSupply(m_states);
    m_tpx2.AfterCommand(setup.wIndex, out, m_states, BoardTime());
    m_tpx2.FollowSupply(m_states);
    m_tpx2.FollowBackEnd(m_states, m_power.FpgaRestarts());
    auto flash_answer = m_flash.AfterCommand(setup.wIndex, out);
    if (!setup.IsIn()) {
        return ControlReply::Answer();
    }
    return ControlReply::Answer(flash_answer ? *std::move(flash_answer) : command.answer);
}

ControlReply ItemRequests::Version(const SetupPacket& setup,
                                   std::span<const std::uint8_t> out) const {
    if (auto reply = CountOrName(setup, out, m_tables.versions)) {
        return *std::move(reply);
    }
    if (setup.wValue != kInvokeOrGet) {
        return ControlReply::Stall(kNotSupported);
    }
    if (const auto error = CheckShape(setup, out, Direction::kIn, wire::kTextFieldSize)) {
        return ControlReply::Stall(error);
    }
    if (!HasId(m_tables.versions, setup.wIndex)) {
        return ControlReply::Stall(kBadIndex);
    }
    return ControlReply::Answer(
        wire::TextField(m_tables.versions[setup.wIndex].value, wire::kTextFieldSize));
}

ControlReply ItemRequests::State(const SetupPacket& setup, std::span<const std::uint8_t> out) {
    if (auto reply = CountOrName(setup, out, m_tables.states)) {
        return *std::move(reply);
    }
    std::uint32_t error = kNotSupported;
    switch (setup.wValue) {
        case kInvokeOrGet:
            error = CheckShape(setup, out, Direction::kIn, 4);
            break;
        case kStateSet:
            error = CheckShape(setup, out, Direction::kOut, 4);
            break;
        case kStateLimits:
            error = CheckShape(setup, out, Direction::kIn, 8);
            break;
        default:
            break;
    }
    if (error != kNoError) {
        return ControlReply::Stall(error);
    }
    if (!HasId(m_tables.states, setup.wIndex)) {
        return ControlReply::Stall(kBadIndex);
    }
    const StateItem& state = m_tables.states[setup.wIndex];
    std::vector<std::uint8_t> answer;
    if (setup.wValue == kInvokeOrGet) {
        const auto reading = m_chip.StateReading(setup.wIndex, m_states);
        wire::PutI32(
            answer,
            reading ? *reading
                    : m_tpx2.StateReading(setup.wIndex, m_states).value_or(m_states[setup.wIndex]));
    } else if (setup.wValue == kStateLimits) {
        wire::PutI32(answer, state.min);
        wire::PutI32(answer, state.max);
    } else if (const auto refusal = SetState(setup.wIndex, static_cast<int>(wire::GetU32(out)))) {
        return ControlReply::Stall(refusal);
    }
    return ControlReply::Answer(std::move(answer));
}

std::uint32_t ItemRequests::SetState(std::size_t id, int value) {
    const StateItem& state = m_tables.states[id];
    if (value < state.min || value > state.max) {
        return kBadArgument;
    }
    if (const auto refusal = m_power.StateRefusal(id, value)) {
        return refusal;
    }
    if (const auto refusal = m_chip.StateRefusal(id, m_states)) {
        return refusal;
    }
    if (const auto refusal = m_tpx2.StateRefusal(id, m_states)) {
        return refusal;
    }
    m_states[id] = value;
    m_power.AfterStateSet(m_states);
    m_chip.FollowSupply(m_states);
    m_tpx2.FollowSupply(m_states);
    m_tpx2.FollowBackEnd(m_states, m_power.FpgaRestarts());
    return kNoError;
}

ControlReply ItemRequests::Monitor(const SetupPacket& setup,
                                   std::span<const std::uint8_t> out) const {
    if (auto reply = CountOrName(setup, out, m_tables.monitors)) {
        return *std::move(reply);
    }
    if (setup.wValue != kInvokeOrGet && setup.wValue != kMonitorRange) {
        return ControlReply::Stall(kNotSupported);
    }
    const std::size_t size = setup.wValue == kInvokeOrGet ? 4 : 8;
    if (const auto error = CheckShape(setup, out, Direction::kIn, size)) {
        return ControlReply::Stall(error);
    }
    if (!HasId(m_tables.monitors, setup.wIndex)) {
        return ControlReply::Stall(kBadIndex);
    }
    const MonitorItem& monitor = m_tables.monitors[setup.wIndex];
    std::vector<std::uint8_t> answer;
    if (setup.wValue == kInvokeOrGet) {
        if (const auto refusal = m_power.MonitorRefusal(setup.wIndex)) {
            return ControlReply::Stall(refusal);
        }
        wire::PutFloat(answer, Reading(setup.wIndex));
    } else {
        wire::PutFloat(answer, monitor.min);
        wire::PutFloat(answer, monitor.max);
    }
    return ControlReply::Answer(std::move(answer));
}

float ItemRequests::Reading(std::size_t id) const {
    if (const auto reading = m_chip.MonitorReading(id, m_states)) {
        return *reading;
    }
    return m_tpx2.MonitorReading(id, m_states)
        .value_or(m_power.Reading(id, Measured(id), m_states));
}

float ItemRequests::Measured(std::size_t id) const {
    return m_pinned[id] ? m_monitors[id] : m_physics.Measured(id, m_monitors[id], m_states);
}

std::vector<std::uint8_t> ItemRequests::MonitorRecords(std::uint32_t timestamp) const {
    constexpr std::uint8_t kAvailable = 0x01;
    constexpr std::uint8_t kWarning = 0x02;
    constexpr std::uint8_t kError = 0x04;
    // The record has one byte for the id.
    const std::size_t count = std::min<std::size_t>(m_tables.monitors.size(), 256);
    std::vector<std::uint8_t> records;
    for (std::size_t id = 0; id < count; ++id) {
        const MonitorItem& monitor = m_tables.monitors[id];
        // A broken converter gives no value; a monitor on a rail that is switched off has none.
        std::uint8_t flags = 0;
        float value = 0.0F;
        if (m_power.MonitorRefusal(id) != kNoError) {
            flags = kError;
        } else if (m_power.IsSwitchedOn(id, m_states)) {
            value = Reading(id);
            flags = kAvailable;
            if (!(monitor.min <= value && value <= monitor.max)) {
                flags |= kWarning;
            }
        }
        records.push_back(static_cast<std::uint8_t>(id));
        records.push_back(flags);
        wire::PutFloat(records, value);
        wire::PutU32(records, timestamp);
    }
    return records;
}

void ItemRequests::SetMonitorValue(std::string_view name, float value) {
    const std::size_t id = IdOf(m_tables.monitors, name, "Monitor");
    m_monitors[id] = value;
    m_pinned[id] = true;
}

int ItemRequests::StateValue(std::string_view name) const {
    return m_states[IdOf(m_tables.states, name, "State")];
}

std::vector<std::vector<std::uint8_t>> ItemRequests::Invocations(std::string_view name) const {
    return m_invocations[IdOf(m_tables.commands, name, "Command")];
}

bool ItemRequests::HasMonitor(std::string_view name) const {
    return std::any_of(m_tables.monitors.begin(), m_tables.monitors.end(),
                       [&](const MonitorItem& monitor) { return monitor.name == name; });
}

void ItemRequests::KeepMeasurements(const ItemRequests& before) {
    for (std::size_t id = 0; id < before.m_tables.monitors.size(); ++id) {
        const auto here = FindItem(m_tables.monitors, before.m_tables.monitors[id].name);
        if (here && before.m_pinned[id]) {
            m_monitors[*here] = before.m_monitors[id];
            m_pinned[*here] = true;
        }
    }
    m_physics.KeepHardware(before.m_physics);
}

}  // namespace ovex::vboard
