#pragma once

// The board's serial NOR flashes, which hold FPGA images: read, erase and program by sector.

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <system_error>
#include <vector>

#include "modules/device_module.hpp"

namespace ovex::sdk {

struct FlashRegion {
    std::uint32_t start = 0;
    std::uint16_t sector_count = 0;
    std::uint32_t sector_size = 0;
    // 1 when a sector of the region stands for several of the chip's small parameter sectors,
    // which are erased together.
    std::uint8_t merged = 0;
};

struct FlashInfo {
    std::string id;
    std::string part_number;
    std::uint32_t flash_size = 0;
    std::uint16_t page_size = 0;
    std::vector<FlashRegion> regions;
};

class IFlashControl : public DeviceModule {
public:
    using DeviceModule::DeviceModule;
    virtual std::error_code GetInfo(FlashInfo& info) = 0;
    virtual std::error_code Read(std::uint32_t address, std::span<std::uint8_t> data) = 0;
    // `data` is exactly one sector, and `address` the start of that sector.
    virtual std::error_code ProgramSector(std::uint32_t address,
                                          std::span<const std::uint8_t> data) = 0;
    virtual std::error_code EraseSector(std::uint32_t address) = 0;
};

// The first region that holds the address.
inline std::optional<FlashRegion> FindFlashRegion(const FlashInfo& info, std::uint32_t address) {
    for (const FlashRegion& region : info.regions) {
        const std::uint64_t end =
            region.start + std::uint64_t{region.sector_count} * region.sector_size;
        if (region.start <= address && address < end) {
            return region;
        }
    }
    return std::nullopt;
}

inline bool IsSectorStart(const FlashRegion& region, std::uint32_t address) {
    return region.sector_size != 0 && (address - region.start) % region.sector_size == 0;
}

}  // namespace ovex::sdk
