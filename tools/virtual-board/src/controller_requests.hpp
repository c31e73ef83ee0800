#pragma once

// What the board's USB controller answers itself in application mode: the board id, its own
// firmware version (the numbers of the "FX3_FW" version item, "0.24.3-TPX3" is 0.24.3 build 0;
// 0.0.0 without one), and its eight I2C EEPROMs (64 KiB each, erased to 0xFF, kept over
// resets). Its RAM is only reachable from the boot loader.

#include <array>
#include <cstdint>
#include <span>
#include <string>
#include <vector>

#include "ovex/vboard/firmware_model.hpp"
#include "ovex/vboard/item_tables.hpp"

namespace ovex::vboard {

class ControllerRequests {
public:
    static constexpr std::size_t kEepromCount = 8;
    static constexpr std::size_t kEepromSize = 0x10000;

    explicit ControllerRequests(const ItemTables& tables);

    // Answers as the application of `tables` from now on; the EEPROMs keep their data.
    void Identify(const ItemTables& tables);

    ControlReply GetId(const SetupPacket& setup, std::span<const std::uint8_t> out) const;
    ControlReply GetVersion(const SetupPacket& setup, std::span<const std::uint8_t> out) const;
    ControlReply Ram(const SetupPacket& setup, std::span<const std::uint8_t> out) const;
    // Device in wValue, address in wIndex.
    ControlReply WriteEeprom(const SetupPacket& setup, std::span<const std::uint8_t> out);
    ControlReply ReadEeprom(const SetupPacket& setup, std::span<const std::uint8_t> out) const;

private:
    std::string m_board_id;
    std::vector<std::uint8_t> m_version;                            // the 8-byte answer
    std::array<std::vector<std::uint8_t>, kEepromCount> m_eeproms;  // empty until written
};

}  // namespace ovex::vboard
