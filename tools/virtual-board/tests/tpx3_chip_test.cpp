// The Timepix3 chip behind the board's items, through the USB path as the host's chip module
// drives it: DACs and the sense pin, the pixel configuration written double column by double
// column and read back as configuration packets, the chip's resets, and what it refuses.

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <cstdint>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

#include "board_host.hpp"
#include "virtual_board_test.hpp"

namespace ovex::vboard {
namespace {

using testing::BoardHost;
using testing::Bytes;

constexpr std::uint32_t kChipNotReady = 0x06000000;
constexpr std::uint32_t kChipBusy = 0x06000002;
constexpr std::uint32_t kChannelFailure = 0x06000004;
constexpr std::uint32_t kBadValue = 0x00000040;
constexpr std::uint32_t kNotStarted = 0x00000042;
constexpr std::uint32_t kNotSupported = 0x00000046;

constexpr std::size_t kPackedBytes = 49152;
constexpr std::size_t kColumnBytes = 384;
constexpr std::size_t kPixels = 65536;
constexpr int kReadBackBytes = 65536 * 6;

struct Dac {
    const char* state;
    int max;
};
// The 18 DACs by id (1 first), each from code 0 to its full scale.
constexpr std::array<Dac, 18> kDacs = {{{"DAC_PreampOn_0", 255},
                                        {"DAC_PreampOff_0", 255},
                                        {"DAC_NCas_0", 255},
                                        {"DAC_Ikrum_0", 255},
                                        {"DAC_Fbk_0", 255},
                                        {"DAC_THLFine_0", 511},
                                        {"DAC_THLCoarse_0", 15},
                                        {"DAC_DiscS1On_0", 255},
                                        {"DAC_DiscS1Off_0", 255},
                                        {"DAC_DiscS2On_0", 255},
                                        {"DAC_DiscS2Off_0", 255},
                                        {"DAC_PixelDac_0", 255},
                                        {"DAC_TpBuffIn_0", 255},
                                        {"DAC_TpBuffOut_0", 255},
                                        {"DAC_TpCoarse_0", 255},
                                        {"DAC_TpFine_0", 511},
                                        {"DAC_CpPll_0", 255},
                                        {"DAC_PllVCntrl_0", 255}}};

// Device-order pixels packed four into three bytes, then reversed end for end: what the host's
// chip module sends.
Bytes ColumnStream(const std::vector<std::uint8_t>& pixels) {
    Bytes packed;
    for (std::size_t k = 0; k < pixels.size(); k += 4) {
        const std::uint32_t word = static_cast<std::uint32_t>(pixels[k] & 63) << 18 |
                                   static_cast<std::uint32_t>(pixels[k + 1] & 63) << 12 |
                                   static_cast<std::uint32_t>(pixels[k + 2] & 63) << 6 |
                                   static_cast<std::uint32_t>(pixels[k + 3] & 63);
        packed.insert(packed.end(),
                      {static_cast<std::uint8_t>(word >> 16), static_cast<std::uint8_t>(word >> 8),
                       static_cast<std::uint8_t>(word)});
    }
    std::reverse(packed.begin(), packed.end());
    return packed;
}

// The host's order of a device-order matrix: mirrored on the anti-diagonal, the trim's bits
// reversed (bit 1 with 4, 2 with 3).
std::vector<std::uint8_t> HostOrder(const std::vector<std::uint8_t>& device) {
    std::vector<std::uint8_t> host(device.size());
    for (std::size_t y = 0; y < 256; ++y) {
        for (std::size_t x = 0; x < 256; ++x) {
            const std::uint8_t bits = device[(255 - x) * 256 + (255 - y)];
            host[y * 256 + x] =
                static_cast<std::uint8_t>((bits & 0x21) | (bits & 0x02) << 3 | (bits & 0x10) >> 3 |
                                          (bits & 0x04) << 1 | (bits & 0x08) >> 1);
        }
    }
    return host;
}

class Tpx3Chip : public VirtualBoardTest {
protected:
    void TearDown() override {
        m_host.reset();
        VirtualBoardTest::TearDown();
    }

    // A Timepix3 board, its chip powered unless told otherwise.
    BoardHost& Start(bool powered = true) {
        AddBoard();
        BoardHost& host = m_host.emplace();
        EXPECT_EQ(host.ConfigureFpga(), 0U);
        if (powered) {
            EXPECT_EQ(host.SetState("FRONTEND_EN", 1), 0U);
            EXPECT_EQ(host.SetState("DETECTOR_EN", 1), 0U);
        }
        return host;
    }

