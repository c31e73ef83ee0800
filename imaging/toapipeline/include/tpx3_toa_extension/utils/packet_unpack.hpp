#pragma once

// The Timepix3 wire format: a stream of 6-byte packets, each a little-endian 48-bit number P.
// The walker visits every whole packet of a block in stream order and hands it to a sink.

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <span>
#include <string_view>
#include <vector>

namespace tpx3_toa_extension {

inline constexpr std::size_t TPX3_PACKET_SIZE = 6;

// The packet type as one byte, so that the masks of four packets fit in one 32-bit word.
enum class HeaderMask : std::uint8_t {
    Data = 0xFF,
    Cfg = 0x0F,
    Unknown = 0xF0,
    Ctrl = 0x00,
};

inline constexpr std::uint64_t kPacketValueMask = 0xFFFF'FFFF'FFFFull;
// A CTRL packet without a time stamp.
inline constexpr std::uint64_t kAllOnesPacket = 0xFFFF'FFFF'FFFFull;

inline constexpr HeaderMask MaskOfPacket(std::uint64_t packet) noexcept {
    constexpr HeaderMask kByType[4] = {HeaderMask::Data, HeaderMask::Cfg, HeaderMask::Unknown,
                                       HeaderMask::Ctrl};
    return kByType[(packet >> 46) & 0x3];
}

// "DATA", "CFG", "CTRL", or "UNKNOWN" for type 2 and any byte that is no mask.
std::string_view PacketTypeName(HeaderMask mask) noexcept;

// Fields of a DATA packet in the ToA+ToT modes.
inline constexpr std::uint32_t PixelAddress(std::uint64_t p) noexcept {
    return static_cast<std::uint32_t>((p >> 30) & 0xFFFF);
}
inline constexpr std::uint32_t Tot(std::uint64_t p) noexcept {
    return static_cast<std::uint32_t>((p >> 20) & 0x3FF);
}
inline constexpr std::uint64_t CoarseToa(std::uint64_t p) noexcept {
    return (p >> 4) & 0xFFFF;
}
inline constexpr std::uint64_t FineToa(std::uint64_t p) noexcept {
    return p & 0xF;
}
// Fields of a DATA packet in the iToT and event count mode.
inline constexpr std::uint32_t EventCount(std::uint64_t p) noexcept {
    return Tot(p);
}
inline constexpr std::uint32_t Itot(std::uint64_t p) noexcept {
    return static_cast<std::uint32_t>((p >> 4) & 0x3FFF);
}
// Fields of a CTRL packet.
inline constexpr std::uint32_t CtrlStamp(std::uint64_t p) noexcept {
    return static_cast<std::uint32_t>(p);
}
inline constexpr std::uint32_t TdcChannels(std::uint64_t p) noexcept {
    return static_cast<std::uint32_t>((p >> 36) & 0x7);
}
// Fields of a CFG packet.
inline constexpr std::uint8_t PixelConfig(std::uint64_t p) noexcept {
    return static_cast<std::uint8_t>((p >> 14) & 0x3F);
}

inline std::uint64_t LoadPacket(const std::uint8_t* bytes) noexcept {
    std::uint32_t low;
    std::uint16_t high;
    std::memcpy(&low, bytes, sizeof low);
    std::memcpy(&high, bytes + 4, sizeof high);
    return (static_cast<std::uint64_t>(high) << 32) | low;
}

// Reads the first packet of a span; throws std::invalid_argument on fewer than 6 bytes.
std::uint64_t ReadPacket(std::span<const std::uint8_t> bytes);

// The number of packets that a walk of `length` bytes visits. The walk consumes pairs of
// packets and then a single last one only if exactly one packet is left, so a ragged tail
// also takes the whole packet in front of it when that packet has no partner.
inline constexpr std::size_t WalkedPacketCount(std::size_t length) noexcept {
    return 2 * (length / (2 * TPX3_PACKET_SIZE)) +
           (length % (2 * TPX3_PACKET_SIZE) == TPX3_PACKET_SIZE ? 1 : 0);
}

// Logs "Data block not divisible by packet size" at error level.
void ReportRaggedBlock() noexcept;

// Visits the packets of [first, last) in stream order: sink(P, HeaderMask). A length that is
// no multiple of 6 is logged and the walk goes on; the tail is dropped.
template <typename Sink>
void WalkPackets(const std::uint8_t* first, const std::uint8_t* last, Sink&& sink) {
    const auto length = static_cast<std::size_t>(last - first);
    if (length % TPX3_PACKET_SIZE != 0) {
        ReportRaggedBlock();
    }
    const std::size_t count = WalkedPacketCount(length);
    for (std::size_t i = 0; i < count; ++i) {
        const std::uint64_t packet = LoadPacket(first + i * TPX3_PACKET_SIZE);
        sink(packet, MaskOfPacket(packet));
    }
}

// Record of the frame-based ToA+ToT mode: bits 19..0 of P, not extended.
struct FrameToaTotRecord {
    std::uint32_t address;
    std::uint32_t tot;
    std::uint64_t toa;
};
// Record of the frame-based iToT and event count mode.
struct FrameItotEventRecord {
    std::uint32_t address;
    std::uint32_t itot;
    std::uint64_t events;
};
static_assert(sizeof(FrameToaTotRecord) == 16 && sizeof(FrameItotEventRecord) == 16);

// Sinks of the frame-based modes: DATA gives a record, CTRL is skipped, anything else throws
// std::domain_error "Header mask contains unsupported packet type!". `out` has room for one
// record per packet; the result is the number written.
std::size_t UnpackFrameToaTot(std::span<const std::uint8_t> block, FrameToaTotRecord* out);
std::size_t UnpackFrameItotEvents(std::span<const std::uint8_t> block, FrameItotEventRecord* out);

// Matrix read-back: the address and configuration bits of every CFG packet, in two parallel
// arrays; all other packets are skipped.
struct PixelConfigReadback {
    std::vector<std::uint16_t> addresses;
    std::vector<std::uint8_t> configs;
};
PixelConfigReadback UnpackPixelConfig(std::span<const std::uint8_t> block);

}  // namespace tpx3_toa_extension
