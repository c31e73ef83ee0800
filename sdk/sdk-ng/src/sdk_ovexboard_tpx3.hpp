#pragma once

#include "ovex/lua_scripts/scripts.hpp"
#include "sdk_board_housekeeping.hpp"
#include "sdk_ovexboard.hpp"

namespace ovex::sdk {

// A readout board with the Timepix3 extended front end. The backend's power-up brings the
// readout board's trigger and synchronisation module; the frontend's brings the frontend with
// its triggers and the chip, once the board says that a Timepix3 sits there.
class OvexBoardTpx3 final : public OvexBoard {
public:
    OvexBoardTpx3(std::shared_ptr<usb::device::UsbDevice> usb_device, usb::device::DeviceInfo info)
        : OvexBoard(std::move(usb_device), std::move(info), {"backend", lua_scripts::kPowerOvbd},
                    {"frontend", lua_scripts::kPowerTpx3efe}, Tpx3Housekeeping()) {}

private:
    std::error_code BackendPoweredUp() override;
    std::error_code FrontendPoweredUp() override;
};

}  // namespace ovex::sdk
