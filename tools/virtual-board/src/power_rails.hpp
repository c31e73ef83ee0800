#pragma once

// The board's supplies as its firmware sees them: which states switch which rails, what the
// monitors on a rail read while it is off, and the order the firmware insists on. The back end
// comes up as DC/DC rails, then the FPGA (FPGA_CONF, or FPGA_RECONF with a non-zero word), then
// GPIF and the main clock, then the inits that run on that clock; losing a step takes the later
// ones down with it. The front end's commands need the front end's supply.

#include <array>
#include <cstdint>
#include <map>
#include <set>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "hardware_faults.hpp"
#include "ovex/vboard/item_tables.hpp"

namespace ovex::vboard {

// The back end's DC/DC enables, in power-up order.
inline constexpr std::array<std::string_view, 4> kDcDcStates = {"DC_1V0", "DC_1V8", "DC_2V5",
                                                                "DC_3V3"};
// The FPGA's data path to the USB controller (GPIF) and the main clock: both can be on only while
// the FPGA is configured and go off with it, so together they say the back end moves data.
inline constexpr std::array<std::string_view, 2> kDataPathStates = {"GPIF_EN", "MAIN_CLK"};

class PowerRails {
public:
    // Rails and rules whose names aren't all on the board are left out.
    PowerRails(const ItemTables& tables, const HardwareFaults& faults);

    // The word the firmware refuses a command or a state switch with while what it needs is off
    // or its input is malformed; kNoError when it may run. `states` are the current values.
    std::uint32_t CommandRefusal(std::size_t command, std::span<const std::uint8_t> input,
                                 const std::vector<int>& states) const;
    std::uint32_t StateRefusal(std::size_t state, int value) const;

    // What a command that ran, or a state that was set, switched besides itself.
    void AfterCommand(std::size_t command, std::span<const std::uint8_t> input,
                      std::vector<int>& states);
    void AfterStateSet(std::vector<int>& states);

    // The word a read of monitor `id` fails with, kNoError if it can be read.
    std::uint32_t MonitorRefusal(std::size_t monitor) const;
    // What monitor `id` reads: `measured`, or 0 while the rail it is on is off or failed.
    float Reading(std::size_t monitor, float measured, const std::vector<int>& states) const;

    // True if `monitor` measures one of the board's rails.
    bool MeasuresRail(std::string_view monitor) const;
    // True unless monitor `id` is on a rail whose enables aren't all on: what the firmware
    // switched, which a failed rail doesn't change.
    bool IsSwitchedOn(std::size_t monitor, const std::vector<int>& states) const;

    // The FPGA unconfigured, as after power-on.
    void PowerOn() { m_fpga_configured = false; }
    // How often the FPGA lost what ran on it (reloaded, switched off, its supply gone) since the
    // board came up; what lives in the FPGA is gone whenever this moves.
    std::uint64_t FpgaRestarts() const { return m_fpga_restarts; }

private:
    using Ids = std::vector<std::size_t>;
    struct Rail {
        Ids enables;   // state ids
        Ids monitors;  // monitor ids
        std::vector<std::string> monitor_names;
        bool needs_fpga = false;  // a link: up only while the FPGA is configured too
    };

    static bool AllOn(const Ids& ids, const std::vector<int>& states);
    bool IsOn(const Rail& rail, const std::vector<int>& states) const;
    bool IsFailed(const Rail& rail) const;
    // The FPGA loses its configuration, and GPIF and the main clock stop with it.
    void UnconfigureFpga(std::vector<int>& states);
    static void SwitchOff(const Ids& ids, std::vector<int>& states);

    const HardwareFaults* m_faults;
    std::vector<std::string> m_monitor_names;  // by id
    std::vector<Rail> m_rails;
    std::map<std::size_t, std::size_t> m_rail_of_monitor;

    Ids m_dcdc;             // the DC/DC enables
    Ids m_main_power;       // what a main power reset switches off: DC/DC and DDR
    Ids m_needs_fpga;       // states refused on while the FPGA is unconfigured
    Ids m_clock;            // the main clock's enable
    Ids m_frontend_supply;  // the front end's supply enables
    Ids m_detector;         // the chip rails' enable, also driven by a command
    std::set<std::size_t> m_clocked_commands;
    std::set<std::size_t> m_frontend_commands;
    std::size_t m_fpga_conf;
    std::size_t m_fpga_reconf;
    std::size_t m_main_power_reset;
    std::size_t m_chip_power;

    bool m_fpga_configured = false;
    std::uint64_t m_fpga_restarts = 0;
};

}  // namespace ovex::vboard
