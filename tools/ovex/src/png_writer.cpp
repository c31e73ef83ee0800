#include "png_writer.hpp"

#include <png.h>

#include <csetjmp>
#include <vector>

#include "cli.hpp"
#include "colour_map.hpp"

namespace ovex::cli {
namespace {

// libpng reports its errors by a long jump back here; nothing with a destructor lives between
// the setjmp and the calls that may jump.
bool WriteRgb(std::FILE* file, std::uint32_t width, std::uint32_t height, png_bytepp rows) {
    png_structp png = png_create_write_struct(PNG_LIBPNG_VER_STRING, nullptr, nullptr, nullptr);
    png_infop info = png == nullptr ? nullptr : png_create_info_struct(png);
    if (info == nullptr) {
        png_destroy_write_struct(&png, nullptr);
        return false;
    }
    if (setjmp(png_jmpbuf(png)) != 0) {
        png_destroy_write_struct(&png, &info);
        return false;
    }
    png_init_io(png, file);
    png_set_IHDR(png, info, width, height, 8, PNG_COLOR_TYPE_RGB, PNG_INTERLACE_NONE,
                 PNG_COMPRESSION_TYPE_DEFAULT, PNG_FILTER_TYPE_DEFAULT);
    png_write_info(png, info);
    png_write_image(png, rows);
    png_write_end(png, nullptr);
    png_destroy_write_struct(&png, &info);
    return true;
}

}  // namespace

void PngWriter::Write(std::uint32_t width, std::uint32_t height,
                      std::span<const std::uint64_t> values) {
    if (width == 0 || height == 0 || values.size() != std::uint64_t{width} * height) {
        throw CommandError(kExitFailed, "no image of " + std::to_string(width) + " x " +
                                            std::to_string(height) + " from " +
                                            std::to_string(values.size()) + " values");
    }
    std::vector<std::uint8_t> rgb = ColourImage(values);
    std::vector<png_bytep> rows(height);
    for (std::uint32_t y = 0; y < height; ++y) {
        rows[y] = rgb.data() + std::size_t{y} * width * 3;
    }
    if (!WriteRgb(m_file.Stream(), width, height, rows.data())) {
        m_file.Fail("cannot write the image");
    }
    m_file.Close();
}

}  // namespace ovex::cli
