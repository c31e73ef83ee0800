#pragma once

#include <string>

namespace ovex::usb::device {

// The USB identity texts of a device.
struct DeviceInfo {
    std::string manufacturer;
    std::string product;
    std::string version;
    std::string serial;
    std::string path;
};

}  // namespace ovex::usb::device
