#include "modules/triggers/tp2fe.hpp"

namespace ovex::sdk::trigger {

IntSingleTp2fe::IntSingleTp2fe(Commands* commands, States* states) noexcept
    : IntSingleTp2Cb(commands, states) {}

IntContTp2fe::IntContTp2fe(Commands* commands, States* states) noexcept
    : IntContTp2Cb(commands, states) {}

ExtTp2fe::ExtTp2fe(Commands* commands, States* states) noexcept : ExtTp2Cb(commands, states) {}

}  // namespace ovex::sdk::trigger
