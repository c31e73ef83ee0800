#include "nobe_requests.hpp"

#include <bit>
#include <cmath>
#include <cstdio>
#include <string>

#include "ovex/vboard/frame_readout.hpp"
#include "request_shape.hpp"
#include "wire_format.hpp"

namespace ovex::vboard {
namespace {

constexpr std::size_t kGeometryBytes = 256;
constexpr std::uint8_t kChipIndex = 0;  // the one chip, in the one cell of the geometry
// The longest acquisition: TPX_SHUT_DUR's 2^32 − 1 ticks of 40 MHz, about 107 s.
constexpr double kMaxAcquireSeconds = 4294967295.0 / kTicksPerSecond;

// The id the efuse word names, e.g. "D02-W0041": column in bits 0..3 (1 is A, 0 unfused: X),
// row in 4..7, wafer in 8..19; override bits 20..21 (1 column, 2 row, 3 wafer) put bits 22..31
// in place of that field.
std::string ChipIdText(std::uint32_t efuses) {
    std::uint32_t fields[3] = {efuses & 0xF, efuses >> 4 & 0xF, efuses >> 8 & 0xFFF};
    if (const std::uint32_t overridden = efuses >> 20 & 3; overridden != 0) {
        fields[overridden - 1] = efuses >> 22;
    }
    const char column = fields[0] == 0 ? 'X' : static_cast<char>('A' + fields[0] - 1);
    char text[24];
    std::snprintf(text, sizeof text, "%c%02u-W%04u", column, fields[1], fields[2]);
    return text;
}

// The chip a per-chip request names in the high byte of wIndex; its low byte is 0.
std::uint32_t ChipRefusal(const SetupPacket& setup) {
    if ((setup.wIndex & 0xFF) != 0) {
        return kBadArgument;
    }
    return setup.wIndex >> 8 == kChipIndex ? kNoError : kBadIndex;
}

float FloatIn(std::span<const std::uint8_t> out) {
    return std::bit_cast<float>(wire::GetU32(out));
}

ControlReply Bias(ItemRequests& items, const SetupPacket& setup,
                  std::span<const std::uint8_t> out) {
    const std::size_t bias = *FindItem(items.Tables().states, "BIAS");
    if (setup.IsIn()) {
        if (const auto error = CheckShape(setup, out, Direction::kIn, 4)) {
            return ControlReply::Stall(error);
        }
        std::vector<std::uint8_t> answer;
        wire::PutFloat(answer, static_cast<float>(items.StateValues()[bias]));
        return ControlReply::Answer(std::move(answer));
    }
    if (const auto error = CheckShape(setup, out, Direction::kOut, 4)) {
        return ControlReply::Stall(error);
    }
    // The bias DAC takes whole volts, as the BIAS state does.
    const float volts = FloatIn(out);
    if (!std::isfinite(volts) || std::fabs(volts) > 1e6F) {
        return ControlReply::Stall(kBadArgument);
    }
    const std::uint32_t refusal = items.SetState(bias, static_cast<int>(std::lround(volts)));
    return refusal != kNoError ? ControlReply::Stall(refusal) : ControlReply::Answer();
}

ControlReply Geometry(const SetupPacket& setup, std::span<const std::uint8_t> out) {
    if (const auto error = CheckShape(setup, out, Direction::kIn, kGeometryBytes)) {
        return ControlReply::Stall(error);
    }
    std::vector<std::uint8_t> answer;
    wire::PutU32(answer, 1);  // rows
    wire::PutU32(answer, 1);  // columns
    answer.push_back(kChipIndex);
    answer.resize(kGeometryBytes, 0);
    return ControlReply::Answer(std::move(answer));
}

ControlReply Fsr(ItemRequests& items, const SetupPacket& setup, std::span<const std::uint8_t> out) {
    const Direction direction = setup.IsIn() ? Direction::kIn : Direction::kOut;
    if (const auto error = CheckShape(setup, out, direction, Tpx2Chip::kFsrBytes)) {
        return ControlReply::Stall(error);
    }
    if (const auto error = ChipRefusal(setup)) {
        return ControlReply::Stall(error);
    }
    Tpx2Chip& chip = items.Timepix2();
    if (!setup.IsIn()) {
        const std::uint32_t refusal = chip.WriteFsr(out, items.StateValues());
        return refusal != kNoError ? ControlReply::Stall(refusal) : ControlReply::Answer();
    }
    const auto fsr = chip.Fsr(items.StateValues());
    if (!fsr) {
        return ControlReply::Stall(kChipNotReady);
    }
    return ControlReply::Answer({fsr->begin(), fsr->end()});
}

ControlReply ChipId(ItemRequests& items, const SetupPacket& setup,
                    std::span<const std::uint8_t> out) {
    if (const auto error = CheckShape(setup, out, Direction::kIn, wire::kTextFieldSize)) {
        return ControlReply::Stall(error);
    }
    if (const auto error = ChipRefusal(setup)) {
        return ControlReply::Stall(error);
    }
    // The firmware keeps the efuse word it read at power-on, as TPX_CHIP_ID shows it.
    const auto efuses = static_cast<std::uint32_t>(items.StateValue("TPX_CHIP_ID"));
    return ControlReply::Answer(wire::TextField(ChipIdText(efuses), wire::kTextFieldSize));
}

ControlReply Acquire(ItemRequests& items, const SetupPacket& setup,
                     std::span<const std::uint8_t> out, bool continuous) {
    if (const auto error = CheckShape(setup, out, Direction::kOut, 4)) {
        return ControlReply::Stall(error);
    }
    // The time is the shutter's, in seconds; the counter takes at least one tick.
    const double seconds = FloatIn(out);
    const double ticks = std::round(seconds * kTicksPerSecond);
    if (!(seconds > 0.0) || seconds > kMaxAcquireSeconds || ticks < 1.0) {
        return ControlReply::Stall(kBadArgument);
    }
    const std::uint32_t refusal = items.Timepix2().Acquire(
        continuous, static_cast<std::uint32_t>(ticks), items.StateValues(), items.BoardTime());
    return refusal != kNoError ? ControlReply::Stall(refusal) : ControlReply::Answer();
}

// Requests without a payload.
ControlReply Act(const SetupPacket& setup, std::span<const std::uint8_t> out, auto act) {
    if (const auto error = CheckShape(setup, out, Direction::kOut, 0)) {
        return ControlReply::Stall(error);
    }
    const std::uint32_t refusal = act();
    return refusal != kNoError ? ControlReply::Stall(refusal) : ControlReply::Answer();
}

}  // namespace

ControlReply NobeRequest(ItemRequests& items, const SetupPacket& setup,
                         std::span<const std::uint8_t> out) {
    Tpx2Chip& chip = items.Timepix2();
    const bool nobe = items.Tables().board_id == "NOBE";
    const bool answered =
        nobe || (setup.bRequest == request::kNobeConfMatrixWrite && chip.Present());
    if (!answered) {
        return ControlReply::Stall(kNotSupported);
    }
    const bool chip_request =
        setup.bRequest == request::kNobeFsr || setup.bRequest == request::kNobeChipId;
    if (setup.wValue != 0 || (!chip_request && setup.wIndex != 0)) {
        return ControlReply::Stall(kBadArgument);
    }
    switch (setup.bRequest) {
        case request::kNobeBias:
            return Bias(items, setup, out);
        case request::kNobeChipGeometry:
            return Geometry(setup, out);
        case request::kNobeFsr:
            return Fsr(items, setup, out);
        case request::kNobeChipId:
            return ChipId(items, setup, out);
        case request::kNobeAcquireSingle:
            return Acquire(items, setup, out, false);
        case request::kNobeAcquireMulti:
            return Acquire(items, setup, out, true);
        case request::kNobeConfMatrixWrite:
            return Act(setup, out, [&] { return chip.ArmLoad(items.StateValues()); });
        case request::kNobeAcquireAbort:
            return Act(setup, out, [&] {
                chip.AbortAcquisition();
                return kNoError;
            });
        default:
            return ControlReply::Stall(kNotSupported);
    }
}

}  // namespace ovex::vboard
