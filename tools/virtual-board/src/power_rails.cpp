#include "power_rails.hpp"

#include <algorithm>
#include <limits>

#include "ovex/vboard/error_words.hpp"
#include "wire_format.hpp"

// The virtual board's ITEMS.md lists the rails and the order constraints with their words.

namespace ovex::vboard {
namespace {

constexpr std::size_t kNone = std::numeric_limits<std::size_t>::max();

// The back end's inits that run on the main clock (OvexBoard and NoBE names).
constexpr std::array<std::string_view, 6> kClockedCommands = {
    "LOAD_EEPROM", "XSPI_INIT", "XADC_INIT", "DACX_INIT", "XSPI0_INIT", "XADC0_INIT"};

template <class Item>
std::size_t IdOf(const std::vector<Item>& items, std::string_view name) {
    return FindItem(items, name).value_or(kNone);
}

// The ids of all `names`, or nothing if one of them isn't on the board.
template <class Item, class Names>
std::vector<std::size_t> IdsOf(const std::vector<Item>& items, const Names& names) {
    std::vector<std::size_t> ids;
    for (const auto& name : names) {
        const std::size_t id = IdOf(items, name);
        if (id == kNone) {
            return {};
        }
        ids.push_back(id);
    }
    return ids;
}

}  // namespace

PowerRails::PowerRails(const ItemTables& tables, const HardwareFaults& faults)
    : m_faults(&faults),
      m_dcdc(IdsOf(tables.states, kDcDcStates)),
      m_main_power(m_dcdc),
      m_clock(IdsOf(tables.states, std::array{"MAIN_CLK"})),
      m_frontend_supply(IdsOf(tables.states, tables.power.frontend_supply)),
      m_detector(IdsOf(tables.states, std::array{"DETECTOR_EN"})),
      m_fpga_conf(IdOf(tables.commands, "FPGA_CONF")),
      m_fpga_reconf(IdOf(tables.commands, "FPGA_RECONF")),
      m_main_power_reset(IdOf(tables.commands, "MAIN_PWR_RESET")),
      m_chip_power(IdOf(tables.commands, "TPX4_POWER_UP")) {
    for (const MonitorItem& monitor : tables.monitors) {
        m_monitor_names.push_back(monitor.name);
    }
    std::vector<RailItem> items = tables.power.rails;
    const std::size_t first_link = items.size();
    for (const std::string& link : tables.power.links) {
        items.push_back({tables.power.frontend_supply, {link}});
    }
    for (std::size_t i = 0; i < items.size(); ++i) {
        const RailItem& item = items[i];
        Rail rail{IdsOf(tables.states, item.enables), IdsOf(tables.monitors, item.monitors),
                  item.monitors, i >= first_link};
        if (rail.enables.size() != item.enables.size() ||
            rail.monitors.size() != item.monitors.size()) {
            continue;
        }
        for (const std::size_t monitor : rail.monitors) {
            m_rail_of_monitor[monitor] = m_rails.size();
        }
        m_rails.push_back(std::move(rail));
    }
    const Ids ddr = IdsOf(tables.states, std::array{"DDR_PWR_EN"});
    m_main_power.insert(m_main_power.end(), ddr.begin(), ddr.end());
    // Without a command that configures the FPGA its followers aren't held back. The Timepix3
    // front end's supply is switched by the FPGA too.
    if (m_fpga_conf != kNone || m_fpga_reconf != kNone) {
        for (const char* name : {"GPIF_EN", "MAIN_CLK", "FRONTEND_EN"}) {
            const Ids state = IdsOf(tables.states, std::array{name});
            m_needs_fpga.insert(m_needs_fpga.end(), state.begin(), state.end());
        }
    }
    for (const std::string_view name : kClockedCommands) {
        if (const std::size_t id = IdOf(tables.commands, name); id != kNone) {
            m_clocked_commands.insert(id);
        }
    }
    for (const std::string& name : tables.power.frontend_commands) {
        if (const std::size_t id = IdOf(tables.commands, name); id != kNone) {
            m_frontend_commands.insert(id);
        }
    }
}

bool PowerRails::AllOn(const Ids& ids, const std::vector<int>& states) {
    return std::all_of(ids.begin(), ids.end(), [&](std::size_t id) { return states[id] != 0; });
}

void PowerRails::SwitchOff(const Ids& ids, std::vector<int>& states) {
    for (const std::size_t id : ids) {
        states[id] = 0;
    }
}

bool PowerRails::IsFailed(const Rail& rail) const {
    return std::any_of(
        rail.monitor_names.begin(), rail.monitor_names.end(),
        [&](const std::string& name) { return m_faults->failed_rails.count(name) != 0; });
}

std::uint32_t PowerRails::CommandRefusal(std::size_t command, std::span<const std::uint8_t> input,
                                         const std::vector<int>& states) const {
    if (command == m_fpga_reconf) {
        // A 32-bit word: non-zero configures, zero switches the FPGA off.
        if (input.size() != 4) {
            return kBadArgument;
        }
        return wire::GetU32(input) != 0 && !AllOn(m_dcdc, states) ? kSupplyNotUp : kNoError;
    }
    if (command == m_fpga_conf) {
        return AllOn(m_dcdc, states) ? kNoError : kSupplyNotUp;
    }
    if (command == m_chip_power) {
        // One byte: 1 switches the chip's rails on, 0 off.
        return input.size() == 1 && input[0] <= 1 ? kNoError : kBadArgument;
    }
    if (m_clocked_commands.count(command) && !AllOn(m_clock, states)) {
        return kNotStarted;
    }
    if (m_frontend_commands.count(command) && !AllOn(m_frontend_supply, states)) {
        return kNoI2cAnswer;
    }
    return kNoError;
}

std::uint32_t PowerRails::StateRefusal(std::size_t state, int value) const {
    const bool needs_fpga =
        std::find(m_needs_fpga.begin(), m_needs_fpga.end(), state) != m_needs_fpga.end();
    return needs_fpga && value != 0 && !m_fpga_configured ? kNotConfigured : kNoError;
}

void PowerRails::AfterCommand(std::size_t command, std::span<const std::uint8_t> input,
                              std::vector<int>& states) {
    if (command == m_main_power_reset) {
        SwitchOff(m_main_power, states);
        UnconfigureFpga(states);
    } else if (command == m_fpga_conf || command == m_fpga_reconf) {
        // Loading the FPGA anew restarts it: what ran on it has to be set up again.
        UnconfigureFpga(states);
        m_fpga_configured = command == m_fpga_conf || wire::GetU32(input) != 0;
    } else if (command == m_chip_power) {
        for (const std::size_t id : m_detector) {
            states[id] = input[0];
        }
    }
}

void PowerRails::AfterStateSet(std::vector<int>& states) {
    if (m_fpga_configured && !AllOn(m_dcdc, states)) {
        UnconfigureFpga(states);
    }
}

void PowerRails::UnconfigureFpga(std::vector<int>& states) {
    m_fpga_configured = false;
    ++m_fpga_restarts;
    SwitchOff(m_needs_fpga, states);
}

std::uint32_t PowerRails::MonitorRefusal(std::size_t monitor) const {
    const auto broken = m_faults->broken_monitors.find(m_monitor_names[monitor]);
    return broken == m_faults->broken_monitors.end() ? kNoError : broken->second;
}

float PowerRails::Reading(std::size_t monitor, float measured,
                          const std::vector<int>& states) const {
    const auto rail = m_rail_of_monitor.find(monitor);
    if (rail == m_rail_of_monitor.end()) {
        return measured;
    }
    const Rail& supply = m_rails[rail->second];
    return IsOn(supply, states) && !IsFailed(supply) ? measured : 0.0F;
}

bool PowerRails::IsSwitchedOn(std::size_t monitor, const std::vector<int>& states) const {
    const auto rail = m_rail_of_monitor.find(monitor);
    return rail == m_rail_of_monitor.end() || IsOn(m_rails[rail->second], states);
}

bool PowerRails::IsOn(const Rail& rail, const std::vector<int>& states) const {
    return AllOn(rail.enables, states) && (!rail.needs_fpga || m_fpga_configured);
}

bool PowerRails::MeasuresRail(std::string_view monitor) const {
    return std::any_of(m_rails.begin(), m_rails.end(), [&](const Rail& rail) {
        return std::find(rail.monitor_names.begin(), rail.monitor_names.end(), monitor) !=
               rail.monitor_names.end();
    });
}

}  // namespace ovex::vboard
