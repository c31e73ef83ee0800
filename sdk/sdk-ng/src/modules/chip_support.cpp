#include "modules/chip_support.hpp"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <chrono>
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

std::error_code ReadChipRecord(Commands& commands, ChipInfo& info) {
    // Chip type, a code, a 16-bit number, an unread byte, a second 16-bit number, a pad byte.
    std::array<std::uint8_t, 8> record{};
    if (const auto ec = commands.Invoke("TPX_CHIP_INFO", std::span<std::uint8_t>(record))) {
        return ec;
    }
    info.number_a = static_cast<std::uint16_t>(record[2] << 8 | record[3]);
    info.number_b = static_cast<std::uint16_t>(record[5] << 8 | record[6]);
    info.code = record[1] >= 1 && record[1] <= 2 ? record[1] : 0;
    info.chip_type = record[0] >= 1 && record[0] <= 4 ? record[0] : 0;
    return {};
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

std::optional<double> ChipDouble(const configuration::ConfigLoader& config,
                                 std::string_view chip_id, std::string_view key) {
    if (const auto* value = std::get_if<double>(config.GetChipValue(chip_id, key))) {
        return *value;
    }
    return std::nullopt;
}

}  // namespace ovex::sdk
