#pragma once

// A Timepix3 data-driven stream made from a simple physical model, in the board's 6-byte wire
// format, together with the truth that a correct pipeline must recover from it: every record
// with its true extended time, every scan line's start, every TDC event.
//
// The model: scan lines of a fixed length, each opened by a timer CTRL packet that is the
// first packet of the line's first block and ended by a short (LastData) block. Hits arrive
// at random over the matrix at a mean rate, during the line and its flyback, and leave the
// chip in one of two kinds of disorder (below), never more than a chosen number of ticks late
// and always before the next line starts. Timer packets keep the running time anchored when
// the stream is quiet, TDC packets come on chosen channels, and all-ones idle packets may be
// sprinkled in.

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <vector>

namespace tpx3_stream {

enum class Disorder : std::uint8_t {
    // A fraction of the hits leaves late, by up to max_late_ticks; the rest in time order.
    LateFraction,
    // The disorder of real detector data. The chip reads its double columns out in bursts:
    // every hit waits a short, random while (a line's mean wait is drawn from a range, in mean
    // gaps between hits), so that neighbours often swap; and now and then a double column
    // stalls for up to max_late_ticks and then releases all that it holds at once, oldest
    // first. About a quarter to a third of the hits step back in time, by up to
    // max_late_ticks.
    ColumnBursts,
};

struct StreamSettings {
    std::uint64_t seed = 1;
    std::uint64_t start_tick = 0x1000;  // time of the first line start, below 2^32
    std::uint32_t lines = 4;
    std::uint64_t line_ticks = 100'000;    // scan part of a line
    std::uint64_t flyback_ticks = 40'000;  // quiet-ish gap behind each line
    double hits_per_tick = 0.5;
    Disorder disorder = Disorder::LateFraction;
    double late_fraction = 0.02;          // LateFraction
    std::uint32_t max_late_ticks = 2000;  // below 32767
    double min_wait_gaps = 0.6;           // ColumnBursts: range of a line's mean wait
    double max_wait_gaps = 2.2;
    double stalls_per_column_tick = 3e-6;  // ColumnBursts
    double idle_fraction = 0.0;            // all-ones packets among the others
    std::uint8_t tdc_channels = 0;         // bit i: channel i fires
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
    bool operator==(const ExpectedRecord&) const = default;
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

// The same settings in the disorder of real detector data: column bursts, with steps back of
// up to about 18,000 ticks.
StreamSettings WithRealDisorder(StreamSettings settings);

// How disordered the truth records are in stream order.
struct DisorderStats {
    double step_back_fraction = 0;    // of records earlier than the record before them
    std::uint64_t max_step_back = 0;  // ticks
    // Per block of the stream, the least and greatest fraction of records behind the newest
    // record before them in that block.
    double min_block_late_fraction = 0;
    double max_block_late_fraction = 0;
};
DisorderStats MeasureDisorder(const GeneratedStream& stream);

// Wire form of single packets, for tests that build streams by hand.
std::uint64_t DataPacket(std::uint32_t address, std::uint32_t tot, std::uint64_t coarse,
                         std::uint32_t fine);
std::uint64_t TimerPacket(std::uint64_t tick);
std::uint64_t TdcPacket(std::uint64_t tick, std::uint8_t channels);
std::uint64_t CfgPacket(std::uint32_t address, std::uint8_t config);
void AppendPacket(std::vector<std::uint8_t>& bytes, std::uint64_t packet);

}  // namespace tpx3_stream
