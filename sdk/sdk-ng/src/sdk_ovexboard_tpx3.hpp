#pragma once

#include <memory>

#include "impl/acquisition/usb_arena_provider.hpp"
#include "impl/acquisition/usb_vector_provider.hpp"
#include "ovex/lua_scripts/scripts.hpp"
#include "sdk_board_housekeeping.hpp"
#include "sdk_ovexboard.hpp"

namespace ovex::sdk {

// A readout board with the Timepix3 extended front end. The backend's power-up brings the
// readout board's trigger and synchronisation module; the frontend's brings the frontend with
// its triggers, the chip and the acquisitions, once the board says that a Timepix3 sits there.
// The frame modes read the data endpoint through the vector provider, the data-driven modes
// through the arena provider.
class OvexBoardTpx3 final : public OvexBoard {
public:
    OvexBoardTpx3(std::shared_ptr<usb::device::UsbDevice> usb_device, usb::device::DeviceInfo info);

private:
    std::error_code BackendPoweredUp() override;
    std::error_code FrontendPoweredUp() override;

    std::shared_ptr<acquisition::UsbVectorProvider> m_vector_provider;
    std::shared_ptr<acquisition::UsbArenaProvider> m_arena_provider;
};

}  // namespace ovex::sdk
