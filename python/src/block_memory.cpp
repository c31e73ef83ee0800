#include "block_memory.hpp"

#include <cstddef>
#include <cstdlib>
#include <mutex>
#include <new>
#include <vector>

namespace ovex::python::block_memory {
namespace {

// Before the memory handed out: its capacity, in a header as long as malloc's alignment, so that
// the records behind it stay as aligned as malloc's memory.
struct Header {
    std::size_t capacity;
    std::size_t unused;
};
static_assert(sizeof(Header) == alignof(std::max_align_t));

constexpr std::size_t kKeptBuffers = 8;
constexpr std::size_t kKeptBytes = std::size_t{256} << 20;

struct Pool {
    std::mutex mutex;
    std::vector<Header*> kept;
    std::size_t kept_bytes = 0;
};

Pool& ThePool() {
    // Never destroyed: arrays may give their memory back while the process ends.
    static Pool* pool = new Pool();
    return *pool;
}

Header* Reuse(std::size_t bytes) {
    Pool& pool = ThePool();
    std::lock_guard lock(pool.mutex);
    auto best = pool.kept.end();
    for (auto it = pool.kept.begin(); it != pool.kept.end(); ++it) {
        const std::size_t capacity = (*it)->capacity;
        if (capacity >= bytes && capacity / 2 <= bytes &&
            (best == pool.kept.end() || capacity < (*best)->capacity)) {
            best = it;
        }
    }
    if (best == pool.kept.end()) {
        return nullptr;
    }
    Header* header = *best;
    pool.kept.erase(best);
    pool.kept_bytes -= header->capacity;
    return header;
}

}  // namespace

void* Take(std::size_t bytes) {
    Header* header = Reuse(bytes);
    if (!header) {
        header = static_cast<Header*>(std::malloc(sizeof(Header) + bytes));
        if (!header) {
            throw std::bad_alloc();
        }
        header->capacity = bytes;
    }
    return header + 1;
}

void Give(void* memory) noexcept {
    if (!memory) {
        return;
    }
    Header* header = static_cast<Header*>(memory) - 1;
    Pool& pool = ThePool();
    {
        std::lock_guard lock(pool.mutex);
        if (pool.kept.size() < kKeptBuffers && pool.kept_bytes + header->capacity <= kKeptBytes) {
            pool.kept.push_back(header);
            pool.kept_bytes += header->capacity;
            return;
        }
    }
    std::free(header);
}

}  // namespace ovex::python::block_memory
