#pragma once

// The back end's S25FS128S flash, which the board's firmware drives: the host names a block with
// one command and moves it with another.

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <system_error>

#include "modules/flash_ctrl.hpp"

namespace ovex::sdk {

class FlashS25FS128S final : public IFlashControl {
public:
    // Initialises the flash; throws std::runtime_error when the board refuses.
    FlashS25FS128S(Commands* commands, std::string id);

    const char* GetName() const override { return "S25FS128S flash memory"; }
    // Read once from the board and kept. Throws std::invalid_argument for an answer whose
    // region list runs past its end.
    std::error_code GetInfo(FlashInfo& info) override;
    std::error_code Read(std::uint32_t address, std::span<std::uint8_t> data) override;
    std::error_code ProgramSector(std::uint32_t address,
                                  std::span<const std::uint8_t> data) override;
    std::error_code EraseSector(std::uint32_t address) override;

private:
    // The block that the next transfer moves; a size of 0 names a sector to erase.
    std::error_code ConfigureBlock(std::uint32_t address, std::uint32_t size);
    // GetInfo, then the sector that starts at `address`.
    std::error_code CheckSector(std::uint32_t address, FlashRegion& region);

    std::string m_id;
    std::optional<FlashInfo> m_info;
};

}  // namespace ovex::sdk
