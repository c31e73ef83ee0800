// What the data callback copies out, on its way to the writer thread. The queue holds at most
// its capacity in bytes: a writer that falls that far behind makes the callback wait for room,
// and the library then reports the loss of what it can't hand on.
#pragma once

#include <cstddef>
#include <vector>

#include "ovex/byte_queue.hpp"

namespace ovex::cli {

struct Chunk {
    enum Kind { kRaw, kResult };
    Kind kind;
    std::vector<std::byte> bytes;
};

struct ChunkBytes {
    std::size_t operator()(const Chunk& chunk) const { return chunk.bytes.size(); }
};

using ChunkQueue = ByteQueue<Chunk, ChunkBytes>;

}  // namespace ovex::cli
