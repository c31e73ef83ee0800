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

void* ArenaAllocator::Allocate(std::size_t bytes) noexcept {
    std::lock_guard lock(m_mutex);
    if (m_taken.empty()) {
        m_next = 0;
    }
    std::size_t offset = m_next;
    std::size_t charged = bytes;
    if (bytes > m_capacity - m_next) {
        // The stretch up to the end stays unused until this block comes back, so it is counted
        // with it: a later block can never reach one that is still out.
        charged += m_capacity - m_next;
        offset = 0;
    }
    if (bytes > m_capacity || charged > m_capacity - m_used) {
        OVEX_LOG_ERROR("Arena allocator failed to allocate block of size %zu", bytes);
        return nullptr;
    }
    m_used += charged;
    m_next = offset + bytes;
    m_taken.push_back({offset, charged, false});
    return m_base + offset;
}

void ArenaAllocator::Deallocate(void* pointer, std::size_t /*alignment*/) noexcept {
    const auto offset = static_cast<std::size_t>(static_cast<std::uint8_t*>(pointer) - m_base);
    std::lock_guard lock(m_mutex);
    // Blocks nearly always come back oldest first, so the search ends at the front.
    auto it = std::find_if(m_taken.begin(), m_taken.end(), [offset](const Taken& taken) {
        return !taken.returned && taken.offset == offset;
    });
    OVEX_CHECK(it != m_taken.end(), "BUG: block %p was not taken from the arena allocator",
               pointer);
    it->returned = true;
    while (!m_taken.empty() && m_taken.front().returned) {
        m_used -= m_taken.front().bytes;
        m_taken.pop_front();
    }
}

std::size_t ArenaAllocator::Used() const noexcept {
    std::lock_guard lock(m_mutex);
    return m_used;
}

}  // namespace tpx3_toa_extension
