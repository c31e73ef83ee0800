#pragma once

// What the Timepix chip modules share: the chip's identity from its efuses and its information
// record, the user mask merged into a matrix, the DAC tables and the chip values of a loaded
// configuration.

#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <system_error>
#include <vector>

#include "impl/item_set.hpp"
#include "modules/threshold_control.hpp"
#include "modules/timepix_chip.hpp"
#include "modules/timepix_dacs.hpp"

namespace ovex::configuration {
class ConfigLoader;
}

namespace ovex::sdk {

// The item sets a module was given; a missing one is a bug.
Commands& CheckedCommands(Commands* commands);
States& CheckedStates(States* states);

// The chip id text until a valid one has been read.
inline constexpr const char* kUnknownChipId = "<UNKNOWN>";

// Letter, wafer row and wafer number from the efuse word, "<UNKNOWN>" for 0.
std::string DecodeChipId(std::uint32_t efuses);

// The chip id: `cached` as it is once it starts with a letter, else decoded from the state
// TPX_CHIP_ID and kept in `cached`. A failed read gives "<UNKNOWN>" and leaves `cached`.
std::string ReadChipId(States& states, std::string& cached);

// The board's chip information record, the answer of the command TPX_CHIP_INFO.
struct ChipRecord {
    std::uint8_t chip_type = 0;  // 1 to 4, else 0
    std::uint8_t code = 0;       // 1 or 2, else 0
    std::uint16_t number_a = 0;
    std::uint16_t number_b = 0;
};

// Asks the board for its record: 8 bytes, of which the first 7 are read. Nothing in `record`
// when fewer came.
std::error_code FetchChipRecord(Commands& commands, std::optional<ChipRecord>& record);

// Fills the record fields of `info` (the two numbers, the code and the chip type) from the
// board's record, all 0 if it came short; the rest of `info` stays as it is.
std::error_code ReadChipRecord(Commands& commands, ChipInfo& info);

// A failed step of a chip's reset, logged as "<what> <chip id> - <category>: <message>.".
void LogChipStepFailure(const std::error_code& ec, std::string_view what,
                        const std::string& chip_id);

// Sends the board's code of an operational mode with TPX_OPMODE and keeps `mode` in `stored`; a
// failure is logged as "<failure> - <category>: <message>" and clears `stored`.
std::error_code SendOperationMode(Commands& commands, ovexsdk_chip_mode mode, std::uint8_t code,
                                  const char* failure, std::uint8_t& stored);

// The outcome of a digital test of `pixels` pixels: information when none is bad, else a warning.
void LogDigitalTest(const std::string& chip_id, std::size_t pixels, std::size_t bad);

// `matrix` with `mask_bit` set on each pixel that is masked in `mask` or already in `matrix`.
// Both spans have the same size.
std::vector<std::uint8_t> MaskedMatrix(std::span<const std::uint8_t> matrix,
                                       std::span<const std::uint8_t> mask, std::uint8_t mask_bit);

// The first steps of a chip's SetMask: checks that `mask` has `pixels` bytes, announces and keeps
// it in `user_mask`, and gives in `merged` the last matrix written with the mask merged in. With
// no matrix written yet the mask is kept, not applied, and the call fails with
// operation_not_permitted.
std::error_code MergeUserMask(std::span<const std::uint8_t> mask, std::size_t pixels,
                              std::uint8_t mask_bit, std::vector<std::uint8_t>& user_mask,
                              const std::vector<std::uint8_t>& matrix,
                              std::vector<std::uint8_t>& merged);

// A DAC of a chip generation's table: the board's state, the name users see, and whether the
// chip's sense pin can be switched to it.
struct DacEntry {
    const char* state;
    const char* name;
    bool measurable;
};
using DacTable = std::map<std::uint8_t, DacEntry>;

// The table's DACs in id order with the board's limits of each, asked now; a DAC whose limits
// don't come gets -32768..32767.
std::vector<DacInfo> ListDacs(States& states, const DacTable& table);

// The states of the table's DACs in id order.
std::vector<std::string> DacStateNames(const DacTable& table);

// Writes and reads a DAC of the table by id through its state.
std::error_code SetDacState(States& states, const DacTable& table, std::uint8_t id,
                            std::uint32_t value);
std::error_code GetDacState(States& states, const DacTable& table, std::uint8_t id,
                            std::uint32_t& value);

// The state of a DAC; an id outside the table gets a name that no board knows, which the item
// set refuses.
const char* DacStateName(const DacTable& table, std::uint8_t id);

// Whether the sense pin can be switched to this DAC, with the reason logged when not.
std::error_code CheckSenseDac(const DacTable& table, std::uint8_t id);

// Blocks while the sense pin's analog output settles on a newly selected DAC.
void WaitForSenseOutput();

std::optional<DacInfo> FindDac(const std::vector<DacInfo>& list, std::uint8_t id);

// The threshold range of a coarse and a fine DAC, `step` fine codes a coarse code, and the energy
// range of the calibration raw = a * keV + b above `min_threshold`.
void FillThresholdInfo(ThresholdInfo& info, const DacInfo& coarse, const DacInfo& fine,
                       std::uint32_t step, double a, double b, double min_threshold);

// Whether an energy (NaN never) or a raw threshold is within `info`, with the reason logged when
// not.
std::error_code CheckEnergyThreshold(float kev, const ThresholdInfo& info);
std::error_code CheckRawThreshold(std::uint32_t raw, const ThresholdInfo& info);

// The chip's value of a key when it holds a double.
std::optional<double> ChipDouble(const configuration::ConfigLoader& config,
                                 std::string_view chip_id, std::string_view key);

}  // namespace ovex::sdk
