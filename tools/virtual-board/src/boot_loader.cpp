#include "boot_loader.hpp"

#include <algorithm>
#include <cstdio>

#include "ovex/fx3/app_descriptor.hpp"
#include "request_shape.hpp"
#include "wire_format.hpp"

namespace ovex::vboard {
namespace {

using Layout = fx3img::AppDescriptorLayout;

// A release number as the host's USB layer writes it: 0x0303 is "3.03".
std::string PcbVersionText(std::uint16_t bcd) {
    char text[8];
    std::snprintf(text, sizeof(text), "%d.%02d", (bcd >> 12 & 15) * 10 + (bcd >> 8 & 15),
                  (bcd >> 4 & 15) * 10 + (bcd & 15));
    return text;
}

std::uint32_t WordAt(std::span<const std::uint8_t> descriptor, std::size_t offset) {
    return wire::GetU32(descriptor.subspan(offset, 4));
}

}  // namespace

BootLoader::BootLoader(BootLoaderMode mode, std::uint16_t bcd_device)
    : m_mode(std::move(mode)), m_pcb_version(PcbVersionText(bcd_device)) {}

ControlReply BootLoader::GetId(const SetupPacket& setup, std::span<const std::uint8_t> out) const {
    if (const auto error = CheckShape(setup, out, Direction::kIn, wire::kIdFieldSize)) {
        return ControlReply::Stall(error);
    }
    return ControlReply::Answer(wire::TextField(m_mode.board_id + " BL", wire::kIdFieldSize));
}

ControlReply BootLoader::GetVersion(const SetupPacket& setup,
                                    std::span<const std::uint8_t> out) const {
    if (const auto error = CheckShape(setup, out, Direction::kIn, 8)) {
        return ControlReply::Stall(error);
    }
    std::vector<std::uint8_t> answer;
    for (const std::uint8_t number : m_mode.version) {
        answer.insert(answer.end(), {number, 0});
    }
    return ControlReply::Answer(std::move(answer));
}

ControlReply BootLoader::Ram(const SetupPacket& setup, std::span<const std::uint8_t> out) {
    const auto range = m_ram.Range(Address(setup), setup.IsIn() ? setup.wLength : out.size());
    if (!range) {
        return ControlReply::Stall(kBadArgument);
    }
    if (setup.IsIn()) {
        return ControlReply::Answer({range->begin(), range->end()});
    }
    std::copy(out.begin(), out.end(), range->begin());
    return ControlReply::Answer();
}

std::optional<Application> BootLoader::Start(std::uint32_t entry) const {
    const auto descriptor = m_ram.Range(entry, Layout::kSize);
    if (!descriptor || !std::equal(Layout::kMagic.begin(), Layout::kMagic.end(),
                                   descriptor->begin() + Layout::kMagicOffset)) {
        return std::nullopt;
    }
    const std::uint32_t body_bytes = WordAt(*descriptor, Layout::kBodyBytesOffset);
    const auto body = m_ram.Range(WordAt(*descriptor, Layout::kBodyAddressOffset), body_bytes);
    if (!body || body_bytes % 4 != 0) {
        return std::nullopt;
    }
    std::uint32_t sum = 0;
    for (std::size_t at = 0; at < body->size(); at += 4) {
        sum += wire::GetU32(body->subspan(at, 4));
    }
    const auto kind = KindWithBoardId(
        wire::FieldText(descriptor->subspan(Layout::kBoardIdOffset, Layout::kBoardIdSize)));
    const std::string pcb_version =
        wire::FieldText(descriptor->subspan(Layout::kPcbVersionOffset, Layout::kPcbVersionSize));
    if (sum != WordAt(*descriptor, Layout::kBodySumOffset) || !kind ||
        pcb_version != m_pcb_version) {
        return std::nullopt;
    }
    return Application{*kind, wire::FieldText(descriptor->subspan(Layout::kFirmwareVersionOffset,
                                                                  Layout::kFirmwareVersionSize))};
}

}  // namespace ovex::vboard
