#pragma once

// The last-error word the firmware keeps for its last refusal: the source in the top byte, the
// source's own code in the low bits. The firmware's own codes are the return codes of the USB
// controller's library, the FPGA driver's are the status codes of its SPI/IIC drivers.

#include <cstdint>

namespace ovex::vboard {

enum class ErrorSource : std::uint8_t {
    kFirmware = 0,
    kI2c = 1,
    kAxi = 2,
    kFpgaDriver = 3,
    kFlash = 4,
    kPower = 5,
    kTimepix = 6,
};

constexpr std::uint32_t ErrorWord(ErrorSource source, std::uint32_t code) {
    return static_cast<std::uint32_t>(source) << 24 | code;
}

// The firmware's own refusals (source 0).
enum LastError : std::uint32_t {
    kNoError = 0,
    kBadArgument = 0x40,    // a value or a length the request can't take
    kNotStarted = 0x42,     // what it needs hasn't been started (the main clock)
    kNotConfigured = 0x44,  // what it needs hasn't been configured (the FPGA)
    kNotSupported = 0x46,   // no such request, sub-function or direction
    kFailure = 0x4A,        // failed for no more specific reason
    kBadIndex = 0x4B,       // no item, pin or device with that number
};

// I2C: the slave NACK-ed preamble byte `index` (0 is the address byte).
constexpr std::uint32_t I2cNack(std::uint32_t index) {
    return ErrorWord(ErrorSource::kI2c, index);
}
inline constexpr std::uint32_t kI2cDataNack = ErrorWord(ErrorSource::kI2c, 8);

// A monitor whose converter doesn't answer on its I2C bus, and a front-end device whose supply
// is off: nobody acknowledges the address byte.
inline constexpr std::uint32_t kNoI2cAnswer = I2cNack(0);

// AXI responses of a refused access.
inline constexpr std::uint32_t kAxiSlaveError = ErrorWord(ErrorSource::kAxi, 2);
inline constexpr std::uint32_t kAxiDecodeError = ErrorWord(ErrorSource::kAxi, 3);

// FPGA driver statuses.
enum DriverStatus : std::uint32_t {
    kDeviceNotFound = 2,
    kDeviceIsStarted = 5,
    kDeviceIsStopped = 6,
    kNotEnabled = 29,
    kSpiNoSlave = 1155,
};
constexpr std::uint32_t DriverError(DriverStatus status) {
    return ErrorWord(ErrorSource::kFpgaDriver, status);
}

// Power supervisor: a supply is not up (its output didn't reach its good level), code 1 in bits 1
// and 2.
inline constexpr std::uint32_t kSupplyNotUp = ErrorWord(ErrorSource::kPower, 1 << 1);

// The Timepix chip: it isn't powered, it is busy with what it does, a data channel failed.
inline constexpr std::uint32_t kChipNotReady = ErrorWord(ErrorSource::kTimepix, 0);
inline constexpr std::uint32_t kChipBusy = ErrorWord(ErrorSource::kTimepix, 2);
inline constexpr std::uint32_t kChannelFailure = ErrorWord(ErrorSource::kTimepix, 4);

}  // namespace ovex::vboard
