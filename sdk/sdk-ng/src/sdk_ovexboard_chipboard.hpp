#pragma once

#include <cstdint>
#include <memory>

#include "impl/acquisition/usb_vector_provider.hpp"
#include "sdk_ovexboard.hpp"

namespace ovex::sdk {

// The chip boards tell their item count as a detail, and a power unit that can't be made with
// a colon.
inline constexpr BoardWording kChipBoardWording{
    log::kDebug, "Failed to initialize power module: %s", kBoardWording.monitors_missing};

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
    // The chip, its acquisition and the frontend, in this order; the frontend's arrival is
    // logged as information.
    virtual void AddChipBoardModules() = 0;

    std::shared_ptr<acquisition::UsbVectorProvider> m_provider;

private:
    std::uint8_t m_chip_type;
};

}  // namespace ovex::sdk
