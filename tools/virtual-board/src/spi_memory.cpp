#include "spi_memory.hpp"

namespace ovex::vboard {
namespace {

constexpr std::uint8_t kWrite = 0x02;
constexpr std::uint8_t kRead = 0x03;
constexpr std::uint8_t kReadId = 0x9F;

}  // namespace

void SpiMemory::Transmit(std::span<const std::uint8_t> bytes) {
    if (bytes.empty()) {
        return;
    }
    m_mode = Mode::kIdle;
    const std::uint8_t instruction = bytes[0];
    if (instruction == kReadId) {
        m_mode = Mode::kId;
        m_position = 0;
        return;
    }
    if ((instruction != kWrite && instruction != kRead) || bytes.size() < 3) {
        return;
    }
    std::size_t address = (static_cast<std::size_t>(bytes[1]) << 8 | bytes[2]) % kSize;
    if (instruction == kRead) {
        m_mode = Mode::kRead;
        m_position = address;
        return;
    }
    for (const std::uint8_t byte : bytes.subspan(3)) {
        m_memory[address] = byte;
        address = (address + 1) % kSize;
    }
}

std::vector<std::uint8_t> SpiMemory::Receive(std::size_t count) {
    std::vector<std::uint8_t> bytes(count, 0xFF);
    for (std::uint8_t& byte : bytes) {
        if (m_mode == Mode::kRead) {
            byte = m_memory[m_position];
            m_position = (m_position + 1) % kSize;
        } else if (m_mode == Mode::kId && m_position < kId.size()) {
            byte = kId[m_position++];
        }
    }
    return bytes;
}

}  // namespace ovex::vboard