    static void Write(BoardHost& host, const Bytes& stream) {
        ASSERT_EQ(host.Invoke("TPX_LOAD_PXCONF", Bytes(4, 0)), 0U);
        for (std::size_t at = 0; at < stream.size(); at += kColumnBytes) {
            ASSERT_EQ(
                host.Invoke("TPX_LOAD_PXCONF",
                            Bytes(stream.begin() + static_cast<std::ptrdiff_t>(at),
                                  stream.begin() + static_cast<std::ptrdiff_t>(at + kColumnBytes))),
                0U)
                << at;
        }
    }

    // The read-back's configuration bits by pixel, placed as the host places them: 65535 minus
    // the packet's address with its bytes swapped. Pixels without a packet stay 0xFF.
    static std::vector<std::uint8_t> ReadBack(BoardHost& host) {
        Bytes data(kReadBackBytes);
        int done = 0;
        while (done < kReadBackBytes) {
            int got = 0;
            const int result = libusb_bulk_transfer(host.Handle(), 0x81, data.data() + done,
                                                    kReadBackBytes - done, &got, 2000);
            EXPECT_EQ(result, 0);
            if (result != 0) {
                return {};
            }
            done += got;
        }
        std::vector<std::uint8_t> pixels(kPixels, 0xFF);
        for (std::size_t at = 0; at < data.size(); at += 6) {
            std::uint64_t packet = 0;
            for (std::size_t b = 0; b < 6; ++b) {
                packet |= static_cast<std::uint64_t>(data[at + b]) << (8 * b);
            }
            EXPECT_EQ(packet >> 46, 1U) << at;
            const auto address = static_cast<std::uint16_t>(packet >> 30);
            const std::size_t index =
                kPixels - 1 - static_cast<std::uint16_t>(address << 8 | address >> 8);
            EXPECT_EQ(pixels[index], 0xFF) << "pixel " << index << " sent twice";
            pixels[index] = static_cast<std::uint8_t>(packet >> 14 & 63);
        }
        return pixels;
    }

