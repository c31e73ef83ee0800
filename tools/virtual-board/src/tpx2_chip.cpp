#include "tpx2_chip.hpp"

#include <algorithm>
#include <array>
#include <string_view>

#include "frame_exposure.hpp"
#include "ovex/vboard/error_words.hpp"
#include "power_rails.hpp"

// ITEMS.md gives the chip's refusals and what its resets clear.

namespace ovex::vboard {
namespace {

// TPX_OPMODE: event counting and integrated ToT, each with 10-bit (6, 10) or 14-bit (7, 11)
// counters.
constexpr std::array<std::uint8_t, 4> kModes = {6, 7, 10, 11};
constexpr std::uint8_t kPowerOnMode = 6;
constexpr std::uint8_t kWriteMatrixArgument = 3;
constexpr std::uint8_t kConfHalf = 1;
constexpr std::uint8_t kTrimHalf = 2;
// Where the pixel's counter saturates in `mode`.
constexpr std::uint16_t CounterMax(std::uint8_t mode) {
    return mode == 7 || mode == 11 ? 16383 : 1023;
}

constexpr std::array<std::string_view, 19> kDacStates = {
    "DAC_BIAS_PREAMP_ON", "DAC_BIAS_PREAMP_OFF",
    "DAC_BIAS_LS_ON",     "DAC_BIAS_LS_OFF",
    "DAC_CASC_PREAMP",    "DAC_FBK",
    "DAC_TH_COARSE",      "DAC_TH_FINE",
    "DAC_BIAS_IKRUM",     "DAC_BIAS_DISC_PMOS",
    "DAC_BIAS_DISC_NMOS", "DAC_CASC_DISC",
    "DAC_BIAS_THS",       "DAC_GND",
    "DAC_TP_COARSE",      "DAC_TP_FINE",
    "DAC_BIAS_SLVS",      "DAC_CM_SLVS",
    "DAC_BIAS_RES"};

bool OneByte(std::span<const std::uint8_t> input, std::uint8_t max) {
    return input.size() == 1 && input[0] <= max;
}

// A pixel byte's CONF nibble: bits 0 and 1, bit 7 (unused by the host, kept by the chip) as
// bit 2, bit 6 as bit 3; its TRIM nibble: bits 2..5.
std::uint8_t Nibble(std::uint8_t pixel, std::uint8_t half) {
    if (half == kTrimHalf) {
        return pixel >> 2 & 0x0F;
    }
    return static_cast<std::uint8_t>((pixel & 3) | (pixel >> 7 & 1) << 2 | (pixel >> 6 & 1) << 3);
}

}  // namespace

Tpx2Chip::Tpx2Chip(const ItemTables& tables, const HardwareFaults& faults)
    : TimepixChip(tables, faults),
      m_bypass(ItemIdOr(tables.commands, "TPX_PRC_BYPASS")),
      m_write(ItemIdOr(tables.commands, "TPX_WRITE_MATRIX")),
      m_read(ItemIdOr(tables.commands, "TPX_READ_MATRIX")),
      m_opmode(ItemIdOr(tables.commands, "TPX_OPMODE")),
      m_select(ItemIdOr(tables.commands, "TPX_DAC_SELECT")),
      m_depth(ItemIdOr(tables.commands, "PIPELINE_BPP")),
      m_duration(ItemIdOr(tables.states, "TPX_SHUT_DUR")),
      m_gpif(ItemIdOr(tables.states, kDataPathStates[0])),
      m_clock(ItemIdOr(tables.states, kDataPathStates[1])),
      m_matrix(kPixels, 0),
      m_mode(kPowerOnMode),
      m_shutter(tables) {
    std::vector<std::size_t> dacs;
    for (const std::string_view name : kDacStates) {
        dacs.push_back(ItemIdOr(tables.states, name));
    }
    // The NoBE switches the chip's 1.2 V supplies apart from the front end's.
    for (const char* name : {"DETECTOR_EN", "TPX_1V2"}) {
        if (const std::size_t id = ItemIdOr(tables.states, name); id != kNoItem) {
            m_supply.push_back(id);
        }
    }
    const std::array required = {m_init,   m_default_dac, m_bypass, m_write,    m_read,
                                 m_opmode, m_select,      m_depth,  m_duration, m_sense_state};
    const auto missing = [](std::size_t id) { return id == kNoItem; };
    if (std::any_of(required.begin(), required.end(), missing) ||
        std::any_of(dacs.begin(), dacs.end(), missing) || m_supply.empty() ||
        !m_shutter.Present()) {
        return;  // no Timepix2 on this board
    }
    m_dacs = std::move(dacs);
    m_chip_commands = {m_init, m_default_dac, m_bypass, m_write, m_read, m_opmode, m_select};
}

std::uint32_t Tpx2Chip::CommandRefusal(std::size_t command, std::span<const std::uint8_t> input,
                                       const std::vector<int>& states) const {
    if (!Present()) {
        return kNoError;
    }
    const bool needs_chip =
        Contains(m_chip_commands, command) || m_shutter.NeedsChip(command, input);
    if (needs_chip && !Powered(states)) {
        return kChipNotReady;
    }
    // What moves frames or matrix data needs the FPGA's data path.
    if (command == m_depth || command == m_read) {
        if (const std::uint32_t refusal = DataPathRefusal(states)) {
            return refusal;
        }
    }
    if (const std::uint32_t refusal = m_shutter.CommandRefusal(command, input, states)) {
        return refusal;
    }
    if (m_shutter.NeedsChip(command, input)) {
        if (const std::uint32_t refusal = ShutterStartRefusal(states)) {
            return refusal;
        }
    }
    if (command == m_init || command == m_default_dac) {
        return input.empty() ? kNoError : kBadArgument;
    }
    if (command == m_bypass) {
        if (m_faults->refused_prc_bypass) {
            return *m_faults->refused_prc_bypass;
        }
        if (!OneByte(input, 1)) {
            return kBadArgument;
        }
        return input[0] == 1 && m_shutter.Busy() ? kChipBusy : kNoError;  // frames use the PRC
    }
    if (command == m_write) {
        if (input.size() != 1 || input[0] != kWriteMatrixArgument) {
            return kBadArgument;
        }
        if (!m_bypassed) {
            return kNotConfigured;
        }
        if (!m_load_armed) {
            return kNotStarted;
        }
        return m_load_bytes == kPixels ? kNoError : kBadArgument;
    }
    if (command == m_read) {
        if (input.size() != 1 || (input[0] != kConfHalf && input[0] != kTrimHalf)) {
            return kBadArgument;
        }
        if (!m_bypassed) {
            return kNotConfigured;
        }
        return ReadBackPending() ? kChipBusy : kNoError;
    }
    if (command == m_opmode) {
        if (input.size() != 1 ||
            std::find(kModes.begin(), kModes.end(), input[0]) == kModes.end()) {
            return kBadArgument;
        }
        return m_shutter.Busy() ? kChipBusy : kNoError;  // an exposure keeps its mode
    }
    if (command == m_select) {
        // The last DAC, BiasRes, has no path to the sense pin.
        return input.size() == 1 && input[0] >= 1 && input[0] < m_dacs.size() ? kNoError
                                                                              : kBadArgument;
    }
    if (command == m_depth) {
        return OneByte(input, static_cast<std::uint8_t>(Tpx2Depth::k14Bit)) ? kNoError
                                                                            : kBadArgument;
    }
    return kNoError;
}

std::uint32_t Tpx2Chip::DataPathRefusal(const std::vector<int>& states) const {
    if (m_gpif != kNoItem && states[m_gpif] == 0) {
        return kNotConfigured;
    }
    return m_clock != kNoItem && states[m_clock] == 0 ? kNotStarted : kNoError;
}

std::uint32_t Tpx2Chip::ShutterStartRefusal(const std::vector<int>& states) const {
    if (const std::uint32_t refusal = DataPathRefusal(states)) {
        return refusal;
    }
    // With the PRC bypassed the exposure's frame could not leave the chip.
    return m_bypassed ? kChannelFailure : kNoError;
}

std::uint32_t Tpx2Chip::StateRefusal(std::size_t state, const std::vector<int>& states) const {
    if (!Present()) {
        return kNoError;
    }
    if (state == m_sense_state) {
        return kNotSupported;  // a reading, not a setting
    }
    return Contains(m_dacs, state) && !Powered(states) ? kChipNotReady : kNoError;
}

void Tpx2Chip::AfterCommand(std::size_t command, std::span<const std::uint8_t> input,
                            std::vector<int>& states, double now) {
    if (!Present()) {
        return;
    }
    if (command == m_init) {
        Reset();
    } else if (command == m_default_dac) {
        DefaultDacs(states);
    } else if (command == m_bypass) {
        m_bypassed = input[0] == 1;
    } else if (command == m_write) {
        m_matrix = std::move(m_load);
        m_load.clear();
        m_load_armed = false;
        m_load_bytes = 0;
    } else if (command == m_read) {
        StartReadBack(ReadBack(input[0]));
    } else if (command == m_opmode) {
        m_mode = input[0];
    } else if (command == m_select) {
        m_selected = input[0];
    } else if (command == m_depth && input[0] != static_cast<std::uint8_t>(Tpx2Depth::k4Bit)) {
        // 4 bits is the depth of the configuration path: the frames keep theirs.
        m_pipeline_depth = static_cast<Tpx2Depth>(input[0]);
    }
    m_shutter.AfterCommand(command, input, Ticks(now));
}

void Tpx2Chip::Advance(const std::vector<int>& states, double now) {
    if (!Present()) {
        return;
    }
    for (const Tpx2Shutter::Closed& exposure : m_shutter.Advance(states, Ticks(now))) {
        ReadOutFrame(exposure);
    }
}

void Tpx2Chip::SetTriggerInput(bool high, const std::vector<int>& states, double now) {
    if (!Present()) {
        return;
    }
    if (const auto exposure = m_shutter.SetInput(high, states, Ticks(now))) {
        ReadOutFrame(*exposure);
    }
}

void Tpx2Chip::PowerOn(std::vector<int>& states) {
    if (!Present()) {
        return;
    }
    Clear(states);
    m_shutter.PowerOn();
    m_pipeline_depth = Tpx2Depth::k8Bit;
    m_frames = Tpx2FrameFifo();
    m_pump_started = false;
    m_data_path_was_up = DataPathUp(states);
    NotePowerOn(states);
}

void Tpx2Chip::FollowBackEnd(const std::vector<int>& states, std::uint64_t fpga_restarts) {
    if (!Present()) {
        return;
    }
    const bool up = DataPathUp(states);
    if (m_data_path_was_up && !up) {
        // Nothing reaches the host or the chip any more: what was under way ends.
        m_shutter.Abort();
        m_load_armed = false;
        m_load.clear();
        m_load_bytes = 0;
        m_pump_started = false;
        DropReadBack();
    }
    m_data_path_was_up = up;
    if (fpga_restarts != m_fpga_restarts) {
        m_fpga_restarts = fpga_restarts;
        m_frames.Empty();
        m_pipeline_depth = Tpx2Depth::k8Bit;
        m_pump_started = false;
    }
}

void Tpx2Chip::Reset() {
    std::fill(m_matrix.begin(), m_matrix.end(), std::uint8_t{0});
    m_bypassed = false;
    m_load_armed = false;
    m_load.clear();
    m_load_bytes = 0;
    DropReadBack();
    m_mode = kPowerOnMode;
    m_selected = 0;
    m_fsr.fill(0);
    m_shutter.Abort();
}

void Tpx2Chip::Clear(std::vector<int>& states) {
    Reset();
    DefaultDacs(states);
}

std::uint32_t Tpx2Chip::ArmLoad(const std::vector<int>& states) {
    if (!Present()) {
        return kNotSupported;
    }
    if (!Powered(states)) {
        return kChipNotReady;
    }
    if (const std::uint32_t refusal = DataPathRefusal(states)) {
        return refusal;
    }
    if (!m_pump_started) {
        return kNotStarted;
    }
    m_load_armed = true;
    m_load.clear();
    m_load_bytes = 0;
    return kNoError;
}

void Tpx2Chip::TakeConfiguration(std::span<const std::uint8_t> data) {
    if (!m_load_armed) {
        return;
    }
    const std::size_t room = kPixels - m_load.size();
    m_load.insert(m_load.end(), data.begin(),
                  data.begin() + static_cast<std::ptrdiff_t>(std::min(room, data.size())));
    m_load_bytes += data.size();
}

std::uint32_t Tpx2Chip::Acquire(bool continuous, std::uint32_t ticks, std::vector<int>& states,
                                double now) {
    if (!Present()) {
        return kNotSupported;
    }
    if (!Powered(states)) {
        return kChipNotReady;
    }
    if (m_shutter.Busy()) {
        return kChipBusy;
    }
    if (const std::uint32_t refusal = ShutterStartRefusal(states)) {
        return refusal;
    }
    states[m_duration] = static_cast<int>(ticks);
    if (const std::uint32_t refusal = m_shutter.StartRefusal(states)) {
        return refusal;
    }
    m_shutter.Start(continuous, Ticks(now));
    return kNoError;
}

std::optional<std::array<std::uint8_t, Tpx2Chip::kFsrBytes>> Tpx2Chip::Fsr(
    const std::vector<int>& states) const {
    if (!Powered(states)) {
        return std::nullopt;
    }
    return m_fsr;
}

std::uint32_t Tpx2Chip::WriteFsr(std::span<const std::uint8_t> data,
                                 const std::vector<int>& states) {
    if (!Powered(states)) {
        return kChipNotReady;
    }
    std::copy_n(data.begin(), kFsrBytes, m_fsr.begin());
    return kNoError;
}

std::vector<std::uint8_t> Tpx2Chip::PixelBytes() const {
    std::vector<std::uint8_t> pixels = m_matrix;
    for (const auto& [pixel, stuck] : m_faults->stuck_pixels) {
        pixels[pixel] = stuck;
    }
    return pixels;
}

std::vector<std::uint8_t> Tpx2Chip::ReadBack(std::uint8_t half) const {
    const std::vector<std::uint8_t> pixels = PixelBytes();
    std::vector<std::uint8_t> out(kHalfMatrixBytes);
    for (std::size_t i = 0; i < out.size(); ++i) {
        out[i] = static_cast<std::uint8_t>(Nibble(pixels[2 * i], half) |
                                           Nibble(pixels[2 * i + 1], half) << 4);
    }
    // The chip sends 32-bit words most significant byte first.
    for (std::size_t at = 0; at < out.size(); at += 4) {
        std::reverse(out.begin() + static_cast<std::ptrdiff_t>(at),
                     out.begin() + static_cast<std::ptrdiff_t>(at + 4));
    }
    return out;
}

void Tpx2Chip::ReadOutFrame(const Tpx2Shutter::Closed& exposure) {
    Tpx2Frame frame;
    frame.opmode = m_mode;
    frame.depth = m_pipeline_depth;
    frame.open_tick = exposure.open_tick;
    frame.close_tick = exposure.close_tick;
    // A frame that finds the FIFO full is never seen: its pixels aren't worked out.
    if (!m_frames.Full()) {
        const std::vector<std::uint8_t> pixels = PixelBytes();
        std::vector<std::uint8_t> masked(kPixels);
        for (std::size_t k = 0; k < kPixels; ++k) {
            masked[k] = pixels[k] & 2;  // bit 1 of the pixel byte masks it
        }
        const bool itot = m_mode == 10 || m_mode == 11;
        // The counter saturates at its width; the pipeline then clamps to its depth.
        const std::uint16_t counter_max = CounterMax(m_mode);
        const std::uint16_t max = std::min(counter_max, Tpx2MaxValue(m_pipeline_depth));
        frame.pixels.assign(kPixels, 0);
        for (const FrameHit& hit : Expose(m_faults->beam, masked,
                                          {.ticks = exposure.close_tick - exposure.open_tick,
                                          .index = m_frames.NextIndex(),
                                          .count_mode = true,
                                          .max_count = counter_max})) {
            frame.pixels[hit.pixel] = std::min(itot ? hit.itot : hit.count, max);
        }
    }
    m_frames.ReadOut(std::move(frame));
}

}  // namespace ovex::vboard
