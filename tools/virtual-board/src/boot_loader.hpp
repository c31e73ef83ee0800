#pragma once

// The USB controller's boot loader: its id is the board id with " BL" behind it, its version its
// own, and it reads and writes the controller's RAM. A RAM read of no bytes is the order to start
// the application at that address. It starts only an image that this board can run: the
// application's descriptor at the entry point, a body in RAM that matches the descriptor's sum, a
// board id with firmware tables and the board's own PCB version.

#include <cstdint>
#include <optional>
#include <span>
#include <string>

#include "controller_ram.hpp"
#include "ovex/vboard/boot_loader_mode.hpp"
#include "ovex/vboard/firmware_model.hpp"
#include "ovex/vboard/item_tables.hpp"

namespace ovex::vboard {

// What a started image runs as.
struct Application {
    BoardKind kind;
    std::string firmware_version;  // the "FX3_FW" version item
};

class BootLoader {
public:
    // `bcd_device` is the board's PCB version, which an image must be made for.
    BootLoader(BootLoaderMode mode, std::uint16_t bcd_device);

    ControlReply GetId(const SetupPacket& setup, std::span<const std::uint8_t> out) const;
    ControlReply GetVersion(const SetupPacket& setup, std::span<const std::uint8_t> out) const;
    // A read or a write: the address's low half in wValue, its high half in wIndex. A range
    // that isn't wholly inside one region is refused.
    ControlReply Ram(const SetupPacket& setup, std::span<const std::uint8_t> out);

    static bool IsStart(const SetupPacket& setup) { return setup.IsIn() && setup.wLength == 0; }
    static std::uint32_t Address(const SetupPacket& setup) {
        return std::uint32_t{setup.wIndex} << 16 | setup.wValue;
    }
    // The application whose image starts at `entry`, or nothing if the checks refuse it.
    std::optional<Application> Start(std::uint32_t entry) const;

private:
    const BootLoaderMode m_mode;
    const std::string m_pcb_version;  // "3.03"
    ControllerRam m_ram;
};

}  // namespace ovex::vboard
