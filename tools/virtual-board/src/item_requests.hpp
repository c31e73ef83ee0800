#pragma once

// The four item lists a board publishes: commands to invoke, versions to read, states to get
// and set within their limits, monitors to read. An item's id is its place in its list. The
// board's rails couple them: enables switch what monitors read, and commands and switches wait
// for what they need. The Timepix3 or Timepix2 chip and the back end's flash hang on them too.

#include <cstdint>
#include <span>
#include <string_view>
#include <vector>

#include "backend_flash.hpp"
#include "board_physics.hpp"
#include "ovex/vboard/firmware_model.hpp"
#include "ovex/vboard/item_tables.hpp"
#include "power_rails.hpp"
#include "tpx2_chip.hpp"
#include "tpx3_chip.hpp"

namespace ovex::vboard {

class ItemRequests {
public:
    // `faults` must outlive the object.
    ItemRequests(ItemTables tables, const HardwareFaults& faults);

    const ItemTables& Tables() const { return m_tables; }

    ControlReply Command(const SetupPacket& setup, std::span<const std::uint8_t> out);
    ControlReply Version(const SetupPacket& setup, std::span<const std::uint8_t> out) const;
    ControlReply State(const SetupPacket& setup, std::span<const std::uint8_t> out);
    ControlReply Monitor(const SetupPacket& setup, std::span<const std::uint8_t> out) const;

    // States back to their power-on values, the FPGA unconfigured; monitors keep measuring what
    // they measure.
    void PowerOn();

    // Moves the board's clock on by `seconds` with the states as they are now.
    void Advance(double seconds);
    // The board's trigger input goes to `high` now.
    void SetTriggerInput(bool high) {
        m_chip.SetTriggerInput(high, m_states, BoardTime());
        m_tpx2.SetTriggerInput(high, m_states, BoardTime());
    }
    double BoardTime() const { return m_physics.Time(); }

    // By name, the first item of that name; std::out_of_range for an unknown one. What the
    // monitor measures while its rail is on, pinned: the model no longer moves it.
    void SetMonitorValue(std::string_view name, float value);
    int StateValue(std::string_view name) const;
    // Sets state `id` as the host's state request does; the refusal's word, or kNoError.
    std::uint32_t SetState(std::size_t id, int value);
    // The current values by id, for the requests that act on the chip directly.
    std::vector<int>& StateValues() { return m_states; }
    std::vector<std::vector<std::uint8_t>> Invocations(std::string_view name) const;
    // True if the monitor measures one of the board's rails.
    bool MeasuresRail(std::string_view monitor) const { return m_power.MeasuresRail(monitor); }
    bool HasMonitor(std::string_view name) const;
    // The chip's pending read-back for the data endpoint; the bytes moved into `out`.
    std::size_t ReadOut(std::span<std::uint8_t> out) {
        const std::size_t moved = m_chip.ReadOut(out);
        return moved > 0 ? moved : m_tpx2.ReadOut(out);
    }
    // The chip's pixel configuration memory.
    const std::vector<std::uint8_t>& ChipMatrix() const { return m_chip.Matrix(); }
    // The frames the chip read out.
    FrameFifo& Frames() { return m_chip.Frames(); }
    const FrameFifo& Frames() const { return m_chip.Frames(); }
    // The Timepix2 chip, on the boards that carry one.
    Tpx2Chip& Timepix2() { return m_tpx2; }
    const Tpx2Chip& Timepix2() const { return m_tpx2; }
    // The chip's data-driven stream.
    Tpx3HitStream& Hits() { return m_chip.Hits(); }
    // The pinned measurements of `before`'s monitors that this board has too, by name, and the
    // state of its hardware (clock, temperature, bias output).
    void KeepMeasurements(const ItemRequests& before);
    // The back end's flash contents of `before`, which are the chip's, not the firmware's.
    void KeepFlash(ItemRequests& before) { m_flash.KeepContents(before.m_flash); }
    // One 10-byte record of each monitor for the monitor stream, in id order: id, flags
    // (available, warning, error), value, time stamp.
    std::vector<std::uint8_t> MonitorRecords(std::uint32_t timestamp) const;

private:
    // What monitor `id` reads now.
    float Reading(std::size_t id) const;
    // What monitor `id` measures while its rail is on: its pinned value or the model's.
    float Measured(std::size_t id) const;

    ItemTables m_tables;
    PowerRails m_power;
    Tpx3Chip m_chip;       // inert on boards without it
    Tpx2Chip m_tpx2;       // likewise
    BackendFlash m_flash;  // likewise
    BoardPhysics m_physics;
    std::vector<int> m_states;      // current value by id
    std::vector<float> m_monitors;  // nominal or pinned value by id
    std::vector<bool> m_pinned;     // by id: a test set the value
    std::vector<std::vector<std::vector<std::uint8_t>>> m_invocations;  // inputs by command id
};

}  // namespace ovex::vboard
