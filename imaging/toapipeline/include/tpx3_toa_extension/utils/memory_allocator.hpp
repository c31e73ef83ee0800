#pragma once

// The ring from which the pipeline takes the record arrays of the ToA extension. Blocks are
// taken by one in-order stage and given back in about the same order. A block goes to the
// start of the range as soon as the blocks still out all lie behind that room, so the ring
// keeps reusing the few pages that it has touched already instead of backing fresh pages all
// along its 3.2 GB; it reaches further only while blocks pile up. One process-wide instance;
// smaller rings can be made for tests.

#include <cstddef>
#include <cstdint>
#include <memory>
#include <mutex>
#include <vector>

namespace tpx3_toa_extension {

class ArenaAllocator {
public:
    static constexpr std::size_t kDefaultCapacity = 3'200'000'000;

    // The process-wide ring, reserved at first use and kept for the life of the process.
    static ArenaAllocator& Instance();

    // The address range is reserved at once and backed only as it is written.
    explicit ArenaAllocator(std::size_t capacity);
    ~ArenaAllocator();
    ArenaAllocator(const ArenaAllocator&) = delete;
    ArenaAllocator& operator=(const ArenaAllocator&) = delete;

    // A block of `bytes`, or null (logged) when the ring has no room for it.
    void* Allocate(std::size_t requested) noexcept;
    // Gives a block back; its room is free at once. Blocks may come back in any order.
    void Deallocate(void* pointer, std::size_t alignment) noexcept;

    std::size_t Capacity() const noexcept { return m_capacity; }
    // Bytes of the blocks that are out.
    std::size_t Used() const noexcept;
    // The furthest offset that a block has reached: what the ring has touched.
    std::size_t Reach() const noexcept;

private:
    struct Taken {
        std::size_t offset;
        std::size_t bytes;
    };

    bool IsFree(std::size_t offset, std::size_t bytes) const noexcept;

    std::uint8_t* m_base = nullptr;
    std::size_t m_capacity = 0;
    std::size_t m_used = 0;
    std::size_t m_next = 0;  // behind the newest block
    std::size_t m_reach = 0;
    std::vector<Taken>
        m_taken;  // oldest first; keeps its capacity, so steady state allocates nothing
    mutable std::mutex m_mutex;
};

// Gives an array back to the ring that it came from.
template <typename T>
struct RingRelease {
    ArenaAllocator* ring = nullptr;
    void operator()(T* array) const noexcept {
        if (array != nullptr) {
            ring->Deallocate(array, alignof(T));
        }
    }
};

template <typename T>
using RingArray = std::unique_ptr<T[], RingRelease<T>>;

}  // namespace tpx3_toa_extension
