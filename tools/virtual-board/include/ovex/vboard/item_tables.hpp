#pragma once

// What the firmware of each board kind publishes through its item requests: commands, states
// with their limits, monitors with their ranges, versions, and the identity the board reports.
// An item's id on the wire is its place in these lists.

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace ovex::vboard {

enum class BoardKind {
    kTimepix3,    // board id "TPX3EFE"
    kTimepix2Cb,  // "TPX2CB"
    kTimepix4Cb,  // "TPX4CB"
    kNobe,        // "NOBE"
};

struct CommandItem {
    std::string name;
    // What an invocation with output (a control IN) answers; empty for commands that only act.
    std::vector<std::uint8_t> answer;
};

struct StateItem {
    std::string name;
    int value;  // at power-on
    int min;
    int max;
};

struct MonitorItem {
    std::string name;
    float value;  // what the board measures while idle and powered
    float min;
    float max;
};

struct VersionItem {
    std::string name;
    std::string value;  // at most 32 characters
};

// A supply that the firmware switches: on while every state in `enables` is non-zero. The monitors
// in `monitors` measure it: they read 0 while it is off and their measured value while it is on.
struct RailItem {
    std::vector<std::string> enables;
    std::vector<std::string> monitors;
};

// How the board's supplies hang on its states. The back end's order (DC/DC rails, FPGA, GPIF,
// main clock) is the same on every kind and lives with the firmware (power_rails.cpp).
struct PowerLayout {
    std::vector<RailItem> rails{};
    // The front end's commands talk to devices that the `frontend_supply` states power: they are
    // refused while one of those is off.
    std::vector<std::string> frontend_commands{};
    std::vector<std::string> frontend_supply{};
    // Monitors of the links between the back end's FPGA and the front end: they read their
    // measured value while the FPGA is configured and the `frontend_supply` states are on, else 0.
    std::vector<std::string> links{};
    // The state that runs the Peltier controller besides its set point (which at 0 is off);
    // empty: the set point alone.
    std::string peltier_enable{};
};

struct ItemTables {
    std::string board_id;      // answer of the device-id request in application mode
    std::uint16_t bcd_device;  // USB device release: the PCB version, 0x0303 is "3.03"
    std::string product;       // USB product string
    std::vector<CommandItem> commands;
    std::vector<StateItem> states;
    std::vector<MonitorItem> monitors;
    std::vector<VersionItem> versions;
    PowerLayout power;  // names that aren't in the lists above are left out
};

// The id of the first item called `name` in one of the lists, if the board has one.
template <class Item>
std::optional<std::size_t> FindItem(const std::vector<Item>& items, std::string_view name) {
    const auto found = std::find_if(items.begin(), items.end(),
                                    [&](const Item& item) { return item.name == name; });
    if (found == items.end()) {
        return std::nullopt;
    }
    return static_cast<std::size_t>(found - items.begin());
}

// The tables of one board kind; built once, never changed.
const ItemTables& TablesOf(BoardKind kind);

// The kind whose application reports `board_id` ("TPX3EFE" is Timepix3), if there is one.
std::optional<BoardKind> KindWithBoardId(std::string_view board_id);

}  // namespace ovex::vboard
