#pragma once

// The cells of a NOR flash: erased they read 0xFF, programming only clears bits (a byte becomes
// old AND new), and only an erase sets them again. Only blocks that were ever programmed take
// memory.

#include <cstdint>
#include <map>
#include <vector>

namespace ovex::vboard {

class NorArray {
public:
    explicit NorArray(std::uint32_t size) : m_size(size) {}

    std::uint32_t Size() const { return m_size; }
    std::uint8_t Read(std::uint32_t address) const {
        const auto block = m_blocks.find(address / kBlock);
        return block != m_blocks.end() ? block->second[address % kBlock] : kErased;
    }
    void Program(std::uint32_t address, std::uint8_t value) {
        auto& block = m_blocks[address / kBlock];
        if (block.empty()) {
            block.assign(kBlock, kErased);
        }
        block[address % kBlock] &= value;
    }
    // `start` and `size` are whole blocks of 4 KiB, the smallest sector of these chips.
    void Erase(std::uint32_t start, std::uint32_t size) {
        m_blocks.erase(m_blocks.lower_bound(start / kBlock),
                       m_blocks.lower_bound((std::uint64_t{start} + size) / kBlock));
    }

private:
    static constexpr std::uint32_t kBlock = 4096;
    static constexpr std::uint8_t kErased = 0xFF;

    std::uint32_t m_size;
    std::map<std::uint32_t, std::vector<std::uint8_t>> m_blocks;
};

}  // namespace ovex::vboard
