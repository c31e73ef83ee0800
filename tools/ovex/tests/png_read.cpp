#include "png_read.hpp"

#include <png.h>

#include <stdexcept>

namespace ovex::cli::testing {

RgbImage ReadPng(const std::string& path) {
    png_image image = {};
    image.version = PNG_IMAGE_VERSION;
    if (png_image_begin_read_from_file(&image, path.c_str()) == 0) {
        throw std::runtime_error(path + ": " + image.message);
    }
    image.format = PNG_FORMAT_RGB;
    RgbImage read{image.width, image.height, std::vector<std::uint8_t>(PNG_IMAGE_SIZE(image))};
    if (png_image_finish_read(&image, nullptr, read.rgb.data(), 0, nullptr) == 0) {
        throw std::runtime_error(path + ": " + image.message);
    }
    return read;
}

std::uint32_t BrightestPixel(const RgbImage& image) {
    std::uint32_t brightest = 0;
    double most = -1.0;
    for (std::uint32_t p = 0; p < image.width * image.height; ++p) {
        const std::uint8_t* rgb = &image.rgb[3 * std::size_t{p}];
        const double luminance = 0.2126 * rgb[0] + 0.7152 * rgb[1] + 0.0722 * rgb[2];
        if (luminance > most) {
            most = luminance;
            brightest = p;
        }
    }
    return brightest;
}

}  // namespace ovex::cli::testing
