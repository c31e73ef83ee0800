#include "sdk_nobe.hpp"

#include "modules/backend.hpp"
#include "modules/flash_S25FL128S.hpp"
#include "modules/flash_S25FS128S.hpp"
#include "modules/mon_ctrl.hpp"
#include "modules/nobe_backend.hpp"
#include "modules/timepix2_frontends.hpp"
#include "modules/tpx2_acquisition.hpp"
#include "modules/tpx2_chip.hpp"
#include "ovex/log/log.hpp"

namespace ovex::sdk {

Nobe::Nobe(std::shared_ptr<usb::device::UsbDevice> usb_device, usb::device::DeviceInfo info)
    : OvexBoard(usb_device, std::move(info), {"NoBE", lua_scripts::kPowerNobe},
                {"TP2FE", lua_scripts::kPowerTp2fe}, NobeHousekeeping(),
                {kBoardWording.items_loaded, kBoardWording.power_module_failure,
                 "Pointer to monitor control object is not valid."}),
      m_provider(std::make_shared<acquisition::UsbVectorProvider>(usb_device)) {
    OVEX_LOG_DEBUG("USB data provider added to the device (index %zu).", kConstructorModules);
}

std::error_code Nobe::Prologue() {
    auto* monitors = GetModule<IMonitorControl>();
    if (monitors == nullptr) {
        OVEX_LOG_ERROR(
            "Pointer to monitor control object is not valid, skipping asynchronous monitors "
            "initialization.");
        return std::make_error_code(std::errc::invalid_argument);
    }
    if (!monitors->IsRunning()) {
        if (const auto ec = monitors->Start()) {
            OVEX_LOG_EC(log::kError, "Failed to start asynchronous monitor processing: - %s: %s.",
                        ec);
            return ec;
        }
    }
    return {};
}

std::error_code Nobe::BackendPoweredUp() {
    if (GetModule<IBackend>() != nullptr) {
        OVEX_LOG_DEBUG("Device backend power-up callback already invoked, skipping.");
        return {};
    }
    auto* versions = GetVersions();
    OVEX_CHECK(versions != nullptr, "BUG: Object representing component versions is invalid.");
    for (const auto& name : versions->Names()) {
        if (name == "NOBE") {
            AddModule<IBackend>(std::make_unique<NobeBackend>(m_commands.get()));
            AddModule<IFlashControl>(
                std::make_unique<FlashS25FS128S>(m_commands.get(), "flash_fpga_be"));
        }
    }
    return {};
}

std::error_code Nobe::FrontendPoweredUp() {
    if (GetModule<IFrontend>() != nullptr) {
        OVEX_LOG_DEBUG("Device frontend already created, skipping.");
        return {};
    }
    const auto chip_type = ReadChipType();
    if (!chip_type) {
        return std::make_error_code(std::errc::invalid_argument);
    }
    if (*chip_type != 2) {
        OVEX_LOG_ERROR("Unknown/unsupported chip type '%d'", static_cast<int>(*chip_type));
        return std::make_error_code(std::errc::not_supported);
    }
    AddModule<IFrontend>(std::make_unique<Tp2fe>(m_commands.get(), m_states.get()));
    AddModule<ITimepixChip>(std::make_unique<Timepix2>(m_commands.get(), m_states.get(),
                                                       m_monitors.get(), m_usb_device.get()));
    AddModule<acquisition::IAcquisition>(
        std::make_unique<acquisition::Tpx2Acquisition>(m_provider));
    AddModule<IFlashControl>(std::make_unique<FlashS25FL128S>(m_usb_device, "flash_fpga_fe"));
    return {};
}

}  // namespace ovex::sdk
