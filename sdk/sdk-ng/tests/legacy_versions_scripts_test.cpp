// Component versions, scripts and AXI-Lite registers through the older interface.

#include <gtest/gtest.h>

#include <cstdint>

#include "ovex/vendor_cmd/vendor_command.hpp"
#include "support/legacy_session.hpp"

namespace ovex::sdk::testing {
namespace {

// The virtual board's id register (read-only) and its scratch register.
constexpr std::uint32_t kId = 0x40000000;
constexpr std::uint32_t kScratch = 0x40000004;

class LegacyVersionsScripts : public LegacySession {};

TEST_F(LegacyVersionsScripts, VersionsAreListedAndLookedUpByName) {
    ASSERT_EQ(AddAndOpen(), OVEX_OK);
    std::uint32_t count = 0;
    ASSERT_EQ(ovex_hw_version_count(m_ctx, &count), OVEX_OK);
    EXPECT_EQ(count, 2u);
    const char* name = nullptr;
    ASSERT_EQ(ovex_hw_version_id(m_ctx, 1, &name), OVEX_OK);
    EXPECT_STREQ(name, "Ovexboard");
    EXPECT_EQ(ovex_hw_version_id(m_ctx, 2, &name), OVEX_ERR_HANDLE);
    const char* version = nullptr;
    ASSERT_EQ(ovex_hw_version_string(m_ctx, "FX3_FW", &version), OVEX_OK);
    EXPECT_STREQ(version, "0.24.3-TPX3");
    EXPECT_STREQ(name, "Ovexboard");
    EXPECT_EQ(ovex_hw_version_string(m_ctx, "fx3_fw", &version), OVEX_ERR_HANDLE);

    // A component that doesn't answer has an empty row, not the one of the call before.
    Board().Firmware().StallNext(usb::vendor_cmd::request::kVersion);
    EXPECT_EQ(ovex_hw_version_string(m_ctx, "FX3_FW", &version), OVEX_ERR_HANDLE);
    ASSERT_EQ(ovex_hw_version_string(m_ctx, "FX3_FW", &version), OVEX_OK);
    EXPECT_STREQ(version, "0.24.3-TPX3");
}

TEST_F(LegacyVersionsScripts, ScriptsRunInTheHandlesInterpreter) {
    New();
    EXPECT_EQ(ovex_script_run(m_ctx, "answer = 6 * 7"), OVEX_OK);
    EXPECT_EQ(ovex_script_run(m_ctx, "assert(answer == 42)"), OVEX_OK);
    EXPECT_EQ(ovex_script_run(m_ctx, "assert(answer == 41)"), OVEX_ERR_INVALID);
    EXPECT_EQ(ovex_script_run(m_ctx, "answer ="), OVEX_ERR_INVALID);
    void* state = nullptr;
    ASSERT_EQ(ovex_script_get_state(m_ctx, &state), OVEX_OK);
    void* current = nullptr;
    ASSERT_EQ(ovexsdk_get_script_state(&m_ctx->context, &current), OVEXSDK_OK);
    EXPECT_EQ(state, current);
}

TEST_F(LegacyVersionsScripts, AxiResultsAreThoseOfTheCurrentInterfaceUnmapped) {
    AddBoard();
    New();
    std::uint32_t value = 7;
    EXPECT_EQ(ovex_axi_read(m_ctx, kScratch, &value), OVEXSDK_ERR_NO_DEVICE);
    EXPECT_EQ(ovex_axi_write(m_ctx, kScratch, 1), OVEXSDK_ERR_NO_DEVICE);
    ASSERT_EQ(ovex_dev_open(m_ctx, "usb:sn:OVX00001"), OVEX_OK);
    ASSERT_EQ(ovex_axi_write(m_ctx, kScratch, 0xA5A50F0F), OVEX_OK);
    ASSERT_EQ(ovex_axi_read(m_ctx, kScratch, &value), OVEX_OK);
    EXPECT_EQ(value, 0xA5A50F0Fu);
    // The bus's slave error (2) and decode error (3), plus 100.
    EXPECT_EQ(ovex_axi_write(m_ctx, kId, 1), 102);
    EXPECT_EQ(ovex_axi_read(m_ctx, 0x10, &value), 103);
    EXPECT_EQ(value, 0xA5A50F0Fu);
}

}  // namespace
}  // namespace ovex::sdk::testing
