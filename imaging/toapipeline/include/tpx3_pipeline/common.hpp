#pragma once

// The items that travel through the pipeline. Each item owns what it carries; moving it on
// moves ownership, and only pointers and a few words move between stages. Blocks of records
// and output values are recycled (recycler.hpp): letting go of one gives its storage back.

#include <array>
#include <cstdint>
#include <memory>
#include <span>
#include <vector>

#include "tpx3_pipeline/arena.hpp"
#include "tpx3_pipeline/recycler.hpp"
#include "tpx3_toa_extension/dd_toa_tot/logic.hpp"
#include "tpx3_toa_extension/utils/memory_allocator.hpp"

namespace tpx3_pipeline {

using tpx3_toa_extension::ToaTotRecord;

enum class EntryType : std::uint8_t {
    Data = 1,      // a block of raw packets
    LastData = 2,  // a block that ended with a short transfer: the end of a scan line
    Stop = 3,      // end of the stream: flush and finish
    Terminate = 4  // terminal marker, no data
};

inline constexpr bool IsControl(EntryType type) noexcept {
    return type == EntryType::Stop || type == EntryType::Terminate;
}

// Raw packets in the arena that they landed in; the arena lives while any item points into it.
struct ArenaData {
    std::shared_ptr<Arena> arena;
    std::span<const std::uint8_t> bytes;
};

namespace common {

struct DataEntry {
    EntryType type = EntryType::Terminate;
    ArenaData data;

    // A Stop or Terminate entry: an empty span in a small arena of its own.
    static DataEntry Control(EntryType type);
};

// The records of one block with their extended times, and what the block told about time.
struct ExtendedBlock {
    tpx3_toa_extension::RingArray<ToaTotRecord> records;  // capacity one per packet
    std::uint64_t count = 0;                              // records written
    std::uint64_t start_toa = 0;  // start of the block's scan line, sixteenths of a tick
    std::array<std::vector<std::uint64_t>, 3> tdc;  // TDC event times per channel
    bool line_end = false;                          // last block of its scan line

    ToaTotRecord* begin() const noexcept { return records.get(); }
    ToaTotRecord* end() const noexcept { return records.get() + count; }
    std::span<const ToaTotRecord> Records() const noexcept { return {records.get(), count}; }

    // Gives the records back to the ring and empties the TDC lists, keeping their storage.
    static void ClearForReuse(ExtendedBlock& block) noexcept;
};

using BlockHandle = Pooled<ExtendedBlock>;

struct ExtendToasOutput {
    EntryType type = EntryType::Terminate;
    BlockHandle block;  // none for Stop and Terminate
};

// An out item of the sorted mode is one block with its type; a Stop may come without one.
using SortedBlockOutput = ExtendToasOutput;

struct SortToasOutput {
    EntryType type = EntryType::Terminate;
    std::vector<BlockHandle> blocks;  // oldest first

    // Lets the blocks go and keeps the list's storage.
    static void ClearForReuse(SortToasOutput& output) noexcept {
        output.type = EntryType::Terminate;
        output.blocks.clear();
    }
};

template <typename T>
struct BinnedOutput {
    EntryType type = EntryType::Terminate;
    Pooled<T> value;  // none only in the Terminate item of a failed run
};

}  // namespace common
}  // namespace tpx3_pipeline
