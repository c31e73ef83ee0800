#pragma once

// A configuration file loaded with some of its texts replaced.

#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "ovex/config_loader/config_loader.hpp"

namespace ovex::sdk::testing {

// Each `from` must stand in the file; its first occurrence becomes `to`.
inline configuration::ConfigLoader EditedConfig(
    const std::filesystem::path& path,
    const std::vector<std::pair<std::string, std::string>>& edits) {
    std::ifstream file(path);
    std::stringstream text;
    text << file.rdbuf();
    std::string content = text.str();
    for (const auto& [from, to] : edits) {
        content.replace(content.find(from), from.size(), to);
    }
    return configuration::ConfigLoader(configuration::kFromText, content);
}

}  // namespace ovex::sdk::testing
