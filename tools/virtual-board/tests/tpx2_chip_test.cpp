// The Timepix2 chip and the NoBE's requests through real libusb, as the host's chip module and
// scripts drive them: the matrix written with the PRC bypassed and read back as CONF and TRIM,
// the refusals around it, the NoBE's own requests, and a chip without power.

#include <gtest/gtest.h>

#include <algorithm>
#include <bit>
#include <chrono>
#include <cstdint>
#include <vector>

#include "board_host.hpp"
#include "virtual_board_test.hpp"

namespace ovex::vboard {
namespace {

using testing::BoardHost;
using testing::Bytes;

constexpr std::uint32_t kChipNotReadyWord = 0x06000000;
constexpr std::uint32_t kBadValueWord = 0x40;
constexpr std::uint32_t kNotStartedWord = 0x42;
constexpr std::uint32_t kNotConfiguredWord = 0x44;
constexpr std::uint32_t kNotSupportedWord = 0x46;
constexpr std::uint32_t kBadIndexWord = 0x4B;
constexpr std::size_t kPixels = 65536;

class Tpx2Chip : public VirtualBoardTest {
protected:
    VirtualBoard& AddKind(BoardKind kind) {
        VirtualBoard::Settings settings;
        settings.kind = kind;
        return AddBoard(settings);
    }
    static void Power(BoardHost& host, bool nobe) {
        ASSERT_EQ(host.BringUpBackEnd(), 0U);
        ASSERT_EQ(host.SetState("DETECTOR_EN", 1), 0U);
        if (nobe) {
            ASSERT_EQ(host.SetState("TPX_1V2", 1), 0U);
        }
    }
    // The host's matrix write; the first refusal's word.
    static std::uint32_t WriteMatrix(BoardHost& host, const Bytes& matrix) {
        if (host.Out(0xB3, 0, 0) < 0 || host.Out(0x1A, 0, 0) < 0) {
            return host.LastError();
        }
        if (const std::uint32_t word = host.Invoke("TPX_PRC_BYPASS", {1})) {
            return word;
        }
        Bytes data = matrix;
        int sent = 0;
        EXPECT_EQ(libusb_bulk_transfer(host.Handle(), 0x01, data.data(),
                                       static_cast<int>(data.size()), &sent, 2000),
                  0);
        if (const std::uint32_t word = host.Invoke("TPX_WRITE_MATRIX", {3})) {
            return word;
        }
        return host.Invoke("TPX_PRC_BYPASS", {0});
    }
    // One half as it arrives, its 32-bit words put back in order.
    static Bytes ReadHalf(BoardHost& host, std::uint8_t half) {
        EXPECT_EQ(host.Invoke("TPX_READ_MATRIX", {half}), 0U);
        Bytes data(kPixels / 2);
        int got = 0;
        EXPECT_EQ(libusb_bulk_transfer(host.Handle(), 0x81, data.data(),
                                       static_cast<int>(data.size()), &got, 2000),
                  0);
        EXPECT_EQ(got, static_cast<int>(data.size()));
        for (std::size_t at = 0; at < data.size(); at += 4) {
            std::reverse(data.begin() + static_cast<std::ptrdiff_t>(at),
                         data.begin() + static_cast<std::ptrdiff_t>(at + 4));
        }
        return data;
    }
    // The host's merge of CONF and TRIM.
    static Bytes ReadMatrix(BoardHost& host) {
        EXPECT_EQ(host.Invoke("TPX_PRC_BYPASS", {1}), 0U);
        const Bytes conf = ReadHalf(host, 1);
        const Bytes trim = ReadHalf(host, 2);
        EXPECT_EQ(host.Invoke("TPX_PRC_BYPASS", {0}), 0U);
        Bytes out(kPixels);
        for (std::size_t i = 0; i < conf.size(); ++i) {
            for (unsigned odd = 0; odd < 2; ++odd) {
                const unsigned c = conf[i] >> (4 * odd) & 15;
                const unsigned t = trim[i] >> (4 * odd) & 15;
                out[2 * i + odd] = static_cast<std::uint8_t>((c & 3) | t << 2 | (c >> 3 & 1) << 6);
            }
        }
        return out;
    }
    // Writes, reads back and refuses on a board of `kind`.
    void MatrixRoundTrip(BoardKind kind) {
        VirtualBoard& board = AddKind(kind);
        BoardHost host;
        Power(host, kind == BoardKind::kNobe);
        Bytes matrix(kPixels);
        for (std::size_t k = 0; k < kPixels; ++k) {
            matrix[k] = static_cast<std::uint8_t>(k * 37 + k / 256);
        }
        ASSERT_EQ(WriteMatrix(host, matrix), 0U);
        EXPECT_EQ(board.Engine().Tpx2Matrix(), matrix);
        Bytes host_form = matrix;
        for (std::uint8_t& pixel : host_form) {
            pixel &= 0x7F;  // bit 7 comes back as CONF bit 2, which the merge drops
        }
        EXPECT_EQ(ReadMatrix(host), host_form);

        // A stuck last pixel reads back what it is stuck at.
        board.Engine().StickPixel(65535, 0x02);
        EXPECT_EQ(ReadMatrix(host)[65535], 0x02);
        board.Engine().ClearChipFaults();

        EXPECT_EQ(host.Invoke("TPX_WRITE_MATRIX", {3}), kNotConfiguredWord);  // bypass off
        EXPECT_EQ(host.Invoke("TPX_READ_MATRIX", {1}), kNotConfiguredWord);
        ASSERT_EQ(host.Invoke("TPX_PRC_BYPASS", {1}), 0U);
        EXPECT_EQ(host.Invoke("TPX_WRITE_MATRIX", {3}), kNotStartedWord);  // not armed
        EXPECT_EQ(host.Invoke("TPX_READ_MATRIX", {3}), kBadValueWord);
        ASSERT_EQ(host.Out(0x1A, 0, 0), 0);
        Bytes short_matrix(kPixels - 1);
        int sent = 0;
        ASSERT_EQ(libusb_bulk_transfer(host.Handle(), 0x01, short_matrix.data(),
                                       static_cast<int>(short_matrix.size()), &sent, 2000),
                  0);
        EXPECT_EQ(host.Invoke("TPX_WRITE_MATRIX", {3}), kBadValueWord);
        EXPECT_EQ(board.Engine().Tpx2Matrix(), matrix);

        board.Engine().RefusePrcBypass(0x4A);
        EXPECT_EQ(host.Invoke("TPX_PRC_BYPASS", {0}), 0x4AU);
        board.Engine().ClearChipFaults();
        EXPECT_EQ(host.Invoke("TPX_PRC_BYPASS", {0}), 0U);
    }
};

TEST_F(Tpx2Chip, MatrixWrittenThroughTheBypassReadsBackAndOutOfOrderStepsAreRefused) {
    MatrixRoundTrip(BoardKind::kTimepix2Cb);
}

TEST_F(Tpx2Chip, NobeMatrixWrittenThroughTheBypassReadsBackAndOutOfOrderStepsAreRefused) {
    MatrixRoundTrip(BoardKind::kNobe);
}

TEST_F(Tpx2Chip, UnpoweredChipRefusesItsCommandsAndComesBackForgettingItsMemory) {
    VirtualBoard& board = AddKind(BoardKind::kNobe);
    BoardHost host;
    Power(host, true);
    ASSERT_EQ(WriteMatrix(host, Bytes(kPixels, 0x40)), 0U);
    ASSERT_EQ(host.SetState("DAC_TH_FINE", 700), 0U);
    ASSERT_EQ(host.Invoke("TPX_DAC_SELECT", {8}), 0U);
    EXPECT_EQ(host.State("TPX_DAC_OUT"), 100 + 700 * 1200 / 1023);
    EXPECT_EQ(host.Invoke("TPX_DAC_SELECT", {19}), kBadValueWord);  // BiasRes: no sense path
    EXPECT_EQ(host.State("TPX_DAC_OUT"), 100 + 700 * 1200 / 1023);

    ASSERT_EQ(host.SetState("TPX_1V2", 0), 0U);
    for (const char* command : {"TPX_INIT", "TPX_TRIG_SINGLE"}) {
        EXPECT_EQ(host.Invoke(command), kChipNotReadyWord) << command;
    }
    EXPECT_EQ(host.Invoke("TPX_OPMODE", {6}), kChipNotReadyWord);
    EXPECT_EQ(host.SetState("DAC_TH_FINE", 600), kChipNotReadyWord);
    EXPECT_EQ(host.State("TPX_DAC_OUT"), 0);
    EXPECT_EQ(host.Out(0x1A, 0, 0), LIBUSB_ERROR_PIPE);
    EXPECT_EQ(host.LastError(), kChipNotReadyWord);
    EXPECT_EQ(host.Invoke("TPX_TRIG_ABORT"), 0U);  // stopping always works

    ASSERT_EQ(host.SetState("TPX_1V2", 1), 0U);
    EXPECT_EQ(host.State("DAC_TH_FINE"), 512);
    EXPECT_EQ(board.Engine().Tpx2Matrix(), Bytes(kPixels, 0));
}

TEST_F(Tpx2Chip, NobeRequestsAnswerForItsOneChipAndRefuseOthers) {
    VirtualBoard& board = AddKind(BoardKind::kNobe);
    BoardHost host;
    Power(host, true);

    Bytes geometry(256);
    ASSERT_EQ(host.In(0x15, 0, 0, geometry), 256);
    EXPECT_EQ(BoardHost::U32(geometry, 0), 1U);
    EXPECT_EQ(BoardHost::U32(geometry, 4), 1U);
    EXPECT_EQ(geometry[8], 0);

    Bytes fsr(32);
    for (std::size_t i = 0; i < fsr.size(); ++i) {
        fsr[i] = static_cast<std::uint8_t>(i * 7 + 1);
    }
    ASSERT_EQ(host.Out(0x16, 0, 0, fsr), 32);
    Bytes back(32);
    ASSERT_EQ(host.In(0x16, 0, 0, back), 32);
    EXPECT_EQ(back, fsr);
    EXPECT_EQ(host.In(0x16, 0, 0x0200, back), LIBUSB_ERROR_PIPE);
    EXPECT_EQ(host.LastError(), kBadIndexWord);
    EXPECT_EQ(host.Out(0x16, 0, 0, Bytes(31)), LIBUSB_ERROR_PIPE);
    EXPECT_EQ(host.LastError(), kBadValueWord);

    // The chip id answers from the efuse word as TPX_CHIP_ID does, powered or not.
    Bytes id(33);
    ASSERT_EQ(host.SetState("TPX_1V2", 0), 0U);
    ASSERT_EQ(host.In(0x18, 0, 0, id), 33);
    EXPECT_EQ(BoardHost::Text(id), "D02-W0041");
    ASSERT_EQ(host.SetState("TPX_1V2", 1), 0U);

    ASSERT_EQ(host.Out(0x10, 0, 0, BoardHost::Le32(std::bit_cast<std::uint32_t>(12.6F))), 4);
    EXPECT_EQ(host.State("BIAS"), 13);
    Bytes bias(4);
    ASSERT_EQ(host.In(0x10, 0, 0, bias), 4);
    EXPECT_EQ(std::bit_cast<float>(BoardHost::U32(bias)), 13.0F);
    EXPECT_EQ(host.Out(0x10, 0, 0, BoardHost::Le32(std::bit_cast<std::uint32_t>(400.0F))),
              LIBUSB_ERROR_PIPE);
    EXPECT_EQ(host.LastError(), kBadValueWord);

    // 1.5 ms single, then 1 ms shutters until the abort: 1 + 3 frames.
    ASSERT_EQ(host.Out(0x19, 0, 0, BoardHost::Le32(std::bit_cast<std::uint32_t>(1.5e-3F))), 4);
    EXPECT_EQ(host.State("TPX_SHUT_DUR"), 60000);
    board.Engine().AdvanceTime(std::chrono::milliseconds(2));
    ASSERT_EQ(host.Out(0x1B, 0, 0, BoardHost::Le32(std::bit_cast<std::uint32_t>(1e-3F))), 4);
    EXPECT_EQ(host.Out(0x19, 0, 0, BoardHost::Le32(std::bit_cast<std::uint32_t>(1e-3F))),
              LIBUSB_ERROR_PIPE);
    board.Engine().AdvanceTime(std::chrono::microseconds(5500));
    ASSERT_EQ(host.Out(0x1C, 0, 0), 0);
    board.Engine().AdvanceTime(std::chrono::milliseconds(10));
    const auto log = board.Engine().Tpx2FrameLog();
    ASSERT_EQ(log.size(), 4U);
    EXPECT_EQ(log[0].close_tick - log[0].open_tick, 60000U);
    EXPECT_EQ(log[3].close_tick - log[3].open_tick, 40000U);
    EXPECT_EQ(host.Out(0x19, 0, 0, BoardHost::Le32(std::bit_cast<std::uint32_t>(-1.0F))),
              LIBUSB_ERROR_PIPE);
    EXPECT_EQ(host.LastError(), kBadValueWord);
}

TEST_F(Tpx2Chip, NobeChipIdDecodesTheEfuseOverridesAndAnUnfusedColumn) {
    // Override bits 3: the wafer from bits 22..31; column 0 unfused.
    constexpr int kEfuses = 517 << 22 | 3 << 20 | 0x7F0 << 8 | 9 << 4;
    VirtualBoard::Settings settings;
    settings.kind = BoardKind::kNobe;
    settings.tables = TablesOf(BoardKind::kNobe);
    for (StateItem& state : settings.tables->states) {
        if (state.name == "TPX_CHIP_ID") {
            state = {state.name, kEfuses, kEfuses, kEfuses};
        }
    }
    AddBoard(settings);
    BoardHost host;
    Bytes id(33);
    ASSERT_EQ(host.In(0x18, 0, 0, id), 33);
    EXPECT_EQ(BoardHost::Text(id), "X09-W0517");
}

TEST_F(Tpx2Chip, ChipBoardAnswersOnlyTheConfigurationLoadAndSendsA14BitFrameInTwoTransfers) {
    VirtualBoard& board = AddKind(BoardKind::kTimepix2Cb);
    BoardHost host;
    Power(host, false);
    Bytes geometry(256);
    EXPECT_EQ(host.In(0x15, 0, 0, geometry), LIBUSB_ERROR_PIPE);
    EXPECT_EQ(host.LastError(), kNotSupportedWord);
    // The load feeds on the FPGA's data pump, which the AXI stream start runs.
    EXPECT_EQ(host.Out(0x1A, 0, 0), LIBUSB_ERROR_PIPE);
    EXPECT_EQ(host.LastError(), kNotStartedWord);
    ASSERT_EQ(host.Out(0xB3, 0, 0), 0);
    EXPECT_EQ(host.Out(0x1A, 0, 0), 0);

    board.Engine().SetHitModel({.flood = true});
    ASSERT_EQ(host.Invoke("PIPELINE_BPP", {3}), 0U);
    EXPECT_EQ(host.Invoke("PIPELINE_BPP", {4}), kBadValueWord);
    ASSERT_EQ(host.SetState("TPX_SHUT_DUR", 8000), 0U);
    ASSERT_EQ(host.Invoke("TPX_TRIG_SINGLE"), 0U);
    board.Engine().AdvanceTime(std::chrono::microseconds(200));
    Bytes transfer(114688);
    int got = 0;
    ASSERT_EQ(libusb_bulk_transfer(host.Handle(), 0x81, transfer.data(), 114688, &got, 2000), 0);
    EXPECT_EQ(got, 81920);
    ASSERT_EQ(libusb_bulk_transfer(host.Handle(), 0x81, transfer.data(), 114688, &got, 2000), 0);
    EXPECT_EQ(got, 32768);
    // Every pixel counted its one hit: high nibbles 0.
    EXPECT_TRUE(std::all_of(transfer.begin(), transfer.begin() + got,
                            [](std::uint8_t b) { return b == 0; }));
}

}  // namespace
}  // namespace ovex::vboard
