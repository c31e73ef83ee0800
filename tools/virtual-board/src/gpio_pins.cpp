#include "gpio_pins.hpp"

#include "request_shape.hpp"
#include "wire_format.hpp"

namespace ovex::vboard {

ControlReply GpioPins::Handle(const SetupPacket& setup, std::span<const std::uint8_t> out) {
    const Direction direction = setup.IsIn() ? Direction::kIn : Direction::kOut;
    if (const auto error = CheckShape(setup, out, direction, setup.IsIn() ? 4 : 0)) {
        return ControlReply::Stall(error);
    }
    if (setup.wIndex >= kPinCount) {
        return ControlReply::Stall(kBadIndex);
    }
    if (setup.IsIn()) {
        return ControlReply::Answer(wire::U32(m_high[setup.wIndex] ? 1 : 0));
    }
    m_high[setup.wIndex] = setup.wValue != 0;
    return ControlReply::Answer();
}

}  // namespace ovex::vboard
