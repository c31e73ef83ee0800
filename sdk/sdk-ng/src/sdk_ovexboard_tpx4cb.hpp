#pragma once

#include "ovex/lua_scripts/scripts.hpp"
#include "sdk_ovexboard.hpp"

namespace ovex::sdk {

// A readout board with a Timepix4 chip board.
class OvexBoardTpx4Cb final : public OvexBoard {
public:
    OvexBoardTpx4Cb(std::shared_ptr<usb::device::UsbDevice> usb_device,
                    usb::device::DeviceInfo info)
        : OvexBoard(std::move(usb_device), std::move(info), {"backend", lua_scripts::kPowerOvbd},
                    {"frontend", lua_scripts::kPowerTpx4cb}) {}
};

}  // namespace ovex::sdk
