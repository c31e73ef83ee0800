#pragma once

// What the Timepix3 board's data-driven stream shows a test bed. In the chip's data-driven mode
// every hit leaves the chip as a packet of its own while the shutter is open: each opening is a
// scan line, which starts with a timer packet at the shutter's rising edge, carries the hits of
// the beam (`HitModel`) a little out of time order as the chip's columns release them, keeps its
// time anchored with timer packets when it goes quiet, and ends with a short transfer once the
// last hit of the line has left. Rising edges of the trigger input while a line is open become
// TDC packets on channel 0. A replay source can stand in for the beam: a recorded stream of
// 6-byte packets played at a chosen rate.

#include <cstdint>
#include <filesystem>
#include <memory>
#include <string>
#include <variant>
#include <vector>

#include "tpx3_stream/generator.hpp"

namespace ovex::vboard {

// The board's FIFO between the chip and the USB controller. Hits that find it full are lost and
// counted, and kept out of the truth: a host that does not take its data loses it at the board.
inline constexpr std::uint64_t kHitFifoBytes = std::uint64_t{256} << 20;

// A packet the chip sends while it has nothing else to say; the host skips it. The board sends
// one where a line would end exactly at the end of a transfer, so that the line still ends short.
inline constexpr std::uint64_t kIdlePacket = 0xFFFF'FFFF'FFFFull;

struct DataDrivenCounters {
    std::uint64_t lines = 0;       // lines opened
    std::uint64_t hits_sent = 0;   // hit packets queued for the host
    std::uint64_t tot_sent = 0;    // the sum of their ToT
    std::uint64_t hits_lost = 0;   // hits that found the FIFO full
    std::uint64_t tdc_sent = 0;    // TDC packets queued
    std::uint64_t bytes_sent = 0;  // bytes the host took from the FIFO
    std::uint64_t fifo_bytes = 0;  // bytes waiting in it
    // The sum of `HitDigest` over the hits queued: a host that got every hit once, whatever the
    // order, gets the same sum.
    std::uint64_t digest = 0;
};

// One hit's contribution to the digest: its address, its ToT and the low 20 bits of its time in
// sixteenths of a tick (what its packet carries), mixed.
inline std::uint64_t HitDigest(std::uint32_t address, std::uint32_t tot, std::uint64_t time) {
    std::uint64_t z = (std::uint64_t{address & 0xFFFF} << 30 | std::uint64_t{tot & 0x3FF} << 20 |
                       (time & 0xFFFFF)) +
                      0x9E3779B97F4A7C15ULL;
    z = (z ^ (z >> 30)) * 0xBF58476D1CE4E5B9ULL;
    z = (z ^ (z >> 27)) * 0x94D049BB133111EBULL;
    return z ^ (z >> 31);
}

// A recorded board stream for the replay source: whole 6-byte packets, least significant byte
// first. Each pass of a loop moves the stream's timer and TDC packets on by whole pages of
// 2^16 ticks, so that the hits' packets stay as they are and time runs on.
struct ReplayStream {
    std::vector<std::uint8_t> bytes;
    double packets_per_second = 0.0;  // on the board's clock; 0: as fast as the host takes them
};

// Reads a replay file; the text of what is wrong with it instead (missing, unreadable, empty,
// not whole packets).
std::variant<ReplayStream, std::string> LoadReplayFile(const std::filesystem::path& path,
                                                       double packets_per_second);

// What the board sent, in the order it sent it, for tests to compare the host's results with:
// every hit with its true extended time, the start of every line, the TDC events per channel
// (times in sixteenths of a tick). Hits of a replay carry no truth, only the counters.
using StreamTruth = tpx3_stream::GeneratedStream;

}  // namespace ovex::vboard
