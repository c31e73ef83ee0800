#pragma once

#include "ovex/lua_scripts/scripts.hpp"
#include "sdk_board_housekeeping.hpp"
#include "sdk_ovexboard.hpp"

namespace ovex::sdk {

// The NoBE readout board with its Timepix2 front end.
class Nobe final : public OvexBoard {
public:
    Nobe(std::shared_ptr<usb::device::UsbDevice> usb_device, usb::device::DeviceInfo info)
        : OvexBoard(std::move(usb_device), std::move(info), {"NoBE", lua_scripts::kPowerNobe},
                    {"TP2FE", lua_scripts::kPowerTp2fe}, NobeHousekeeping()) {}
};

}  // namespace ovex::sdk
