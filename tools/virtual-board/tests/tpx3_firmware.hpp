#pragma once

// A board's firmware in-process (a Timepix3 board unless told), driven through its firmware model
// as the host drives it, for the tests of its shutters, frames and data-driven stream.

#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "ovex/vboard/firmware_engine.hpp"
#include "ovex/vboard/firmware_model.hpp"
#include "ovex/vboard/frame_readout.hpp"

namespace ovex::vboard::test {

using Bytes = std::vector<std::uint8_t>;
constexpr std::uint8_t kCommands = 0x01;
constexpr std::uint8_t kStates = 0x03;
constexpr std::uint32_t kChipNotReadyWord = 0x06000000;
constexpr std::uint32_t kChipBusyWord = 0x06000002;
constexpr std::uint32_t kChannelFailureWord = 0x06000004;
constexpr std::uint32_t kBadValue = 0x40;
constexpr std::uint32_t kNotConfiguredWord = 0x44;
constexpr std::size_t kTransfer = 0x60400;  // the host's frame transfer
constexpr std::uint64_t kTicksPerMs = 40000;

// One packet of a frame as the host's sinks read it.
struct Packet {
    unsigned type;
    std::uint32_t pixel;  // 65535 − the address with its bytes swapped
    std::uint32_t high;   // bits 29..20: ToT or the event count
    std::uint32_t low;    // bits 19..0: ToA, or iToT in 17..4
    std::uint64_t raw;
};

inline std::vector<Packet> Decode(const Bytes& block) {
    std::vector<Packet> packets;
    for (std::size_t at = 0; at + 6 <= block.size(); at += 6) {
        std::uint64_t p = 0;
        for (std::size_t b = 0; b < 6; ++b) {
            p |= std::uint64_t{block[at + b]} << (8 * b);
        }
        const auto address = static_cast<std::uint16_t>(p >> 30);
        packets.push_back({static_cast<unsigned>(p >> 46),
                           65535U - static_cast<std::uint16_t>(address << 8 | address >> 8),
                           static_cast<std::uint32_t>(p >> 20 & 0x3FF),
                           static_cast<std::uint32_t>(p & 0xFFFFF), p});
    }
    return packets;
}

// A board's firmware, driven as the host drives it.
class FrameBoard {
public:
    explicit FrameBoard(BoardKind kind = BoardKind::kTimepix3)
        : m_kind(kind), m_engine(m_model, TablesOf(kind)) {}

