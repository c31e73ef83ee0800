#include <gtest/gtest.h>

#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "ovex/log/log.hpp"
#include "ovex/log/sink.hpp"

namespace {

struct Captured {
    int verbosity;
    std::string preamble;
    std::string prefix;
    std::string message;
};

class CapturingSink final : public ovex::log::Sink {
public:
    void Receive(const ovex::log::Line& line) override {
        std::lock_guard lock(m_mutex);
        m_lines.push_back({line.verbosity, std::string(line.preamble), std::string(line.prefix),
                           std::string(line.message)});
    }
    std::vector<Captured> Lines() {
        std::lock_guard lock(m_mutex);
        return m_lines;
    }

private:
    std::mutex m_mutex;
    std::vector<Captured> m_lines;
};

class LogTest : public ::testing::Test {
protected:
    void TearDown() override {
        if (m_sink) {
            ovex::log::RemoveSink(m_sink);
        }
    }
    std::shared_ptr<CapturingSink> Attach(int verbosity) {
        m_sink = std::make_shared<CapturingSink>();
        ovex::log::AddSink(m_sink, verbosity);
        return m_sink;
    }
    std::shared_ptr<CapturingSink> m_sink;
};

int g_evaluations = 0;
const char* Counted(const char* text) {
    ++g_evaluations;
    return text;
}

TEST_F(LogTest, CutoffFollowsTheSinksAndStderr) {
    const int before = ovex::log::Cutoff();
    EXPECT_EQ(before, ovex::log::StderrVerbosity());
    auto sink = Attach(ovex::log::kDebug);
    EXPECT_EQ(ovex::log::Cutoff(), ovex::log::kDebug);
    ovex::log::RemoveSink(sink);
    m_sink.reset();
    EXPECT_EQ(ovex::log::Cutoff(), before);
}

TEST_F(LogTest, ArgumentsAreNotEvaluatedBelowTheCutoff) {
    Attach(ovex::log::kInfo);
    g_evaluations = 0;
    OVEX_LOG_DEBUG("never formed %s", Counted("x"));
    EXPECT_EQ(g_evaluations, 0);
    OVEX_LOG_INFO("formed %s", Counted("y"));
    EXPECT_EQ(g_evaluations, 1);
    const auto lines = m_sink->Lines();
    ASSERT_EQ(lines.size(), 1u);
    EXPECT_EQ(lines[0].message, "formed y");
}

TEST_F(LogTest, LinesCarryVerbosityPreambleAndPrintfText) {
    Attach(ovex::log::kDebug);
    ovex::log::SetThreadName("LogTestThread");
    OVEX_LOG_ERROR("Value '%d' is not a valid chip ID.", 7);
    OVEX_LOG(5, "odd verbosity %zu", std::size_t{3});
    const auto lines = m_sink->Lines();
    ASSERT_EQ(lines.size(), 2u);
    EXPECT_EQ(lines[0].verbosity, ovex::log::kError);
    EXPECT_EQ(lines[0].message, "Value '7' is not a valid chip ID.");
    EXPECT_NE(lines[0].preamble.find("[LogTestThread"), std::string::npos) << lines[0].preamble;
    EXPECT_NE(lines[0].preamble.find("log_test.cpp:"), std::string::npos) << lines[0].preamble;
    EXPECT_NE(lines[0].preamble.find(" ERR| "), std::string::npos) << lines[0].preamble;
    EXPECT_EQ(lines[1].verbosity, 5);
    EXPECT_NE(lines[1].preamble.find("UNKN| "), std::string::npos) << lines[1].preamble;
}

TEST_F(LogTest, LongMessagesAreNotCut) {
    Attach(ovex::log::kInfo);
    const std::string text(2000, 'a');
    OVEX_LOG_INFO("%s|", text.c_str());
    const auto lines = m_sink->Lines();
    ASSERT_EQ(lines.size(), 1u);
    EXPECT_EQ(lines[0].message, text + "|");
}

TEST(LogDeathTest, FailedCheckPrintsPrefixAndMessageThenAborts) {
    EXPECT_DEATH(OVEX_CHECK(1 + 1 == 3, "BUG: %s is broken.", "arithmetic"),
                 "CHECK FAILED:  1 \\+ 1 == 3  BUG: arithmetic is broken\\.");
}

TEST(LogSeverityNames, MatchTheFiveLevels) {
    EXPECT_EQ(ovex::log::SeverityName(-3), "CRIT");
    EXPECT_EQ(ovex::log::SeverityName(-2), "ERR");
    EXPECT_EQ(ovex::log::SeverityName(-1), "WARN");
    EXPECT_EQ(ovex::log::SeverityName(0), "INFO");
    EXPECT_EQ(ovex::log::SeverityName(9), "DBG");
    EXPECT_EQ(ovex::log::SeverityName(3), "UNKN");
}

}  // namespace
