#include "modules/tpx4_chip.hpp"

#include "modules/chip_support.hpp"
#include "ovex/log/log.hpp"

namespace ovex::sdk {
namespace {

std::error_code NotSupported() {
    return std::make_error_code(std::errc::operation_not_supported);
}

// No item of its own: the chip record is asked for by name when it is read.
ModuleRequirements ChipItems(Commands* commands, States* states) {
    ModuleRequirements requirements;
    requirements.commands = {{commands, {}}};
    requirements.states = {{states, {}}};
    return requirements;
}

}  // namespace

std::error_code Tpx4Dacs::SetDac(std::uint8_t, std::uint32_t) {
    return NotSupported();
}

std::error_code Tpx4Dacs::GetDac(std::uint8_t, std::uint32_t&) {
    return NotSupported();
}

std::error_code Tpx4Dacs::SelectSenseDac(std::uint8_t) {
    return NotSupported();
}

std::error_code Tpx4Dacs::ReadDacOut(float&) {
    return NotSupported();
}

std::error_code Tpx4ThresholdCtlr::GetThresholdInfo(ThresholdInfo&) {
    return NotSupported();
}

std::error_code Tpx4ThresholdCtlr::GetThreshold(float&) {
    return NotSupported();
}

std::error_code Tpx4ThresholdCtlr::SetThreshold(float) {
    return NotSupported();
}

std::error_code Tpx4ThresholdCtlr::GetRawThreshold(std::uint32_t&) {
    return NotSupported();
}

std::error_code Tpx4ThresholdCtlr::SetRawThreshold(std::uint32_t) {
    return NotSupported();
}

Timepix4::Timepix4(Commands* commands, States* states, Monitors*)
    : ITimepixChip(ChipItems(commands, states), false),
      m_threshold(m_dacs),
      m_chip_id(kUnknownChipId),
      m_mask(kTpx4PixelCount, 0) {}

Commands& Timepix4::BoardCommands() const {
    Commands* maybe_commands = GetCommands();
    OVEX_CHECK(maybe_commands != nullptr, "BUG: Commands object is invalid.");
    return *maybe_commands;
}

std::error_code Timepix4::GetPolarity(std::uint8_t&) {
    return NotSupported();
}

std::optional<ChipInfo> Timepix4::GetInfo() {
    ChipInfo info;
    if (const auto ec = ReadChipRecord(BoardCommands(), info)) {
        OVEX_LOG_EC(log::kError, "Failed to obtain chip information from the device - %s: %s.", ec);
        return std::nullopt;
    }
    info.pixel_count = 0;
    info.width = 0;
    info.height = 0;
    info.config_depth_class = 0;
    return info;
}

std::vector<std::uint8_t> Timepix4::GetDefaultMatrix() {
    return std::vector<std::uint8_t>(kTpx4PixelCount, 0x40);
}

std::error_code Timepix4::WriteMatrix(std::span<const std::uint8_t>) {
    return NotSupported();
}

std::error_code Timepix4::ReadMatrix(std::vector<std::uint8_t>&) {
    return NotSupported();
}

std::error_code Timepix4::SetMask(std::span<const std::uint8_t>) {
    return NotSupported();
}

std::error_code Timepix4::GetMask(std::vector<std::uint8_t>&) {
    return NotSupported();
}

std::error_code Timepix4::DigitalTest(std::vector<std::uint32_t>& bad) {
    bad.clear();
    return {};
}

std::error_code Timepix4::CreateThresholdControl(const configuration::ConfigLoader*) {
    return {};
}

std::error_code Timepix4::SetPolarity(std::uint8_t) {
    return NotSupported();
}

std::error_code Timepix4::SetMode(ovexsdk_chip_mode) {
    return NotSupported();
}

}  // namespace ovex::sdk
