// Results copied out of the library's buffers during its data callback, in the layouts that the
// Python package hands to NumPy: the copy is the only work per record, and the NumPy array then
// takes the memory over without another copy.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <memory>
#include <vector>

#include "block_memory.hpp"
#include "ovexsdk.h"

namespace ovex::python {

// What the callbacks of one acquisition bring.
enum class ResultKind {
    kHits,        // ToA and ToT records: data-driven blocks, or the hits of a frame
    kItotPixels,  // the pixels of a frame-based iToT and event-count frame
    kScanCounts,  // a scan's event counts, whole lines
    kScanItots,   // a scan's iToT sums, whole lines
    kScanBins,    // a scan's complete binning: both sums and the pixels of each bin
    kTpx2Frames,  // Timepix2 frames of 16-bit counts
};

// One hit: 16 bytes, as the dtype of the Python package declares them.
struct HitRecord {
    std::uint16_t addr;
    std::uint16_t x;
    std::uint16_t y;
    std::uint16_t tot;
    std::uint64_t time;
};
static_assert(sizeof(HitRecord) == 16);

// One pixel of a frame-based iToT and event-count frame.
struct PixelRecord {
    std::uint16_t addr;
    std::uint16_t x;
    std::uint16_t y;
    std::uint16_t unused0;
    std::uint32_t itot;
    std::uint32_t unused1;
    std::uint64_t events;
};
static_assert(sizeof(PixelRecord) == 24);

// One pixel of one bin of a complete binning; `bin` counts from the scan's first bin.
struct BinPixelRecord {
    std::uint32_t bin;
    std::uint16_t addr;
    std::uint16_t x;
    std::uint16_t y;
    std::uint16_t unused;
    std::uint32_t events;
    std::uint32_t itot;
};
static_assert(sizeof(BinPixelRecord) == 20);

struct GiveBack {
    void operator()(void* memory) const noexcept { block_memory::Give(memory); }
};

// Memory of block_memory, which whoever ends up owning it gives back there.
class Buffer {
public:
    Buffer() = default;
    // Room for `bytes`; throws std::bad_alloc when there is none.
    explicit Buffer(std::size_t bytes);

    void* data() const noexcept { return m_memory.get(); }
    std::size_t bytes() const noexcept { return m_bytes; }
    // Hands the memory over; the buffer is empty afterwards.
    void* release() noexcept;

    template <typename T>
    T* as() const noexcept {
        return static_cast<T*>(m_memory.get());
    }

private:
    std::unique_ptr<void, GiveBack> m_memory;
    std::size_t m_bytes = 0;
};

// One result as the Python side receives it. `rows` x `columns` elements of `values`: hits or
// pixels (columns 1), whole scan lines (rows lines of `columns` bins), one frame (height x width).
struct Block {
    ResultKind kind = ResultKind::kHits;
    Buffer values;  // the records, the counts or iToT sums, the frame
    Buffer events;  // kScanBins: the event count of each bin
    Buffer pixels;  // kScanBins: BinPixelRecord of each bin's pixels
    std::uint64_t rows = 0;
    std::uint64_t columns = 1;
    std::uint64_t pixel_count = 0;  // kScanBins
    std::uint64_t first_line = 0;   // scans: the scan line of the first row

    std::size_t bytes() const noexcept { return values.bytes() + events.bytes() + pixels.bytes(); }
};

// The records of the library in the package's layouts.
Buffer CopyHits(const ovexsdk_acq_tpx3_toa_tot_record* records, std::uint64_t count);
Buffer CopyPixels(const ovexsdk_acq_tpx3_itot_evcount* pixels, std::uint64_t count);

// Makes blocks of the results of one acquisition, one data callback at a time. Scan values come
// in pieces that need not end with a line: the rest waits for the next piece, so that every
// block holds whole lines.
class ResultCopier {
public:
    // `bins_per_line` matters to the scan kinds only.
    ResultCopier(ResultKind kind, std::uint32_t bins_per_line)
        : m_kind(kind), m_bins_per_line(bins_per_line) {}

    // Reads the current result of `ctx` (inside its data callback) into blocks. Throws
    // std::runtime_error with the getter's name when the library refuses the result.
    std::vector<Block> Take(ovexsdk_dev_ctx* ctx);

    // The scan's values, appended as they come; answers the whole lines they complete.
    std::vector<Block> AddScanValues(const std::uint64_t* values, std::uint64_t count);

    // At the end of the readout: the line in progress, its missing bins zero; nothing when the
    // last line was whole.
    std::vector<Block> Flush();

    // Whole scan lines handed out so far.
    std::uint64_t LinesDone() const noexcept { return m_lines_done; }

private:
    std::vector<Block> TakeBins(ovexsdk_dev_ctx* ctx);
    // The iToT sums of the complete binning; the event counts and pixels are already kept.
    std::vector<Block> CompleteBins(const std::uint64_t* itots, std::uint64_t count);

    ResultKind m_kind;
    std::uint32_t m_bins_per_line;
    std::vector<std::uint64_t> m_partial;          // values of the line in progress
    std::vector<std::uint64_t> m_partial_events;   // complete binning: its event counts
    std::vector<BinPixelRecord> m_partial_pixels;  // complete binning: its pixels
    std::uint64_t m_lines_done = 0;
    std::uint64_t m_bins_done = 0;  // complete binning: bins received so far
};

}  // namespace ovex::python
