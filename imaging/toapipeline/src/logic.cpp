#include "tpx3_toa_extension/dd_toa_tot/logic.hpp"

#include <stdexcept>
#include <string>

namespace tpx3_toa_extension {

void ThrowUnsupportedHeader(HeaderMask mask) {
    throw std::runtime_error("Encountered Timepix3 packet with unsupported header " +
                             std::string(PacketTypeName(mask)));
}

}  // namespace tpx3_toa_extension
