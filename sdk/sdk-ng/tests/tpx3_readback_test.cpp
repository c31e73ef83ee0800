// The Timepix3 chip's matrix read-back over the data endpoint of a virtual board, through the
// real libusb.

#include <gtest/gtest.h>

#include <cstdint>
#include <optional>
#include <vector>

#include "board_fixture.hpp"
#include "modules/tpx3_chip.hpp"
#include "ovex/usb/usb_device.hpp"
#include "sdk_dev_item_sets.hpp"
#include "support/log_capture.hpp"

namespace ovex::sdk::testing {
namespace {

// The board's commands, except that the read-back trigger reaches nobody.
class SilentReadback final : public Commands {
public:
    explicit SilentReadback(Commands& board) : Commands(board.Names()), m_board(board) {}
    std::error_code Invoke(std::string_view name) override {
        return name == "TPX_READ_PXCONF" ? std::error_code{} : m_board.Invoke(name);
    }
    std::error_code Invoke(std::string_view name, std::span<std::uint8_t> output) override {
        return m_board.Invoke(name, output);
    }
    std::error_code Invoke(std::string_view name, std::span<const std::uint8_t> input) override {
        return m_board.Invoke(name, input);
    }

private:
    Commands& m_board;
};

class Tpx3ReadbackTest : public usb::vendor_cmd::testing::BoardFixture {
protected:
    void SetUp() override {
        BoardFixture::SetUp();
        if (IsSkipped()) {
            return;
        }
        // No counting stream behind the read-back: the endpoint carries only what the chip sends.
        vboard::VirtualBoard::Settings settings;
        settings.stream.total_bytes = 0;
        OpenBoard(settings);
        m_commands.emplace(Device());
        m_states.emplace(Device());
        // The board's supplies and FPGA, then the front end and the chip's regulators.
        for (const char* rail : {"DC_1V0", "DC_1V8", "DC_2V5", "DC_3V3"}) {
            ASSERT_FALSE(m_states->Set(rail, 1));
        }
        ASSERT_FALSE(m_commands->Invoke("FPGA_CONF"));
        ASSERT_FALSE(m_states->Set("FRONTEND_EN", 1));
        ASSERT_FALSE(m_states->Set("DETECTOR_EN", 1));
    }
    void TearDown() override {
        m_states.reset();
        m_commands.reset();
        BoardFixture::TearDown();
    }

    std::optional<UsbCommands> m_commands;
    std::optional<UsbStates> m_states;
    LogCapture log;
};

TEST_F(Tpx3ReadbackTest, DigitalTestFindsExactlyTheStuckPixels) {
    Timepix3 chip(&*m_commands, &*m_states, nullptr, &Device());
    ASSERT_FALSE(chip.Reset());
    std::vector<std::uint32_t> bad{99};
    ASSERT_FALSE(chip.DigitalTest(bad));
    EXPECT_TRUE(bad.empty());
    EXPECT_TRUE(log.Contains(log::kInfo, "Digital test of 'H05-W0318' - good: 65536, bad: 0."));

    Board().Engine().StickPixel(300, 0x11);
    Board().Engine().StickPixel(65535, 0x10 | 0x20);
    ASSERT_FALSE(chip.DigitalTest(bad));
    EXPECT_EQ(bad, (std::vector<std::uint32_t>{300, 65535}));
    EXPECT_TRUE(log.Contains(log::kWarning, "Digital test of 'H05-W0318' - good: 65534, bad: 2."));
}

TEST_F(Tpx3ReadbackTest, BoardThatSendsNothingEndsTheWaitWithNoData) {
    SilentReadback commands(*m_commands);
    Timepix3 chip(&commands, &*m_states, nullptr, &Device());
    ASSERT_FALSE(chip.Reset());
    std::vector<std::uint8_t> out(5, 1);
    EXPECT_FALSE(chip.ReadMatrix(out));
    EXPECT_TRUE(out.empty());
    EXPECT_TRUE(log.Contains(log::kError, "Waiting for configuration matrix data timed-out."));
    EXPECT_TRUE(log.Contains(log::kError,
                             "Failed to read configuration matrix - got 0 elements "
                             "instead of 393216."));

    // The endpoint is free again for the next read-back.
    Timepix3 answering(&*m_commands, &*m_states, nullptr, &Device());
    std::vector<std::uint32_t> bad{99};
    ASSERT_FALSE(answering.DigitalTest(bad));
    EXPECT_TRUE(bad.empty());
}

}  // namespace
}  // namespace ovex::sdk::testing
