#pragma once

// The USB controller's RAM as its boot loader reaches it: the instruction memory (I-TCM, 16 KiB
// at 0) and the system memory (512 KiB at 0x40000000), zero at power-on. Nothing else answers.

#include <array>
#include <cstdint>
#include <optional>
#include <span>
#include <vector>

namespace ovex::vboard {

class ControllerRam {
public:
    // The `length` bytes at `address`, if they lie wholly inside one region.
    std::optional<std::span<std::uint8_t>> Range(std::uint32_t address, std::size_t length) {
        return Find<std::uint8_t>(m_regions, address, length);
    }
    std::optional<std::span<const std::uint8_t>> Range(std::uint32_t address,
                                                       std::size_t length) const {
        return Find<const std::uint8_t>(m_regions, address, length);
    }

private:
    struct Region {
        std::uint32_t base;
        std::vector<std::uint8_t> bytes;
    };

    template <class Byte, class Regions>
    static std::optional<std::span<Byte>> Find(Regions& regions, std::uint32_t address,
                                               std::size_t length) {
        for (auto& region : regions) {
            // In 64 bits, so that a range running past 4 GiB doesn't wrap into a region.
            const std::uint64_t offset = std::uint64_t{address} - region.base;
            if (address >= region.base && offset + length <= region.bytes.size()) {
                return std::span<Byte>(region.bytes).subspan(offset, length);
            }
        }
        return std::nullopt;
    }

    std::array<Region, 2> m_regions{Region{0x00000000, std::vector<std::uint8_t>(0x4000)},
                                    Region{0x40000000, std::vector<std::uint8_t>(0x80000)}};
};

}  // namespace ovex::vboard
