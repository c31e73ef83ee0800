#pragma once

#include "sdk_ovexboard.hpp"

namespace ovex::sdk {

// A readout board with a chip board in front (Timepix2, Timepix4). Its backend module comes only
// with a firmware that runs the OvexBoard design.
class OvexChipBoard : public OvexBoard {
public:
    using OvexBoard::OvexBoard;

protected:
    std::error_code BackendPoweredUp() override;
};

}  // namespace ovex::sdk
