// Open, power and close of a virtual board when things go wrong halfway: items that don't load,
// a board that leaves the bus during power-up, a log callback that asks while the host opens.

#include <gtest/gtest.h>

#include <condition_variable>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "ovex/log/sink.hpp"
#include "support/board_session.hpp"

namespace ovex::sdk {
namespace {

constexpr std::uint8_t kMonitorRequest = 0x05;
constexpr std::uint16_t kCount = 0;

// Runs an action on the thread that logs, for each line logged while it lives.
class OnLine {
public:
    explicit OnLine(std::function<void(std::string_view)> action)
        : m_sink(std::make_shared<Sink>(std::move(action))) {
        ovex::log::AddSink(m_sink, ovex::log::kDebug);
    }
    ~OnLine() { ovex::log::RemoveSink(m_sink); }
    OnLine(const OnLine&) = delete;
    OnLine& operator=(const OnLine&) = delete;

private:
    struct Sink final : ovex::log::Sink {
        explicit Sink(std::function<void(std::string_view)> a) : action(std::move(a)) {}
        void Receive(const ovex::log::Line& line) override { action(line.message); }
        std::function<void(std::string_view)> action;
    };
    std::shared_ptr<Sink> m_sink;
};

class BoardLifecycle : public testing::BoardSession {
protected:
    std::vector<std::string> HostLinesStartingWith(const std::string& start) {
        std::lock_guard lock(m_host_log.mutex);
        std::vector<std::string> found;
        for (const auto& line : m_host_log.lines) {
            if (line.second.rfind(start, 0) == 0) {
                found.push_back(line.second);
            }
        }
        return found;
    }
};

TEST_F(BoardLifecycle, DeviceWhoseItemsDidNotLoadIsKeptAndAnswersTruly) {
    AddBoard();
    Board().Firmware().StallNext({kMonitorRequest, kCount, std::nullopt});
    Create();
    ASSERT_EQ(ovexsdk_dev_open(&m_ctx), OVEXSDK_ERR_FAILED);
    EXPECT_EQ(ovexsdk_dev_power_up(&m_ctx), OVEXSDK_ERR_FAILED);
    EXPECT_EQ(ovexsdk_dev_power_down(&m_ctx), OVEXSDK_ERR_FAILED);
    EXPECT_EQ(ovexsdk_dev_close(&m_ctx), OVEXSDK_ERR_FAILED);
    bool open = false;
    EXPECT_EQ(ovexsdk_dev_is_open(&m_ctx, &open), OVEXSDK_OK);
    EXPECT_TRUE(open) << "the device stays, connected";
    Release();
    const std::vector<std::string> expected{
        "Failed to load device items: - generic: Input/output error.",
        "Device does not have a power control module.",
        "Device does not have a power control module.",
        "Async monitors unavailable, skipping attempt to stop them.",
        "Device epilogue failed: - generic: Invalid argument.",
    };
    EXPECT_EQ(InOrder(expected), expected);
    EXPECT_EQ(HostLines("Device is already fully powered up."), 0u);
    EXPECT_EQ(HostLines("Device is already fully powered down."), 0u);
}

TEST_F(BoardLifecycle, BoardThatLeavesTheBusDuringPowerUpIsReportedGone) {
    ASSERT_EQ(AddAndOpen(), OVEXSDK_OK);
    {
        // The backend's script reads a state next, which raises an error in the script.
        OnLine unplug([this](std::string_view message) {
            if (message == "USB cable mux initialization: OK") {
                Board().Usb().Unplug();
            }
        });
        EXPECT_EQ(ovexsdk_dev_power_up(&m_ctx), OVEXSDK_ERR_FAILED);
    }
    bool powered = true;
    EXPECT_EQ(ovexsdk_dev_is_unit_powered(&m_ctx, 0, &powered), OVEXSDK_ERR_FAILED);
    bool open = true;
    EXPECT_EQ(ovexsdk_dev_is_open(&m_ctx, &open), OVEXSDK_OK);
    EXPECT_FALSE(open);
    Release();
    EXPECT_EQ(HostLinesStartingWith("BUG: "), std::vector<std::string>{});
    const std::vector<std::string> expected{
        "Failed to power up unit: 0 ('backend'): - generic: No such device.",
        "Failed to read status of unit 0 ('backend'): - generic: No such device.",
    };
    EXPECT_EQ(InOrder(expected), expected);
    EXPECT_EQ(HostLinesStartingWith("Power module 'backend': the device is disconnected; ").size(),
              2u);
}

// The callback asks whenever the USB device is between its open and its endpoint table, once in
// inspection and once in the connection's open; the host's thread waits for each answer there.
TEST_F(BoardLifecycle, StatusQueryAndScriptFromALogCallbackDuringOpenAnswerBusy) {
    static constexpr std::string_view kHalfOpen =
        "Processing configuration 'Application' for device '1.1.2'.";
    struct Asker {
        ovexsdk_dev_ctx* ctx = nullptr;
        testing::HostLog* log = nullptr;
        std::mutex mutex;
        std::condition_variable answered_cv;
        std::vector<int> answers;
        static void Callback(const char* text, ovexsdk_log_severity severity, void* param) {
            auto* self = static_cast<Asker*>(param);
            testing::HostLog::Callback(text, severity, self->log);
            if (std::string_view(text) == std::string(kHalfOpen) + "\n") {
                bool open = false;
                const int status = ovexsdk_dev_is_open(self->ctx, &open);
                const int script = ovexsdk_script_execute(self->ctx, "return device ~= nil");
                std::lock_guard lock(self->mutex);
                self->answers.push_back(status);
                self->answers.push_back(script);
                self->answered_cv.notify_all();
            }
        }
    } asker;
    asker.ctx = &m_ctx;
    asker.log = &m_host_log;
    AddBoard();
    Create();
    ASSERT_EQ(ovexsdk_log_set_cb(&m_ctx, &Asker::Callback, &testing::kMessageOnly, &asker),
              OVEXSDK_OK);
    const auto host = std::this_thread::get_id();
    std::size_t seen = 0;
    {
        OnLine wait_for_answer([&](std::string_view message) {
            if (message == kHalfOpen && std::this_thread::get_id() == host) {
                std::unique_lock lock(asker.mutex);
                ++seen;
                asker.answered_cv.wait(lock, [&] { return asker.answers.size() == 2 * seen; });
            }
        });
        EXPECT_EQ(ovexsdk_dev_open(&m_ctx), OVEXSDK_OK);
    }
    EXPECT_EQ(asker.answers, std::vector<int>(4, OVEXSDK_ERR_BUSY));
    bool open = false;
    EXPECT_EQ(ovexsdk_dev_is_open(&m_ctx, &open), OVEXSDK_OK);
    EXPECT_TRUE(open);
    Release();
    EXPECT_EQ(HostLines("Context is busy with another call; the call from a callback is refused."),
              4u);
}

}  // namespace
}  // namespace ovex::sdk
