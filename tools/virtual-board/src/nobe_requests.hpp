#pragma once

// The NoBE's own vendor requests (0x10 to 0x1C): the bias, the geometry of its one Timepix2,
// the chip's FSR registers and id, a simple acquisition through the chip's shutter, and the
// configuration load (0x1A), which the Timepix2 chip board answers too, as the host's chip code
// sends it on both. ITEMS.md gives the wire layout, the choices and the refusals.

#include <cstdint>
#include <span>

#include "item_requests.hpp"
#include "ovex/vboard/firmware_model.hpp"

namespace ovex::vboard {

namespace request {
inline constexpr std::uint8_t kNobeBias = 0x10;
inline constexpr std::uint8_t kNobeChipGeometry = 0x15;
inline constexpr std::uint8_t kNobeFsr = 0x16;
inline constexpr std::uint8_t kNobeChipId = 0x18;
inline constexpr std::uint8_t kNobeAcquireSingle = 0x19;
inline constexpr std::uint8_t kNobeConfMatrixWrite = 0x1A;
inline constexpr std::uint8_t kNobeAcquireMulti = 0x1B;
inline constexpr std::uint8_t kNobeAcquireAbort = 0x1C;
inline constexpr std::uint8_t kNobeFirst = 0x10;
inline constexpr std::uint8_t kNobeLast = 0x1C;
}  // namespace request

// Answers request `setup.bRequest` (kNobeFirst..kNobeLast) on the board of `items`.
ControlReply NobeRequest(ItemRequests& items, const SetupPacket& setup,
                         std::span<const std::uint8_t> out);

}  // namespace ovex::vboard
