#pragma once

// Boot images put together word by word, for tests that need images the builder wouldn't make.

#include <cstdint>
#include <optional>
#include <vector>

namespace ovex::fx3::testing {

struct RawSection {
    std::uint32_t address;
    std::vector<std::uint32_t> words;
};

// Header "CY", 0x00, 0xB0, the sections, the terminator and the checksum (the right one unless
// given). Without an entry point the image ends after the last section.
inline std::vector<std::uint8_t> MakeImage(const std::vector<RawSection>& sections,
                                           std::optional<std::uint32_t> entry_point = 0x40003000,
                                           std::optional<std::uint32_t> checksum = {}) {
    std::vector<std::uint8_t> bytes = {'C', 'Y', 0x00, 0xB0};
    const auto put = [&bytes](std::uint32_t word) {
        for (int shift = 0; shift < 32; shift += 8) {
            bytes.push_back(static_cast<std::uint8_t>(word >> shift));
        }
    };
    std::uint32_t sum = 0;
    for (const auto& [address, words] : sections) {
        put(static_cast<std::uint32_t>(words.size()));
        put(address);
        for (const std::uint32_t word : words) {
            put(word);
            sum += word;
        }
    }
    if (entry_point) {
        put(0);
        put(*entry_point);
        put(checksum.value_or(sum));
    }
    return bytes;
}

}  // namespace ovex::fx3::testing
