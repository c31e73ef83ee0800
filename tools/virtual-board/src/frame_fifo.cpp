#include "frame_fifo.hpp"

#include <algorithm>
#include <utility>

#include "sensor_model.hpp"
#include "wire_format.hpp"

namespace ovex::vboard {
namespace {

using wire::kPacketBytes;
constexpr std::uint8_t kCountMode = 2;
constexpr std::uint64_t kConfigType = 1;
constexpr std::uint64_t kControlType = 3;

// Writes `packet` at `at`; the position behind it.
std::uint8_t* Put(std::uint8_t* at, std::uint64_t packet) {
    wire::PutPacket(at, packet);
    return at + kPacketBytes;
}

std::vector<std::uint8_t> Encode(const ReadoutFrame& frame) {
    const bool corrupted = frame.fault == FrameFault::kCorrupted;
    std::vector<std::uint8_t> out((frame.hits.size() + (corrupted ? 2 : 1)) * kPacketBytes);
    std::uint8_t* at = out.data();
    if (corrupted) {
        at = Put(at, kConfigType << 46);
    }
    for (const FrameHit& hit : frame.hits) {
        // DATA packets (type 0): the address in bits 45..30; then ToT in 29..20 and the ToA's
        // low 20 bits (coarse 19..4, fine 3..0), or the event count in 29..20 and iToT in 17..4.
        std::uint64_t packet = std::uint64_t{PixelAddress(hit.pixel)} << 30;
        if (frame.mode == kCountMode) {
            packet |= std::uint64_t{hit.count} << 20 | std::uint64_t{hit.itot} << 4;
        } else {
            packet |= std::uint64_t{hit.tot} << 20 | (hit.toa & 0xFFFFF);
        }
        at = Put(at, packet);
    }
    Put(at, kControlType << 46 | (frame.close_toa & 0xFFFFFFFF));
    if (frame.fault == FrameFault::kTruncated) {
        out.resize(out.size() - kPacketBytes / 2);
    }
    return out;
}

}  // namespace

void FrameFifo::ReadOut(ReadoutFrame frame) {
    Queue(std::move(frame),
          [](const ReadoutFrame& queued) { return std::vector<FrameQueue::Part>{Encode(queued)}; });
}

}  // namespace ovex::vboard
