// The exported interface as a host uses it: only the shared library and its header.

#include <gtest/gtest.h>

#include <atomic>
#include <string>

#include "ovexsdk.h"
#include "support/host_log.hpp"

namespace {

using ovex::sdk::testing::HostLog;
using ovex::sdk::testing::kMessageOnly;

class HostSession : public ::testing::Test {
protected:
    void Create(const char* locator) {
        ASSERT_EQ(ovexsdk_ctx_create(&m_ctx, locator), OVEXSDK_OK);
        ASSERT_EQ(ovexsdk_log_set_cb(&m_ctx, &HostLog::Callback, &kMessageOnly, &m_log),
                  OVEXSDK_OK);
    }
    // Release delivers every line queued before it; the log can be read safely afterwards.
    void Release() { ASSERT_EQ(ovexsdk_ctx_release(&m_ctx), OVEXSDK_OK); }

    ovexsdk_dev_ctx m_ctx{};
    HostLog m_log;
};

TEST(Version, IsZeroTenOne) {
    const ovexsdk_version* version = ovexsdk_version_get();
    ASSERT_NE(version, nullptr);
    EXPECT_EQ(version->major, 0);
    EXPECT_EQ(version->minor, 10);
    EXPECT_EQ(version->patch, 1);
}

TEST_F(HostSession, OpenWithoutBoardIsNoDeviceAndTheHostSeesWhy) {
    Create("usb:ix:0");
    EXPECT_EQ(ovexsdk_dev_open(&m_ctx), OVEXSDK_ERR_NO_DEVICE);
    bool open = true;
    EXPECT_EQ(ovexsdk_dev_is_open(&m_ctx, &open), OVEXSDK_OK);
    EXPECT_FALSE(open);
    EXPECT_EQ(ovexsdk_dev_close(&m_ctx), OVEXSDK_ERR_NO_DEVICE);
    Release();

    const auto invoking = m_log.IndexOf("Invoking SDK API 'ovexsdk_dev_open'.\n");
    const auto unavailable = m_log.IndexOf("USB device unavailable.\n");
    const auto invalid = m_log.IndexOf("Device pointer 'device' is invalid.\n");
    ASSERT_LT(unavailable, m_log.lines.size());
    EXPECT_LT(invoking, unavailable);
    EXPECT_LT(unavailable, invalid);
    EXPECT_TRUE(m_log.Has(OVEXSDK_LOG_ERROR, "USB device unavailable.\n"));
    EXPECT_TRUE(m_log.Has(OVEXSDK_LOG_DEBUG, "Invoking SDK API 'ovexsdk_dev_open'.\n"));
    EXPECT_TRUE(m_log.Has(OVEXSDK_LOG_INFO, "Logger terminated.\n"));
}

TEST_F(HostSession, IndexBeyondTheBoardsIsFoundMissingOnlyAtOpen) {
    Create("usb:ix:99");
    EXPECT_EQ(ovexsdk_dev_open(&m_ctx), OVEXSDK_ERR_NO_DEVICE);
    Release();
}

TEST_F(HostSession, ExceptionTextReachesTheHost) {
    Create("usb:ix:");
    EXPECT_EQ(ovexsdk_dev_open(&m_ctx), OVEXSDK_ERR_FAILED);
    EXPECT_EQ(ovexsdk_dev_open(&m_ctx), OVEXSDK_ERR_FAILED) << "the context still answers";
    Release();
    EXPECT_TRUE(m_log.Has(OVEXSDK_LOG_ERROR,
                          "SDK API call failed with an exception: invalid stoul argument.\n"));
}

TEST_F(HostSession, ReleaseDeliversEveryQueuedLine) {
    Create("usb:sn:ABCDEFGH");
    constexpr int kCalls = 3000;
    for (int i = 0; i < kCalls; ++i) {
        bool open = false;
        ovexsdk_dev_is_open(&m_ctx, &open);
    }
    Release();
    std::lock_guard lock(m_log.mutex);
    EXPECT_EQ(std::count_if(m_log.lines.begin(), m_log.lines.end(),
                            [](const auto& line) {
                                return line.second == "Invoking SDK API 'ovexsdk_dev_is_open'.\n";
                            }),
              kCalls);
    EXPECT_EQ(m_log.lines.back().second, "Logger terminated.\n");
}

TEST_F(HostSession, NullFormatIsRefused) {
    Create("usb:ix:0");
    EXPECT_EQ(ovexsdk_log_set_cb(&m_ctx, &HostLog::Callback, nullptr, &m_log), OVEXSDK_ERR_INVALID);
    Release();
    EXPECT_TRUE(m_log.Has(OVEXSDK_LOG_ERROR, "Parameter pointer 'format' is invalid.\n"));
}

// The callback releases its own context at its first line, and registers again while the host
// releases it, at the last line it gets.
TEST_F(HostSession, CallbackCanNeitherReleaseItsContextNorRegisterDuringTheRelease) {
    struct Intruder {
        ovexsdk_dev_ctx* ctx;
        std::atomic<int> release{1};
        std::atomic<int> registration{1};
        static void Callback(const char* text, ovexsdk_log_severity, void* param) {
            auto* self = static_cast<Intruder*>(param);
            if (self->release == 1) {
                self->release = ovexsdk_ctx_release(self->ctx);
            }
            if (std::string(text) == "Logger terminated.\n") {
                self->registration = ovexsdk_log_set_cb(self->ctx, &Callback, &kMessageOnly, self);
            }
        }
    } intruder{&m_ctx};
    Create("usb:ix:0");
    ASSERT_EQ(ovexsdk_log_set_cb(&m_ctx, &Intruder::Callback, &kMessageOnly, &intruder),
              OVEXSDK_OK);
    Release();
    EXPECT_EQ(intruder.release, OVEXSDK_ERR_BUSY);
    EXPECT_EQ(intruder.registration, OVEXSDK_ERR_INVALID);
}

TEST_F(HostSession, CreateOnALiveRecordIsRefusedAndTheContextLivesOn) {
    Create("usb:ix:0");
    EXPECT_EQ(ovexsdk_ctx_create(&m_ctx, "usb:ix:1"), OVEXSDK_ERR_BUSY);
    bool open = true;
    EXPECT_EQ(ovexsdk_dev_is_open(&m_ctx, &open), OVEXSDK_OK);
    Release();
    EXPECT_TRUE(m_log.Has(OVEXSDK_LOG_ERROR,
                          "Context record already holds a context; release it first.\n"));
    EXPECT_EQ(ovexsdk_ctx_create(&m_ctx, "usb:ix:1"), OVEXSDK_OK) << "a released record is free";
    Release();
}

TEST(Contexts, AreIndependent) {
    ovexsdk_dev_ctx a{};
    ovexsdk_dev_ctx b{};
    ASSERT_EQ(ovexsdk_ctx_create(&a, "usb:ix:0"), OVEXSDK_OK);
    ASSERT_EQ(ovexsdk_ctx_create(&b, "usb:ix:1"), OVEXSDK_OK);
    EXPECT_EQ(ovexsdk_ctx_release(&a), OVEXSDK_OK);
    bool open = true;
    EXPECT_EQ(ovexsdk_dev_is_open(&b, &open), OVEXSDK_OK);
    EXPECT_EQ(ovexsdk_ctx_release(&b), OVEXSDK_OK);
}

}  // namespace
