// What `ovex monitor` shows of readings that arrive from several threads at once.
#include <gtest/gtest.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <map>
#include <sstream>
#include <thread>
#include <vector>

#include "monitor_view.hpp"

namespace ovex::cli {
namespace {

// A FILE* whose text the test reads back.
class Capture {
public:
    Capture() : m_file(open_memstream(&m_buffer, &m_size)) {}
    ~Capture() {
        std::fclose(m_file);
        std::free(m_buffer);
    }
    std::FILE* File() { return m_file; }
    std::string Text() {
        std::fflush(m_file);
        return std::string(m_buffer, m_size);
    }

private:
    char* m_buffer = nullptr;
    std::size_t m_size = 0;
    std::FILE* m_file;
};

std::vector<MonitorDescription> TwoMonitors() {
    ovexsdk_mon_value zero{};
    ovexsdk_mon_value one{};
    one.i = 1;
    ovexsdk_mon_value top{};
    top.f = 125.0F;
    return {{"PG_5V", 1, zero, one}, {"TSENS_TEMP", 2, zero, top}};
}

ovexsdk_mon_value Float(float f) {
    ovexsdk_mon_value value{};
    value.f = f;
    return value;
}

ovexsdk_mon_value Int(int i) {
    ovexsdk_mon_value value{};
    value.i = i;
    return value;
}

TEST(MonitorView, EachReadingIsALineWithItsFlagsAndALostMonitorShowsADash) {
    Capture out;
    MonitorView view(TwoMonitors(), {}, out.File());
    view.OnValue(1, Float(26.5F), false, false, 7);
    view.OnValue(0, Int(1), true, false, 7);
    view.OnValue(1, Float(-3.25F), true, true, 8);
    view.OnAvailability(0, true, 9);
    view.OnAvailability(0, false, 9);
    view.Draw();
    EXPECT_EQ(out.Text(),
              "TSENS_TEMP 26.5 7\n"
              "PG_5V 1 7 warning\n"
              "TSENS_TEMP -3.25 8 warning error\n"
              "PG_5V - 9\n");
    EXPECT_FALSE(view.WaitForLimit(std::chrono::milliseconds(0)));
}

TEST(MonitorView, AMonitorShownWithinTheIntervalIsSkippedUnlessItIsLost) {
    Capture out;
    MonitorView view(TwoMonitors(), {.min_interval = std::chrono::hours(1)}, out.File());
    view.OnValue(0, Int(1), false, false, 1);
    view.OnValue(0, Int(0), false, false, 2);
    view.OnValue(1, Float(26), false, false, 2);
    view.OnAvailability(0, false, 3);
    EXPECT_EQ(out.Text(), "PG_5V 1 1\nTSENS_TEMP 26 2\nPG_5V - 3\n");
}

TEST(MonitorView, ManyThreadsShowExactlyTheLimitInWholeLinesAndWakeTheWaiter) {
    Capture out;
    constexpr std::uint64_t kLimit = 500;
    MonitorView view(TwoMonitors(), {.limit = kLimit}, out.File());
    std::vector<std::thread> tasks;
    for (int t = 0; t < 8; ++t) {
        tasks.emplace_back([&view, t] {
            for (std::uint32_t i = 0; i < 200; ++i) {
                if (i % 50 == 49) {
                    view.OnAvailability(t % 2, false, i);
                } else if (t % 2 == 0) {
                    view.OnValue(0, Int(t), false, false, i);
                } else {
                    view.OnValue(1, Float(static_cast<float>(t) + 0.5F), false, false, i);
                }
            }
        });
    }
    EXPECT_TRUE(view.WaitForLimit(std::chrono::hours(1)));
    for (std::thread& task : tasks) {
        task.join();
    }
    std::istringstream lines(out.Text());
    std::string line;
    std::uint64_t count = 0;
    while (std::getline(lines, line)) {
        ++count;
        std::istringstream words(line);
        std::string name;
        std::string value;
        std::uint32_t timestamp = 0;
        ASSERT_TRUE(words >> name >> value >> timestamp) << line;
        EXPECT_TRUE(name == "PG_5V" || name == "TSENS_TEMP") << line;
        EXPECT_TRUE(value == "-" || (name == "PG_5V" ? value.size() == 1 : value.ends_with(".5")))
            << line;
        EXPECT_FALSE(words >> value) << line;
    }
    EXPECT_EQ(count, kLimit);
}

TEST(MonitorView, TheTableIsDrawnOnlyWhenSomethingChangedAndShowsEveryMonitor) {
    Capture out;
    MonitorView view(TwoMonitors(), {.style = MonitorView::Style::kTable}, out.File());
    view.OnValue(1, Float(26.25F), false, true, 4);
    EXPECT_EQ(out.Text(), "");
    view.Draw();
    const std::string table = out.Text();
    EXPECT_TRUE(table.starts_with("\033[H\033[JMONITOR ")) << table;
    EXPECT_NE(table.find("\nPG_5V       -            0 .. 1                -          \n"),
              std::string::npos)
        << table;
    EXPECT_NE(table.find("\nTSENS_TEMP  26.25        0 .. 125              4          error\n"),
              std::string::npos)
        << table;
    EXPECT_TRUE(table.ends_with("\nreadings: 1; Ctrl-C ends\n")) << table;
    view.Draw();
    EXPECT_EQ(out.Text(), table);
}

}  // namespace
}  // namespace ovex::cli
