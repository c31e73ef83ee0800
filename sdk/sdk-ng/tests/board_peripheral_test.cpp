// A board's peripherals through the exported interface: component versions.

#include <gtest/gtest.h>

#include <cstdint>
#include <string>

#include "api_internal.hpp"
#include "support/power_session.hpp"

namespace ovex::sdk {
namespace {

class BoardPeripherals : public testing::PowerSession {};

TEST_F(BoardPeripherals, ComponentVersionsFillWhatCanBeReadAndSkipTheRest) {
    Create();
    std::uint8_t count = 0;
    EXPECT_EQ(ovexsdk_comp_get_ver_count(&m_ctx, &count), OVEXSDK_ERR_NO_DEVICE);
    Release();

    ASSERT_EQ(OpenKind(vboard::BoardKind::kTimepix3), OVEXSDK_OK);
    ASSERT_EQ(ovexsdk_comp_get_ver_count(&m_ctx, &count), OVEXSDK_OK);
    ASSERT_EQ(count, 2);

    // A component that doesn't answer keeps the host's element; the rest is filled.
    RefuseAt("version Ovexboard");
    ovexsdk_comp_info infos[3];
    for (auto& info : infos) {
        info = {"host's", "own"};
    }
    count = 3;
    ASSERT_EQ(ovexsdk_comp_get_info(&m_ctx, infos, &count), OVEXSDK_OK);
    EXPECT_EQ(count, 2);
    EXPECT_STREQ(infos[0].name, "FX3_FW");
    EXPECT_STREQ(infos[0].version, "0.24.3-TPX3");
    EXPECT_STREQ(infos[1].name, "host's");
    EXPECT_TRUE(
        Logged("Failed to obtain version string for component 'Ovexboard' - firmware: "
               "failure due to a non-specific system error."));

    count = 1;
    ASSERT_EQ(ovexsdk_comp_get_info(&m_ctx, infos + 1, &count), OVEXSDK_OK);
    EXPECT_EQ(count, 1);
    EXPECT_STREQ(infos[1].version, "0.24.3-TPX3");
    EXPECT_TRUE(
        Logged("Cannot fit all component information structs into the array: provided array of "
               "size 1, got 2 elements"));
    count = 3;
    ASSERT_EQ(ovexsdk_comp_get_info(&m_ctx, infos, &count), OVEXSDK_OK);
    EXPECT_STREQ(infos[1].name, "Ovexboard");
    EXPECT_STREQ(infos[1].version, "2.7.4");
}

}  // namespace
}  // namespace ovex::sdk
