// An 8-bit RGB PNG of a grid of values in the tool's colour map. The file is created at once, so
// that a path that can't be written is known before the board is touched; the image comes at the
// end.
#pragma once

#include <cstdint>
#include <span>
#include <string>

#include "output_file.hpp"

namespace ovex::cli {

class PngWriter {
public:
    explicit PngWriter(std::string path) : m_file(std::move(path)) {}

    // `values` holds `height` rows of `width`, the first row at the top; closes the file.
    void Write(std::uint32_t width, std::uint32_t height, std::span<const std::uint64_t> values);
    void Remove() { m_file.Remove(); }

private:
    OutputFile m_file;
};

}  // namespace ovex::cli
