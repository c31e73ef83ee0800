#include <gtest/gtest.h>

#include <pthread.h>

#include <chrono>
#include <future>
#include <latch>
#include <stop_token>
#include <string>

#include "log_capture.hpp"
#include "thread_mgmt/thread_mgmt.hpp"

namespace ovex::thread {
namespace {

using namespace std::chrono_literals;

// A body that runs until it is asked to stop.
void RunUntilStopped(std::stop_token token, std::latch* started) {
    started->count_down();
    std::mutex mutex;
    std::condition_variable_any wake;
    std::unique_lock lock(mutex);
    wake.wait(lock, token, [] { return false; });
}

std::string NameOf(pthread_t thread) {
    char name[32] = {};
    EXPECT_EQ(::pthread_getname_np(thread, name, sizeof(name)), 0);
    return name;
}

TEST(WrappedThread, JoinForOnThreadNeverStartedOrAlreadyJoinedIsTrueAtOnce) {
    WrappedThread<> never;
    EXPECT_TRUE(never.JoinFor(0ms));
    EXPECT_FALSE(never.Joinable());

    WrappedThread<> joined([](std::stop_token) {});
    joined.Join();
    EXPECT_FALSE(joined.Joinable());
    EXPECT_TRUE(joined.JoinFor(0ms));
}

TEST(WrappedThread, JoinForZeroOnRunningThreadKeepsItJoinable) {
    std::latch started(1);
    WrappedThread<> thread(RunUntilStopped, &started);
    started.wait();
    EXPECT_FALSE(thread.JoinFor(0ms));
    EXPECT_FALSE(thread.JoinFor(-5ms));
    EXPECT_TRUE(thread.Joinable());

    EXPECT_TRUE(thread.RequestStop());
    // The largest wait must neither overflow into the past nor return before the thread ends.
    EXPECT_TRUE(thread.JoinFor(std::chrono::milliseconds::max()));
    EXPECT_FALSE(thread.Joinable());
}

TEST(WrappedThread, BodyGetsItsArgumentsAndItsResultIsJoined) {
    std::promise<int> result;
    auto future = result.get_future();
    WrappedThread<> thread(
        [](std::stop_token, int a, int b, std::promise<int>* out) { out->set_value(a * b); }, 6, 7,
        &result);
    EXPECT_EQ(future.get(), 42);
    EXPECT_TRUE(thread.JoinFor(std::chrono::hours(1)));
}

TEST(WrappedThread, NameIsAppliedAndCutToTheKernelLimit) {
    std::latch started(2);
    ThreadParams params;
    params.name = "Consumer";
    WrappedThread<> consumer(params, RunUntilStopped, &started);
    params.name = "Endpoint 0x81 and more";
    WrappedThread<> endpoint(params, RunUntilStopped, &started);
    started.wait();
    EXPECT_EQ(NameOf(consumer.Handle().thread), "Consumer");
    EXPECT_EQ(NameOf(endpoint.Handle().thread), "Endpoint 0x81 a");
    consumer.RequestStop();
    endpoint.RequestStop();
    EXPECT_TRUE(consumer.JoinFor(std::chrono::hours(1)));
    EXPECT_TRUE(endpoint.JoinFor(std::chrono::hours(1)));
}

TEST(WrappedThread, DestructorOfRunningThreadReportsTheBugThenStopsAndJoins) {
    testing::LogCapture log;
    std::latch started(1);
    {
        WrappedThread<> thread(RunUntilStopped, &started);
        started.wait();
    }
    EXPECT_TRUE(log.Contains(
        log::kError, "BUG: Thread should not be joinable, but it is. Destructor will block."));
}

TEST(WrappedThread, MoveAssignmentStopsAndJoinsTheThreadItReplaces) {
    std::latch started(1);
    WrappedThread<> first(RunUntilStopped, &started);
    started.wait();
    WrappedThread<> second([](std::stop_token) {});
    first = std::move(second);  // must end the running body, not leak or terminate
    EXPECT_TRUE(first.JoinFor(std::chrono::hours(1)));
}

}  // namespace
}  // namespace ovex::thread
