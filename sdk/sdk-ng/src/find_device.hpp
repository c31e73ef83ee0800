#pragma once

#include <cstdint>
#include <memory>
#include <system_error>
#include <vector>

#include "usb_locator.hpp"

namespace ovex::usb::device {
class UsbDevice;
}

namespace ovex::sdk {

// The USB identity every supported board has, in the boot loader and in application mode.
inline constexpr std::uint16_t kBoardVendorId = 0x1209;
inline constexpr std::uint16_t kBoardProductId = 0xAD0E;

// The boards attached now, in the order the USB layer reports them, under a USB context of
// their own that lives as long as any of them.
std::vector<usb::device::UsbDevice> ListBoards();

// Looks a board up among the attached ones by its locator. An index locator with an empty
// value throws std::invalid_argument("invalid stoul argument").
std::error_code FindDevice(const UsbLocator& locator,
                           std::shared_ptr<usb::device::UsbDevice>& device);

}  // namespace ovex::sdk
