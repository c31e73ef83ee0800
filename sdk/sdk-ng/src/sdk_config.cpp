#include "sdk_config.hpp"

#include <pwd.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <cstdlib>
#include <optional>
#include <set>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include <fmt/format.h>
#include <toml++/toml.h>

#include "ovex/log/log.hpp"

namespace ovex::sdk {

namespace {

constexpr const char* kPathVariable = "OVEXSDK_CONFIG_PATH";

// The home directory that the account database names for this process's user, if any.
std::optional<std::filesystem::path> AccountHome() {
    passwd entry{};
    passwd* found = nullptr;
    std::vector<char> buffer(16384);
    if (::getpwuid_r(::getuid(), &entry, buffer.data(), buffer.size(), &found) != 0 ||
        found == nullptr || found->pw_dir == nullptr || *found->pw_dir == '\0') {
        return std::nullopt;
    }
    return std::filesystem::path(found->pw_dir);
}

// The per-user configuration directory: $XDG_CONFIG_HOME, or .config in the home directory
// ($HOME, or the account's). A service or container may have no home at all: then there is no
// per-user file.
std::optional<std::filesystem::path> UserConfigDirectory() {
    if (const char* xdg = std::getenv("XDG_CONFIG_HOME"); xdg != nullptr && *xdg != '\0') {
        return xdg;
    }
    if (const char* home = std::getenv("HOME"); home != nullptr && *home != '\0') {
        return std::filesystem::path(home) / ".config";
    }
    if (auto home = AccountHome()) {
        return *home / ".config";
    }
    return std::nullopt;
}

// "Not found" in all its forms is absence; any other failure of the query is an error.
bool Exists(const std::filesystem::path& path) {
    std::error_code ec;
    const auto status = std::filesystem::status(path, ec);
    if (ec && ec != std::errc::no_such_file_or_directory && ec != std::errc::not_a_directory) {
        throw std::filesystem::filesystem_error("exists", path, ec);
    }
    return std::filesystem::exists(status);
}

std::filesystem::path ChooseFile(const std::filesystem::path& fallback) {
    if (const char* from_env = std::getenv(kPathVariable); from_env != nullptr && *from_env) {
        OVEX_LOG_DEBUG("Using configuration file specified in the environment variable: '%s'.",
                       kPathVariable);
        return from_env;
    }
    const auto directory = UserConfigDirectory();
    if (!directory) {
        OVEX_LOG_DEBUG("No home directory: no per-user configuration file.");
        return fallback;
    }
    const auto per_user = *directory / "ovexsdk" / "ovexsdk_config.toml";
    if (Exists(per_user)) {
        OVEX_LOG_DEBUG("Using configuration file '%s'.", per_user.c_str());
        return per_user;
    }
    return fallback;
}

std::filesystem::path PathOr(const toml::table& conf, std::string_view key,
                             std::filesystem::path fallback) {
    if (auto value = conf[key].value_exact<std::string>()) {
        return *value;
    }
    return fallback;
}

// Why an expression is refused before it is compiled, or empty. The compiler recurses once per
// nested group and unrolls counted repetitions, so a hostile text could take its stack or all
// memory; a chip configuration file name needs none of that.
std::string ExpressionTooBig(std::string_view text) {
    constexpr std::size_t kMaxLength = 1024;
    constexpr int kMaxDepth = 32;
    constexpr double kMaxRepetition = 10000;
    if (text.size() > kMaxLength) {
        return fmt::format("is longer than {} characters", kMaxLength);
    }
    int depth = 0;
    double repetition = 1;
    bool in_class = false;
    for (std::size_t i = 0; i < text.size(); ++i) {
        const char c = text[i];
        if (c == '\\') {
            ++i;
        } else if (in_class) {
            in_class = c != ']';
        } else if (c == '[') {
            in_class = true;
        } else if (c == '(' && ++depth > kMaxDepth) {
            return fmt::format("nests groups deeper than {}", kMaxDepth);
        } else if (c == ')') {
            --depth;
        } else if (c == '{') {
            // The largest bound of a counted repetition; together they may multiply.
            double largest = 0;
            double number = 0;
            for (++i; i < text.size() && text[i] != '}'; ++i) {
                number = std::isdigit(static_cast<unsigned char>(text[i]))
                             ? std::min(number * 10 + (text[i] - '0'), 1e9)
                             : 0;
                largest = std::max(largest, number);
            }
            repetition *= std::max(largest, 1.0);
            if (repetition > kMaxRepetition) {
                return fmt::format("repeats more than {} times", kMaxRepetition);
            }
        }
    }
    return {};
}

void ReadExpression(std::string_view text, const std::filesystem::path& file, SdkConfig& config) {
    std::string refusal = ExpressionTooBig(text);
    if (refusal.empty()) {
        try {
            config.chip_config_regex = std::regex(std::string(text), std::regex::ECMAScript);
            return;
        } catch (const std::exception& error) {
            refusal = fmt::format("is not a valid expression: {}", error.what());
        }
    }
    OVEX_LOG_WARN("Configuration key 'chip_config_regex' in '%s' %s; the default is kept.",
                  file.c_str(), refusal.c_str());
}

void ReadTable(const toml::table& conf, const std::filesystem::path& file, SdkConfig& config) {
    config.firmware_path = PathOr(conf, "firmware_path", config.firmware_path);
    config.chip_config_path = PathOr(conf, "chip_config_path", config.chip_config_path);
    config.script_path = PathOr(conf, "script_path", config.script_path);

    const auto scripting = conf["enable_scripting"];
    if (auto flag = scripting.value_exact<bool>()) {
        config.enable_scripting = *flag;
    } else if (auto number = scripting.value_exact<std::int64_t>()) {
        config.enable_scripting = *number != 0;
    } else {
        config.enable_scripting = false;
    }

    if (auto cores = conf["threading_core"].value_exact<std::string>()) {
        config.threading_core =
            ParseThreadingCore(*cores, std::max(1u, std::thread::hardware_concurrency()));
    }

    const auto regex_text = conf["chip_config_regex"].value_exact<std::string>();
    if (regex_text && !regex_text->empty()) {
        ReadExpression(*regex_text, file, config);
    } else {
        config.chip_config_regex.reset();
    }
}

std::string WithoutBlanks(std::string_view token) {
    std::string result;
    for (char c : token) {
        if (c != ' ' && c != '\t') {
            result.push_back(c);
        }
    }
    return result;
}

}  // namespace

std::error_code ParseU16(std::string_view text, std::uint16_t& value) {
    const std::string copy(text);
    int number = 0;
    try {
        number = std::stoi(copy);
    } catch (const std::exception&) {
        OVEX_LOG_WARN("Unable to convert %s to an integer.", copy.c_str());
        return std::make_error_code(std::errc::invalid_argument);
    }
    if (number < 0 || number > 0xFFFF) {
        OVEX_LOG_WARN("String '%s' cannot be represented as unsigned 16bit value.", copy.c_str());
        return std::make_error_code(std::errc::invalid_argument);
    }
    value = static_cast<std::uint16_t>(number);
    return {};
}

std::vector<std::uint16_t> ParseThreadingCore(std::string_view text, unsigned hardware_threads) {
    std::set<std::uint16_t> cores;
    std::size_t start = 0;
    while (start <= text.size()) {
        const std::size_t comma = std::min(text.find(',', start), text.size());
        const std::string token = WithoutBlanks(text.substr(start, comma - start));
        start = comma + 1;
        if (token.empty()) {
            continue;
        }
        const std::size_t dash = token.find('-');
        if (dash == std::string::npos) {
            std::uint16_t core = 0;
            if (!ParseU16(token, core) && core < hardware_threads) {
                cores.insert(core);
            }
            continue;
        }
        std::uint16_t first = 0;
        std::uint16_t last = 0;
        if (ParseU16(std::string_view(token).substr(0, dash), first) ||
            ParseU16(std::string_view(token).substr(dash + 1), last)) {
            continue;
        }
        if (first >= last) {
            OVEX_LOG_WARN(
                "Invalid range format: %s, first number has to be smaller than the second one.",
                token.c_str());
            continue;
        }
        if (first >= hardware_threads || last >= hardware_threads) {
            continue;
        }
        for (unsigned core = first; core <= last; ++core) {
            cores.insert(static_cast<std::uint16_t>(core));
        }
    }
    return {cores.begin(), cores.end()};
}

SdkConfig LoadSdkConfig(const std::filesystem::path& fallback) {
    SdkConfig config;
    const auto path = ChooseFile(fallback);
    if (!Exists(path)) {
        OVEX_LOG_WARN("Config file not found at '%s', using defaults.", path.c_str());
        return config;
    }
    toml::table parsed;
    try {
        parsed = toml::parse_file(path.string());
    } catch (const toml::parse_error& error) {
        const std::string description(error.description());
        OVEX_LOG_WARN("Parsing configuration file failed: %s.", description.c_str());
        return config;
    }
    if (const toml::table* conf = parsed["conf"].as_table()) {
        ReadTable(*conf, path, config);
    }
    OVEX_LOG_INFO("Configuration file '%s' loaded.", path.c_str());
    return config;
}

}  // namespace ovex::sdk
