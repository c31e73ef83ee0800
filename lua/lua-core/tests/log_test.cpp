#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <memory>
#include <mutex>
#include <stdexcept>
#include <string>
#include <vector>

#include "core_fixture.hpp"
#include "ovex/log/log.hpp"
#include "ovex/log/sink.hpp"
#include "ovex/lua/bind/function.hpp"

namespace ovex::lua::core {
namespace {

using ::testing::HasSubstr;

struct Captured {
    int verbosity;
    std::string preamble;
    std::string message;
};

// Keeps the preamble too: it shows the source place of each line.
class CapturingSink final : public log::Sink {
public:
    void Receive(const log::Line& line) override {
        std::lock_guard lock(m_mutex);
        m_lines.push_back({line.verbosity, std::string(line.preamble), std::string(line.message)});
    }
    std::vector<Captured> Lines() {
        std::lock_guard lock(m_mutex);
        return m_lines;
    }

private:
    std::mutex m_mutex;
    std::vector<Captured> m_lines;
};

class LogTest : public testing::CoreFixture {
protected:
    LogTest() : m_sink(std::make_shared<CapturingSink>()) { log::AddSink(m_sink, log::kDebug); }
    ~LogTest() override { log::RemoveSink(m_sink); }

    // Runs a chunk named "@power.lua", so that its lines read "power.lua:<line>".
    void RunFile(const char* code) {
        ASSERT_EQ(luaL_loadbuffer(L, code, std::strlen(code), "@power.lua"), LUA_OK);
        ASSERT_EQ(lua_pcall(L, 0, 0, 0), LUA_OK) << lua_tostring(L, -1);
    }

    std::vector<Captured> Lines() { return m_sink->Lines(); }

private:
    std::shared_ptr<CapturingSink> m_sink;
};

TEST_F(LogTest, EachLevelIsLoggedAtTheScriptsPlace) {
    RunFile("Log.debug('d')\nLog.info('i')\n\nLog.warn('w %s')\nLog.error('e')");
    const auto lines = Lines();
    ASSERT_EQ(lines.size(), 4u);
    const int verbosities[] = {log::kDebug, log::kInfo, log::kWarning, log::kError};
    const char* messages[] = {"d", "i", "w %s", "e"};
    const char* places[] = {" power.lua:1 ", " power.lua:2 ", " power.lua:4 ", " power.lua:5 "};
    for (std::size_t i = 0; i < lines.size(); ++i) {
        EXPECT_EQ(lines[i].verbosity, verbosities[i]);
        EXPECT_EQ(lines[i].message, messages[i]);
        EXPECT_THAT(lines[i].preamble, HasSubstr(places[i]));
    }
}

TEST_F(LogTest, CallerWithoutALineGivesLineZero) {
    RunFile("pcall(Log.info, 'from C')");
    const auto lines = Lines();
    ASSERT_EQ(lines.size(), 1u);
    EXPECT_EQ(lines[0].message, "from C");
    EXPECT_THAT(lines[0].preamble, HasSubstr(" [C]:0 "));
}

TEST_F(LogTest, ArgumentsOtherThanAStringAreRefused) {
    EXPECT_THAT(Run("Log.info(42)"), HasSubstr("bad argument #1 to 'info' (string expected"));
    EXPECT_THAT(Run("Log.error()"), HasSubstr("string expected, got no value"));
    EXPECT_TRUE(Lines().empty());
}

void Explode(std::string_view text) {
    throw std::runtime_error(std::string(text));
}

TEST_F(LogTest, ExceptionInABindingIsLoggedAndRaised) {
    lua_pushcfunction(L, bind::Fn<&Explode>);
    lua_setglobal(L, "explode");
    EXPECT_EQ(Run("explode('boom')"), "boom");
    const auto lines = Lines();
    ASSERT_EQ(lines.size(), 1u);
    EXPECT_EQ(lines[0].verbosity, log::kError);
    EXPECT_EQ(lines[0].message, "An exception occurred while running a Lua script: boom.");
    EXPECT_EQ(Run("Std.MemSlab.new(1)"), "") << "the state goes on";
}

}  // namespace
}  // namespace ovex::lua::core
