#include "modules/ovexboard_backend.hpp"

#include <array>
#include <cstddef>
#include <map>
#include <vector>

#include "bitmanip/bitmanip.hpp"
#include "ovex/log/log.hpp"

namespace ovex::sdk {

namespace {

// How the sync input is set up for a trigger mode. The internal modes have no command: they only
// take the input out of use and leave the rest of its record alone.
struct TriggerInput {
    const char* command;
    const char* description;
    SyncBlock input;  // type, polarity, hardware stop, enabled, ready
};

// Built on first use and kept for the life of the process.
const std::map<std::uint8_t, TriggerInput>& TriggerInputs() {
    static const std::map<std::uint8_t, TriggerInput> table{
        {1, {nullptr, "<UNKNOWN>", {}}},
        {2, {nullptr, "<UNKNOWN>", {}}},
        {3, {"TRIG_I_1PULSE", "hardware-start-shutter-duration", {3, 0, 0, 1, 0}}},
        {4, {"TRIG_I_LEVEL", "hardware-start-hardware-stop:level", {2, 0, 1, 1, 0}}},
        {5, {"TRIG_I_EDGE", "hardware-start-hardware-stop:edge", {1, 0, 1, 1, 0}}},
    };
    return table;
}

constexpr std::uint8_t kFirstSyncOption = 1;
constexpr std::uint8_t kLastSyncOption = 16;
constexpr std::uint8_t kInputActiveHigh = 9;

void LogFailure(const char* text, const std::error_code& ec) {
    OVEX_LOG_EC(log::kError, "%s - %s: %s.", ec, text);
}

enum class SyncStep {
    kTriggerOut,   // invoke `command`; the output line puts out `value` as its type
    kReady,        // bit `bit` of "READY_IO_EN" becomes `value`
    kPolarity,     // bit `bit` of "SYNC_IO_ACT_LOW" becomes `value`, 1 for active low
    kClockOutput,  // set up the clock chip's outputs with one word, then run the main clock
    kClockInput,   // switch the clock chip's reference with three words, detector unpowered only
};

struct SyncOption {
    const char* name;
    SyncStep step;
    const char* command;
    std::uint8_t value;
    // Of the ready and polarity states: bit 0 is the input line, bit 1 the output line.
    std::uint32_t bit;
    // Words of "MAIN_CLK_SETUP": a register of the clock chip in the high half, its value in the
    // low half.
    std::array<std::uint32_t, 3> words;
    std::size_t word_count;
};

// Indexed by option - 1.
constexpr std::array<SyncOption, kLastSyncOption> kSyncOptions{{
    {"trigger-out:no", SyncStep::kTriggerOut, "TRIG_O_DISABLE", 0, 0, {}, 0},
    {"trigger-out:level", SyncStep::kTriggerOut, "TRIG_O_LEVEL", 2, 0, {}, 0},
    {"trigger-out:edge", SyncStep::kTriggerOut, "TRIG_O_EDGE", 1, 0, {}, 0},
    {"trigger-out:pulse", SyncStep::kTriggerOut, "TRIG_O_1PULSE", 3, 0, {}, 0},
    {"ready-in:no", SyncStep::kReady, nullptr, 0, 0, {}, 0},
    {"ready-in:yes", SyncStep::kReady, nullptr, 1, 0, {}, 0},
    {"ready-out:no", SyncStep::kReady, nullptr, 0, 1, {}, 0},
    {"ready-out:yes", SyncStep::kReady, nullptr, 1, 1, {}, 0},
    {"input-polarity:active-high", SyncStep::kPolarity, nullptr, 0, 0, {}, 0},
    {"input-polarity:active-low", SyncStep::kPolarity, nullptr, 1, 0, {}, 0},
    {"output-polarity:active-high", SyncStep::kPolarity, nullptr, 0, 1, {}, 0},
    {"output-polarity:active-low", SyncStep::kPolarity, nullptr, 1, 1, {}, 0},
    {"clock-output:no", SyncStep::kClockOutput, nullptr, 0, 0, {0x00040080}, 1},
    {"clock-output:yes", SyncStep::kClockOutput, nullptr, 0, 0, {0x00040000}, 1},
    // The reference that the power script selects, and the board's external 40 MHz input.
    {"clock-input:internal-200-mhz",
     SyncStep::kClockInput,
     nullptr,
     0,
     0,
     {0x001E0060, 0x00190408, 0x00020002},
     3},
    {"clock-input:external-40-mhz",
     SyncStep::kClockInput,
     nullptr,
     0,
     0,
     {0x001E0078, 0x00190402, 0x00020003},
     3},
}};

void LogOptionFailure(const SyncOption& option, const std::error_code& ec) {
    // The clock-output messages have two blanks before "synchronization".
    if (option.step == SyncStep::kClockOutput) {
        OVEX_LOG_EC(log::kError, "Failed to configure the '%s'  synchronization option. - %s: %s.",
                    ec, option.name);
    } else {
        OVEX_LOG_EC(log::kError, "Failed to configure the '%s' synchronization option. - %s: %s.",
                    ec, option.name);
    }
}

std::error_code WriteStateBit(States& states, const char* state, const SyncOption& option) {
    int value = 0;
    if (const auto ec = states.Get(state, value)) {
        OVEX_LOG_EC(log::kError, "Failed to read the value of '%s'. - %s: %s.", ec, state);
        return ec;
    }
    const auto written =
        bitmanip::write_bit(static_cast<std::uint32_t>(value), option.bit, option.value != 0);
    const auto ec = states.Set(state, static_cast<int>(written));
    if (ec) {
        LogOptionFailure(option, ec);
    }
    return ec;
}

std::error_code SetMainClock(States& states, int value) {
    const auto ec = states.Set("MAIN_CLK", value);
    if (ec) {
        LogFailure("Failed to modify the state of the CDCE6214 clock.", ec);
    }
    return ec;
}

std::error_code SetupClock(Commands& commands, const SyncOption& option) {
    std::vector<std::uint8_t> input(option.word_count * 4);
    for (std::size_t i = 0; i < option.word_count; ++i) {
        bitmanip::u32_to_span_le(option.words[i], std::span(input).subspan(i * 4, 4));
    }
    const auto ec = commands.Invoke("MAIN_CLK_SETUP", std::span<const std::uint8_t>(input));
    if (ec) {
        LogOptionFailure(option, ec);
    }
    return ec;
}

std::error_code SwitchClockInput(Commands& commands, States& states, const SyncOption& option) {
    int detector = 0;
    if (const auto ec = states.Get("DETECTOR_EN", detector)) {
        LogFailure("Unable to read value of 'DETECTOR_EN'.", ec);
        return ec;
    }
    if (detector == 1) {
        OVEX_LOG_ERROR("Clock cannot be changed when detector is powered.");
        return std::make_error_code(std::errc::operation_not_permitted);
    }
    // The detector's clock stops while the clock chip takes its new reference.
    if (const auto ec = SetMainClock(states, 0)) {
        return ec;
    }
    if (const auto ec = SetupClock(commands, option)) {
        return ec;
    }
    return SetMainClock(states, 1);
}

}  // namespace

OvexboardBackend::OvexboardBackend(Commands* commands, States* states)
    : IBackend(
          ModuleRequirements{
              .commands = {{commands,
                            {"TRIG_I_1PULSE", "TRIG_I_LEVEL", "TRIG_I_EDGE", "TRIG_O_DISABLE",
                             "TRIG_O_LEVEL", "TRIG_O_EDGE", "TRIG_O_1PULSE", "MAIN_CLK_SETUP"}}},
              .states = {{states, {"READY_IO_EN", "SYNC_IO_ACT_LOW", "DETECTOR_EN", "MAIN_CLK"}}},
              .monitors = {}},
          false) {}

Commands& OvexboardBackend::CheckedCommands() const {
    Commands* commands = GetCommands();
    OVEX_CHECK(commands != nullptr, "BUG: Commands object is invalid.");
    return *commands;
}

States& OvexboardBackend::CheckedStates() const {
    States* states = GetStates();
    OVEX_CHECK(states != nullptr, "BUG: States object is invalid.");
    return *states;
}

std::error_code OvexboardBackend::SetTriggerInput(std::uint8_t mode) {
    const auto& table = TriggerInputs();
    const auto found = table.find(mode);
    if (found == table.end()) {
        OVEX_LOG_ERROR("Invalid trigger option.");
        return std::make_error_code(std::errc::invalid_argument);
    }
    const TriggerInput& row = found->second;
    if (row.command == nullptr) {
        m_sync.input.enabled = 0;
        return {};
    }
    if (const auto ec = CheckedCommands().Invoke(row.command)) {
        OVEX_LOG_ERROR("Failed to configure trigger input as %s", row.description);
        return ec;
    }
    m_sync.input = row.input;
    // An input in use always starts active high; the option records the polarity.
    if (const auto ec = ApplySyncOption(kInputActiveHigh)) {
        LogFailure("Failed to configure polarity as 'active high'.", ec);
        return ec;
    }
    return {};
}

const char* SyncOptionName(std::uint8_t option) {
    if (option < kFirstSyncOption || option > kLastSyncOption) {
        return nullptr;
    }
    return kSyncOptions[option - kFirstSyncOption].name;
}

std::set<std::uint8_t> OvexboardBackend::GetSyncOptions() {
    std::set<std::uint8_t> options;
    for (std::uint8_t option = kFirstSyncOption; option <= kLastSyncOption; ++option) {
        options.insert(option);
    }
    return options;
}

std::error_code OvexboardBackend::ApplySyncOption(std::uint8_t option) {
    if (option < kFirstSyncOption || option > kLastSyncOption) {
        OVEX_LOG_ERROR("Invalid external synchronization option");
        return std::make_error_code(std::errc::invalid_argument);
    }
    const SyncOption& row = kSyncOptions[option - kFirstSyncOption];
    SyncBlock& line = row.bit == 0 ? m_sync.input : m_sync.output;
    switch (row.step) {
        case SyncStep::kTriggerOut:
            if (const auto ec = CheckedCommands().Invoke(row.command)) {
                LogOptionFailure(row, ec);
                return ec;
            }
            m_sync.output.type = row.value;
            m_sync.output.enabled = row.value != 0 ? 1 : 0;
            return {};
        case SyncStep::kReady:
            if (const auto ec = WriteStateBit(CheckedStates(), "READY_IO_EN", row)) {
                return ec;
            }
            line.enabled = row.value;
            line.ready = row.value;
            return {};
        case SyncStep::kPolarity:
            if (const auto ec = WriteStateBit(CheckedStates(), "SYNC_IO_ACT_LOW", row)) {
                return ec;
            }
            line.polarity = row.value;
            return {};
        case SyncStep::kClockOutput:
            if (const auto ec = SetupClock(CheckedCommands(), row)) {
                return ec;
            }
            return SetMainClock(CheckedStates(), 1);
        case SyncStep::kClockInput:
            return SwitchClockInput(CheckedCommands(), CheckedStates(), row);
    }
    return std::make_error_code(std::errc::invalid_argument);
}

}  // namespace ovex::sdk
