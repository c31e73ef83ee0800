#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <system_error>
#include <vector>

#include "modules/timepix_chip.hpp"
#include "modules/tpx3_dacs.hpp"

namespace ovex::usb::device {
class UsbDevice;
}

namespace ovex::sdk {

// A Timepix3 chip behind the board's items, with its matrix read back over the data endpoint.
// It has no lock of its own: its calls run on the caller's thread.
class Timepix3 final : public ITimepixChip {
public:
    // The item sets and the USB device belong to the board, which outlives the module. The chip
    // reads no monitor: `monitors` is taken so that every chip module is built alike.
    Timepix3(Commands* commands, States* states, Monitors* monitors,
             usb::device::UsbDevice* device);

    const char* GetName() const override { return "Timepix3 chip"; }
    std::error_code GetPolarity(std::uint8_t& polarity) override;
    std::optional<ChipInfo> GetInfo() override;
    std::error_code Reset() override;
    std::vector<std::uint8_t> GetDefaultMatrix() override;
    // Takes the host form (65536 bytes, transformed into device order and packed) or the packed
    // form (49152 bytes, already in device order).
    std::error_code WriteMatrix(std::span<const std::uint8_t> data) override;
    std::error_code ReadMatrix(std::vector<std::uint8_t>& out) override;
    // The mask is merged into the last matrix written: a pixel masked once stays masked until
    // the next WriteMatrix. Before any matrix was written the mask is kept, not applied, and
    // the call fails with operation_not_permitted.
    std::error_code SetMask(std::span<const std::uint8_t> mask) override;
    std::error_code GetMask(std::vector<std::uint8_t>& mask) override;
    std::error_code DigitalTest(std::vector<std::uint32_t>& bad) override;
    std::error_code CreateThresholdControl(const configuration::ConfigLoader* config) override;
    std::error_code SetPolarity(std::uint8_t polarity) override;
    // Read from the efuses once a valid id has been read; "<UNKNOWN>" until then.
    std::string GetChipId() override;
    ITimepixDacs& GetDacs() override { return m_dacs; }
    std::error_code SetMode(ovexsdk_chip_mode mode) override;
    ovexsdk_chip_mode GetMode() override { return static_cast<ovexsdk_chip_mode>(m_mode); }
    bool IsModeSet() override { return m_mode != 0; }
    IThresholdControl* GetThresholdControl() override { return m_threshold.get(); }

private:
    Commands& BoardCommands() const;
    States& BoardStates() const;

    Tpx3Dacs m_dacs;
    std::unique_ptr<IThresholdControl> m_threshold;
    std::string m_chip_id;
    std::vector<std::uint8_t> m_matrix;  // the last matrix written, host form
    std::vector<std::uint8_t> m_mask;
    std::uint8_t m_mode = 0;
    usb::device::UsbDevice* m_device;
};

}  // namespace ovex::sdk
