// The library's configuration file: which file is read, and what its keys give.

#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <regex>
#include <string>

#include "sdk_config.hpp"
#include "support/log_capture.hpp"

namespace ovex::sdk::testing {
namespace {

namespace fs = std::filesystem;

class ConfigFile : public ::testing::Test {
protected:
    void SetUp() override {
        m_dir = fs::temp_directory_path() / ("ovexsdk-config-" + std::to_string(::getpid()));
        fs::create_directories(m_dir / "xdg" / "ovexsdk");
        ::setenv("XDG_CONFIG_HOME", (m_dir / "xdg").c_str(), 1);
        ::unsetenv("OVEXSDK_CONFIG_PATH");
    }
    void TearDown() override {
        ::unsetenv("OVEXSDK_CONFIG_PATH");
        ::unsetenv("XDG_CONFIG_HOME");
        fs::remove_all(m_dir);
    }
    fs::path Write(const fs::path& relative, const std::string& text) {
        const auto path = m_dir / relative;
        std::ofstream(path) << text;
        return path;
    }
    fs::path m_dir;
    LogCapture m_log;
};

TEST_F(ConfigFile, MissingFileGivesDefaults) {
    const auto config = LoadSdkConfig(m_dir / "absent.toml");
    EXPECT_EQ(config.firmware_path, ".");
    EXPECT_EQ(config.chip_config_path, ".");
    EXPECT_EQ(config.script_path, ".");
    EXPECT_TRUE(config.chip_config_regex.has_value()) << "an engaged, empty expression";
    EXPECT_TRUE(config.threading_core.empty());
    EXPECT_FALSE(config.enable_scripting);
    EXPECT_TRUE(m_log.Contains(
        ovex::log::kWarning,
        "Config file not found at '" + (m_dir / "absent.toml").string() + "', using defaults."));
}

TEST_F(ConfigFile, EnvironmentVariableWinsAndAMissingTargetIsNotReplaced) {
    Write("xdg/ovexsdk/ovexsdk_config.toml", "[conf]\nfirmware_path = \"per-user\"\n");
    const auto fallback = Write("fallback.toml", "[conf]\nfirmware_path = \"fallback\"\n");

    EXPECT_EQ(LoadSdkConfig(fallback).firmware_path, "per-user");
    EXPECT_TRUE(m_log.Contains(ovex::log::kDebug,
                               "Using configuration file '" +
                                   (m_dir / "xdg/ovexsdk/ovexsdk_config.toml").string() + "'."));

    ::setenv("OVEXSDK_CONFIG_PATH", "", 1);
    EXPECT_EQ(LoadSdkConfig(fallback).firmware_path, "per-user") << "empty counts as not set";

    const auto from_env = Write("env.toml", "[conf]\nfirmware_path = \"env\"\n");
    ::setenv("OVEXSDK_CONFIG_PATH", from_env.c_str(), 1);
    EXPECT_EQ(LoadSdkConfig(fallback).firmware_path, "env");
    EXPECT_TRUE(m_log.Contains(
        ovex::log::kDebug,
        "Using configuration file specified in the environment variable: 'OVEXSDK_CONFIG_PATH'."));

    ::setenv("OVEXSDK_CONFIG_PATH", (m_dir / "gone.toml").c_str(), 1);
    EXPECT_EQ(LoadSdkConfig(fallback).firmware_path, ".");
    EXPECT_TRUE(m_log.Contains(
        ovex::log::kWarning,
        "Config file not found at '" + (m_dir / "gone.toml").string() + "', using defaults."));
}

TEST_F(ConfigFile, KeysAreReadWithTheirTypes) {
    const auto path = Write("all.toml", R"([conf]
firmware_path = "fw"
chip_config_path = 42
script_path = "scripts"
chip_config_regex = "^W[0-9]+$"
threading_core = "0"
enable_scripting = 1
)");
    const auto config = LoadSdkConfig(path);
    EXPECT_EQ(config.firmware_path, "fw");
    EXPECT_EQ(config.chip_config_path, ".") << "a path of another type keeps the default";
    EXPECT_EQ(config.script_path, "scripts");
    ASSERT_TRUE(config.chip_config_regex);
    EXPECT_TRUE(std::regex_match("W0017", *config.chip_config_regex));
    EXPECT_EQ(config.threading_core, (std::vector<std::uint16_t>{0}));
    EXPECT_TRUE(config.enable_scripting);
    EXPECT_TRUE(
        m_log.Contains(ovex::log::kInfo, "Configuration file '" + path.string() + "' loaded."));
}

TEST_F(ConfigFile, ScriptingFlagAcceptsBooleansAndIntegersOnly) {
    EXPECT_TRUE(
        LoadSdkConfig(Write("a.toml", "[conf]\nenable_scripting = true\n")).enable_scripting);
    EXPECT_FALSE(LoadSdkConfig(Write("b.toml", "[conf]\nenable_scripting = 0\n")).enable_scripting);
    EXPECT_FALSE(
        LoadSdkConfig(Write("c.toml", "[conf]\nenable_scripting = 1.0\n")).enable_scripting);
    EXPECT_FALSE(
        LoadSdkConfig(Write("d.toml", "[conf]\nenable_scripting = \"yes\"\n")).enable_scripting);
}

TEST_F(ConfigFile, EmptyRegexClearsTheExpression) {
    const auto config = LoadSdkConfig(Write("r.toml", "[conf]\nchip_config_regex = \"\"\n"));
    EXPECT_FALSE(config.chip_config_regex.has_value());
}

// An expression that can't be compiled, or that would take the compiler's stack or memory,
// keeps the default and the rest of the file, with a warning that names the key and the file.
TEST_F(ConfigFile, BadExpressionKeepsTheDefaultAndTheOtherKeys) {
    const std::string nested = std::string(30000, '(') + "a" + std::string(30000, ')');
    const std::string deep = std::string(40, '(') + "a" + std::string(40, ')');
    for (const std::string& expression :
         {std::string("(unclosed"), std::string("[z-a]"), nested, deep, std::string("a{99999999}"),
          std::string("(((a{200}){200}){200})")}) {
        m_log.Clear();
        const auto path = Write(
            "x.toml", "[conf]\nfirmware_path = \"fw\"\nchip_config_regex = '" + expression + "'\n");
        const auto config = LoadSdkConfig(path);
        EXPECT_EQ(config.firmware_path, "fw");
        ASSERT_TRUE(config.chip_config_regex.has_value()) << expression.substr(0, 20);
        const auto lines = m_log.Lines();
        EXPECT_TRUE(std::any_of(lines.begin(), lines.end(), [&path](const CapturedLine& line) {
            return line.verbosity == ovex::log::kWarning &&
                   line.message.starts_with("Configuration key 'chip_config_regex' in '" +
                                            path.string() + "' ");
        })) << expression.substr(0, 20);
    }
}

// Services and containers may run without HOME: then there is no per-user file, unless the
// account database names a home.
TEST_F(ConfigFile, NoHomeInTheEnvironmentIsNoFailure) {
    const char* home = std::getenv("HOME");
    const std::string saved = home != nullptr ? home : "";
    ::unsetenv("XDG_CONFIG_HOME");
    ::unsetenv("HOME");
    const auto fallback = Write("fallback.toml", "[conf]\nfirmware_path = \"fallback\"\n");
    SdkConfig config;
    EXPECT_NO_THROW(config = LoadSdkConfig(fallback));
    if (home != nullptr) {
        ::setenv("HOME", saved.c_str(), 1);
    }
    EXPECT_EQ(config.firmware_path, "fallback");
}

TEST_F(ConfigFile, MalformedFileOrMissingTableGivesDefaults) {
    const auto config = LoadSdkConfig(Write("bad.toml", "[conf\nfirmware_path = \"x\"\n"));
    EXPECT_EQ(config.firmware_path, ".");
    const auto lines = m_log.Lines();
    EXPECT_TRUE(std::any_of(lines.begin(), lines.end(), [](const CapturedLine& line) {
        return line.verbosity == ovex::log::kWarning &&
               line.message.starts_with("Parsing configuration file failed: ");
    }));
    EXPECT_EQ(LoadSdkConfig(Write("other.toml", "[other]\nfirmware_path = \"x\"\n")).firmware_path,
              ".");
}

TEST(ThreadingCore, RangesAndSingleNumbersBelowTheThreadCount) {
    EXPECT_EQ(ParseThreadingCore("0-3, 5", 8), (std::vector<std::uint16_t>{0, 1, 2, 3, 5}));
    EXPECT_EQ(ParseThreadingCore("4,2,2", 8), (std::vector<std::uint16_t>{2, 4}));
    EXPECT_EQ(ParseThreadingCore(" 1 - 2 ,, 7 ", 8), (std::vector<std::uint16_t>{1, 2, 7}));
    EXPECT_EQ(ParseThreadingCore("6, 9", 8), (std::vector<std::uint16_t>{6}));
    EXPECT_EQ(ParseThreadingCore("", 8), (std::vector<std::uint16_t>{}));
}

TEST(ThreadingCore, BadTokensAreDroppedOneByOne) {
    LogCapture log;
    EXPECT_TRUE(ParseThreadingCore("3-3", 8).empty());
    EXPECT_TRUE(log.Contains(ovex::log::kWarning,
                             "Invalid range format: 3-3, first number has to be smaller than the "
                             "second one."));
    log.Clear();
    EXPECT_TRUE(ParseThreadingCore("0-100", 8).empty());
    EXPECT_TRUE(log.Lines().empty()) << "a range beyond the threads is dropped without a line";

    EXPECT_EQ(ParseThreadingCore("x, 1, 70000, 99999999999, 2", 8),
              (std::vector<std::uint16_t>{1, 2}));
    EXPECT_TRUE(log.Contains(ovex::log::kWarning, "Unable to convert x to an integer."));
    EXPECT_TRUE(log.Contains(ovex::log::kWarning,
                             "String '70000' cannot be represented as unsigned 16bit value."));
    EXPECT_TRUE(log.Contains(ovex::log::kWarning, "Unable to convert 99999999999 to an integer."));
}

}  // namespace
}  // namespace ovex::sdk::testing
