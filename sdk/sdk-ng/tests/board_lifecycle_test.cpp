// Open, power and close of a virtual board when things go wrong halfway: a log callback that
// asks while the host opens.

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

class BoardLifecycle : public testing::BoardSession {};

// The callback asks whenever the USB device is between its open and its endpoint table, once in
// inspection and once in the connection's open; the host's thread waits for each answer there.
TEST_F(BoardLifecycle, StatusQueryFromALogCallbackDuringOpenAnswersBusy) {
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
                const int answer = ovexsdk_dev_is_open(self->ctx, &open);
                std::lock_guard lock(self->mutex);
                self->answers.push_back(answer);
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
                asker.answered_cv.wait(lock, [&] { return asker.answers.size() == seen; });
            }
        });
        EXPECT_EQ(ovexsdk_dev_open(&m_ctx), OVEXSDK_OK);
    }
    EXPECT_EQ(asker.answers, (std::vector<int>{OVEXSDK_ERR_BUSY, OVEXSDK_ERR_BUSY}));
    bool open = false;
    EXPECT_EQ(ovexsdk_dev_is_open(&m_ctx, &open), OVEXSDK_OK);
    EXPECT_TRUE(open);
    Release();
    EXPECT_EQ(HostLines("Context is busy with another call; the call from a log callback is "
                        "refused."),
              2u);
}

}  // namespace
}  // namespace ovex::sdk
