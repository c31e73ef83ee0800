#pragma once

// A host's session with a powered virtual Timepix3 board, for the chip functions, and the
// board's side of the chip computed here on its own: the byte stream that the chip's columns
// hold for a host matrix, and the sample configuration files.

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <optional>
#include <sstream>
#include <string>
#include <vector>

#include "power_session.hpp"

namespace ovex::sdk::testing {

using Bytes = std::vector<std::uint8_t>;

inline constexpr std::size_t kPixels = 65536;
inline constexpr const char* kChipId = "H05-W0318";

// The trim's bits run the other way in the chip: bit 1 swaps with bit 4, bit 2 with bit 3.
inline std::uint8_t ChipBits(std::uint8_t pixel) {
    const auto bit = [pixel](int from, int to) { return ((pixel >> from) & 1) << to; };
    return static_cast<std::uint8_t>((pixel & 0x21) | bit(1, 4) | bit(4, 1) | bit(2, 3) |
                                     bit(3, 2));
}

// Packed pixels as the chip's columns take them, the whole array end for end.
inline Bytes ReversedStream(Bytes packed) {
    std::reverse(packed.begin(), packed.end());
    return packed;
}

// Four 6-bit pixels in three bytes, big-endian.
inline Bytes Pack(const Bytes& pixels) {
    Bytes packed;
    packed.reserve(pixels.size() / 4 * 3);
    for (std::size_t i = 0; i < pixels.size(); i += 4) {
        const std::uint32_t word = std::uint32_t{pixels[i] & 63u} << 18 |
                                   std::uint32_t{pixels[i + 1] & 63u} << 12 |
                                   std::uint32_t{pixels[i + 2] & 63u} << 6 | (pixels[i + 3] & 63u);
        packed.insert(packed.end(),
                      {static_cast<std::uint8_t>(word >> 16), static_cast<std::uint8_t>(word >> 8),
                       static_cast<std::uint8_t>(word)});
    }
    return packed;
}

// What the chip holds after the host wrote `host` (one byte a pixel, index y * 256 + x): the
// chip's pixel (x, y) is the host's pixel mirrored on the anti-diagonal.
inline Bytes ChipStream(const Bytes& host) {
    Bytes ordered(kPixels);
    for (std::size_t y = 0; y < 256; ++y) {
        for (std::size_t x = 0; x < 256; ++x) {
            ordered[y * 256 + x] = ChipBits(host[(255 - x) * 256 + (255 - y)]);
        }
    }
    return ReversedStream(Pack(ordered));
}

// The matrix of the sample configuration files: a trim pattern, every 1021st pixel masked.
inline Bytes SampleMatrix() {
    Bytes matrix(kPixels);
    for (std::size_t i = 0; i < kPixels; ++i) {
        matrix[i] = static_cast<std::uint8_t>(((i % 256 * 7 + i / 256 * 3) % 16) << 1 |
                                              (i % 1021 == 0 ? 1 : 0));
    }
    return matrix;
}

inline std::string ReadSample(const std::string& name) {
    std::ifstream file(std::filesystem::path(OVEX_CHIP_SAMPLES) / name, std::ios::binary);
    std::ostringstream text;
    text << file.rdbuf();
    return text.str();
}

// `text` with every `from` replaced by `to`.
inline std::string Replace(std::string text, const std::string& from, const std::string& to) {
    for (auto at = text.find(from); at != std::string::npos; at = text.find(from, at + to.size())) {
        text.replace(at, from.size(), to);
    }
    return text;
}

class ChipSession : public PowerSession {
protected:
    // A Timepix3 board, open, both units powered up. Its data endpoint sends only what the chip
    // reads back.
    void OpenPowered() {
        ASSERT_EQ(OpenQuiet(vboard::BoardKind::kTimepix3), OVEXSDK_OK);
        ASSERT_EQ(ovexsdk_dev_power_up(&m_ctx), OVEXSDK_OK);
        ClearJournal();
    }

    // Adds a board of `kind` (with other items if given) whose data endpoint sends only what its
    // chip reads out, and opens it.
    ovexsdk_err_code OpenQuiet(vboard::BoardKind kind,
                               std::optional<vboard::ItemTables> tables = std::nullopt) {
        vboard::VirtualBoard::Settings settings;
        settings.kind = kind;
        settings.tables = std::move(tables);
        settings.stream.total_bytes = 0;
        return OpenBoard(std::move(settings));
    }

    int State(const char* name) { return Engine().StateValue(name); }
    Bytes ChipMatrix() { return Engine().ChipMatrix(); }

    ovexsdk_err_code Configure(const std::string& text) {
        return ovexsdk_chip_configure_from_string(&m_ctx, 0, text.c_str());
    }
};

}  // namespace ovex::sdk::testing
