#pragma once

// The sample files of tests/data and small edits of them.

#include <cstdint>
#include <fstream>
#include <sstream>
#include <string>
#include <string_view>
#include <vector>

namespace ovex::configuration::testing {

inline std::string SamplePath(std::string_view name) {
    return std::string(OVEX_CONFIG_SAMPLES) + "/" + std::string(name);
}

inline std::string ReadSample(std::string_view name) {
    std::ifstream file(SamplePath(name), std::ios::binary);
    std::ostringstream text;
    text << file.rdbuf();
    return text.str();
}

// The matrix that make_samples.py writes into every sample.
inline std::vector<std::uint8_t> SampleMatrix() {
    std::vector<std::uint8_t> matrix(65536);
    for (std::size_t i = 0; i < matrix.size(); ++i) {
        matrix[i] = static_cast<std::uint8_t>(((i % 256 * 7 + i / 256 * 3) % 16) << 1 |
                                              (i % 1021 == 0 ? 1 : 0));
    }
    return matrix;
}

// The text with its first `from` replaced by `to`; an absent `from` is a fault of the test.
inline std::string Replace(std::string text, std::string_view from, std::string_view to) {
    const auto at = text.find(from);
    if (at == std::string::npos) {
        throw std::logic_error("sample lacks " + std::string(from));
    }
    return text.replace(at, from.size(), to);
}

}  // namespace ovex::configuration::testing
