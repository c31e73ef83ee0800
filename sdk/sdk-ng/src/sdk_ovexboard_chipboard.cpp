#include "sdk_ovexboard_chipboard.hpp"

#include <memory>

#include "modules/backend.hpp"
#include "modules/flash_S25FS128S.hpp"
#include "modules/ovexboard_backend.hpp"
#include "ovex/log/log.hpp"

namespace ovex::sdk {

std::error_code OvexChipBoard::BackendPoweredUp() {
    StartMonitors();
    if (GetModule<IBackend>() != nullptr) {
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

}  // namespace ovex::sdk
