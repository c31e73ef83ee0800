#pragma once

#include <cstdint>
#include <memory>

#include "impl/acquisition/usb_vector_provider.hpp"
#include "sdk_ovexboard.hpp"

namespace ovex::sdk {

// A readout board with a chip board in front (Timepix2, Timepix4). Its backend module comes only
// with a firmware that runs the OvexBoard design; the frontend's power-up brings the chip, its
// acquisition and the frontend, once the board says that the chip it serves sits there. The
// frames come through the vector provider.
class OvexChipBoard : public OvexBoard {
public:
    OvexChipBoard(std::shared_ptr<usb::device::UsbDevice> usb_device, usb::device::DeviceInfo info,
                  PowerUnitRecipe backend, PowerUnitRecipe frontend,
                  HousekeepingRecipe housekeeping, std::uint8_t chip_type);

protected:
    std::error_code BackendPoweredUp() override;
    std::error_code FrontendPoweredUp() override;
    // The chip, its acquisition and the frontend, in this order.
    virtual void AddChipBoardModules() = 0;

    std::shared_ptr<acquisition::UsbVectorProvider> m_provider;

private:
    std::uint8_t m_chip_type;
};

}  // namespace ovex::sdk
