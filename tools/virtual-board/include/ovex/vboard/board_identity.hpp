#pragma once

// What a board shows of itself on the bus: ids, strings, release and the endpoint layout.

#include <cstdint>
#include <string>
#include <vector>

namespace ovex::vboard {

struct EndpointLayout {
    std::uint8_t address;
    std::uint8_t attributes;  // transfer type in bits 0 and 1
    std::uint16_t max_packet_size;
    std::uint8_t interval;
};

struct BoardIdentity {
    std::uint16_t vendor_id = 0x1209;
    std::uint16_t product_id = 0xAD0E;
    std::uint16_t bcd_usb = 0x0200;
    std::uint16_t bcd_device = 0;  // the PCB version, 0x0303 is "3.03"; 0: the board kind's
    std::uint8_t max_packet_size0 = 64;
    std::string manufacturer = "Ovex Instruments";
    std::string product;              // empty: the board kind's
    std::string serial = "OVX00001";  // 8 characters, as a locator by serial number takes them
    std::string configuration = "Application";
    // Application mode: bulk IN 0x81 for data, interrupt IN 0x82 for monitor frames, bulk OUT
    // 0x01 for configuration data.
    std::vector<EndpointLayout> endpoints = {
        {0x81, 0x02, 512, 0},
        {0x82, 0x03, 64, 1},
        {0x01, 0x02, 512, 0},
    };
};

// String descriptor indices the descriptors below refer to.
enum StringIndex : std::uint8_t {
    kLanguages = 0,
    kManufacturer = 1,
    kProduct = 2,
    kSerial = 3,
    kConfiguration = 4,
};

// The 18-byte device descriptor followed by the configuration descriptor with one interface.
std::vector<std::uint8_t> DeviceAndConfigDescriptors(const BoardIdentity& identity);

// String descriptor `index` (UTF-16LE, as a device sends it), or empty for an unknown index.
std::vector<std::uint8_t> StringDescriptor(const BoardIdentity& identity, std::uint8_t index);

}  // namespace ovex::vboard
