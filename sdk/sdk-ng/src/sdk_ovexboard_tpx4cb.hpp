#pragma once

#include "ovex/lua_scripts/scripts.hpp"
#include "sdk_board_housekeeping.hpp"
#include "sdk_ovexboard_chipboard.hpp"

namespace ovex::sdk {

// A readout board with a Timepix4 chip board. It opens, powers up and is monitored; its chip
// takes no mode and its acquisition serves none, so that no acquisition can start.
class OvexBoardTpx4Cb final : public OvexChipBoard {
public:
    OvexBoardTpx4Cb(std::shared_ptr<usb::device::UsbDevice> usb_device,
                    usb::device::DeviceInfo info)
        : OvexChipBoard(std::move(usb_device), std::move(info),
                        {"backend", lua_scripts::kPowerOvbd},
                        {"frontend", lua_scripts::kPowerTpx4cb}, Tpx4CbHousekeeping(), 4) {}

private:
    void AddChipBoardModules() override;
};

}  // namespace ovex::sdk
