#include "modules/chip_support.hpp"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <cmath>
#include <thread>
#include <variant>

#include "ovex/config_loader/config_loader.hpp"
#include "ovex/log/log.hpp"
#include "ovex/range/range.hpp"

namespace ovex::sdk {
namespace {

bool StartsWithLetter(const std::string& text) {
    if (text.empty()) {
        return false;
    }
    const char c = text.front();
    return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z');
}

}  // namespace

Commands& CheckedCommands(Commands* commands) {
    OVEX_CHECK(commands != nullptr, "BUG: Commands object is invalid.");
    return *commands;
}

States& CheckedStates(States* states) {
    OVEX_CHECK(states != nullptr, "BUG: States object is invalid.");
    return *states;
}

// Two override bits let the upper ten bits replace one of the three fields.
std::string DecodeChipId(std::uint32_t efuses) {
    if (efuses == 0) {
        return kUnknownChipId;
    }
    std::uint32_t x = efuses & 15;
    std::uint32_t y = (efuses >> 4) & 15;
    std::uint32_t w = (efuses >> 8) & 0xFFF;
    switch ((efuses >> 20) & 3) {
        case 1:
            x = efuses >> 22;
            break;
        case 2:
            y = efuses >> 22;
            break;
        case 3:
            w = efuses >> 22;
            break;
        default:
            break;
    }
    const char letter = x != 0 ? static_cast<char>(x + 64) : 'X';
    return fmt::format("{:c}{:02d}-W{:04d}", letter, y, w);
}

std::string ReadChipId(States& states, std::string& cached) {
    if (StartsWithLetter(cached)) {
        return cached;
    }
    int word = 0;
    if (const auto ec = states.Get("TPX_CHIP_ID", word)) {
        OVEX_LOG_EC(log::kError, "Failed to read chip efuses: %s: %s.", ec);
        return kUnknownChipId;
    }
    const auto efuses = static_cast<std::uint32_t>(word);
    cached = DecodeChipId(efuses);
    if (efuses != 0 && !StartsWithLetter(cached)) {
        OVEX_LOG_ERROR("Chip ID decoded from efuses 0x%08X is not valid.", efuses);
    }
    return cached;
}

std::error_code FetchChipRecord(Commands& commands, std::optional<ChipRecord>& record) {
    // Chip type, a code, a 16-bit number, an unread byte, a second 16-bit number, a pad byte.
    constexpr std::size_t kReadBytes = 7;
    std::array<std::uint8_t, 8> answer{};
    std::size_t received = 0;
    record.reset();
    if (const auto ec =
            commands.Invoke("TPX_CHIP_INFO", std::span<std::uint8_t>(answer), received)) {
        return ec;
    }
    if (received < kReadBytes) {
        return {};
    }
    record.emplace();
    record->chip_type = answer[0] >= 1 && answer[0] <= 4 ? answer[0] : 0;
    record->code = answer[1] >= 1 && answer[1] <= 2 ? answer[1] : 0;
    record->number_a = static_cast<std::uint16_t>(answer[2] << 8 | answer[3]);
    record->number_b = static_cast<std::uint16_t>(answer[5] << 8 | answer[6]);
    return {};
}

std::error_code ReadChipRecord(Commands& commands, ChipInfo& info) {
    std::optional<ChipRecord> answer;
    if (const auto ec = FetchChipRecord(commands, answer)) {
        return ec;
    }
    const ChipRecord record = answer.value_or(ChipRecord{});
    info.number_a = record.number_a;
    info.number_b = record.number_b;
    info.code = record.code;
    info.chip_type = record.chip_type;
    return {};
}

void LogChipStepFailure(const std::error_code& ec, std::string_view what,
                        const std::string& chip_id) {
    const auto text = fmt::format("{} {:s}", what, chip_id);
    OVEX_LOG_EC(log::kError, "%s - %s: %s.", ec, text.c_str());
}

std::error_code SendOperationMode(Commands& commands, ovexsdk_chip_mode mode, std::uint8_t code,
                                  const char* failure, std::uint8_t& stored) {
    if (const auto ec = commands.Invoke("TPX_OPMODE", std::span<const std::uint8_t>(&code, 1))) {
        OVEX_LOG_EC(log::kError, "%s - %s: %s", ec, failure);
        stored = 0;
        return ec;
    }
    stored = static_cast<std::uint8_t>(mode);
    return {};
}

void LogDigitalTest(const std::string& chip_id, std::size_t pixels, std::size_t bad) {
    if (bad == 0) {
        OVEX_LOG_INFO("Digital test of '%s' - good: %zu, bad: %zu.", chip_id.c_str(), pixels, bad);
    } else {
        OVEX_LOG_WARN("Digital test of '%s' - good: %zu, bad: %zu.", chip_id.c_str(), pixels - bad,
                      bad);
    }
}

std::vector<std::uint8_t> MaskedMatrix(std::span<const std::uint8_t> matrix,
                                       std::span<const std::uint8_t> mask, std::uint8_t mask_bit) {
    const auto bit = static_cast<unsigned>(1u << mask_bit);
    std::vector<std::uint8_t> merged(matrix.size());
    for (std::size_t i = 0; i < matrix.size(); ++i) {
        const bool masked = (matrix[i] & bit) != 0 || mask[i] != 0;
        merged[i] = static_cast<std::uint8_t>((matrix[i] & ~bit) | (masked ? bit : 0u));
    }
    return merged;
}

std::error_code MergeUserMask(std::span<const std::uint8_t> mask, std::size_t pixels,
                              std::uint8_t mask_bit, std::vector<std::uint8_t>& user_mask,
                              const std::vector<std::uint8_t>& matrix,
                              std::vector<std::uint8_t>& merged) {
    if (mask.size() != pixels) {
        OVEX_LOG_ERROR(
            "Provided pixel mask doesn't have correct size. Expected %zu bytes, got %zu.", pixels,
            mask.size());
        return std::make_error_code(std::errc::invalid_argument);
    }
    const auto masked = static_cast<std::size_t>(
        std::count_if(mask.begin(), mask.end(), [](std::uint8_t m) { return m != 0; }));
    OVEX_LOG_INFO("New user mask contains %zu masked pixels.", masked);
    user_mask.assign(mask.begin(), mask.end());
    if (matrix.size() != pixels) {
        OVEX_LOG_ERROR(
            "No pixel matrix has been written to the chip yet: the mask is kept, not applied.");
        return std::make_error_code(std::errc::operation_not_permitted);
    }
    merged = MaskedMatrix(matrix, mask, mask_bit);
    return {};
}

std::vector<DacInfo> ListDacs(States& states, const DacTable& table) {
    std::vector<DacInfo> list;
    list.reserve(table.size());
    for (const auto& [id, entry] : table) {
        range::Range<int> limits;
        if (const auto ec = states.GetRange(entry.state, limits)) {
            OVEX_LOG_EC(log::kWarning, "Failed to obtain limits of DAC %s - %s: %s.", ec,
                        entry.name);
            limits = range::Range<int>(-32768, 32767);
        }
        list.push_back(DacInfo{.id = id,
                               .name = entry.name,
                               .min = limits.min(),
                               .max = limits.max(),
                               .measurable = entry.measurable});
    }
    return list;
}

std::vector<std::string> DacStateNames(const DacTable& table) {
    std::vector<std::string> names;
    for (const auto& [id, entry] : table) {
        names.emplace_back(entry.state);
    }
    return names;
}

std::error_code SetDacState(States& states, const DacTable& table, std::uint8_t id,
                            std::uint32_t value) {
    return states.Set(DacStateName(table, id), static_cast<int>(value));
}

std::error_code GetDacState(States& states, const DacTable& table, std::uint8_t id,
                            std::uint32_t& value) {
    int read = 0;
    const auto ec = states.Get(DacStateName(table, id), read);
    if (!ec) {
        value = static_cast<std::uint32_t>(read);
    }
    return ec;
}

const char* DacStateName(const DacTable& table, std::uint8_t id) {
    const auto found = table.find(id);
    return found != table.end() ? found->second.state : "<invalid state>";
}

std::error_code CheckSenseDac(const DacTable& table, std::uint8_t id) {
    const auto found = table.find(id);
    if (found == table.end()) {
        OVEX_LOG_ERROR("DAC ID %d is invalid.", id);
        return std::make_error_code(std::errc::invalid_argument);
    }
    if (!found->second.measurable) {
        OVEX_LOG_ERROR("DAC '%s' cannot be measured using DAC_OUT chip pin.", found->second.name);
        return std::make_error_code(std::errc::invalid_argument);
    }
    return {};
}

void WaitForSenseOutput() {
    std::this_thread::sleep_for(std::chrono::milliseconds(200));
}

std::optional<DacInfo> FindDac(const std::vector<DacInfo>& list, std::uint8_t id) {
    for (const DacInfo& dac : list) {
        if (dac.id == id) {
            return dac;
        }
    }
    return std::nullopt;
}

void FillThresholdInfo(ThresholdInfo& info, const DacInfo& coarse, const DacInfo& fine,
                       std::uint32_t step, double a, double b, double min_threshold) {
    const auto coarse_step = static_cast<std::int32_t>(step);
    const std::int32_t raw_min = coarse.min * coarse_step + fine.min;
    const std::int32_t raw_max = coarse.max * coarse_step + fine.max;
    info.energy_low = static_cast<float>(raw_min);
    info.energy_high = static_cast<float>((min_threshold - b) / a);
    info.min_threshold = static_cast<float>(min_threshold);
    info.raw_min = static_cast<std::uint32_t>(raw_min);
    info.raw_max = static_cast<std::uint32_t>(raw_max);
    info.calibrated = std::fabs(a - 1.0) > 1e-9 || std::fabs(b - 0.0) > 1e-9;
}

std::error_code CheckEnergyThreshold(float kev, const ThresholdInfo& info) {
    // Written so that a NaN is out of range too.
    if (!(kev >= info.energy_low && kev <= info.energy_high)) {
        OVEX_LOG_ERROR("Input threshold: %.3f keV is outside the valid range [%.3f, %.3f] keV.",
                       static_cast<double>(kev), static_cast<double>(info.energy_low),
                       static_cast<double>(info.energy_high));
        return std::make_error_code(std::errc::invalid_argument);
    }
    return {};
}

std::error_code CheckRawThreshold(std::uint32_t raw, const ThresholdInfo& info) {
    if (raw < info.raw_min || raw > info.raw_max) {
        OVEX_LOG_ERROR("Raw threshold input value: %u is outside the valid range [%u, %u].", raw,
                       info.raw_min, info.raw_max);
        return std::make_error_code(std::errc::invalid_argument);
    }
    return {};
}

std::optional<double> ChipDouble(const configuration::ConfigLoader& config,
                                 std::string_view chip_id, std::string_view key) {
    if (const auto* value = std::get_if<double>(config.GetChipValue(chip_id, key))) {
        return *value;
    }
    return std::nullopt;
}

}  // namespace ovex::sdk
