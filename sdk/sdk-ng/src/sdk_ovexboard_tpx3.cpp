#include "sdk_ovexboard_tpx3.hpp"

#include <cstdint>
#include <memory>

#include "modules/backend.hpp"
#include "modules/flash_S25FS128S.hpp"
#include "modules/ovexboard_backend.hpp"
#include "modules/timepix_chip.hpp"
#include "modules/tpx3_acq_data_driven.hpp"
#include "modules/tpx3_acq_frame_based.hpp"
#include "modules/tpx3_chip.hpp"
#include "modules/tpx3efe.hpp"
#include "ovex/log/log.hpp"

namespace ovex::sdk {

OvexBoardTpx3::OvexBoardTpx3(std::shared_ptr<usb::device::UsbDevice> usb_device,
                             usb::device::DeviceInfo info)
    : OvexBoard(usb_device, std::move(info), {"backend", lua_scripts::kPowerOvbd},
                {"frontend", lua_scripts::kPowerTpx3efe}, Tpx3Housekeeping()),
      m_vector_provider(std::make_shared<acquisition::UsbVectorProvider>(usb_device)),
      m_arena_provider(std::make_shared<acquisition::UsbArenaProvider>(usb_device)) {
    OVEX_LOG_DEBUG("USB single-transaction provider added to the device.");
    OVEX_LOG_DEBUG("USB aggregated-transactions provider added to the device.");
}

std::error_code OvexBoardTpx3::BackendPoweredUp() {
    StartMonitors();
    if (GetModule<IBackend>() != nullptr) {
        OVEX_LOG_DEBUG("Device backend power-up callback already invoked, skipping.");
        return {};
    }
    if (!m_commands) {
        OVEX_LOG_ERROR("Failed to build a device after power up. Missing commands.");
        return std::make_error_code(std::errc::invalid_argument);
    }
    if (!m_states) {
        OVEX_LOG_ERROR("Failed to build a device after power up. Missing states.");
        return std::make_error_code(std::errc::invalid_argument);
    }
    AddModule<IBackend>(std::make_unique<OvexboardBackend>(m_commands.get(), m_states.get()));
    AddModule<IFlashControl>(std::make_unique<FlashS25FS128S>(m_commands.get(), "flash_fpga_be"));
    return {};
}

std::error_code OvexBoardTpx3::FrontendPoweredUp() {
    if (GetModule<IFrontend>() != nullptr) {
        OVEX_LOG_DEBUG("Device frontend already created, skipping.");
        return {};
    }
    const auto chip_type = ReadChipType();
    if (!chip_type) {
        return std::make_error_code(std::errc::invalid_argument);
    }
    if (*chip_type != 3) {
        OVEX_LOG_ERROR("Failed to set a device. Unknown/unsupported chip type.");
        return std::make_error_code(std::errc::not_supported);
    }
    AddModule<IFrontend>(std::make_unique<Tpx3efe>(m_commands.get(), m_states.get()));
    AddModule<ITimepixChip>(std::make_unique<Timepix3>(m_commands.get(), m_states.get(),
                                                       m_monitors.get(), m_usb_device.get()));
    using namespace acquisition;
    Commands* commands = m_commands.get();
    AddModule<IAcquisition>(std::make_unique<Tpx3AcqFBToAToT>(commands, m_vector_provider));
    AddModule<IAcquisition>(std::make_unique<Tpx3AcqDDEvCountSum>(commands, m_arena_provider));
    AddModule<IAcquisition>(std::make_unique<Tpx3AcqDDToAToT>(commands, m_arena_provider));
    AddModule<IAcquisition>(std::make_unique<Tpx3AcqDDToAToTSorted>(commands, m_arena_provider));
    AddModule<IAcquisition>(std::make_unique<Tpx3AcqDDiToTEvCountBins>(commands, m_arena_provider));
    AddModule<IAcquisition>(std::make_unique<Tpx3AcqDDIToTSum>(commands, m_arena_provider));
    AddModule<IAcquisition>(std::make_unique<Tpx3AcqFBIToTEvCnt>(commands, m_vector_provider));
    return {};
}

}  // namespace ovex::sdk
