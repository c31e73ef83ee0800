#include "tpx3_pipeline/arena.hpp"

#include <sys/mman.h>

#include <algorithm>
#include <new>
#include <stdexcept>
#include <string>

#include <fmt/format.h>

#include "thread_mgmt/utils.hpp"
#include "tpx3_toa_extension/utils/packet_unpack.hpp"

namespace tpx3_pipeline {

namespace {

void LogFailure(const char* format, const void* address) {
    char prefix[96];
    std::snprintf(prefix, sizeof prefix, format, address);
    ovex::thread::LogSystemError(prefix);
}

}  // namespace

Arena::Arena(Settings settings) : m_block_size(settings.block_size) {
    m_size = settings.capacity + kHeadRoom;
    if (m_size < 4) {
        throw std::invalid_argument(fmt::format("Invalid arena size {} < {}", m_size, 4));
    }
    const std::uint64_t page = ovex::thread::PageSize();
    if (m_size < page) {
        throw std::invalid_argument(
            fmt::format("Arena must be at least one page big {} < {}", m_size, page));
    }
    // The reservation has no access and no backing until a commit opens part of it.
    void* base =
        ::mmap(nullptr, m_size, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
    if (base == MAP_FAILED) {
        throw std::bad_alloc();
    }
    m_base = static_cast<std::uint8_t*>(base);
    const char* refusal = nullptr;
    if (m_block_size % kAlignment != 0) {
        refusal = "Arena block size is not divisible by arena alignment.";
    } else if (m_block_size % tpx3_toa_extension::TPX3_PACKET_SIZE != 0) {
        refusal = "Arena block size is not divisible by Timepix3 packet size.";
    } else if (m_block_size == 0 || settings.capacity % m_block_size != 0) {
        refusal = "Arena capacity is not divisible by arena block size.";
    }
    if (refusal != nullptr) {
        ::munmap(m_base, m_size);
        throw std::invalid_argument(refusal);
    }
    try {
        AllocateHeadRoom();
    } catch (...) {
        ::munmap(m_base, m_size);
        throw;
    }
}

Arena::~Arena() {
    if (::munmap(m_base, m_size) != 0) {
        LogFailure("Failed to unmap virtual memory %p", m_base);
    }
}

void Arena::AllocateHeadRoom() {
    Allocate(kHeadRoom);
    m_filled_end = kHeadRoom;
}

std::span<std::uint8_t> Arena::Allocate(std::uint64_t bytes) {
    const std::uint64_t rounded = (bytes + 1) & ~std::uint64_t{1};
    if (rounded > m_size - m_used) {
        throw std::bad_alloc();
    }
    if (m_committed < m_used + rounded) {
        const std::uint64_t amount =
            rounded >= kCommitStep ? rounded : std::min(kCommitStep, m_size - m_committed);
        // A commit of `rounded` from the committed end may run past the reservation when the
        // allocation is large; it never needs to.
        const std::uint64_t clipped = std::min(amount, m_size - m_committed);
        std::uint8_t* address = m_base + m_committed;
        // Protection works on whole pages; the page that holds `address` may be open already.
        const std::uint64_t into_page = m_committed % ovex::thread::PageSize();
        if (::mprotect(address - into_page, clipped + into_page, PROT_READ | PROT_WRITE) != 0) {
            const std::string prefix = fmt::format("Failed to commit virtual memory {}",
                                                   static_cast<const void*>(address));
            ovex::thread::LogSystemError(prefix.c_str());
            throw std::bad_alloc();
        }
        // Committed memory gets its writable pages now: data that land in it later (a USB
        // transfer, a stage's output) take no page faults, and no fault that first maps the
        // shared zero page and then copies it for the write. A kernel without the advice
        // leaves the pages to the first write.
        ::madvise(address - into_page, clipped + into_page, MADV_POPULATE_WRITE);
        m_committed += clipped;
    }
    m_offsets.push_back(m_used);
    std::uint8_t* start = m_base + m_used;
    m_used += rounded;
    return {start, rounded};
}

void Arena::Reset() {
    // Dropping the pages gives the memory back; closing access makes the next commit real.
    if (::madvise(m_base, m_size, MADV_DONTNEED) != 0 ||
        ::mprotect(m_base, m_size, PROT_NONE) != 0) {
        LogFailure("Failed to decommit virtual memory %p", m_base);
    }
    m_committed = 0;
    m_offsets.clear();
    m_used = 0;
    AllocateHeadRoom();
}

}  // namespace tpx3_pipeline
