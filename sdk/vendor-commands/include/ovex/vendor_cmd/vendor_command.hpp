#pragma once

// The board's request protocol: vendor-type control requests to the device on endpoint 0. A
// request is named by its bRequest, wValue and wIndex; its direction and length follow from the
// call that sends it.

#include <cstdint>

#include "ovex/named_type.hpp"

namespace ovex::usb::vendor_cmd {

struct VendorCommand {
    std::uint8_t bRequest = 0;
    std::uint16_t wValue = 0;
    std::uint16_t wIndex = 0;
};

// Seconds every request may take unless the caller says otherwise.
inline constexpr double kDefaultTimeout = 10.0;

// bmRequestType of the protocol: vendor type, device recipient.
inline constexpr std::uint8_t kRequestTypeOut = 0x40;
inline constexpr std::uint8_t kRequestTypeIn = 0xC0;

// Fixed text fields: the item names and values, and the board id.
inline constexpr std::size_t kStringFieldSize = 33;
inline constexpr std::size_t kIdFieldSize = 32;

namespace command {
struct CmdIdTag {};
using CmdId = NamedType<std::uint16_t, CmdIdTag>;
}  // namespace command

namespace state {
struct StateIdTag {};
using StateId = NamedType<std::uint16_t, StateIdTag>;
}  // namespace state

namespace monitor {
struct MonitorIdTag {};
using MonitorId = NamedType<std::uint16_t, MonitorIdTag>;
}  // namespace monitor

namespace version {
struct VersionIdTag {};
using VersionId = NamedType<std::uint16_t, VersionIdTag>;
}  // namespace version

namespace spi {
struct SpiBusIdTag {};
using SpiBusId = NamedType<std::uint8_t, SpiBusIdTag>;
}  // namespace spi

// bRequest of each request family.
namespace request {
inline constexpr std::uint8_t kLastError = 0x00;
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

}  // namespace ovex::usb::vendor_cmd
