#include <gtest/gtest.h>

#include <sched.h>
#include <sys/mman.h>
#include <sys/resource.h>

#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <future>
#include <stdexcept>
#include <vector>

#include "log_capture.hpp"
#include "thread_mgmt/thread_mgmt.hpp"
#include "thread_mgmt/utils.hpp"

namespace ovex::thread {
namespace {

// Runs a function on a fresh thread, so that priority and affinity changes stay there.
template <typename F>
auto OnFreshThread(F function) {
    std::packaged_task<decltype(function())()> task(function);
    auto result = task.get_future();
    WrappedThread<> thread([&task](std::stop_token) { task(); });
    thread.Join();
    return result.get();
}

int NiceOfCallingThread() {
    errno = 0;
    return ::getpriority(PRIO_PROCESS, static_cast<id_t>(CurrentThread().tid));
}

std::size_t ProcessCpuCount() {
    cpu_set_t set;
    CPU_ZERO(&set);
    EXPECT_EQ(::sched_getaffinity(0, sizeof(set), &set), 0);
    return static_cast<std::size_t>(CPU_COUNT(&set));
}

TEST(ThreadPriority, LowerLevelsMapToNiceValuesAndBottomLevelToFifteen) {
    // Lowering a thread's priority needs no privilege, so the levels are walked downwards.
    const auto nices = OnFreshThread([] {
        std::vector<std::pair<int, int>> seen;
        for (const int level : {-1, -2, -3}) {
            EXPECT_FALSE(SetPriority(level));
            seen.emplace_back(NiceOfCallingThread(), static_cast<std::int8_t>(GetPriority()));
        }
        return seen;
    });
    const std::vector<std::pair<int, int>> expected = {{1, -1}, {2, -2}, {15, -3}};
    EXPECT_EQ(nices, expected);
}

TEST(ThreadPriority, TopLevelAsksForNiceMinusFifteenOrReportsTheRefusal) {
    testing::LogCapture log;
    const auto [error, nice] = OnFreshThread([] {
        const auto result = SetPriority(3);
        return std::pair{result, NiceOfCallingThread()};
    });
    if (error) {
        // Without the privilege to raise priority the system refuses, and says why.
        EXPECT_EQ(error.category(), std::system_category());
        EXPECT_EQ(nice, 0);
        EXPECT_EQ(log.StartingWith("Failed to set thread priority: ").size(), 1u);
    } else {
        EXPECT_EQ(nice, -15);
    }
}

TEST(ThreadPriority, NiceValueOffTheScaleReads129) {
    const auto level = OnFreshThread([] {
        EXPECT_EQ(::setpriority(PRIO_PROCESS, static_cast<id_t>(CurrentThread().tid), 3), 0);
        return GetPriority();
    });
    EXPECT_EQ(level, kPriorityOffScale);
}

TEST(ThreadPriority, LevelOutsideTheScaleThrows) {
    try {
        (void)SetPriority(4);
        FAIL() << "level 4 accepted";
    } catch (const std::out_of_range& error) {
        EXPECT_STREQ(error.what(), "invalid array<T, N> subscript");
    }
    EXPECT_THROW((void)SetPriority(-4), std::out_of_range);
}

TEST(ThreadAffinity, MoreIndicesThanCpusAreRefused) {
    testing::LogCapture log;
    const std::size_t cpus = ProcessCpuCount();
    const std::vector<std::uint16_t> indices(cpus + 1, 0);
    EXPECT_EQ(SetAffinity(indices), std::make_error_code(std::errc::invalid_argument));
    const std::string expected =
        "Invalid number of CPU sets: " + std::to_string(cpus + 1) + " > " + std::to_string(cpus);
    EXPECT_TRUE(log.Contains(log::kError, expected));
}

TEST(ThreadAffinity, IndexPicksTheCpuFromTheProcessListAndHugeIndexThrows) {
    testing::LogCapture log;
    const auto [error, count, first] = OnFreshThread([] {
        const std::uint16_t index = 0;
        const auto result = SetAffinity(std::span(&index, 1));
        cpu_set_t set;
        CPU_ZERO(&set);
        EXPECT_EQ(::sched_getaffinity(0, sizeof(set), &set), 0);
        int cpu = 0;
        while (!CPU_ISSET(cpu, &set)) {
            ++cpu;
        }
        return std::tuple{result, CPU_COUNT(&set), cpu};
    });
    EXPECT_FALSE(error);
    EXPECT_EQ(count, 1);
    EXPECT_EQ(log.StartingWith("Selected CPU set for TID ").size(), 1u);
    char expected[32];
    std::snprintf(expected, sizeof(expected), " is [0x%x].", static_cast<unsigned>(first));
    EXPECT_NE(log.StartingWith("Selected CPU set for TID ")[0].message.find(expected),
              std::string::npos);

    const std::uint16_t huge = 512;
    EXPECT_THROW((void)SetAffinity(std::span(&huge, 1)), std::out_of_range);
}

TEST(ThreadMemory, SizeTextUsesTheLargestUnitNotAboveTheSize) {
    EXPECT_EQ(SizeText(0), "0B");
    EXPECT_EQ(SizeText(1023), "1023B");
    EXPECT_EQ(SizeText(1024), "1KiB");
    EXPECT_EQ(SizeText(1536), "1.5KiB");
    EXPECT_EQ(SizeText(983040), "960KiB");
    EXPECT_EQ(SizeText(3ull << 29), "1.5GiB");
    EXPECT_EQ(SizeText(5ull << 40), "5TiB");
}

TEST(ThreadMemory, LockAndUnlockAPageAndUnlockOfAnUnlockedBlockSucceeds) {
    testing::LogCapture log;
    const std::size_t page = PageSize();
    void* block =
        ::mmap(nullptr, 2 * page, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    ASSERT_NE(block, MAP_FAILED);
    EXPECT_FALSE(LockMemory(block, page));
    EXPECT_FALSE(UnlockMemory(block, page));
    EXPECT_FALSE(UnlockMemory(static_cast<char*>(block) + page, page));
    EXPECT_EQ(log.StartingWith("Locked 4096 bytes (4KiB) at 0x").size(), page == 4096 ? 1u : 0u);
    EXPECT_EQ(log.StartingWith("Unlocked ").size(), 2u);
    ::munmap(block, 2 * page);
}

TEST(ThreadScheduling, NormalSchedulingIsAlwaysAllowed) {
    testing::LogCapture log;
    EXPECT_FALSE(SetRealtimeScheduling(false));
    EXPECT_EQ(log.StartingWith("Process PID ").size(), 1u);
    EXPECT_NE(log.StartingWith("Process PID ")[0].message.find("switched to normal scheduling."),
              std::string::npos);
}

}  // namespace
}  // namespace ovex::thread
