#pragma once

// What the firmware of each board kind publishes through its item requests: commands, states
// with their limits, monitors with their ranges, versions, and the identity the board reports.
// An item's id on the wire is its place in these lists.

#include <cstdint>
#include <string>
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

struct ItemTables {
    std::string board_id;      // answer of the device-id request in application mode
    std::uint16_t bcd_device;  // USB device release: the PCB version, 0x0303 is "3.03"
    std::string product;       // USB product string
    std::vector<CommandItem> commands;
    std::vector<StateItem> states;
    std::vector<MonitorItem> monitors;
    std::vector<VersionItem> versions;
};

// The tables of one board kind; built once, never changed.
const ItemTables& TablesOf(BoardKind kind);

}  // namespace ovex::vboard
