#include "sdk_ovexboard_tpx4cb.hpp"

#include <memory>

#include "modules/tpx4_acquisition.hpp"
#include "modules/tpx4_chip.hpp"
#include "modules/tpx4_chipboard.hpp"

namespace ovex::sdk {

void OvexBoardTpx4Cb::AddChipBoardModules() {
    AddModule<ITimepixChip>(
        std::make_unique<Timepix4>(m_commands.get(), m_states.get(), m_monitors.get()));
    AddModule<acquisition::IAcquisition>(
        std::make_unique<acquisition::Tpx4Acquisition>(m_provider));
    AddModule<IFrontend>(std::make_unique<Tpx4Chipboard>(m_commands.get(), m_states.get()),
                         log::kInfo);
}

}  // namespace ovex::sdk
