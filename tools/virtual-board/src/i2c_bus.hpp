#pragma once

// The board's I2C bus with register-addressed devices on it. A request names the device by the
// bus byte it would send (address and read bit) and the register width it takes:
//   wIndex = bus byte | 0x100 (8-bit registers) or | 0x300 (16-bit registers), wValue = register.
// A bus byte whose bits 11 to 15 are 11110 is the 10-bit form: address bits 9 and 8 in bits 10
// and 9, the read bit in bit 8, bits 0 to 7 in the low byte. The width flag shares bits 8 and
// 9 with it, so a 10-bit device is only reachable with address bit 8 clear and 8-bit registers.

#include <cstdint>
#include <span>
#include <vector>

#include "ovex/vboard/firmware_model.hpp"

namespace ovex::vboard {

struct I2cDevice {
    std::uint16_t address;  // 7-bit, or 10-bit when `ten_bit`
    bool ten_bit;
    int register_bytes;                // width of the register address, 1 or 2
    std::vector<std::uint8_t> memory;  // register first + r holds memory[r]; transfers go on
    std::uint16_t first = 0;
    // An EEPROM's write wraps at the end of its page to the page's start; 0: no pages.
    std::size_t page_size = 0;
    // The first registers that refuse writes (their data bytes are not acknowledged).
    std::size_t read_only = 0;
};

class I2cBus {
public:
    // A 24CS512 EEPROM with 16-bit registers at 0x50 and its security area at 0x58, a sensor
    // with 8-bit registers at 0x48 and a 10-bit device at 0x2A5.
    I2cBus();

    ControlReply Handle(const SetupPacket& setup, std::span<const std::uint8_t> out);

private:
    std::vector<I2cDevice> m_devices;
};

}  // namespace ovex::vboard
