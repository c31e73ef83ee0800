#pragma once

// A small SPI memory as a slave: the host transmits an instruction, then receives its answer.
//   0x02 hi lo data...  write data from address hi:lo on
//   0x03 hi lo          the following receives read from address hi:lo on
//   0x9F                the following receives read the 3-byte id, then 0xFF
// Any other instruction leaves the data line high: receives read 0xFF. Addresses wrap at the end.

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

namespace ovex::vboard {

class SpiMemory {
public:
    static constexpr std::size_t kSize = 1024;
    static constexpr std::array<std::uint8_t, 3> kId = {0x4F, 0x56, 0x10};

    void Transmit(std::span<const std::uint8_t> bytes);
    std::vector<std::uint8_t> Receive(std::size_t count);
    // Chip select dropped: the instruction in progress ends; the contents stay.
    void Deselect() { m_mode = Mode::kIdle; }

private:
    enum class Mode { kIdle, kRead, kId };

    std::vector<std::uint8_t> m_memory = std::vector<std::uint8_t>(kSize, 0xFF);
    Mode m_mode = Mode::kIdle;
    std::size_t m_position = 0;
};

}  // namespace ovex::vboard
