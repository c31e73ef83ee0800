#include "sdk_ovexboard_chipboard.hpp"

#include <memory>

#include "modules/backend.hpp"
#include "modules/eeprom_ctrl.hpp"
#include "modules/flash_S25FS128S.hpp"
#include "modules/flash_ctrl.hpp"
#include "modules/ovexboard_backend.hpp"
#include "ovex/log/log.hpp"

namespace ovex::sdk {

OvexChipBoard::OvexChipBoard(std::shared_ptr<usb::device::UsbDevice> usb_device,
                             usb::device::DeviceInfo info, PowerUnitRecipe backend,
                             PowerUnitRecipe frontend, HousekeepingRecipe housekeeping,
                             std::uint8_t chip_type)
    : OvexBoard(usb_device, std::move(info), backend, frontend, housekeeping, kChipBoardWording),
      m_provider(std::make_shared<acquisition::UsbVectorProvider>(usb_device)),
      m_chip_type(chip_type) {
    const auto eeproms = GetModules<IEepromControl>();
    OVEX_LOG_DEBUG("USB data provider added to the device (index %zu), module '%s'.",
                   kConstructorModules, eeproms.empty() ? "" : eeproms.back()->GetName());
}

std::error_code OvexChipBoard::BackendPoweredUp() {
    StartMonitors();
    // Either module shows an earlier run: the flash comes with any firmware, the backend only
    // with the OvexBoard design.
    if (GetModule<IBackend>() != nullptr || GetModule<IFlashControl>() != nullptr) {
        OVEX_LOG_DEBUG("Device backend power-up callback already invoked, skipping.");
        return {};
    }
    auto* versions = GetVersions();
    if (versions == nullptr) {
        return std::make_error_code(std::errc::invalid_argument);
    }
    for (const auto& name : versions->Names()) {
        if (name == "Ovexboard") {
            AddModule<IBackend>(
                std::make_unique<OvexboardBackend>(m_commands.get(), m_states.get()));
        }
    }
    AddModule<IFlashControl>(std::make_unique<FlashS25FS128S>(m_commands.get(), "flash_fpga_be"));
    return {};
}

std::error_code OvexChipBoard::FrontendPoweredUp() {
    if (GetModule<IFrontend>() != nullptr) {
        OVEX_LOG_DEBUG("Device frontend already created, skipping.");
        return {};
    }
    OVEX_LOG_INFO("On frontend powered up");
    const auto chip_type = ReadChipType();
    if (!chip_type) {
        return std::make_error_code(std::errc::invalid_argument);
    }
    if (*chip_type != m_chip_type) {
        OVEX_LOG_ERROR("Failed to set a device. Unknown/unsupported chip type.");
        return std::make_error_code(std::errc::not_supported);
    }
    AddChipBoardModules();
    return {};
}

}  // namespace ovex::sdk
