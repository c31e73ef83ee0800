#pragma once

#include "ovex/lua_scripts/scripts.hpp"
#include "sdk_ovexboard.hpp"

namespace ovex::sdk {

// A readout board with the Timepix3 extended front end.
class OvexBoardTpx3 final : public OvexBoard {
public:
    OvexBoardTpx3(std::shared_ptr<usb::device::UsbDevice> usb_device, usb::device::DeviceInfo info)
        : OvexBoard(std::move(usb_device), std::move(info), {"backend", lua_scripts::kPowerOvbd},
                    {"frontend", lua_scripts::kPowerTpx3efe}) {}
};

}  // namespace ovex::sdk
