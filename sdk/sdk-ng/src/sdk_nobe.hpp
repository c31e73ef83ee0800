#pragma once

#include <memory>

#include "impl/acquisition/usb_vector_provider.hpp"
#include "ovex/lua_scripts/scripts.hpp"
#include "sdk_board_housekeeping.hpp"
#include "sdk_ovexboard.hpp"

namespace ovex::sdk {

// The NoBE readout board with its Timepix2 front end board. Its monitors, which cover the FPGAs
// of both boards, run from the open on. The "NoBE" unit's power-up brings the backend and its
// flash with a firmware that runs the NoBE design; the "TP2FE" unit's brings the front end, the
// Timepix2 chip, its frame acquisition and the front end's own flash.
class Nobe final : public OvexBoard {
public:
    Nobe(std::shared_ptr<usb::device::UsbDevice> usb_device, usb::device::DeviceInfo info);

    std::error_code Prologue() override;

private:
    std::error_code BackendPoweredUp() override;
    std::error_code FrontendPoweredUp() override;

    std::shared_ptr<acquisition::UsbVectorProvider> m_provider;
};

}  // namespace ovex::sdk
