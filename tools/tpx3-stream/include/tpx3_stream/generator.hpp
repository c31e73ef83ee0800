#pragma once

// A Timepix3 data-driven stream made from a simple physical model, in the board's 6-byte wire
// format, together with the truth that a correct pipeline must recover from it: every record
// with its true extended time, every scan line's start, every TDC event.
//
// The model: scan lines of a fixed length, each opened by a timer CTRL packet that is the
// first packet of the line's first block and ended by a short (LastData) block. Hits arrive
// at random over the matrix at a mean rate, during the line and its flyback; a chosen fraction
// leaves the chip late, by up to a chosen number of ticks, but always before the next line
// starts. Timer packets keep the running time anchored when the stream is quiet, TDC packets
// come on chosen channels, and all-ones idle packets may be sprinkled in.

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <vector>

namespace tpx3_stream {

struct StreamSettings {
    std::uint64_t seed = 1;
    std::uint64_t start_tick = 0x1000;  // time of the first line start, below 2^32
    std::uint32_t lines = 4;
    std::uint64_t line_ticks = 100'000;    // scan part of a line
    std::uint64_t flyback_ticks = 40'000;  // quiet-ish gap behind each line
    double hits_per_tick = 0.5;
    double late_fraction = 0.02;
    std::uint32_t max_late_ticks = 2000;  // below 32767
    double idle_fraction = 0.0;           // all-ones packets among the others
    std::uint8_t tdc_channels = 0;        // bit i: channel i fires
    double tdc_per_tick = 0.0;
    std::size_t block_bytes = 6 * 4096;  // a multiple of 6
    bool keep_truth = true;

    // Faults, each off unless set.
    std::optional<std::size_t> cfg_packet_block;     // a CFG packet in the middle of this block
    bool fault_type_unknown = false;                 // that packet has type 2 instead
    std::optional<std::size_t> truncated_block;      // this block loses its last 3 bytes
    std::optional<std::uint32_t> line_without_ctrl;  // this line's first block has no CTRL
};

enum class BlockKind : std::uint8_t { Data = 1, LastData = 2 };

struct ExpectedRecord {
    std::uint32_t address;
    std::uint32_t tot;
    std::uint64_t time;  // sixteenths of a tick
};
static_assert(sizeof(ExpectedRecord) == 16);

struct BlockInfo {
    std::size_t offset;  // into GeneratedStream::bytes
    std::size_t length;
    BlockKind kind;
    std::uint32_t line;
    std::size_t first_record;  // index into records of the block's first record
    std::size_t record_count;
};

struct GeneratedStream {
    std::vector<std::uint8_t> bytes;
    std::vector<BlockInfo> blocks;
    std::size_t packet_count = 0;
    // Truth, when kept: records in stream order, line starts and TDC times in sixteenths.
    std::vector<ExpectedRecord> records;
    std::vector<std::uint64_t> line_starts;
    std::array<std::vector<std::uint64_t>, 3> tdc;

    std::span<const std::uint8_t> BlockBytes(const BlockInfo& block) const {
        return {bytes.data() + block.offset, block.length};
    }
};

GeneratedStream Generate(const StreamSettings& settings);

// Wire form of single packets, for tests that build streams by hand.
std::uint64_t DataPacket(std::uint32_t address, std::uint32_t tot, std::uint64_t coarse,
                         std::uint32_t fine);
std::uint64_t TimerPacket(std::uint64_t tick);
std::uint64_t TdcPacket(std::uint64_t tick, std::uint8_t channels);
std::uint64_t CfgPacket(std::uint32_t address, std::uint8_t config);
void AppendPacket(std::vector<std::uint8_t>& bytes, std::uint64_t packet);

}  // namespace tpx3_stream
