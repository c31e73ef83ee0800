#pragma once

// A host's session with one virtual board through the older interface: a handle from
// ovex_ctx_new whose power scripts don't really wait, opened on the board's serial number, and
// released at the end of the test.

#include <gtest/gtest.h>

#include <chrono>

#include "api_internal.hpp"
#include "legacy/legacy_core.hpp"
#include "ovex/lua/core/lua_core.hpp"
#include "ovexlegacy.h"
#include "virtual_board_test.hpp"

namespace ovex::sdk::testing {

class LegacySession : public vboard::VirtualBoardTest {
protected:
    void TearDown() override {
        if (m_ctx != nullptr) {
            EXPECT_EQ(ovex_ctx_delete(m_ctx), OVEX_OK);
            m_ctx = nullptr;
        }
        VirtualBoardTest::TearDown();
    }

    // A handle whose scripts record their waits instead of sleeping.
    void New() {
        m_ctx = ovex_ctx_new();
        ASSERT_NE(m_ctx, nullptr);
        void* state = nullptr;
        ASSERT_EQ(ovexsdk_get_script_state(&m_ctx->context, &state), OVEXSDK_OK);
        lua::core::SetSleeper(static_cast<lua_State*>(state), [](std::chrono::duration<double>) {});
    }

    // Adds the board, makes the handle and opens the board; answers the open's result.
    std::int32_t AddAndOpen(vboard::VirtualBoard::Settings settings = {}) {
        AddBoard(std::move(settings));
        New();
        return ovex_dev_open(m_ctx, "usb:sn:OVX00001");
    }

    // A board of `kind`, opened.
    std::int32_t AddAndOpen(vboard::BoardKind kind) {
        vboard::VirtualBoard::Settings settings;
        settings.kind = kind;
        return AddAndOpen(std::move(settings));
    }

    // A board of `kind`, open and powered; its data endpoint sends only what the chip reads out.
    void OpenPowered(vboard::BoardKind kind = vboard::BoardKind::kTimepix3) {
        vboard::VirtualBoard::Settings settings;
        settings.kind = kind;
        settings.stream.total_bytes = 0;
        ASSERT_EQ(AddAndOpen(std::move(settings)), OVEX_OK);
        ASSERT_EQ(ovexsdk_dev_power_up(&m_ctx->context), OVEXSDK_OK);
    }

    ovex_ctx* m_ctx = nullptr;
};

}  // namespace ovex::sdk::testing
