#pragma once

// The buffer into which USB transfers land: one reserved range of address space, committed in
// steps as it is handed out, recycled as a whole. Physical memory is taken only when committed
// and goes back to the system on Reset, while the reservation stays.

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

namespace tpx3_pipeline {

class Arena {
public:
    struct Settings {
        std::uint64_t block_size;  // bytes of one USB transfer buffer
        std::uint64_t capacity;    // bytes of payload
    };

    // Head room ahead of the first payload byte, allocated at once and left empty.
    static constexpr std::uint64_t kHeadRoom = 4096;
    static constexpr std::uint64_t kAlignment = 2;
    static constexpr std::uint64_t kCommitStep = 0x100000;
    // Size of the arena that a control item of the pipeline carries.
    static constexpr std::uint64_t kControlSize = 12288;

    // Throws std::invalid_argument on bad settings, std::bad_alloc if nothing can be reserved.
    explicit Arena(Settings settings);
    ~Arena();
    Arena(const Arena&) = delete;
    Arena& operator=(const Arena&) = delete;

    // A span of `bytes` rounded up to the alignment. Throws std::bad_alloc past the end of the
    // reservation or when the memory can't be committed.
    std::span<std::uint8_t> Allocate(std::uint64_t bytes);
    // Back to the state of a new arena, keeping the reservation.
    void Reset();

    std::uint8_t* Base() const noexcept { return m_base; }
    std::uint64_t Size() const noexcept { return m_size; }
    std::uint64_t Committed() const noexcept { return m_committed; }
    std::uint64_t Used() const noexcept { return m_used; }
    const std::vector<std::uint64_t>& Offsets() const noexcept { return m_offsets; }
    std::uint64_t BlockSize() const noexcept { return m_block_size; }
    std::uint64_t FilledEnd() const noexcept { return m_filled_end; }
    void SetFilledEnd(std::uint64_t offset) noexcept { m_filled_end = offset; }

private:
    void AllocateHeadRoom();

    std::uint8_t* m_base = nullptr;
    std::uint64_t m_size = 0;
    std::uint64_t m_committed = 0;
    std::uint64_t m_used = 0;
    std::vector<std::uint64_t> m_offsets;
    std::uint64_t m_block_size = 0;
    std::uint64_t m_filled_end = 0;
};

}  // namespace tpx3_pipeline
