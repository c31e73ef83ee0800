#pragma once

// The ring from which the pipeline takes the record arrays of the ToA extension. Blocks are
// taken by one in-order stage and given back in about the same order, so a first-in, first-out
// ring serves them without any heap traffic. One process-wide instance; smaller rings can be
// made for tests.

#include <cstddef>
#include <cstdint>
#include <deque>
#include <memory>
#include <mutex>

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
    void* Allocate(std::size_t bytes) noexcept;
    // Gives a block back. Blocks may come back in any order; the room of a block becomes free
    // once every block taken before it has come back too.
    void Deallocate(void* pointer, std::size_t alignment) noexcept;

    std::size_t Capacity() const noexcept { return m_capacity; }
    // Bytes out, including the unused stretch in front of the end that a wrap skipped.
    std::size_t Used() const noexcept;

private:
    struct Taken {
        std::size_t offset;
        std::size_t bytes;  // with the skipped stretch in front of it, if it wrapped
        bool returned;
    };

    std::uint8_t* m_base = nullptr;
    std::size_t m_capacity = 0;
    std::size_t m_used = 0;
    std::size_t m_next = 0;
    std::deque<Taken> m_taken;
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
