#pragma once

// Finding out what a board is. All boards share one USB identity; the running firmware tells the
// board id, the device release tells the PCB version, and the pair selects the board kind.

#include <cstdint>
#include <string_view>
#include <system_error>

#include "ovex/usb/device_info.hpp"

namespace ovex::usb::device {
class UsbDevice;
}

namespace ovex::fx3 {
class Bootloader;
class FwImage;
}  // namespace ovex::fx3

namespace ovex::sdk {

// Board kinds; the device class that drives each is chosen at discovery.
enum class BoardKind : std::uint8_t {
    kOvbdPcb2 = 1,
    kOvbdPcb300 = 2,
    kNobePcb201 = 3,
    kOvbdPcb301 = 4,
    kOvbdPcb302 = 5,
    kNobePcb210 = 6,
    kNobePcb211 = 7,
    kTimepix3 = 8,
    kTimepix2Cb = 9,
    kTimepix4Cb = 10,
    kNobePcb300 = 11,
};

// The kind of the pair (board id, PCB version); no_such_device with a log line when the library
// doesn't know the pair.
std::error_code FindBoardKind(std::string_view board_id, std::string_view pcb_version,
                              BoardKind& kind);

// Opens the device, reads its identity texts, brings a board that sits in its boot loader into
// application mode with the firmware that fits it, reads its board id, works out its kind, and
// closes the device again. On failure the device may stay open; whoever discards it closes it.
std::error_code InspectDevice(usb::device::UsbDevice& device, usb::device::DeviceInfo& info,
                              BoardKind& kind);

// Reads the boot loader's identity, chooses the firmware by board id and PCB version, downloads
// it and starts it. A board whose firmware the library doesn't know stays in its boot loader.
std::error_code LoadFirmware(fx3::Bootloader& bootloader, const usb::device::DeviceInfo& info);

// The firmware image of a board: a file of the image's name in the working directory if it is a
// sound image, else the one built into the library. operation_not_supported for a board the
// library has no firmware for.
std::error_code FindFirmware(std::string_view board_id, std::string_view pcb_version,
                             fx3::FwImage& image);

}  // namespace ovex::sdk
