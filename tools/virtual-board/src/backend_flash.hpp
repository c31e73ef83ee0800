#pragma once

// The back end's S25FS128S flash as the board's firmware drives it through the flash commands.
// FLASH_BLK_CFG0 names a block: address and size, 32 bits little-endian each. FLASH_READ0 then
// answers the block's bytes, FLASH_WRITE0 programs it with its input (programming only clears
// bits: a byte becomes old & new), and FLASH_ERASE0 erases the 64 KiB sector that starts at the
// block's address (size 0) back to 0xFF. A block moves at most 1016 bytes, all that one control
// transfer carries. Boards without the flash commands have no flash.

#include <cstdint>
#include <optional>
#include <span>
#include <vector>

#include "nor_array.hpp"
#include "ovex/vboard/item_tables.hpp"

namespace ovex::vboard {

class BackendFlash {
public:
    static constexpr std::uint32_t kSize = 16 * 1024 * 1024;
    static constexpr std::uint32_t kSectorSize = 64 * 1024;
    static constexpr std::uint32_t kMaxBlock = 1016;

    explicit BackendFlash(const ItemTables& tables);

    // The word a flash command is refused with, kNoError if it may run; `answer_room` is the
    // host's buffer of an IN request. Other items are no concern of the flash's.
    std::uint32_t CommandRefusal(std::size_t command, std::span<const std::uint8_t> input,
                                 std::size_t answer_room) const;
    // What a command that ran did; the answer of a read, nullopt for other commands.
    std::optional<std::vector<std::uint8_t>> AfterCommand(std::size_t command,
                                                          std::span<const std::uint8_t> input);
    // Power-on: no block configured; the contents stay.
    void PowerOn() { m_block.reset(); }
    // The contents are the chip's: they stay when another application takes the board over.
    void KeepContents(BackendFlash& before) { m_cells = std::move(before.m_cells); }

private:
    struct Block {
        std::uint32_t address;
        std::uint32_t size;
    };
    std::optional<std::size_t> m_configure;
    std::optional<std::size_t> m_read;
    std::optional<std::size_t> m_write;
    std::optional<std::size_t> m_erase;
    std::optional<Block> m_block;
    NorArray m_cells{kSize};
};

}  // namespace ovex::vboard
