#include "tpx3_stream/arena_feed.hpp"

#include <cstring>

namespace tpx3_stream {

using tpx3_pipeline::Arena;
using tpx3_pipeline::EntryType;
using tpx3_pipeline::common::DataEntry;

std::shared_ptr<ArenaPool> MakeArenaPool(const StreamSettings& settings,
                                         std::size_t blocks_per_arena) {
    return ArenaPool::Create(
        Arena::Settings{settings.block_bytes, settings.block_bytes * blocks_per_arena});
}

std::vector<DataEntry> ToEntries(const GeneratedStream& stream, ArenaPool& pool) {
    std::vector<DataEntry> entries;
    entries.reserve(stream.blocks.size());
    std::shared_ptr<Arena> arena;
    for (const BlockInfo& block : stream.blocks) {
        if (!arena || arena->Used() + block.length > arena->Size()) {
            arena = pool.Acquire();
        }
        auto span = arena->Allocate(block.length);
        std::memcpy(span.data(), stream.bytes.data() + block.offset, block.length);
        const EntryType type =
            block.kind == BlockKind::LastData ? EntryType::LastData : EntryType::Data;
        entries.push_back(DataEntry{type, {arena, {span.data(), block.length}}});
    }
    return entries;
}

}  // namespace tpx3_stream
