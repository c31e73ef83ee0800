#include "backend_flash.hpp"

#include "ovex/vboard/error_words.hpp"
#include "wire_format.hpp"

namespace ovex::vboard {
namespace {

bool Is(const std::optional<std::size_t>& id, std::size_t command) {
    return id && *id == command;
}

}  // namespace

BackendFlash::BackendFlash(const ItemTables& tables)
    : m_configure(FindItem(tables.commands, "FLASH_BLK_CFG0")),
      m_read(FindItem(tables.commands, "FLASH_READ0")),
      m_write(FindItem(tables.commands, "FLASH_WRITE0")),
      m_erase(FindItem(tables.commands, "FLASH_ERASE0")) {}

std::uint32_t BackendFlash::CommandRefusal(std::size_t command, std::span<const std::uint8_t> input,
                                           std::size_t answer_room) const {
    if (Is(m_configure, command)) {
        return input.size() == 8 ? kNoError : kBadArgument;
    }
    const bool transfer = Is(m_read, command) || Is(m_write, command);
    if (!transfer && !Is(m_erase, command)) {
        return kNoError;
    }
    if (!m_block) {
        return kNotConfigured;
    }
    const Block& block = *m_block;
    if (Is(m_erase, command)) {
        const bool sector =
            block.size == 0 && block.address < kSize && block.address % kSectorSize == 0;
        return input.empty() && sector ? kNoError : kBadArgument;
    }
    if (block.size == 0 || block.size > kMaxBlock || block.address >= kSize ||
        block.size > kSize - block.address) {
        return kBadArgument;
    }
    if (Is(m_read, command)) {
        return input.empty() && answer_room >= block.size ? kNoError : kBadArgument;
    }
    return input.size() == block.size ? kNoError : kBadArgument;
}

std::optional<std::vector<std::uint8_t>> BackendFlash::AfterCommand(
    std::size_t command, std::span<const std::uint8_t> input) {
    if (Is(m_configure, command)) {
        m_block = Block{wire::GetU32(input.first(4)), wire::GetU32(input.last(4))};
    } else if (Is(m_read, command)) {
        std::vector<std::uint8_t> answer;
        for (std::uint32_t i = 0; i < m_block->size; ++i) {
            answer.push_back(m_cells.Read(m_block->address + i));
        }
        return answer;
    } else if (Is(m_write, command)) {
        for (std::uint32_t i = 0; i < m_block->size; ++i) {
            m_cells.Program(m_block->address + i, input[i]);
        }
    } else if (Is(m_erase, command)) {
        m_cells.Erase(m_block->address, kSectorSize);
    }
    return std::nullopt;
}

}  // namespace ovex::vboard
