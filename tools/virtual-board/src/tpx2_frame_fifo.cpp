#include "tpx2_frame_fifo.hpp"

#include <algorithm>
#include <utility>

namespace ovex::vboard {
namespace {

constexpr std::uint8_t kPadding = 0xA5;

// `values` as one stream of `bits`-bit values, least significant bit first.
FrameQueue::Part Pack(const std::vector<std::uint16_t>& values, unsigned bits) {
    FrameQueue::Part out(values.size() * bits / 8, 0);
    std::size_t bit = 0;
    for (const std::uint16_t value : values) {
        for (unsigned b = 0; b < bits; ++b, ++bit) {
            if ((value >> b & 1) != 0) {
                out[bit / 8] = static_cast<std::uint8_t>(out[bit / 8] | 1U << (bit % 8));
            }
        }
    }
    return out;
}

// The frame's parts with `fault` done to them: cut and padding at the end, a split where asked.
std::vector<FrameQueue::Part> Damage(std::vector<FrameQueue::Part> parts, Tpx2FrameFault fault) {
    if (fault.kind == Tpx2FrameFault::Kind::kNone) {
        return parts;
    }
    FrameQueue::Part bytes;
    std::vector<std::size_t> ends;
    for (const FrameQueue::Part& part : parts) {
        bytes.insert(bytes.end(), part.begin(), part.end());
        ends.push_back(bytes.size());
    }
    switch (fault.kind) {
        case Tpx2FrameFault::Kind::kCut:
            bytes.resize(bytes.size() - std::min(fault.bytes, bytes.size()));
            std::erase_if(ends, [&](std::size_t end) { return end >= bytes.size(); });
            ends.push_back(bytes.size());
            break;
        case Tpx2FrameFault::Kind::kPadded:
            bytes.resize(bytes.size() + fault.bytes, kPadding);
            ends.back() = bytes.size();
            break;
        case Tpx2FrameFault::Kind::kSplit:
            if (fault.bytes > 0 && fault.bytes < bytes.size()) {
                ends.push_back(fault.bytes);
                std::sort(ends.begin(), ends.end());
                ends.erase(std::unique(ends.begin(), ends.end()), ends.end());
            }
            break;
        case Tpx2FrameFault::Kind::kNone:
            break;
    }
    std::vector<FrameQueue::Part> damaged;
    std::size_t start = 0;
    for (const std::size_t end : ends) {
        damaged.emplace_back(bytes.begin() + static_cast<std::ptrdiff_t>(start),
                             bytes.begin() + static_cast<std::ptrdiff_t>(end));
        start = end;
    }
    return damaged;
}

}  // namespace

std::vector<FrameQueue::Part> Tpx2WireParts(std::span<const std::uint16_t> pixels,
                                            Tpx2Depth depth) {
    if (depth == Tpx2Depth::k8Bit) {
        return {FrameQueue::Part(pixels.begin(), pixels.end())};
    }
    if (depth == Tpx2Depth::k10Bit) {
        return {Pack({pixels.begin(), pixels.end()}, 10)};
    }
    // 14 bits (the only depth left: frames never leave at the configuration's 4 bits).
    std::vector<std::uint16_t> low(pixels.rbegin(), pixels.rend());
    std::vector<std::uint16_t> high(low.size());
    for (std::size_t p = 0; p < low.size(); ++p) {
        high[p] = static_cast<std::uint16_t>(low[p] >> 10);
        low[p] &= 0x3FF;
    }
    return {Pack(low, 10), Pack(high, 4)};
}

void Tpx2FrameFifo::ReadOut(Tpx2Frame frame) {
    Queue(std::move(frame), [](const Tpx2Frame& queued) {
        return Damage(Tpx2WireParts(queued.pixels, queued.depth), queued.fault);
    });
}

}  // namespace ovex::vboard
