#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <system_error>
#include <vector>

#include "modules/timepix_chip.hpp"
#include "modules/tpx2_dacs.hpp"
#include "modules/tpx2_thld_ctrl.hpp"

namespace ovex::usb::device {
class UsbDevice;
}

namespace ovex::sdk {

// A Timepix2 chip behind the board's items. Its matrix goes down as one block on the bulk egress
// endpoint and comes back as CONF and TRIM over the data endpoint, each transfer with the chip's
// parallel readout control bypassed. It has no lock of its own: its calls run on the caller's
// thread.
class Timepix2 final : public ITimepixChip {
public:
    // The item sets and the USB device belong to the board, which outlives the module. The chip
    // reads no monitor: `monitors` is taken so that every chip module is built alike.
    Timepix2(Commands* commands, States* states, Monitors* monitors,
             usb::device::UsbDevice* device);

    const char* GetName() const override { return "Timepix2 chip"; }
    // The polarity is fixed: always 2.
    std::error_code GetPolarity(std::uint8_t& polarity) override;
    std::optional<ChipInfo> GetInfo() override;
    std::error_code Reset() override;
    std::vector<std::uint8_t> GetDefaultMatrix() override;
    // Takes the host form only (65536 bytes), which the board takes as it is; another size is
    // refused with invalid_argument, silently.
    std::error_code WriteMatrix(std::span<const std::uint8_t> data) override;
    // The host form merged from the CONF and TRIM read-backs. A matrix that came short fails the
    // call with no_message_available after the size message, leaving `out` empty.
    std::error_code ReadMatrix(std::vector<std::uint8_t>& out) override;
    // The mask is merged into bit 1 of the last matrix written: a pixel masked once stays masked
    // until the next WriteMatrix. Before any matrix was written the mask is kept, not applied,
    // and the call fails with operation_not_permitted.
    std::error_code SetMask(std::span<const std::uint8_t> mask) override;
    std::error_code GetMask(std::vector<std::uint8_t>& mask) override;
    // All eight bits of each pixel are compared; a failed read-back fails the test with its code
    // and an empty list.
    std::error_code DigitalTest(std::vector<std::uint32_t>& bad) override;
    std::error_code CreateThresholdControl(const configuration::ConfigLoader* config) override;
    // Always not_supported: the polarity is fixed.
    std::error_code SetPolarity(std::uint8_t polarity) override;
    // Read from the efuses once a valid id has been read; "<UNKNOWN>" until then.
    std::string GetChipId() override;
    ITimepixDacs& GetDacs() override { return m_dacs; }
    // EvCount8Bit and EvCount10Bit send the same code: only the frame readout tells them apart.
    std::error_code SetMode(ovexsdk_chip_mode mode) override;
    ovexsdk_chip_mode GetMode() override { return static_cast<ovexsdk_chip_mode>(m_mode); }
    bool IsModeSet() override { return m_mode != 0; }
    IThresholdControl* GetThresholdControl() override { return &m_threshold; }

private:
    Commands& BoardCommands() const;
    States& BoardStates() const;
    // Tells the board to bypass the chip's parallel readout control, or to stop.
    std::error_code SetPrcBypass(bool enable);
    // One of the two read-back matrices, by its id and name, with its words in host order.
    std::error_code ReadHalfMatrix(std::uint8_t id, const char* name,
                                   std::vector<std::uint8_t>& data);

    Tpx2Dacs m_dacs;
    Tpx2ThresholdCtlr m_threshold;
    std::string m_chip_id;
    std::vector<std::uint8_t> m_matrix;  // the last matrix written, host form
    std::vector<std::uint8_t> m_mask;
    std::uint8_t m_mode = 0;
    usb::device::UsbDevice* m_device;
};

}  // namespace ovex::sdk
