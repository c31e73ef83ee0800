#include "tpx3_toa_extension/utils/memory_allocator.hpp"

#include <sys/mman.h>

#include <algorithm>
#include <new>

#include "ovex/log/log.hpp"
#include "thread_mgmt/utils.hpp"

namespace tpx3_toa_extension {

ArenaAllocator& ArenaAllocator::Instance() {
    static ArenaAllocator* const instance = new ArenaAllocator(kDefaultCapacity);
    return *instance;
}

ArenaAllocator::ArenaAllocator(std::size_t capacity) : m_capacity(capacity) {
    void* base = ::mmap(nullptr, std::max<std::size_t>(capacity, 1), PROT_READ | PROT_WRITE,
                        MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
    if (base == MAP_FAILED) {
        ovex::thread::LogSystemError("Failed to reserve memory for the arena allocator");
        throw std::bad_alloc();
    }
    m_base = static_cast<std::uint8_t*>(base);
}

ArenaAllocator::~ArenaAllocator() {
    if (::munmap(m_base, std::max<std::size_t>(m_capacity, 1)) != 0) {
        ovex::thread::LogSystemError("Failed to unmap arena allocator memory");
    }
}

bool ArenaAllocator::IsFree(std::size_t offset, std::size_t bytes) const noexcept {
    if (bytes > m_capacity - offset) {
        return false;
    }
    return std::none_of(m_taken.begin(), m_taken.end(), [&](const Taken& taken) {
        return offset < taken.offset + taken.bytes && taken.offset < offset + bytes;
    });
}

void* ArenaAllocator::Allocate(std::size_t requested) noexcept {
    // An empty block still takes a byte, so that no two blocks out share an address.
    const std::size_t bytes = std::max<std::size_t>(requested, 1);
    std::lock_guard lock(m_mutex);
    // Where a block may go, best first: the start of the range, once everything out lies behind
    // the room there; behind the newest block; behind the block that reaches furthest. Only a
    // few dozen blocks are out in a running acquisition, so the checks cost next to nothing.
    std::size_t lowest = m_capacity;
    std::size_t furthest = 0;
    for (const Taken& taken : m_taken) {
        lowest = std::min(lowest, taken.offset);
        furthest = std::max(furthest, taken.offset + taken.bytes);
    }
    std::size_t offset = 0;
    if (bytes > lowest || bytes > m_capacity) {
        if (IsFree(m_next, bytes)) {
            offset = m_next;
        } else if (IsFree(furthest, bytes)) {
            offset = furthest;
        } else {
            OVEX_LOG_ERROR("Arena allocator failed to allocate block of size %zu", requested);
            return nullptr;
        }
    }
    if (m_taken.size() == m_taken.capacity()) {
        try {
            m_taken.reserve(std::max<std::size_t>(64, 2 * m_taken.size()));
        } catch (const std::bad_alloc&) {
            OVEX_LOG_ERROR("Arena allocator failed to allocate block of size %zu", requested);
            return nullptr;
        }
    }
    m_taken.push_back({offset, bytes});
    m_used += bytes;
    m_next = offset + bytes;
    m_reach = std::max(m_reach, m_next);
    return m_base + offset;
}

void ArenaAllocator::Deallocate(void* pointer, std::size_t /*alignment*/) noexcept {
    const auto offset = static_cast<std::size_t>(static_cast<std::uint8_t*>(pointer) - m_base);
    std::lock_guard lock(m_mutex);
    // Blocks nearly always come back oldest first, so the search ends at the front.
    auto it = std::find_if(m_taken.begin(), m_taken.end(),
                           [offset](const Taken& taken) { return taken.offset == offset; });
    OVEX_CHECK(it != m_taken.end(), "BUG: block %p was not taken from the arena allocator",
               pointer);
    m_used -= it->bytes;
    m_taken.erase(it);
}

std::size_t ArenaAllocator::Used() const noexcept {
    std::lock_guard lock(m_mutex);
    return m_used;
}

std::size_t ArenaAllocator::Reach() const noexcept {
    std::lock_guard lock(m_mutex);
    return m_reach;
}

}  // namespace tpx3_toa_extension
