#pragma once

// Extension of the packets' short time stamps to 64-bit times. A DATA packet carries 16 bits
// of coarse time and is placed next to the time of the packet before it; a CTRL packet carries
// 32 bits and reanchors the running time. All arithmetic is unsigned 64-bit and wraps.

#include <array>
#include <cstdint>
#include <vector>

#include "tpx3_toa_extension/utils/packet_unpack.hpp"

namespace tpx3_toa_extension {

// The record of the data-driven modes; times in sixteenths of a ToA tick.
struct ToaTotRecord {
    std::uint32_t address;
    std::uint32_t tot;
    std::uint64_t time;
};
static_assert(sizeof(ToaTotRecord) == 16);

// The value congruent to `coarse` modulo 2^16 in [last - 32768, last + 32767].
inline constexpr std::uint64_t Extend16(std::uint64_t last, std::uint64_t coarse) noexcept {
    const std::uint64_t top = last + 32767;
    return top - ((top - coarse) & 0xFFFF);
}

// The first value with the low 32 bits `stamp`, at or above last - 0x7FFF (or 0), starting
// from last's own 2^32 page.
inline constexpr std::uint64_t Extend32(std::uint64_t last, std::uint32_t stamp) noexcept {
    const std::uint64_t floor = last <= 0x7FFF ? 0 : last - 0x7FFF;
    std::uint64_t t = (last & ~std::uint64_t{0xFFFF'FFFF}) | stamp;
    if (t < floor) {
        t += ((floor - t - 1) & ~std::uint64_t{0xFFFF'FFFF}) + 0x1'0000'0000;
    }
    return t;
}

// Throws std::runtime_error "Encountered Timepix3 packet with unsupported header " + type name.
[[noreturn]] void ThrowUnsupportedHeader(HeaderMask mask);

// The per-packet rules of the data-driven sink, threaded through a block in stream order.
//
// Extend16(last, coarse) is last plus the difference of coarse and last's low 16 bits, taken as
// a signed 16-bit number. Those low bits are the coarse time of the packet before, or of the
// timer stamp that set last, so the sink keeps them apart: each difference is then known
// without the running time, and the running time is a plain sum. A DATA packet costs one
// dependent addition instead of a chain of four, which is what limits this serial step.
struct ExtensionSink {
    ExtensionSink(std::uint64_t& last_toa, ToaTotRecord* out,
                  std::array<std::vector<std::uint64_t>, 3>& tdc) noexcept
        : last_toa(last_toa), out(out), tdc(tdc), last_coarse(last_toa & 0xFFFF) {}

    std::uint64_t& last_toa;
    ToaTotRecord* out;
    std::array<std::vector<std::uint64_t>, 3>& tdc;
    std::uint64_t last_coarse;  // the low 16 bits of last_toa

    void operator()(std::uint64_t packet, HeaderMask mask) {
        if (mask == HeaderMask::Data) [[likely]] {
            const std::uint64_t coarse = CoarseToa(packet);
            const auto step = static_cast<std::int16_t>(coarse - last_coarse);
            last_coarse = coarse;
            last_toa += static_cast<std::uint64_t>(static_cast<std::int64_t>(step));
            *out++ = {PixelAddress(packet), Tot(packet), (last_toa << 4) | FineToa(packet)};
        } else if (mask == HeaderMask::Ctrl) {
            HandleCtrl(packet);
        } else {
            ThrowUnsupportedHeader(mask);
        }
    }

    void HandleCtrl(std::uint64_t packet) {
        if (packet == kAllOnesPacket) {
            return;
        }
        const std::uint64_t t = Extend32(last_toa, CtrlStamp(packet));
        const std::uint32_t channels = TdcChannels(packet);
        if (channels == 0) {
            last_toa = t;
            last_coarse = t & 0xFFFF;
            return;
        }
        for (unsigned channel = 0; channel < 3; ++channel) {
            if (channels & (1u << channel)) {
                tdc[channel].push_back(t << 4);
            }
        }
    }
};

}  // namespace tpx3_toa_extension
