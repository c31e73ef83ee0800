#pragma once

// Puts a generated stream into arenas the way the USB side would, as pipeline entries.

#include <memory>
#include <vector>

#include "tpx3_pipeline/arena.hpp"
#include "tpx3_pipeline/common.hpp"
#include "tpx3_pipeline/pool.hpp"
#include "tpx3_stream/generator.hpp"

namespace tpx3_stream {

using ArenaPool = ovex::alloc::Pool<tpx3_pipeline::Arena>;

// A pool of arenas that hold `blocks_per_arena` blocks of the stream's block size.
std::shared_ptr<ArenaPool> MakeArenaPool(const StreamSettings& settings,
                                         std::size_t blocks_per_arena);

// One Data or LastData entry per block, the bytes copied into arenas from the pool.
std::vector<tpx3_pipeline::common::DataEntry> ToEntries(const GeneratedStream& stream,
                                                        ArenaPool& pool);

}  // namespace tpx3_stream