    std::optional<BoardHost> m_host;
};

TEST_F(Tpx3Chip, EachDacTakesItsLimitsAndTheSensePinFollowsTheSelectedOne) {
    BoardHost& host = Start();
    for (std::size_t i = 0; i < kDacs.size(); ++i) {
        const Dac& dac = kDacs[i];
        SCOPED_TRACE(dac.state);
        ASSERT_EQ(host.SetState("TPX_DAC_SELECT", static_cast<int>(i + 1)), 0U);
        EXPECT_EQ(host.SetState(dac.state, dac.max), 0U);
        EXPECT_EQ(host.SetState(dac.state, dac.max + 1), kBadValue);
        EXPECT_EQ(host.State(dac.state), dac.max);
        EXPECT_EQ(host.State("TPX_DAC_OUT"), 1300);
        EXPECT_FLOAT_EQ(host.Monitor("TPX_DAC_OUT"), 1.3F);
        EXPECT_EQ(host.SetState(dac.state, 0), 0U);
        EXPECT_EQ(host.SetState(dac.state, -1), kBadValue);
        EXPECT_EQ(host.State("TPX_DAC_OUT"), 100);
        EXPECT_FLOAT_EQ(host.Monitor("TPX_DAC_OUT"), 0.1F);
    }
    // Linear in between: 100 mV + code · 1200 mV / full scale.
    ASSERT_EQ(host.SetState("DAC_THLFine_0", 300), 0U);
    ASSERT_EQ(host.SetState("TPX_DAC_SELECT", 6), 0U);
    EXPECT_EQ(host.State("TPX_DAC_OUT"), 100 + 300 * 1200 / 511);
    // Nothing selected, or an id beyond the table: no reading, and the selection stands.
    EXPECT_EQ(host.SetState("TPX_DAC_SELECT", 19), kBadValue);
    EXPECT_EQ(host.State("TPX_DAC_SELECT"), 6);
    ASSERT_EQ(host.SetState("TPX_DAC_SELECT", 0), 0U);
    EXPECT_EQ(host.State("TPX_DAC_OUT"), 0);
    EXPECT_EQ(host.SetState("TPX_DAC_OUT", 500), kNotSupported);
}

TEST_F(Tpx3Chip, AnUnpoweredChipAnswersNothingAndForgetsWhatItHeld) {
    BoardHost& host = Start(false);
    EXPECT_EQ(host.SetState("DAC_Ikrum_0", 20), kChipNotReady);
    EXPECT_EQ(host.SetState("TPX_CHIP_POLARITY", 1), kChipNotReady);
    EXPECT_EQ(host.Invoke("TPX_ALIGN_CLK"), kChipNotReady);
    EXPECT_EQ(host.Invoke("TPX_LOAD_PXCONF", Bytes(4, 0)), kChipNotReady);
    // The resets run on an unpowered chip; there is nothing for them to clear.
    EXPECT_EQ(host.Invoke("TPX_INIT"), 0U);
    EXPECT_EQ(host.Invoke("TPX_DEFAULT_DAC"), 0U);
    EXPECT_EQ(host.State("DAC_Ikrum_0"), 10);
    // The front end alone doesn't power the chip.
    ASSERT_EQ(host.SetState("FRONTEND_EN", 1), 0U);
    EXPECT_EQ(host.Invoke("TPX_OPMODE", {1}), kChipNotReady);

    ASSERT_EQ(host.SetState("DETECTOR_EN", 1), 0U);
    ASSERT_EQ(host.SetState("DAC_Ikrum_0", 20), 0U);
    ASSERT_EQ(host.SetState("TPX_DAC_SELECT", 4), 0U);
    Write(host, Bytes(kPackedBytes, 0xA5));
    ASSERT_EQ(host.SetState("DETECTOR_EN", 0), 0U);
    EXPECT_EQ(host.State("DAC_Ikrum_0"), 10);
    EXPECT_EQ(host.State("TPX_DAC_SELECT"), 0);
    EXPECT_EQ(host.State("TPX_DAC_OUT"), 0);
    EXPECT_EQ(Board().Engine().ChipMatrix(), Bytes(kPackedBytes, 0));
    ASSERT_EQ(host.SetState("DETECTOR_EN", 1), 0U);
    EXPECT_EQ(host.Invoke("TPX_READ_PXCONF"), kNotStarted);
}

TEST_F(Tpx3Chip, RefusesCommandsOutOfOrderAndBadValues) {
    BoardHost& host = Start();
    EXPECT_EQ(host.Invoke("TPX_OPMODE", {3}), kBadValue);
    EXPECT_EQ(host.Invoke("TPX_OPMODE", {1, 0}), kBadValue);
    EXPECT_EQ(host.Invoke("TPX_OPMODE", {2}), 0U);
    // A double column before the column index was reset, a read-back before any write.
    EXPECT_EQ(host.Invoke("TPX_LOAD_PXCONF", Bytes(kColumnBytes, 1)), kNotStarted);
    EXPECT_EQ(host.Invoke("TPX_READ_PXCONF"), kNotStarted);
    EXPECT_EQ(host.Invoke("TPX_LOAD_PXCONF", {0, 0, 1, 0}), kBadValue);
    EXPECT_EQ(host.Invoke("TPX_LOAD_PXCONF", Bytes(kColumnBytes - 1, 1)), kBadValue);
    Write(host, Bytes(kPackedBytes, 1));
    EXPECT_EQ(host.Invoke("TPX_LOAD_PXCONF", Bytes(kColumnBytes, 1)), kBadValue);
    // The read-back needs the data channels, and one at a time.
    EXPECT_EQ(host.Invoke("TPX_READ_PXCONF"), kChannelFailure);
    ASSERT_EQ(host.SetState("TPX_CHAN_EN", 255), 0U);
    EXPECT_EQ(host.Invoke("TPX_READ_PXCONF", {0}), kBadValue);
    ASSERT_EQ(host.Invoke("TPX_READ_PXCONF"), 0U);
    EXPECT_EQ(host.Invoke("TPX_READ_PXCONF"), kChipBusy);
    EXPECT_EQ(ReadBack(host).size(), kPixels);
    EXPECT_EQ(host.Invoke("TPX_READ_PXCONF"), 0U);
    EXPECT_EQ(Board().Engine().Invocations("TPX_READ_PXCONF").size(), 2U);
}

TEST_F(Tpx3Chip, MatrixReadsBackBitExactAndTheResetsClearWhatTheyOwn) {
    BoardHost& host = Start();
    std::vector<std::uint8_t> pixels(kPixels);
    std::uint32_t seed = 12345;
    for (std::uint8_t& pixel : pixels) {
        seed = seed * 1103515245U + 12345U;
        pixel = static_cast<std::uint8_t>(seed >> 16 & 63);
    }
    const Bytes stream = ColumnStream(pixels);
    Write(host, stream);
    EXPECT_EQ(Board().Engine().ChipMatrix(), stream);
    ASSERT_EQ(host.SetState("TPX_CHAN_EN", 255), 0U);
    ASSERT_EQ(host.Invoke("TPX_READ_PXCONF"), 0U);
    EXPECT_EQ(ReadBack(host), pixels);

    // The digital test's answer: the default matrix (every pixel trim 8, 0x10; in device order
    // 0x02) comes back unchanged but for a stuck pixel, which the host finds where it put it.
    const std::vector<std::uint8_t> defaults(kPixels, 0x02);
    ASSERT_EQ(HostOrder(defaults), std::vector<std::uint8_t>(kPixels, 0x10));
    Write(host, ColumnStream(defaults));
    ASSERT_EQ(host.Invoke("TPX_READ_PXCONF"), 0U);
    EXPECT_EQ(ReadBack(host), defaults);
    Board().Engine().StickPixel(0x1234, 0x3F);
    ASSERT_EQ(host.Invoke("TPX_READ_PXCONF"), 0U);
    const std::vector<std::uint8_t> answer = HostOrder(ReadBack(host));
    std::vector<std::size_t> bad;
    for (std::size_t pixel = 0; pixel < answer.size(); ++pixel) {
        if (answer[pixel] != 0x10) {
            bad.push_back(pixel);
        }
    }
    EXPECT_EQ(bad, std::vector<std::size_t>{0x1234});
    EXPECT_EQ(answer[0x1234], 0x3F);
    EXPECT_THROW(Board().Engine().StickPixel(65536, 0), std::out_of_range);
    EXPECT_THROW(Board().Engine().StickPixel(0, 64), std::out_of_range);

    // The chip's reset clears the memory and the periphery; the DACs stay until their own reset.
    ASSERT_EQ(host.SetState("TPX_CHIP_POLARITY", 1), 0U);
    ASSERT_EQ(host.SetState("DAC_THLCoarse_0", 3), 0U);
    ASSERT_EQ(host.SetState("TPX_DAC_SELECT", 7), 0U);
    ASSERT_EQ(host.Invoke("TPX_INIT"), 0U);
    EXPECT_EQ(Board().Engine().ChipMatrix(), Bytes(kPackedBytes, 0));
    EXPECT_EQ(host.State("TPX_CHIP_POLARITY"), 0);
    EXPECT_EQ(host.State("TPX_CHAN_EN"), 0);
    EXPECT_EQ(host.State("DAC_THLCoarse_0"), 3);
    EXPECT_EQ(host.Invoke("TPX_READ_PXCONF"), kNotStarted);
    ASSERT_EQ(host.Invoke("TPX_DEFAULT_DAC"), 0U);
    EXPECT_EQ(host.State("DAC_THLCoarse_0"), 7);
    EXPECT_EQ(host.State("DAC_THLFine_0"), 256);
    EXPECT_EQ(host.State("TPX_DAC_SELECT"), 0);
}

TEST_F(Tpx3Chip, FrameArrivesAsOneShortTransferAheadOfTheStream) {
    BoardHost& host = Start();
    FirmwareEngine& engine = Board().Engine();
    engine.SetHitModel({.spot_rate = 1e6, .seed = 3});
    ASSERT_EQ(host.SetState("TPX_CHAN_EN", 255), 0U);
    ASSERT_EQ(host.Invoke("TPX_OPMODE", {0}), 0U);
    ASSERT_EQ(host.Invoke("TPX_T0_SYNC"), 0U);
    ASSERT_EQ(host.SetState("TPX_SHUT_DUR", 40000), 0U);  // 1 ms
    ASSERT_EQ(host.Invoke("TPX_SHUT_IMM"), 0U);
    engine.AdvanceTime(std::chrono::milliseconds(1));

    Bytes data(0x60400);
    int got = 0;
    ASSERT_EQ(libusb_bulk_transfer(host.Handle(), 0x81, data.data(), static_cast<int>(data.size()),
                                   &got, 2000),
              0);
    const auto log = engine.FrameLog();
    ASSERT_EQ(log.size(), 1U);
    EXPECT_GT(log[0].hits.size(), 100U);
    ASSERT_EQ(static_cast<std::size_t>(got), (log[0].hits.size() + 1) * 6);
    std::vector<std::uint64_t> packets(log[0].hits.size() + 1);
    for (std::size_t i = 0; i < packets.size(); ++i) {
        for (std::size_t b = 0; b < 6; ++b) {
            packets[i] |= static_cast<std::uint64_t>(data[i * 6 + b]) << (8 * b);
        }
    }
    const auto address = static_cast<std::uint16_t>(packets[0] >> 30);
    EXPECT_EQ(packets[0] >> 46, 0U);
    EXPECT_EQ(kPixels - 1 - static_cast<std::uint16_t>(address << 8 | address >> 8),
              log[0].hits[0].pixel);
    EXPECT_EQ(packets.back(), std::uint64_t{3} << 46 | 40000);

    // The counting stream follows in the next transfer, from its start.
    ASSERT_EQ(libusb_bulk_transfer(host.Handle(), 0x81, data.data(), 16, &got, 2000), 0);
    ASSERT_EQ(got, 16);
    for (std::size_t i = 0; i < 16; ++i) {
        EXPECT_EQ(data[i], CountingSource::ByteAt(i)) << i;
    }
}

}  // namespace
}  // namespace ovex::vboard
