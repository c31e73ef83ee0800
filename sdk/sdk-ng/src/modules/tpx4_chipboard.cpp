#include "modules/tpx4_chipboard.hpp"

namespace ovex::sdk {

namespace {

std::error_code NotSupported() {
    return std::make_error_code(std::errc::operation_not_supported);
}

}  // namespace

namespace trigger {

IntSingleTp4Cb::IntSingleTp4Cb(Commands* commands, States* states) noexcept
    : InternalTrigger(1, commands, states) {}

std::error_code IntSingleTp4Cb::Fire() {
    return NotSupported();
}

std::error_code IntSingleTp4Cb::Stop() {
    return NotSupported();
}

std::error_code IntSingleTp4Cb::Configure() {
    return NotSupported();
}

IntContTp4Cb::IntContTp4Cb(Commands* commands, States* states) noexcept
    : InternalTrigger(2, commands, states) {}

std::error_code IntContTp4Cb::Fire() {
    return NotSupported();
}

std::error_code IntContTp4Cb::Stop() {
    return NotSupported();
}

std::error_code IntContTp4Cb::Configure() {
    return NotSupported();
}

ExtTp4Cb::ExtTp4Cb(Commands* commands, States* states) noexcept
    : ExternalTrigger(5, commands, states) {}

std::error_code ExtTp4Cb::Stop() {
    return NotSupported();
}

std::error_code ExtTp4Cb::Configure() {
    return NotSupported();
}

}  // namespace trigger

Tpx4Chipboard::Tpx4Chipboard(Commands* commands, States* states)
    : m_single(commands, states), m_external(commands, states), m_continuous(commands, states) {}

std::error_code Tpx4Chipboard::SetTrigger(std::uint8_t, double) {
    return NotSupported();
}

}  // namespace ovex::sdk
