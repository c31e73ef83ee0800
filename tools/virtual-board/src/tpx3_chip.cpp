#include "tpx3_chip.hpp"

#include <algorithm>
#include <array>
#include <string_view>

#include "frame_exposure.hpp"
#include "item_ids.hpp"
#include "ovex/vboard/error_words.hpp"
#include "sensor_model.hpp"
#include "wire_format.hpp"

// ITEMS.md gives the chip's refusals and what its resets clear.

namespace ovex::vboard {
namespace {

constexpr std::size_t kDoubleColumns = Tpx3Chip::kMatrixBytes / Tpx3Chip::kDoubleColumnBytes;

// The operating modes the chip knows: 0 ToA+ToT frames, 1 data-driven, 2 iToT+event count
// frames.
constexpr std::uint8_t kDataDrivenMode = 1;
constexpr std::uint8_t kCountMode = 2;

// The host's pixel (row y, column x) is the device's pixel (255 − x, 255 − y): its matrix is
// mirrored on the anti-diagonal on the way to the chip.
std::size_t DevicePixel(std::size_t host_pixel) {
    return (255 - host_pixel % 256) * 256 + (255 - host_pixel / 256);
}
constexpr std::uint8_t kLastMode = 2;

constexpr std::array<std::string_view, 18> kDacStates = {
    "DAC_PreampOn_0",  "DAC_PreampOff_0", "DAC_NCas_0",     "DAC_Ikrum_0",     "DAC_Fbk_0",
    "DAC_THLFine_0",   "DAC_THLCoarse_0", "DAC_DiscS1On_0", "DAC_DiscS1Off_0", "DAC_DiscS2On_0",
    "DAC_DiscS2Off_0", "DAC_PixelDac_0",  "DAC_TpBuffIn_0", "DAC_TpBuffOut_0", "DAC_TpCoarse_0",
    "DAC_TpFine_0",    "DAC_CpPll_0",     "DAC_PllVCntrl_0"};

}  // namespace

Tpx3Chip::Tpx3Chip(const ItemTables& tables, const HardwareFaults& faults)
    : TimepixChip(tables, faults),
      m_load(ItemIdOr(tables.commands, "TPX_LOAD_PXCONF")),
      m_read(ItemIdOr(tables.commands, "TPX_READ_PXCONF")),
      m_opmode(ItemIdOr(tables.commands, "TPX_OPMODE")),
      m_channels(ItemIdOr(tables.states, "TPX_CHAN_EN")),
      m_polarity(ItemIdOr(tables.states, "TPX_CHIP_POLARITY")),
      m_select(ItemIdOr(tables.states, "TPX_DAC_SELECT")),
      m_matrix(kMatrixBytes, 0),
      m_shutter(tables) {
    std::vector<std::size_t> dacs;
    for (const std::string_view name : kDacStates) {
        dacs.push_back(ItemIdOr(tables.states, name));
    }
    for (const char* name : {"FRONTEND_EN", "DETECTOR_EN"}) {
        m_supply.push_back(ItemIdOr(tables.states, name));
    }
    // The resets (TPX_INIT, TPX_DEFAULT_DAC, TPX_RESET_SEQ) drive the chip's reset lines and run
    // whether it answers or not; what talks to the chip needs it powered.
    for (const char* name : {"TPX_ALIGN_CLK", "TPX_LOAD_PXCONF", "TPX_READ_PXCONF", "TPX_OPMODE"}) {
        m_chip_commands.push_back(ItemIdOr(tables.commands, name));
    }
    const std::array required = {m_init,        m_default_dac,  m_load,     m_read,
                                 m_opmode,      m_channels,     m_polarity, m_select,
                                 m_sense_state, m_sense_monitor};
    const auto missing = [](std::size_t id) { return id == kNoItem; };
    if (std::any_of(required.begin(), required.end(), missing) ||
        std::any_of(dacs.begin(), dacs.end(), missing) ||
        std::any_of(m_supply.begin(), m_supply.end(), missing) ||
        std::any_of(m_chip_commands.begin(), m_chip_commands.end(), missing)) {
        return;  // no chip on this board
    }
    m_dacs = std::move(dacs);
    for (const std::size_t id : m_shutter.ChipCommands()) {
        m_chip_commands.push_back(id);
    }
    m_chip_states = m_dacs;
    m_chip_states.insert(m_chip_states.end(), {m_channels, m_polarity, m_select, m_sense_state});
}

std::uint32_t Tpx3Chip::CommandRefusal(std::size_t command, std::span<const std::uint8_t> input,
                                       const std::vector<int>& states) const {
    if (!Present()) {
        return kNoError;
    }
    if (Contains(m_chip_commands, command) && !Powered(states)) {
        return kChipNotReady;
    }
    if (const std::uint32_t refusal = m_shutter.CommandRefusal(command, input)) {
        return refusal;
    }
    // An exposure's frame leaves the chip on its data channels: with none on, the firmware
    // refuses the shutter rather than lose the frame.
    if (m_shutter.StartsExposure(command) && states[m_channels] == 0) {
        return kChannelFailure;
    }
    if (command == m_opmode) {
        if (input.size() != 1 || input[0] > kLastMode) {
            return kBadArgument;
        }
        return m_shutter.IsOpen() ? kChipBusy : kNoError;  // the exposure keeps its mode
    }
    if (command == m_load) {
        // Four zero bytes restart the column index; a double column follows the last one.
        if (input.size() == 4) {
            return std::all_of(input.begin(), input.end(), [](std::uint8_t b) { return b == 0; })
                       ? kNoError
                       : kBadArgument;
        }
        if (input.size() != kDoubleColumnBytes) {
            return kBadArgument;
        }
        if (!m_next_column) {
            return kNotStarted;
        }
        return *m_next_column < kDoubleColumns ? kNoError : kBadArgument;
    }
    if (command == m_read) {
        if (!input.empty()) {
            return kBadArgument;
        }
        if (!m_next_column) {
            return kNotStarted;
        }
        if (states[m_channels] == 0) {
            return kChannelFailure;
        }
        return ReadBackPending() ? kChipBusy : kNoError;
    }
    return kNoError;
}

std::uint32_t Tpx3Chip::StateRefusal(std::size_t state, const std::vector<int>& states) const {
    if (!Present() || !Contains(m_chip_states, state)) {
        return kNoError;
    }
    if (state == m_sense_state) {
        return kNotSupported;  // a reading, not a setting
    }
    return Powered(states) ? kNoError : kChipNotReady;
}

void Tpx3Chip::AfterCommand(std::size_t command, std::span<const std::uint8_t> input,
                            std::vector<int>& states, double now) {
    if (!Present()) {
        return;
    }
    if (command == m_init) {
        // The chip's reset: the pixel memory, the periphery's registers and an exposure go; the
        // DACs stay, and so do the frames already in the board's FIFO.
        std::fill(m_matrix.begin(), m_matrix.end(), std::uint8_t{0});
        m_next_column.reset();
        DropReadBack();
        m_mode = 0;
        m_shutter.Stop();
        m_hits.Abandon();
        for (const std::size_t id : {m_channels, m_polarity}) {
            states[id] = m_states[id].value;
        }
    } else if (command == m_default_dac) {
        DefaultDacs(states);
        states[m_select] = m_states[m_select].value;
    } else if (command == m_load) {
        if (input.size() == 4) {
            m_next_column = 0;
        } else {
            std::copy(input.begin(), input.end(),
                      m_matrix.begin() +
                          static_cast<std::ptrdiff_t>(*m_next_column * kDoubleColumnBytes));
            ++*m_next_column;
        }
    } else if (command == m_read) {
        StartReadBack(ReadBack());
    } else if (command == m_opmode) {
        m_mode = input[0];
    }
    const bool was_open = m_shutter.IsOpen();
    const auto closed = m_shutter.AfterCommand(command, Ticks(now));
    FollowShutter(was_open, closed);
}

void Tpx3Chip::Advance(const std::vector<int>& states, double now) {
    const bool was_open = m_shutter.IsOpen();
    const auto closed = m_shutter.Advance(states, Ticks(now));
    FollowShutter(was_open, closed);
    m_hits.Advance(m_shutter.ToaAt(Ticks(now)));
}

void Tpx3Chip::SetTriggerInput(bool high, const std::vector<int>& states, double now) {
    // The board time-stamps the input's rising edges into an open line, the edge that opens
    // one included.
    const bool rising = high && !m_input_high;
    m_input_high = high;
    const std::uint64_t toa = m_shutter.ToaAt(Ticks(now));
    const bool stamped = rising && m_hits.IsOpen();
    if (stamped) {
        m_hits.TriggerEdge(toa);
    }
    const bool was_open = m_shutter.IsOpen();
    const auto closed = m_shutter.SetInput(high, states, Ticks(now));
    FollowShutter(was_open, closed);
    if (rising && !stamped) {
        m_hits.TriggerEdge(toa);
    }
}

void Tpx3Chip::FollowShutter(bool was_open, const std::optional<Tpx3Shutter::Closed>& closed) {
    if (closed) {
        if (m_mode == kDataDrivenMode) {
            m_hits.Close(closed->close_toa);
        } else {
            ReadOutFrame(*closed);
        }
    }
    const auto opened = m_shutter.OpenTick();
    if (opened && (!was_open || closed) && m_mode == kDataDrivenMode) {
        m_hits.Open(m_shutter.ToaAt(*opened), m_faults->beam, MaskedPixels());
    }
}

std::vector<std::uint8_t> Tpx3Chip::MaskedPixels() const {
    // Bit 0 of a pixel's configuration, as the pixel holds it, masks it.
    const std::vector<std::uint8_t> bits = PixelConfiguration();
    std::vector<std::uint8_t> masked(kPixels);
    for (std::size_t k = 0; k < kPixels; ++k) {
        masked[k] = bits[DevicePixel(k)] & 1;
    }
    return masked;
}

void Tpx3Chip::ReadOutFrame(const Tpx3Shutter::Closed& exposure) {
    const std::vector<std::uint8_t> masked = MaskedPixels();
    ReadoutFrame frame;
    frame.mode = m_mode;
    frame.open_tick = exposure.open_tick;
    frame.close_tick = exposure.close_tick;
    frame.close_toa = exposure.close_toa;
    frame.hits = Expose(m_faults->beam, masked,
                        {.ticks = exposure.close_tick - exposure.open_tick,
                         .open_toa = exposure.open_toa,
                         .index = m_frames.NextIndex(),
                         .count_mode = m_mode == kCountMode});
    m_frames.ReadOut(std::move(frame));
}

void Tpx3Chip::PowerOn(std::vector<int>& states) {
    Clear(states);
    m_shutter.PowerOn();
    m_input_high = false;
    m_frames = FrameFifo();
    m_hits.PowerOn();
    NotePowerOn(states);
}

void Tpx3Chip::Clear(std::vector<int>& states) {
    std::fill(m_matrix.begin(), m_matrix.end(), std::uint8_t{0});
    m_next_column.reset();
    DropReadBack();
    m_mode = 0;
    m_shutter.Stop();
    m_hits.Abandon();
    for (const std::size_t id : m_chip_states) {
        states[id] = m_states[id].value;
    }
}

std::uint8_t Tpx3Chip::PixelBits(const std::vector<std::uint8_t>& stream, std::size_t k) {
    // The host sends the packed matrix reversed end for end.
    const auto at = [&](std::size_t packed) { return stream[stream.size() - 1 - packed]; };
    const std::size_t group = k / 4 * 3;
    const std::uint32_t word = static_cast<std::uint32_t>(at(group)) << 16 |
                               static_cast<std::uint32_t>(at(group + 1)) << 8 | at(group + 2);
    return static_cast<std::uint8_t>(word >> (18 - 6 * (k % 4)) & 63);
}

std::vector<std::uint8_t> Tpx3Chip::PixelConfiguration() const {
    std::vector<std::uint8_t> bits(kPixels);
    for (std::size_t k = 0; k < kPixels; ++k) {
        bits[k] = PixelBits(m_matrix, k);
    }
    for (const auto& [pixel, stuck] : m_faults->stuck_pixels) {
        bits[DevicePixel(pixel)] = stuck;
    }
    return bits;
}

std::vector<std::uint8_t> Tpx3Chip::ReadBack() const {
    const std::vector<std::uint8_t> bits = PixelConfiguration();
    // A configuration packet: type 1 in bits 47..46, the address in 45..30, the pixel's bits in
    // 19..14, least significant byte first.
    std::vector<std::uint8_t> out(kPixels * kPacketBytes);
    for (std::size_t k = 0; k < kPixels; ++k) {
        const std::uint64_t address = PixelAddress(static_cast<std::uint32_t>(k));
        const std::uint64_t packet =
            std::uint64_t{1} << 46 | address << 30 | static_cast<std::uint64_t>(bits[k]) << 14;
        wire::PutPacket(out.data() + k * kPacketBytes, packet);
    }
    return out;
}

}  // namespace ovex::vboard
