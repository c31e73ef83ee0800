#pragma once

// Codes of the board's vendor requests and the check of a request's direction and payload size,
// which every family does before it looks at the arguments.

#include <cstddef>
#include <cstdint>
#include <span>

#include "ovex/vboard/firmware_model.hpp"

namespace ovex::vboard {

namespace request {
inline constexpr std::uint8_t kCommand = 0x01;
inline constexpr std::uint8_t kVersion = 0x02;
inline constexpr std::uint8_t kState = 0x03;
inline constexpr std::uint8_t kGpio = 0x04;
inline constexpr std::uint8_t kMonitor = 0x05;
inline constexpr std::uint8_t kI2c = 0x92;
inline constexpr std::uint8_t kRam = 0xA0;
inline constexpr std::uint8_t kGetId = 0xB0;
inline constexpr std::uint8_t kAxi = 0xB1;
inline constexpr std::uint8_t kAxiStreamStart = 0xB3;
inline constexpr std::uint8_t kWriteEeprom = 0xBA;
inline constexpr std::uint8_t kReadEeprom = 0xBB;
inline constexpr std::uint8_t kGetVersion = 0xC8;
inline constexpr std::uint8_t kSpiInit = 0xD0;
inline constexpr std::uint8_t kSpiReset = 0xD1;
inline constexpr std::uint8_t kSpiSelfTest = 0xD2;
inline constexpr std::uint8_t kSpiStartStop = 0xD3;
inline constexpr std::uint8_t kSpiStats = 0xD4;
inline constexpr std::uint8_t kSpiData = 0xD5;
inline constexpr std::uint8_t kReset = 0xE0;
}  // namespace request

enum class Direction { kIn, kOut };

// kNotSupported for the wrong direction, kBadArgument for a payload of another size than
// `size`, otherwise kNoError.
inline std::uint32_t CheckShape(const SetupPacket& setup, std::span<const std::uint8_t> out,
                                Direction direction, std::size_t size) {
    if (setup.IsIn() != (direction == Direction::kIn)) {
        return kNotSupported;
    }
    const bool fits = setup.wLength == size && (setup.IsIn() || out.size() == size);
    return fits ? kNoError : kBadArgument;
}

}  // namespace ovex::vboard
