#pragma once

// The FPGA's AXI register map as the firmware reaches it: 32-bit registers at 32-bit addresses
// (low half in wValue, high half in wIndex). An address outside the map gets a decode error, a
// write to a read-only register a slave error.
//
//   0x40000000  id               read-only, kAxiIdValue
//   0x40000004  scratch          read-write, 0 at power-on
//   0x40000008  control          read-write, 0 at power-on
//   0x4000000C  stream starts    read-only, stream start requests since power-on

#include <cstdint>
#include <map>
#include <span>

#include "ovex/vboard/firmware_model.hpp"

namespace ovex::vboard {

inline constexpr std::uint32_t kAxiIdValue = 0x4F565831;

class AxiBus {
public:
    AxiBus() { PowerOn(); }

    ControlReply Access(const SetupPacket& setup, std::span<const std::uint8_t> out);
    ControlReply StreamStart(const SetupPacket& setup, std::span<const std::uint8_t> out);
    void PowerOn();

private:
    struct Register {
        std::uint32_t value;
        bool writable;
    };
    std::map<std::uint32_t, Register> m_registers;
};

}  // namespace ovex::vboard
