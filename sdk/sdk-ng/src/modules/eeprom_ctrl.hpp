#pragma once

// The board's I2C EEPROMs: small byte-addressed memories, some of them partly read-only.

#include <cstdint>
#include <span>
#include <string>
#include <system_error>
#include <vector>

#include "modules/device_module.hpp"

namespace ovex::sdk {

struct EepromRegion {
    enum Kind : std::uint8_t { kReadOnly = 0, kReadWrite = 1 };
    std::uint8_t kind = kReadWrite;
    std::uint16_t sector_count = 0;
    std::uint16_t sector_size = 0;
    std::uint32_t first = 0;
    std::uint32_t last = 0;  // inclusive
};

struct EepromInfo {
    std::string id;
    std::string part_number;
    std::vector<EepromRegion> regions;
};

// The transfers take `count` as the bytes already done and go on from there; they leave in it
// what was done, also when they fail.
class IEepromControl : public DeviceModule {
public:
    using DeviceModule::DeviceModule;
    virtual std::error_code Read(std::uint16_t address, std::span<std::uint8_t> data,
                                 std::uint64_t& count) = 0;
    virtual std::error_code Write(std::uint16_t address, std::span<const std::uint8_t> data,
                                  std::uint64_t& count) = 0;
    virtual std::error_code Erase(std::uint16_t address, std::uint64_t length,
                                  std::uint64_t& count) = 0;
    virtual std::error_code GetInfo(EepromInfo& info) = 0;
};

}  // namespace ovex::sdk
