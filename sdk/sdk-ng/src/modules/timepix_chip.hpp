#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <system_error>
#include <vector>

#include "modules/device_module.hpp"
#include "modules/threshold_control.hpp"
#include "modules/timepix_dacs.hpp"
#include "ovexsdk.h"

namespace ovex::configuration {
class ConfigLoader;
}

namespace ovex::sdk {

// What a chip tells of itself. The two numbers and the code are the board's chip record as it
// gives them; the SDK only hands them up.
struct ChipInfo {
    std::uint64_t pixel_count;
    std::uint32_t width;
    std::uint32_t height;
    std::uint16_t number_a;
    std::uint16_t number_b;
    std::uint8_t code;
    std::uint8_t chip_type;  // 2 Timepix2, 3 Timepix3, 4 Timepix4, 0 unknown
    // 0: the board's pipeline takes the pixel configuration at 4 bits per pixel.
    std::uint8_t config_depth_class;
    std::vector<ovexsdk_chip_mode> modes;
    std::vector<std::uint8_t> polarities;
};

// The chip behind a board's frontend: its pixel matrix, user mask, polarity, operating mode,
// identity, DACs and threshold. A pixel's configuration is one byte in the host form of the
// matrix, index y * width + x.
class ITimepixChip : public DeviceModule {
public:
    using DeviceModule::DeviceModule;
    virtual std::error_code GetPolarity(std::uint8_t& polarity) = 0;
    // Nothing when the board doesn't answer.
    virtual std::optional<ChipInfo> GetInfo() = 0;
    virtual std::error_code Reset() = 0;
    virtual std::vector<std::uint8_t> GetDefaultMatrix() = 0;
    virtual std::error_code WriteMatrix(std::span<const std::uint8_t> data) = 0;
    // The raw read-back as the board sends it.
    virtual std::error_code ReadMatrix(std::vector<std::uint8_t>& out) = 0;
    virtual std::error_code SetMask(std::span<const std::uint8_t> mask) = 0;
    virtual std::error_code GetMask(std::vector<std::uint8_t>& mask) = 0;
    // Writes the default matrix, reads it back and lists the pixels that differ, ascending.
    virtual std::error_code DigitalTest(std::vector<std::uint32_t>& bad) = 0;
    // Replaces the threshold controller with one built from the configuration, if any.
    virtual std::error_code CreateThresholdControl(const configuration::ConfigLoader* config) = 0;
    virtual std::error_code SetPolarity(std::uint8_t polarity) = 0;
    virtual std::string GetChipId() = 0;
    virtual ITimepixDacs& GetDacs() = 0;
    virtual std::error_code SetMode(ovexsdk_chip_mode mode) = 0;
    virtual ovexsdk_chip_mode GetMode() = 0;
    virtual bool IsModeSet() = 0;
    virtual IThresholdControl* GetThresholdControl() = 0;
};

}  // namespace ovex::sdk
