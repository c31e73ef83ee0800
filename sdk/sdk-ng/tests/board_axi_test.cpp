// The legacy interface's access to the board's AXI-Lite bus: its refusals, and the numbers it
// gives for the accesses a virtual board answers or refuses.

#include <gtest/gtest.h>

#include <cstdint>
#include <memory>
#include <stdexcept>
#include <string>

#include "context.hpp"
#include "modules/axi_internal.hpp"
#include "ovex/vendor_cmd/vendor_command.hpp"
#include "support/board_session.hpp"
#include "support/fake_device.hpp"

namespace ovex::sdk {
namespace {

constexpr int kError = ovex::log::kError;
// The virtual board's id register (read-only) and its scratch register.
constexpr std::uint32_t kId = 0x40000000;
constexpr std::uint32_t kScratch = 0x40000004;

// A bus whose reads throw a standard exception and whose writes throw something else.
class ThrowingAxi final : public IAxiLite {
public:
    const char* GetName() const override { return "Throwing AXI"; }
    std::error_code Read(std::uint32_t, std::uint32_t&) override {
        throw std::runtime_error("bus gone");
    }
    std::error_code Write(std::uint32_t, std::uint32_t) override { throw 5; }
};

class AxiInternal : public testing::BoardSession {
protected:
    int Errors(const std::string& text) const { return m_log.Count(kError, text); }

    testing::DeviceScript m_script;
};

TEST_F(AxiInternal, RefusesBadArgumentsAndAContextWithoutDevice) {
    std::uint32_t value = 7;
    EXPECT_EQ(ovexsdk_axi_read(nullptr, kScratch, &value), OVEXSDK_ERR_INVALID);
    EXPECT_EQ(ovexsdk_axi_write(nullptr, kScratch, 1), OVEXSDK_ERR_INVALID);
    Create();
    // The pointer is refused before the device is looked for.
    EXPECT_EQ(ovexsdk_axi_read(&m_ctx, kScratch, nullptr), OVEXSDK_ERR_INVALID);
    EXPECT_EQ(Errors("Device is not initialized/open."), 0);

    EXPECT_EQ(ovexsdk_axi_read(&m_ctx, kScratch, &value), OVEXSDK_ERR_NO_DEVICE);
    EXPECT_EQ(ovexsdk_axi_write(&m_ctx, kScratch, 1), OVEXSDK_ERR_NO_DEVICE);
    EXPECT_EQ(Errors("Device is not initialized/open."), 2);
    EXPECT_EQ(value, 7u);
}

TEST_F(AxiInternal, MissingOrThrowingModuleFailsWithTheAccessOwnWords) {
    Create();
    auto& device = record::Get(&m_ctx).Device();
    device = std::make_unique<testing::FakeDevice>(m_script);
    std::uint32_t value = 7;
    EXPECT_EQ(ovexsdk_axi_read(&m_ctx, kScratch, &value), OVEXSDK_ERR_FAILED);
    EXPECT_EQ(ovexsdk_axi_write(&m_ctx, kScratch, 1), OVEXSDK_ERR_FAILED);
    EXPECT_EQ(Errors("Device doesn't have an AXILite module."), 2);

    device->AddModule<IAxiLite>(std::make_unique<ThrowingAxi>());
    EXPECT_EQ(ovexsdk_axi_read(&m_ctx, kScratch, &value), OVEXSDK_ERR_FAILED);
    EXPECT_EQ(Errors("AXI read call failed with an exception: bus gone."), 1);
    EXPECT_EQ(ovexsdk_axi_write(&m_ctx, kScratch, 1), OVEXSDK_ERR_FAILED);
    EXPECT_EQ(Errors("AXI write call failed with an unknown exception."), 1);
    // Caught by the functions themselves: the frame saw no exception.
    EXPECT_EQ(record::Get(&m_ctx).LastException(), "no error");
    EXPECT_EQ(value, 7u);
}

TEST_F(AxiInternal, WritesAndReadsTheBoardsRegistersWithZeroForSuccess) {
    ASSERT_EQ(AddAndOpen(), OVEXSDK_OK);
    EXPECT_EQ(ovexsdk_axi_write(&m_ctx, kScratch, 0xA5A50F0F), OVEXSDK_OK);
    std::uint32_t value = 0;
    EXPECT_EQ(ovexsdk_axi_read(&m_ctx, kScratch, &value), OVEXSDK_OK);
    EXPECT_EQ(value, 0xA5A50F0Fu);
    EXPECT_EQ(ovexsdk_axi_read(&m_ctx, kId, &value), OVEXSDK_OK);
    EXPECT_EQ(value, 0x4F565831u);
}

TEST_F(AxiInternal, RefusedAccessGivesItsCodePlus100WhateverItsCategory) {
    ASSERT_EQ(AddAndOpen(), OVEXSDK_OK);
    // Bus responses: a write to the read-only id is a slave error (2), an unmapped address a
    // decode error (3).
    EXPECT_EQ(ovexsdk_axi_write(&m_ctx, kId, 1), 102);
    EXPECT_EQ(Errors("Failed to write data to AXI - axi: slave error"), 1);
    std::uint32_t value = 7;
    EXPECT_EQ(ovexsdk_axi_read(&m_ctx, 0x10, &value), 103);
    EXPECT_EQ(Errors("Failed to read from AXI - axi: decode error"), 1);
    EXPECT_EQ(value, 7u);

    // The firmware's own refusal (0x4A) once; the next read goes through.
    Board().Firmware().StallNext(usb::vendor_cmd::request::kAxi);
    EXPECT_EQ(ovexsdk_axi_read(&m_ctx, kScratch, &value), 0x4A + 100);
    EXPECT_EQ(Errors("Failed to read from AXI - firmware: failure due to a non-specific system "
                     "error"),
              1);
    EXPECT_EQ(value, 7u);
    EXPECT_EQ(ovexsdk_axi_read(&m_ctx, kScratch, &value), OVEXSDK_OK);
    EXPECT_EQ(value, 0u);
}

}  // namespace
}  // namespace ovex::sdk
