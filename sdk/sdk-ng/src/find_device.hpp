#pragma once

#include <memory>
#include <system_error>

#include "usb_locator.hpp"

namespace ovex::usb::device {
class UsbDevice;
}

namespace ovex::sdk {

// Looks a board up among the attached ones by its locator. An index locator with an empty
// value throws std::invalid_argument("invalid stoul argument").
std::error_code FindDevice(const UsbLocator& locator,
                           std::shared_ptr<usb::device::UsbDevice>& device);

}  // namespace ovex::sdk
