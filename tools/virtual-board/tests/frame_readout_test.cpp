// The Timepix3 board's shutter and frame readout, asked in-process through the firmware model:
// when exposures open and close on the board's clock and the trigger input, what each frame
// holds on the wire against the board's log, and what the FIFO and the injected faults do.

#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "ovex/vboard/firmware_engine.hpp"
#include "ovex/vboard/firmware_model.hpp"
#include "ovex/vboard/frame_readout.hpp"

namespace ovex::vboard {
namespace {

using Bytes = std::vector<std::uint8_t>;
using std::chrono::duration;
using namespace std::chrono_literals;

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

std::vector<Packet> Decode(const Bytes& block) {
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

// A Timepix3 board's firmware, driven as the host drives it.
class FrameBoard {
public:
    FrameBoard() : m_engine(m_model, TablesOf(BoardKind::kTimepix3)) {}

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
        for (const auto& item : TablesOf(BoardKind::kTimepix3).commands) {
            names.push_back(item.name);
        }
        return Outcome(m_model.Control(
            {0x40, kCommands, 2, Id(names, name), static_cast<std::uint16_t>(input.size())},
            input));
    }
    std::uint32_t SetState(const std::string& name, int value) {
        std::vector<std::string> names;
        for (const auto& item : TablesOf(BoardKind::kTimepix3).states) {
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
        m_engine.AdvanceTime(duration<double>(static_cast<double>(ticks) / kTicksPerSecond));
    }
    // The transfers of `size` bytes the data endpoint completes while frames wait.
    std::vector<Bytes> Transfers(std::size_t size = kTransfer) {
        std::vector<Bytes> transfers;
        Bytes transfer(size);
        std::size_t filled = 0;
        while (const auto produced =
                   m_engine.ReadFrame(std::span(transfer).subspan(filled), filled > 0)) {
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

    FirmwareModel m_model;
    FirmwareEngine m_engine;
};

class FrameReadout : public ::testing::Test, public FrameBoard {};

TEST_F(FrameReadout, ImmediateShutterClosesAfterItsTicksAndItsFrameIsTheLoggedHits) {
    m_engine.SetHitModel({.spot_x = 40, .spot_y = 200, .spot_sigma = 5, .spot_rate = 2e6});
    m_engine.AdvanceTime(1ms);
    PowerChip();
    m_engine.AdvanceTime(2ms);  // the ToA clock runs from the sync, 1 ms in
    ASSERT_EQ(SetState("TPX_SHUT_DUR", static_cast<int>(4 * kTicksPerMs)), 0U);
    ASSERT_EQ(Invoke("TPX_SHUT_IMM"), 0U);
    m_engine.AdvanceTime(3ms);
    EXPECT_TRUE(Transfers().empty());
    EXPECT_EQ(m_engine.FrameCounts().read_out, 0U);
    m_engine.AdvanceTime(5ms);  // the close falls inside this step, at its exact tick

    const auto log = m_engine.FrameLog();
    ASSERT_EQ(log.size(), 1U);
    const ReadoutFrame& frame = log[0];
    EXPECT_EQ(frame.mode, 0);
    EXPECT_EQ(frame.open_tick, 3 * kTicksPerMs);
    EXPECT_EQ(frame.close_tick, 7 * kTicksPerMs);
    EXPECT_EQ(frame.close_toa, 6 * kTicksPerMs);
    EXPECT_GT(frame.hits.size(), 300U);
    for (const FrameHit& hit : frame.hits) {
        // Within the exposure on the ToA clock, in sixteenths, and near the spot.
        ASSERT_GE(hit.toa, 2 * kTicksPerMs * 16);
        ASSERT_LT(hit.toa, 6 * kTicksPerMs * 16);
        ASSERT_GE(hit.tot, 1);
        ASSERT_LT(std::abs(static_cast<int>(hit.pixel % 256) - 40), 40);
        ASSERT_LT(std::abs(static_cast<int>(hit.pixel / 256) - 200), 40);
    }
    const auto transfers = Transfers();
    ASSERT_EQ(transfers.size(), 1U);
    ExpectFrameMatchesLog(transfers[0], frame);
}

TEST_F(FrameReadout, CountModeSumsEveryHitAndAFrameWithoutHitsIsOneCtrlPacket) {
    m_engine.SetHitModel({.spot_sigma = 3, .spot_rate = 4e7, .background_rate = 2.0});
    PowerChip(2);
    Expose(10 * kTicksPerMs);
    // Data-driven mode reads out no frames; a dark exposure gives only the closing packet.
    ASSERT_EQ(Invoke("TPX_OPMODE", {1}), 0U);
    Expose(kTicksPerMs);
    m_engine.SetHitModel({});
    ASSERT_EQ(Invoke("TPX_OPMODE", {0}), 0U);
    Expose(kTicksPerMs);

    const auto log = m_engine.FrameLog();
    ASSERT_EQ(log.size(), 2U);
    const auto transfers = Transfers();
    ASSERT_EQ(transfers.size(), 2U);
    ExpectFrameMatchesLog(transfers[0], log[0]);
    EXPECT_EQ(log[0].mode, 2);
    // 400000 spot hits on some 300 pixels: the centre's counters saturate, and all counts together
    // come near the hits that fell on the chip; the background reaches the rest.
    std::uint64_t counted = 0;
    std::size_t saturated = 0;
    for (const FrameHit& hit : log[0].hits) {
        counted += hit.count;
        saturated += hit.count == 1023 ? 1 : 0;
        if (hit.count == 1) {
            EXPECT_TRUE(hit.itot >= 1 && hit.itot <= 1023) << hit.itot;
        } else if (hit.count == 1023) {
            EXPECT_EQ(hit.itot, 16383);
        }
    }
    EXPECT_GT(saturated, 50U);
    EXPECT_GT(log[0].hits.size(), 1000U);
    EXPECT_LT(counted, 400000U);

    EXPECT_TRUE(log[1].hits.empty());
    EXPECT_EQ(transfers[1].size(), 6U);
    ExpectFrameMatchesLog(transfers[1], log[1]);
}

TEST_F(FrameReadout, ShutterOfZeroTicksWaitsForStopAndRefusesWhatWouldDisturbIt) {
    EXPECT_EQ(Invoke("TPX_SHUT_IMM"), kChipNotReadyWord);
    EXPECT_EQ(Invoke("TPX_T0_SYNC"), kChipNotReadyWord);
    EXPECT_EQ(Invoke("TPX_SHUT_STOP"), 0U);  // nothing open, nothing to refuse
    PowerChip();
    EXPECT_EQ(Invoke("TPX_SHUT_EXT"), kNotConfiguredWord);  // no trigger input wired yet
    EXPECT_EQ(Invoke("TPX_SHUT_IMM", {1}), kBadValue);
    EXPECT_EQ(Invoke("TPX_SHUT_STOP", {1}), kBadValue);
    // Without data channels no frame could leave the chip.
    ASSERT_EQ(SetState("TPX_CHAN_EN", 0), 0U);
    EXPECT_EQ(Invoke("TPX_SHUT_IMM"), kChannelFailureWord);
    ASSERT_EQ(SetState("TPX_CHAN_EN", 255), 0U);

    ASSERT_EQ(Invoke("TPX_SHUT_IMM"), 0U);  // TPX_SHUT_DUR is 0
    m_engine.AdvanceTime(10s);
    EXPECT_EQ(Invoke("TPX_SHUT_IMM"), kChipBusyWord);
    EXPECT_EQ(Invoke("TPX_OPMODE", {2}), kChipBusyWord);
    ASSERT_EQ(Invoke("TRIG_I_EDGE"), 0U);
    EXPECT_EQ(Invoke("TPX_SHUT_EXT"), kChipBusyWord);
    EXPECT_EQ(m_engine.FrameCounts().read_out, 0U);
    ASSERT_EQ(Invoke("TPX_SHUT_STOP"), 0U);
    ASSERT_EQ(Invoke("TPX_SHUT_STOP"), 0U);

    const auto log = m_engine.FrameLog();
    ASSERT_EQ(log.size(), 1U);
    EXPECT_EQ(log[0].close_tick - log[0].open_tick, 10 * 1000 * kTicksPerMs);

    // The chip's rails going off lose an exposure; nothing can open it until they are back.
    ASSERT_EQ(Invoke("TPX_SHUT_IMM"), 0U);
    ASSERT_EQ(SetState("DETECTOR_EN", 0), 0U);
    EXPECT_EQ(Invoke("TPX_SHUT_STOP"), 0U);
    EXPECT_EQ(m_engine.FrameCounts().read_out, 1U);
}

TEST_F(FrameReadout, TriggerInputOpensTheArmedShutterAsItsWiringSays) {
    PowerChip();
    m_engine.AdvanceTime(1ms);
    // Not armed: the input does nothing.
    m_engine.PulseTriggerInput(1ms);
    ASSERT_EQ(Invoke("TRIG_I_1PULSE"), 0U);
    ASSERT_EQ(SetState("TPX_SHUT_DUR", static_cast<int>(3 * kTicksPerMs)), 0U);
    ASSERT_EQ(Invoke("TPX_SHUT_EXT"), 0U);
    m_engine.AdvanceTime(1ms);  // 3 ms
    // Type 3: each rising edge opens for the duration; edges while open don't restart it.
    m_engine.PulseTriggerInput(1ms);  // opens at 3
    m_engine.PulseTriggerInput(1ms);  // ignored at 4
    m_engine.AdvanceTime(2ms);        // closes at 6
    m_engine.PulseTriggerInput(1ms);  // opens at 7, closes at 10
    m_engine.AdvanceTime(5ms);        // 13

    // Type 4: open while the input is high; the duration doesn't matter.
    ASSERT_EQ(Invoke("TRIG_I_LEVEL"), 0U);
    ASSERT_EQ(Invoke("TPX_SHUT_EXT"), 0U);
    m_engine.PulseTriggerInput(10ms);  // 13 to 23
    m_engine.SetTriggerInput(true);    // 23
    ASSERT_EQ(Invoke("TPX_SHUT_STOP"), 0U);
    m_engine.SetTriggerInput(false);

    // Type 5: a rising edge opens, the next closes; falling edges don't count.
    ASSERT_EQ(Invoke("TRIG_I_EDGE"), 0U);
    ASSERT_EQ(Invoke("TPX_SHUT_EXT"), 0U);
    m_engine.PulseTriggerInput(1ms);  // opens at 23
    m_engine.AdvanceTime(1ms);
    m_engine.PulseTriggerInput(1ms);  // closes at 25
    m_engine.AdvanceTime(1ms);
    m_engine.PulseTriggerInput(1ms);         // opens at 27
    ASSERT_EQ(Invoke("TPX_SHUT_STOP"), 0U);  // closes at 28, disarmed
    m_engine.PulseTriggerInput(1ms);

    // Active low: a pulse's falling edge is the active level's rising one.
    ASSERT_EQ(SetState("SYNC_IO_ACT_LOW", 1), 0U);
    ASSERT_EQ(Invoke("TRIG_I_1PULSE"), 0U);
    ASSERT_EQ(Invoke("TPX_SHUT_EXT"), 0U);
    m_engine.PulseTriggerInput(1ms);  // 29 to 30: opens at 30 for 3 ms
    m_engine.AdvanceTime(3ms);

    std::vector<std::pair<std::uint64_t, std::uint64_t>> exposures;
    for (const ReadoutFrame& frame : m_engine.FrameLog()) {
        exposures.emplace_back(frame.open_tick / kTicksPerMs, frame.close_tick / kTicksPerMs);
    }
    const std::vector<std::pair<std::uint64_t, std::uint64_t>> expected = {
        {3, 6}, {7, 10}, {13, 23}, {23, 23}, {23, 25}, {27, 28}, {30, 33}};
    EXPECT_EQ(exposures, expected);
}

TEST_F(FrameReadout, FloodHitsEveryUnmaskedPixelOnceInEitherMode) {
    m_engine.SetHitModel({.flood = true, .seed = 7});
    PowerChip();
    // The pixels hold what their stuck bits say: pixel 300 is masked though the host didn't,
    // and pixel 40000 can't be masked.
    const std::vector<std::uint32_t> masked = {0, 1, 256, 300, 65535};
    Mask({0, 1, 256, 40000, 65535});
    m_engine.StickPixel(300, 1);
    m_engine.StickPixel(40000, 0);
    Expose(kTicksPerMs);
    ASSERT_EQ(Invoke("TPX_OPMODE", {2}), 0U);
    Expose(kTicksPerMs);

    const auto log = m_engine.FrameLog();
    ASSERT_EQ(log.size(), 2U);
    const auto transfers = Transfers();
    ASSERT_EQ(transfers.size(), 2U);
    for (std::size_t f = 0; f < 2; ++f) {
        ASSERT_EQ(log[f].hits.size(), 65536 - masked.size());
        std::vector<std::uint32_t> missing;
        std::uint32_t next = 0;
        for (const FrameHit& hit : log[f].hits) {
            for (; next < hit.pixel; ++next) {
                missing.push_back(next);
            }
            next = hit.pixel + 1;
        }
        for (; next < 65536; ++next) {
            missing.push_back(next);
        }
        EXPECT_EQ(missing, masked);
        ExpectFrameMatchesLog(transfers[f], log[f]);
        EXPECT_LT(transfers[f].size(), kTransfer);
    }
    EXPECT_TRUE(std::all_of(log[1].hits.begin(), log[1].hits.end(),
                            [](const FrameHit& hit) { return hit.count == 1 && hit.itot >= 1; }));
}

TEST_F(FrameReadout, SameSeedGivesTheSameFramesAndAnotherSeedOthers) {
    const auto frame = [](std::uint64_t seed) {
        FrameBoard board;
        board.m_engine.SetHitModel({.spot_rate = 1e6, .background_rate = 50, .seed = seed});
        board.PowerChip();
        board.Expose(kTicksPerMs);
        const auto transfers = board.Transfers();
        EXPECT_EQ(transfers.size(), 1U);
        return transfers.empty() ? Bytes{} : transfers[0];
    };
    const Bytes first = frame(99);
    EXPECT_GT(first.size(), 600U);
    EXPECT_EQ(frame(99), first);
    EXPECT_NE(frame(100), first);
}

TEST_F(FrameReadout, FullFifoLosesAndCountsFramesAndFaultsDamageOnlyTheNextFrame) {
    PowerChip();
    m_engine.InjectFrameFault(FrameFault::kTruncated);
    Expose(kTicksPerMs);
    m_engine.InjectFrameFault(FrameFault::kCorrupted);
    for (int i = 0; i < 9; ++i) {
        Expose(kTicksPerMs);
    }
    const FrameCounters counters = m_engine.FrameCounts();
    EXPECT_EQ(counters.read_out, 10U);
    EXPECT_EQ(counters.overflowed, 2U);
    const auto log = m_engine.FrameLog();
    ASSERT_EQ(log.size(), 10U);
    for (std::size_t i = 0; i < log.size(); ++i) {
        EXPECT_EQ(log[i].index, i);
        EXPECT_EQ(log[i].lost, i >= kFrameFifoDepth) << i;
        EXPECT_EQ(log[i].fault, i == 0 ? FrameFault::kTruncated
                                       : (i == 1 ? FrameFault::kCorrupted : FrameFault::kNone))
            << i;
    }

    const auto transfers = Transfers();
    ASSERT_EQ(transfers.size(), kFrameFifoDepth);
    EXPECT_EQ(transfers[0].size(), 3U);  // the CTRL packet cut in half
    ASSERT_EQ(transfers[1].size(), 12U);
    EXPECT_EQ(Decode(transfers[1])[0].type, 1U);
    ExpectFrameMatchesLog(transfers[2], log[2]);
    for (std::size_t i = 2; i < transfers.size(); ++i) {
        EXPECT_EQ(Decode(transfers[i]).at(0).raw, 3ULL << 46 | (log[i].close_toa & 0xFFFFFFFF));
    }
    // Room again: the next frame is queued.
    Expose(kTicksPerMs);
    EXPECT_EQ(Transfers().size(), 1U);
    EXPECT_EQ(m_engine.FrameCounts().overflowed, 2U);
}

TEST_F(FrameReadout, FrameStartsItsOwnTransferAndOneEndingAtItsEndIsFollowedByAnEmptyOne) {
    PowerChip();
    Expose(kTicksPerMs);
    Bytes room(64);
    // A transfer holding other data ends empty-handed first; the frame waits.
    const auto ended = m_engine.ReadFrame(room, true);
    ASSERT_TRUE(ended);
    EXPECT_EQ(ended->bytes, 0U);
    EXPECT_TRUE(ended->end_of_transfer);
    // Six bytes in transfers of six: the full transfer, then an empty one.
    const auto exact = Transfers(6);
    ASSERT_EQ(exact.size(), 2U);
    EXPECT_EQ(exact[0].size(), 6U);
    EXPECT_TRUE(exact[1].empty());
    // In transfers of four: one full, the rest short.
    Expose(kTicksPerMs);
    const auto split = Transfers(4);
    ASSERT_EQ(split.size(), 2U);
    EXPECT_EQ(split[0].size(), 4U);
    EXPECT_EQ(split[1].size(), 2U);
    EXPECT_FALSE(m_engine.ReadFrame(room, false));
}

}  // namespace
}  // namespace ovex::vboard
