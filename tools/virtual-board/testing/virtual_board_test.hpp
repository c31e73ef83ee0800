#pragma once

// GoogleTest fixture that brings virtual boards up for one test and down after it. The test
// process must run with the umockdev preload library; without it every test is skipped with
// the reason. Everything that uses libusb must be gone before the test body ends.

#include <gtest/gtest.h>

#include <memory>
#include <vector>

#include "ovex/vboard/virtual_board.hpp"

namespace ovex::vboard {

class VirtualBoardTest : public ::testing::Test {
protected:
    void SetUp() override {
        if (!TestBed::PreloadActive()) {
            GTEST_SKIP() << "needs LD_PRELOAD=libumockdev-preload.so.0";
        }
        m_bed = std::make_unique<TestBed>();
    }

    void TearDown() override {
        m_boards.clear();
        m_bed.reset();
    }

    // The board's clock stands still until the test moves it (`FirmwareEngine::AdvanceTime`).
    VirtualBoard& AddBoard(VirtualBoard::Settings settings = {}) {
        settings.real_time = false;
        const int port = static_cast<int>(m_boards.size()) + 1;
        m_boards.push_back(std::make_unique<VirtualBoard>(*m_bed, port, std::move(settings)));
        return *m_boards.back();
    }

    VirtualBoard& Board(std::size_t index = 0) { return *m_boards.at(index); }
    std::size_t BoardCount() const { return m_boards.size(); }

private:
    std::unique_ptr<TestBed> m_bed;
    std::vector<std::unique_ptr<VirtualBoard>> m_boards;
};

}  // namespace ovex::vboard
