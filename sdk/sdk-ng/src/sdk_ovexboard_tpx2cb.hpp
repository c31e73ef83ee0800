#pragma once

#include "ovex/lua_scripts/scripts.hpp"
#include "sdk_board_housekeeping.hpp"
#include "sdk_ovexboard_chipboard.hpp"

namespace ovex::sdk {

// A readout board with a Timepix2 chip board: the chip, its frame acquisition and the chip
// board's frontend come with a Timepix2 behind the frontend.
class OvexBoardTpx2Cb final : public OvexChipBoard {
public:
    OvexBoardTpx2Cb(std::shared_ptr<usb::device::UsbDevice> usb_device,
                    usb::device::DeviceInfo info)
        : OvexChipBoard(std::move(usb_device), std::move(info),
                        {"backend", lua_scripts::kPowerOvbd},
                        {"frontend", lua_scripts::kPowerTpx2cb}, Tpx2CbHousekeeping(), 2) {}

private:
    void AddChipBoardModules() override;
};

}  // namespace ovex::sdk
