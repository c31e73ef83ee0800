// The power units of a board as the older interface's named boards, and the one table of names
// that every handle of the process shares.

#include <gtest/gtest.h>

#include <cstdint>

#include "support/legacy_session.hpp"
#include "support/log_capture.hpp"

namespace ovex::sdk::testing {
namespace {

class LegacyBoards : public LegacySession {
protected:
    std::int32_t Powered(const char* name) {
        std::int32_t powered = -1;
        EXPECT_EQ(ovex_board_is_powered(m_ctx, name, &powered), OVEX_OK);
        return powered;
    }
    // Lines of warning or worse that the test's thread logged.
    int Complaints() const {
        int complaints = 0;
        for (const auto& line : m_log.Messages()) {
            complaints += line.verbosity <= ovex::log::kWarning;
        }
        return complaints;
    }

    LogCapture m_log;
};

TEST_F(LegacyBoards, UnitsAreNamedByIndexAndSwitchedOnlyWhenTheyChange) {
    AddBoard();
    New();
    std::uint32_t count = 0;
    EXPECT_EQ(ovex_board_count(m_ctx, &count), OVEX_ERR_HANDLE);
    ASSERT_EQ(ovex_dev_open(m_ctx, "usb:sn:OVX00001"), OVEX_OK);
    ASSERT_EQ(ovex_board_count(m_ctx, &count), OVEX_OK);
    EXPECT_EQ(count, 2u);
    const char* name = nullptr;
    ASSERT_EQ(ovex_board_id(m_ctx, 1, &name), OVEX_OK);
    EXPECT_STREQ(name, "frontend");
    EXPECT_EQ(ovex_board_id(m_ctx, 2, &name), OVEX_ERR_HANDLE);

    m_log.Clear();
    // A unit already in the state asked for is left alone, without the current interface's
    // warning.
    EXPECT_EQ(ovex_board_power_off(m_ctx, "backend"), OVEX_ERR_UNAVAILABLE);
    ASSERT_EQ(ovex_board_power_on(m_ctx, "backend"), OVEX_OK);
    EXPECT_EQ(ovex_board_power_on(m_ctx, "backend"), OVEX_ERR_UNAVAILABLE);
    ASSERT_EQ(ovex_board_power_on(m_ctx, "frontend"), OVEX_OK);
    ASSERT_EQ(ovex_board_power_off(m_ctx, "frontend"), OVEX_OK);
    EXPECT_EQ(Powered("frontend"), 0);
    EXPECT_EQ(Powered("backend"), 1);
    // Names are exact, and an unknown one is no failure of the board.
    std::int32_t powered = -1;
    EXPECT_EQ(ovex_board_is_powered(m_ctx, "Backend", &powered), OVEX_ERR_HANDLE);
    EXPECT_EQ(ovex_board_power_on(m_ctx, "back"), OVEX_ERR_HANDLE);
    EXPECT_EQ(powered, -1);
    EXPECT_EQ(Complaints(), 0);
}

TEST_F(LegacyBoards, EveryHandleFillsTheSameTableOfNames) {
    AddBoard();
    vboard::VirtualBoard::Settings nobe;
    nobe.kind = vboard::BoardKind::kNobe;
    nobe.identity.serial = "OVX00002";
    AddBoard(nobe);
    New();
    ASSERT_EQ(ovex_dev_open(m_ctx, "usb:sn:OVX00001"), OVEX_OK);
    ovex_ctx* other = ovex_ctx_new();
    ASSERT_NE(other, nullptr);
    ASSERT_EQ(ovex_dev_open(other, "usb:sn:OVX00002"), OVEX_OK);

    const char* first = nullptr;
    ASSERT_EQ(ovex_board_id(m_ctx, 0, &first), OVEX_OK);
    EXPECT_STREQ(first, "backend");
    const char* second = nullptr;
    ASSERT_EQ(ovex_board_id(other, 0, &second), OVEX_OK);
    // The first handle's answer now reads what the second call put there.
    EXPECT_EQ(first, second);
    EXPECT_STREQ(first, "NoBE");
    // A lookup fills the table from its own board again.
    std::int32_t powered = -1;
    EXPECT_EQ(ovex_board_is_powered(m_ctx, "NoBE", &powered), OVEX_ERR_HANDLE);
    EXPECT_STREQ(first, "backend");
    EXPECT_EQ(ovex_ctx_delete(other), OVEX_OK);
}

}  // namespace
}  // namespace ovex::sdk::testing
