#pragma once

// The triggers of the Timepix2 frontend. Its board takes the same commands as the Timepix2 chip
// board, so these are the chip board's triggers under the frontend's names.

#include "modules/triggers/tp2cb.hpp"

namespace ovex::sdk::trigger {

class IntSingleTp2fe final : public IntSingleTp2Cb {
public:
    IntSingleTp2fe(Commands* commands, States* states) noexcept;
};

class IntContTp2fe final : public IntContTp2Cb {
public:
    IntContTp2fe(Commands* commands, States* states) noexcept;
};

class ExtTp2fe final : public ExtTp2Cb {
public:
    ExtTp2fe(Commands* commands, States* states) noexcept;
};

}  // namespace ovex::sdk::trigger
