// Memory of result blocks, recycled. A block's memory ends up owned by a NumPy array, which
// gives it back when it goes; the next blocks take it again instead of fresh pages, whose first
// touch costs more than the copy into them. A few buffers are kept, each reused only for a block
// of at least half its size, so that a small block never pins a large buffer.
#pragma once

#include <cstddef>

namespace ovex::python::block_memory {

// Room for `bytes`; throws std::bad_alloc when there is none.
void* Take(std::size_t bytes);
// Gives back what Take gave; null is ignored. From any thread.
void Give(void* memory) noexcept;

}  // namespace ovex::python::block_memory
