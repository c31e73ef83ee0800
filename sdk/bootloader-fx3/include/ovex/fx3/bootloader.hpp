#pragma once

// The boot loader of the board's USB controller: it answers while no application runs, takes an
// image into the controller's RAM and starts it. All requests run on the caller's thread.

#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <system_error>

#include "ovex/fx3/fw_image.hpp"
#include "ovex/vendor_cmd/cypress.hpp"

namespace ovex::usb::device {
class UsbDevice;
}

namespace ovex::fx3 {

struct BootloaderInfo {
    usb::vendor_cmd::cypress::Version version;
    std::string product;  // the board id followed by " BL"
};

class Bootloader {
public:
    // Probes with a one-byte RAM read. Its error means the board runs no boot loader (an
    // application doesn't answer RAM requests); then `bootloader` stays empty. A closed device
    // is opened, and closed again if the probe fails.
    static std::error_code Create(usb::device::UsbDevice& device,
                                  std::unique_ptr<Bootloader>& bootloader);

    // Closes the device if it is still open.
    ~Bootloader();
    Bootloader(const Bootloader&) = delete;
    Bootloader& operator=(const Bootloader&) = delete;

    std::error_code GetInfo(BootloaderInfo& info);
    // Writes and reads back every section; the first failure ends it, and what was written
    // stays. On success the image's entry point is kept for Switch.
    std::error_code Download(const FwImage& image);
    // Starts the application at the kept entry point (0 before a download).
    std::error_code Switch();
    // Writes a second-stage loader below 64 KiB to the boot EEPROM and reads it back.
    std::error_code DownloadBootloader(std::span<const std::uint8_t> image);
    // Success if the controller runs its stock programmer image (id "FX3PROG"),
    // std::errc::bad_message if it runs another one.
    std::error_code IsProgrammer();

private:
    explicit Bootloader(usb::device::UsbDevice& device) : m_device(device) {}

    usb::device::UsbDevice& m_device;
    std::uint32_t m_entry_point = 0;
};

}  // namespace ovex::fx3
