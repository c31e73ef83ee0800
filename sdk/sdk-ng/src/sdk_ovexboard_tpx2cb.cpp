#include "sdk_ovexboard_tpx2cb.hpp"

#include <memory>

#include "modules/timepix2_frontends.hpp"
#include "modules/tpx2_acquisition.hpp"
#include "modules/tpx2_chip.hpp"

namespace ovex::sdk {

void OvexBoardTpx2Cb::AddChipBoardModules() {
    AddModule<ITimepixChip>(std::make_unique<Timepix2>(m_commands.get(), m_states.get(),
                                                       m_monitors.get(), m_usb_device.get()));
    AddModule<acquisition::IAcquisition>(
        std::make_unique<acquisition::Tpx2Acquisition>(m_provider));
    AddModule<IFrontend>(std::make_unique<Tpx2Chipboard>(m_commands.get(), m_states.get()),
                         log::kInfo);
}

}  // namespace ovex::sdk
