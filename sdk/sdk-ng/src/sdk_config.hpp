#pragma once

#include <cstdint>
#include <filesystem>
#include <optional>
#include <regex>
#include <string_view>
#include <system_error>
#include <vector>

namespace ovex::sdk {

// The library's own settings, read once from a TOML file when a context is created. Every key
// is optional; a missing or malformed file leaves the defaults.
struct SdkConfig {
    std::filesystem::path firmware_path = ".";
    std::filesystem::path chip_config_path = ".";
    std::filesystem::path script_path = ".";
    std::optional<std::regex> chip_config_regex = std::regex();
    std::vector<std::uint16_t> threading_core;
    bool enable_scripting = false;
};

// Finds the file (OVEXSDK_CONFIG_PATH, then the per-user file, then `fallback`) and reads it.
SdkConfig LoadSdkConfig(const std::filesystem::path& fallback);

// Parses a CPU list such as "0-3, 5" into ascending, unique numbers below `hardware_threads`.
std::vector<std::uint16_t> ParseThreadingCore(std::string_view text, unsigned hardware_threads);

// Parses a base-10 number as std::stoi does, into 16 bits unsigned.
std::error_code ParseU16(std::string_view text, std::uint16_t& value);

}  // namespace ovex::sdk
