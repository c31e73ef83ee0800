#include "controller_requests.hpp"

#include <algorithm>
#include <cstdio>

#include "request_shape.hpp"
#include "wire_format.hpp"

namespace ovex::vboard {
namespace {

// Major, minor, patch and build at the even bytes.
std::vector<std::uint8_t> VersionAnswer(const ItemTables& tables) {
    unsigned int numbers[3] = {0, 0, 0};
    if (const auto id = FindItem(tables.versions, "FX3_FW")) {
        std::sscanf(tables.versions[*id].value.c_str(), "%u.%u.%u", &numbers[0], &numbers[1],
                    &numbers[2]);
    }
    return {static_cast<std::uint8_t>(numbers[0]),
            0,
            static_cast<std::uint8_t>(numbers[1]),
            0,
            static_cast<std::uint8_t>(numbers[2]),
            0,
            0,
            0};
}

// kBadIndex for a device that isn't there, kBadArgument for a range past the memory's end.
std::uint32_t CheckEepromRange(const SetupPacket& setup, std::size_t length) {
    if (setup.wValue >= ControllerRequests::kEepromCount) {
        return kBadIndex;
    }
    return setup.wIndex + length > ControllerRequests::kEepromSize ? kBadArgument : kNoError;
}

}  // namespace

ControllerRequests::ControllerRequests(const ItemTables& tables) {
    Identify(tables);
}

void ControllerRequests::Identify(const ItemTables& tables) {
    m_board_id = tables.board_id;
    m_version = VersionAnswer(tables);
}

ControlReply ControllerRequests::GetId(const SetupPacket& setup,
                                       std::span<const std::uint8_t> out) const {
    if (const auto error = CheckShape(setup, out, Direction::kIn, wire::kIdFieldSize)) {
        return ControlReply::Stall(error);
    }
    return ControlReply::Answer(wire::TextField(m_board_id, wire::kIdFieldSize));
}

ControlReply ControllerRequests::GetVersion(const SetupPacket& setup,
                                            std::span<const std::uint8_t> out) const {
    if (const auto error = CheckShape(setup, out, Direction::kIn, m_version.size())) {
        return ControlReply::Stall(error);
    }
    return ControlReply::Answer(m_version);
}

ControlReply ControllerRequests::Ram(const SetupPacket&, std::span<const std::uint8_t>) const {
    return ControlReply::Stall(kNotSupported);
}

ControlReply ControllerRequests::WriteEeprom(const SetupPacket& setup,
                                             std::span<const std::uint8_t> out) {
    if (setup.IsIn()) {
        return ControlReply::Stall(kNotSupported);
    }
    if (const auto error = CheckEepromRange(setup, out.size())) {
        return ControlReply::Stall(error);
    }
    std::vector<std::uint8_t>& memory = m_eeproms[setup.wValue];
    if (memory.empty()) {
        memory.assign(kEepromSize, 0xFF);
    }
    std::copy(out.begin(), out.end(), memory.begin() + setup.wIndex);
    return ControlReply::Answer();
}

ControlReply ControllerRequests::ReadEeprom(const SetupPacket& setup,
                                            std::span<const std::uint8_t>) const {
    if (!setup.IsIn()) {
        return ControlReply::Stall(kNotSupported);
    }
    if (const auto error = CheckEepromRange(setup, setup.wLength)) {
        return ControlReply::Stall(error);
    }
    const std::vector<std::uint8_t>& memory = m_eeproms[setup.wValue];
    if (memory.empty()) {
        return ControlReply::Answer(std::vector<std::uint8_t>(setup.wLength, 0xFF));
    }
    const auto start = memory.begin() + setup.wIndex;
    return ControlReply::Answer({start, start + setup.wLength});
}

}  // namespace ovex::vboard
