// The per-context logger: delivery order, formats, registration, and many producers.

#include <gtest/gtest.h>

#include <atomic>
#include <barrier>
#include <condition_variable>
#include <cstdio>
#include <cstring>
#include <latch>
#include <latch>
#include <mutex>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "ovex/log/log.hpp"
#include "ovex/log/sink.hpp"
#include "ovexsdk.h"
#include "sdk_logger.hpp"

namespace ovex::sdk::testing {
namespace {

struct Received {
    std::string text;
    ovexsdk_log_severity severity;
};

// Collects what a callback receives; the logger calls it from its own thread.
struct Collector {
    std::mutex mutex;
    std::vector<Received> lines;

    static void Callback(const char* text, ovexsdk_log_severity severity, void* param) {
        auto* self = static_cast<Collector*>(param);
        std::lock_guard lock(self->mutex);
        self->lines.push_back({text, severity});
    }

    std::vector<std::string> TextsContaining(const std::string& needle) {
        std::lock_guard lock(mutex);
        std::vector<std::string> result;
        for (const auto& line : lines) {
            if (line.text.find(needle) != std::string::npos) {
                result.push_back(line.text);
            }
        }
        return result;
    }
};

constexpr ovexsdk_log_fmt kMessageOnly{false, false, false, true};

TEST(Logger, FormatsSelectThePartsOfTheLine) {
    Collector all;
    Collector message_only;
    Collector nothing;
    {
        Logger logger(512);
        logger.SetCallback(&Collector::Callback, &all, {true, true, true, true});
        OVEX_LOG_WARN("probe %d", 1);
        logger.SetCallback(&Collector::Callback, &message_only, kMessageOnly);
        OVEX_LOG_WARN("probe %d", 2);
        logger.SetCallback(&Collector::Callback, &nothing, {false, false, false, false});
        OVEX_LOG_WARN("probe %d", 3);
    }
    const auto first = all.TextsContaining("probe 1");
    ASSERT_EQ(first.size(), 1u);
    EXPECT_NE(first[0].find("WARN| probe 1\n"), std::string::npos) << first[0];
    EXPECT_EQ(message_only.TextsContaining("probe"), (std::vector<std::string>{"probe 2\n"}));
    std::lock_guard lock(nothing.mutex);
    ASSERT_FALSE(nothing.lines.empty());
    for (const auto& line : nothing.lines) {
        EXPECT_EQ(line.text, "\n");
    }
}

TEST(Logger, SeveritiesPassThroughAndOthersBecomeDebug) {
    Collector collector;
    {
        Logger logger(512);
        logger.SetCallback(&Collector::Callback, &collector, kMessageOnly);
        OVEX_LOG(-3, "sev");
        OVEX_LOG(-2, "sev");
        OVEX_LOG(-1, "sev");
        OVEX_LOG(0, "sev");
        OVEX_LOG(4, "sev");
        OVEX_LOG(9, "sev");
    }
    std::vector<int> severities;
    for (const auto& line : collector.lines) {
        if (line.text == "sev\n") {
            severities.push_back(line.severity);
        }
    }
    EXPECT_EQ(severities, (std::vector<int>{-3, -2, -1, 0, 9, 9}));
}

// A registration takes effect after the lines queued before it, even while the old callback is
// still busy with the first of them.
TEST(Logger, RegistrationAppliesAfterTheLinesAlreadyQueued) {
    struct Blocking {
        std::mutex mutex;
        std::condition_variable released_cv;
        bool released = false;
        Collector collector;
        static void Callback(const char* text, ovexsdk_log_severity severity, void* param) {
            auto* self = static_cast<Blocking*>(param);
            std::unique_lock lock(self->mutex);
            self->released_cv.wait(lock, [self] { return self->released; });
            lock.unlock();
            Collector::Callback(text, severity, &self->collector);
        }
    } old_callback;
    Collector new_callback;
    {
        Logger logger(512);
        logger.SetCallback(&Blocking::Callback, &old_callback, kMessageOnly);
        for (int i = 0; i < 5; ++i) {
            OVEX_LOG_INFO("queued %d", i);
        }
        logger.SetCallback(&Collector::Callback, &new_callback, kMessageOnly);
        OVEX_LOG_INFO("after %d", 0);
        {
            std::lock_guard lock(old_callback.mutex);
            old_callback.released = true;
        }
        old_callback.released_cv.notify_all();
    }
    EXPECT_EQ(old_callback.collector.TextsContaining("queued").size(), 5u);
    EXPECT_TRUE(old_callback.collector.TextsContaining("after").empty());
    EXPECT_EQ(new_callback.TextsContaining("after"), (std::vector<std::string>{"after 0\n"}));
    EXPECT_TRUE(new_callback.TextsContaining("queued").empty());
    EXPECT_EQ(new_callback.TextsContaining("User registered callback - function: ").size(), 1u);
}

// Lines logged from inside the callback (on the logger's own thread) must neither deadlock on a
// full queue nor be lost.
TEST(Logger, CallbackThatLogsWhileTheQueueIsFull) {
    struct Echo {
        Collector collector;
        static void Callback(const char* text, ovexsdk_log_severity severity, void* param) {
            auto* self = static_cast<Echo*>(param);
            if (std::string_view(text).starts_with("burst")) {
                OVEX_LOG_INFO("echo of %.*s", static_cast<int>(std::strlen(text) - 1), text);
            }
            Collector::Callback(text, severity, &self->collector);
        }
    } echo;
    constexpr int kLines = 2000;
    {
        Logger logger(8);
        logger.SetCallback(&Echo::Callback, &echo, kMessageOnly);
        for (int i = 0; i < kLines; ++i) {
            OVEX_LOG_INFO("burst %d", i);
        }
    }
    const auto echoes = echo.collector.TextsContaining("echo of burst");
    ASSERT_EQ(echoes.size(), static_cast<std::size_t>(kLines));
    EXPECT_EQ(echoes.front(), "echo of burst 0\n");
    EXPECT_EQ(echoes.back(), "echo of burst 1999\n");
}

TEST(Logger, ManyProducersLoseNothingAndKeepEachThreadsOrder) {
    constexpr int kThreads = 4;
    constexpr int kLinesPerThread = 1500;
    Collector collector;
    {
        Logger logger(16);
        logger.SetCallback(&Collector::Callback, &collector, kMessageOnly);
        std::vector<std::thread> producers;
        for (int t = 0; t < kThreads; ++t) {
            producers.emplace_back([t] {
                for (int i = 0; i < kLinesPerThread; ++i) {
                    OVEX_LOG_INFO("producer %d line %d", t, i);
                }
            });
        }
        for (int i = 0; i < 50; ++i) {
            logger.SetCallback(&Collector::Callback, &collector, kMessageOnly);
        }
        for (auto& producer : producers) {
            producer.join();
        }
    }
    std::vector<int> next(kThreads, 0);
    int total = 0;
    for (const auto& line : collector.lines) {
        int t = 0;
        int i = 0;
        if (std::sscanf(line.text.c_str(), "producer %d line %d", &t, &i) == 2) {
            ASSERT_EQ(i, next[t]) << "thread " << t << " out of order";
            ++next[t];
            ++total;
        }
    }
    EXPECT_EQ(total, kThreads * kLinesPerThread);
}

// Each logger's thread logs into both queues while the other is busy in its callback too: a
// logger thread that waited for room in the other's full queue would wait for ever. The loggers
// end only once both callbacks have logged everything, since lines logged into a logger that is
// being released are dropped.
TEST(Logger, LoggerThreadsNeverWaitForEachOthersQueues) {
    constexpr int kLines = 100;  // more than a queue holds
    std::barrier both_in_callbacks(2);
    std::latch both_logged(2);
    struct Busy {
        std::barrier<>* both;
        std::latch* logged;
        Collector collector;
        bool called = false;  // the logger thread's only
        static void Callback(const char* text, ovexsdk_log_severity severity, void* param) {
            auto* self = static_cast<Busy*>(param);
            if (!std::exchange(self->called, true)) {
                self->both->arrive_and_wait();
                for (int i = 0; i < kLines; ++i) {
                    OVEX_LOG_INFO("from a callback %d", i);
                }
                self->logged->count_down();
            }
            Collector::Callback(text, severity, &self->collector);
        }
    };
    Busy a{&both_in_callbacks, &both_logged, {}};
    Busy b{&both_in_callbacks, &both_logged, {}};
    {
        Logger first(16);
        Logger second(16);
        first.SetCallback(&Busy::Callback, &a, kMessageOnly);
        second.SetCallback(&Busy::Callback, &b, kMessageOnly);
        both_logged.wait();
    }
    EXPECT_EQ(a.collector.TextsContaining("from a callback").size(), 2u * kLines);
    EXPECT_EQ(b.collector.TextsContaining("from a callback").size(), 2u * kLines);
}

// A library call made by the callback may wait for other threads. While it runs, nobody waits
// for room in the queue that the callback's thread empties: here the call waits (in a sink on
// the logger thread) for a thread that logs more lines than the queue holds.
TEST(Logger, NoProducerWaitsForALoggerWhoseCallbackIsInALibraryCall) {
    struct Gate final : ovex::log::Sink {
        std::mutex mutex;
        std::condition_variable flooded_cv;
        bool flooded = false;
        void Receive(const ovex::log::Line& line) override {
            if (line.message == "Invoking SDK API 'ovexsdk_dev_is_open'.") {
                std::unique_lock lock(mutex);
                flooded_cv.wait(lock, [this] { return flooded; });
            }
        }
    };
    struct Caller {
        ovexsdk_dev_ctx ctx{};
        Collector collector;
        static void Callback(const char* text, ovexsdk_log_severity severity, void* param) {
            auto* self = static_cast<Caller*>(param);
            if (std::string_view(text) == "go\n") {
                bool open = true;
                ovexsdk_dev_is_open(&self->ctx, &open);
            }
            Collector::Callback(text, severity, &self->collector);
        }
    } caller;
    constexpr int kLines = 2000;
    const auto gate = std::make_shared<Gate>();
    ovex::log::AddSink(gate, ovex::log::kDebug);
    ASSERT_EQ(ovexsdk_ctx_create(&caller.ctx, "usb:ix:0"), OVEXSDK_OK);
    ASSERT_EQ(ovexsdk_log_set_cb(&caller.ctx, &Caller::Callback, &kMessageOnly, &caller),
              OVEXSDK_OK);
    OVEX_LOG_INFO("go");
    std::thread flood([&gate] {
        for (int i = 0; i < kLines; ++i) {
            OVEX_LOG_INFO("flood %d", i);
        }
        std::lock_guard lock(gate->mutex);
        gate->flooded = true;
        gate->flooded_cv.notify_all();
    });
    flood.join();
    EXPECT_EQ(ovexsdk_ctx_release(&caller.ctx), OVEXSDK_OK);
    ovex::log::RemoveSink(gate);
    EXPECT_EQ(caller.collector.TextsContaining("flood").size(), static_cast<std::size_t>(kLines));
}

TEST(Logger, NullCallbackDropsLinesAndKeepsRunning) {
    Collector collector;
    {
        Logger logger(512);
        logger.SetCallback(nullptr, nullptr, kMessageOnly);
        OVEX_LOG_INFO("dropped");
        logger.SetCallback(&Collector::Callback, &collector, kMessageOnly);
        OVEX_LOG_INFO("kept");
    }
    EXPECT_TRUE(collector.TextsContaining("dropped").empty());
    EXPECT_EQ(collector.TextsContaining("kept"), (std::vector<std::string>{"kept\n"}));
    EXPECT_EQ(collector.TextsContaining("Logger terminated.").size(), 1u);
}

TEST(Logger, StderrGetsWarningsBackWhenTheLastLoggerEnds) {
    EXPECT_EQ(ovex::log::StderrVerbosity(), ovex::log::kWarning);
    {
        Logger first(512);
        Logger second(512);
    }
    EXPECT_EQ(ovex::log::StderrVerbosity(), ovex::log::kWarning);
    EXPECT_EQ(ovex::log::Cutoff(), ovex::log::kWarning);
}

}  // namespace
}  // namespace ovex::sdk::testing
