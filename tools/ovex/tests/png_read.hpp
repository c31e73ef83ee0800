// Reads back a PNG with libpng as 8-bit RGB, and finds its brightest pixel.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace ovex::cli::testing {

struct RgbImage {
    std::uint32_t width = 0;
    std::uint32_t height = 0;
    std::vector<std::uint8_t> rgb;  // row after row from the top, three bytes a pixel
};

// A std::runtime_error when the file is no PNG libpng reads.
RgbImage ReadPng(const std::string& path);

// The pixel of the highest luminance, the first of equals in row order: its index y * width + x.
std::uint32_t BrightestPixel(const RgbImage& image);

}  // namespace ovex::cli::testing