    std::uint16_t Id(const std::vector<std::string>& names, const std::string& name) {
        const auto it = std::find(names.begin(), names.end(), name);
        EXPECT_NE(it, names.end()) << name;
        return static_cast<std::uint16_t>(it - names.begin());
    }
    // The word the request left: 0 when it ran.
    std::uint32_t Outcome(const ControlReply& reply) {
        const std::uint32_t word = m_model.LastErrorWord();
        EXPECT_EQ(reply.kind == ControlReply::Kind::kAnswer, word == 0);
        return word;
    }
    std::uint32_t Invoke(const std::string& name, const Bytes& input = {}) {
        std::vector<std::string> names;
        for (const auto& item : TablesOf(m_kind).commands) {
            names.push_back(item.name);
        }
        return Outcome(m_model.Control(
            {0x40, kCommands, 2, Id(names, name), static_cast<std::uint16_t>(input.size())},
            input));
    }
    std::uint32_t SetState(const std::string& name, int value) {
        std::vector<std::string> names;
        for (const auto& item : TablesOf(m_kind).states) {
            names.push_back(item.name);
        }
        const auto v = static_cast<std::uint32_t>(value);
        const Bytes data = {static_cast<std::uint8_t>(v), static_cast<std::uint8_t>(v >> 8),
                            static_cast<std::uint8_t>(v >> 16), static_cast<std::uint8_t>(v >> 24)};
        return Outcome(m_model.Control({0x40, kStates, 3, Id(names, name), 4}, data));
    }
    // The chip powered as the host's power scripts leave it, its data channels on as the host's
    // chip reset leaves them, in `mode`, its ToA clock synced.
    void PowerChip(std::uint8_t mode = 0) {
        for (const char* rail : {"DC_1V0", "DC_1V8", "DC_2V5", "DC_3V3"}) {
            ASSERT_EQ(SetState(rail, 1), 0U);
        }
        ASSERT_EQ(Invoke("FPGA_CONF"), 0U);
        ASSERT_EQ(SetState("FRONTEND_EN", 1), 0U);
        ASSERT_EQ(SetState("DETECTOR_EN", 1), 0U);
        ASSERT_EQ(SetState("TPX_CHAN_EN", 255), 0U);
        ASSERT_EQ(Invoke("TPX_OPMODE", {mode}), 0U);
        ASSERT_EQ(Invoke("TPX_T0_SYNC"), 0U);
    }
    // One exposure of `ticks` from the host's side.
    void Expose(std::uint64_t ticks) {
        ASSERT_EQ(SetState("TPX_SHUT_DUR", static_cast<int>(ticks)), 0U);
        ASSERT_EQ(Invoke("TPX_SHUT_IMM"), 0U);
        m_engine.AdvanceTime(
            std::chrono::duration<double>(static_cast<double>(ticks) / kTicksPerSecond));
    }
    // The transfers of `size` bytes that the data endpoint completes from `read` (the frames, or
    // the data-driven stream) while it has data.
    using Read = std::optional<Produced> (FirmwareEngine::*)(std::span<std::uint8_t>, bool);
    std::vector<Bytes> Transfers(std::size_t size = kTransfer,
                                 Read read = &FirmwareEngine::ReadFrame) {
        std::vector<Bytes> transfers;
        Bytes transfer(size);
        std::size_t filled = 0;
        while (const auto produced =
                   (m_engine.*read)(std::span(transfer).subspan(filled), filled > 0)) {
            filled += produced->bytes;
            if (produced->end_of_transfer || filled == size) {
                transfers.emplace_back(transfer.begin(),
                                       transfer.begin() + static_cast<std::ptrdiff_t>(filled));
                filled = 0;
            }
        }
        EXPECT_EQ(filled, 0U) << "a transfer was left open";
        return transfers;
    }
    // Writes a pixel configuration with the given host pixels masked.
    void Mask(const std::vector<std::uint32_t>& pixels) {
        Bytes device(65536, 0);
        for (const std::uint32_t k : pixels) {
            device[(255 - k % 256) * 256 + (255 - k / 256)] = 1;
        }
        Bytes stream;
        for (std::size_t k = 0; k < device.size(); k += 4) {
            const std::uint32_t word = std::uint32_t{device[k]} << 18 |
                                       std::uint32_t{device[k + 1]} << 12 |
                                       std::uint32_t{device[k + 2]} << 6 | device[k + 3];
            stream.insert(stream.end(),
                          {static_cast<std::uint8_t>(word >> 16),
                           static_cast<std::uint8_t>(word >> 8), static_cast<std::uint8_t>(word)});
        }
        std::reverse(stream.begin(), stream.end());
        ASSERT_EQ(Invoke("TPX_LOAD_PXCONF", Bytes(4, 0)), 0U);
        for (std::size_t at = 0; at < stream.size(); at += 384) {
            ASSERT_EQ(Invoke("TPX_LOAD_PXCONF",
                             Bytes(stream.begin() + static_cast<std::ptrdiff_t>(at),
                                   stream.begin() + static_cast<std::ptrdiff_t>(at + 384))),
                      0U);
        }
    }
    // The frame on the wire holds the logged hits in order, then the CTRL packet.
    static void ExpectFrameMatchesLog(const Bytes& wire, const ReadoutFrame& frame) {
        const std::vector<Packet> packets = Decode(wire);
        ASSERT_EQ(wire.size(), (frame.hits.size() + 1) * 6);
        for (std::size_t i = 0; i < frame.hits.size(); ++i) {
            const FrameHit& hit = frame.hits[i];
            const Packet& packet = packets[i];
            ASSERT_EQ(packet.type, 0U) << i;
            ASSERT_EQ(packet.pixel, hit.pixel) << i;
            if (frame.mode == 2) {
                ASSERT_EQ(packet.high, hit.count) << i;
                ASSERT_EQ(packet.low >> 4 & 0x3FFF, hit.itot) << i;
            } else {
                ASSERT_EQ(packet.high, hit.tot) << i;
                ASSERT_EQ(packet.low, hit.toa & 0xFFFFF) << i;
            }
        }
        EXPECT_EQ(packets.back().raw, std::uint64_t{3} << 46 | (frame.close_toa & 0xFFFFFFFF));
    }

    BoardKind m_kind;
    FirmwareModel m_model;
    FirmwareEngine m_engine;
};

}  // namespace ovex::vboard::test
