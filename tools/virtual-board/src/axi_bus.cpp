#include "axi_bus.hpp"

#include "request_shape.hpp"
#include "wire_format.hpp"

namespace ovex::vboard {
namespace {

constexpr std::uint32_t kId = 0x40000000;
constexpr std::uint32_t kScratch = 0x40000004;
constexpr std::uint32_t kControl = 0x40000008;
constexpr std::uint32_t kStreamStarts = 0x4000000C;

}  // namespace

void AxiBus::PowerOn() {
    m_registers = {
        {kId, {kAxiIdValue, false}},
        {kScratch, {0, true}},
        {kControl, {0, true}},
        {kStreamStarts, {0, false}},
    };
}

ControlReply AxiBus::Access(const SetupPacket& setup, std::span<const std::uint8_t> out) {
    const Direction direction = setup.IsIn() ? Direction::kIn : Direction::kOut;
    if (const auto error = CheckShape(setup, out, direction, 4)) {
        return ControlReply::Stall(error);
    }
    const std::uint32_t address = static_cast<std::uint32_t>(setup.wIndex) << 16 | setup.wValue;
    const auto found = m_registers.find(address);
    if (found == m_registers.end()) {
        return ControlReply::Stall(kAxiDecodeError);
    }
    Register& reg = found->second;
    if (setup.IsIn()) {
        return ControlReply::Answer(wire::U32(reg.value));
    }
    if (!reg.writable) {
        return ControlReply::Stall(kAxiSlaveError);
    }
    reg.value = wire::GetU32(out);
    return ControlReply::Answer();
}

ControlReply AxiBus::StreamStart(const SetupPacket& setup, std::span<const std::uint8_t> out) {
    if (const auto error = CheckShape(setup, out, Direction::kOut, 0)) {
        return ControlReply::Stall(error);
    }
    ++m_registers.at(kStreamStarts).value;
    return ControlReply::Answer();
}

}  // namespace ovex::vboard
