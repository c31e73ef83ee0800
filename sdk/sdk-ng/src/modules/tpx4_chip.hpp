#pragma once

// The Timepix4 chip as far as the board can be opened, identified and powered: its geometry is
// known, every configuration request is answered with "not supported".

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <system_error>
#include <vector>

#include "modules/threshold_control.hpp"
#include "modules/timepix_chip.hpp"
#include "modules/timepix_dacs.hpp"

namespace ovex::sdk {

inline constexpr std::size_t kTpx4PixelCount = 448 * 512;

// No DAC is reachable yet: the list is empty and every access is refused.
class Tpx4Dacs final : public ITimepixDacs {
public:
    const char* GetName() const override { return "Timepix 4 DACs"; }
    std::vector<DacInfo> GetDacList() override { return {}; }
    std::error_code SetDac(std::uint8_t id, std::uint32_t value) override;
    std::error_code GetDac(std::uint8_t id, std::uint32_t& value) override;
    std::error_code SelectSenseDac(std::uint8_t id) override;
    std::error_code ReadDacOut(float& value) override;
};

// No threshold can be set or read yet.
class Tpx4ThresholdCtlr final : public IThresholdControl {
public:
    explicit Tpx4ThresholdCtlr(ITimepixDacs& dacs) : m_dacs(&dacs) {}

    const char* GetName() const override { return "Timepix4 threshold controller"; }
    std::error_code GetThresholdInfo(ThresholdInfo& info) override;
    std::error_code GetThreshold(float& kev) override;
    std::error_code SetThreshold(float kev) override;
    std::error_code GetRawThreshold(std::uint32_t& raw) override;
    std::error_code SetRawThreshold(std::uint32_t raw) override;

private:
    double m_a = 1.0;
    double m_b = 0.0;
    double m_min_threshold = 0.0;
    std::uint32_t m_step = 163;
    ITimepixDacs* m_dacs;
};

class Timepix4 final : public ITimepixChip {
public:
    // The item sets belong to the board, which outlives the module. Only the chip record is
    // asked for; `states` and `monitors` are taken so that every chip module is built alike.
    Timepix4(Commands* commands, States* states, Monitors* monitors);

    const char* GetName() const override { return "Timepix4 chip"; }
    std::error_code GetPolarity(std::uint8_t& polarity) override;
    // The board's chip record, with no geometry, modes or polarities to offer yet.
    std::optional<ChipInfo> GetInfo() override;
    // Nothing to reset yet: succeeds without a word to the board.
    std::error_code Reset() override { return {}; }
    std::vector<std::uint8_t> GetDefaultMatrix() override;
    std::error_code WriteMatrix(std::span<const std::uint8_t> data) override;
    std::error_code ReadMatrix(std::vector<std::uint8_t>& out) override;
    std::error_code SetMask(std::span<const std::uint8_t> mask) override;
    std::error_code GetMask(std::vector<std::uint8_t>& mask) override;
    // Succeeds with no pixel listed.
    std::error_code DigitalTest(std::vector<std::uint32_t>& bad) override;
    // Succeeds; the configuration is dropped.
    std::error_code CreateThresholdControl(const configuration::ConfigLoader* config) override;
    std::error_code SetPolarity(std::uint8_t polarity) override;
    // Empty: the efuses aren't read yet.
    std::string GetChipId() override { return {}; }
    ITimepixDacs& GetDacs() override { return m_dacs; }
    std::error_code SetMode(ovexsdk_chip_mode mode) override;
    ovexsdk_chip_mode GetMode() override { return static_cast<ovexsdk_chip_mode>(m_mode); }
    bool IsModeSet() override { return false; }
    IThresholdControl* GetThresholdControl() override { return &m_threshold; }

private:
    Commands& BoardCommands() const;

    Tpx4Dacs m_dacs;
    Tpx4ThresholdCtlr m_threshold;
    std::string m_chip_id;
    std::vector<std::uint8_t> m_matrix;
    std::vector<std::uint8_t> m_mask;
    std::uint8_t m_mode = 0;
};

}  // namespace ovex::sdk
