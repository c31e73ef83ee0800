// A NumPy .npy file (format 1.0) written as the data come: the header is written first with a
// fixed length, for zero rows, and rewritten with the real count at the end, so that rows can be
// appended without knowing how many there will be.
#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <vector>

#include "output_file.hpp"

namespace ovex::cli {

// The bytes before the data: the header pads to this, a multiple of 64, whatever the shape.
inline constexpr std::size_t kNpyPrefixBytes = 256;

// The whole prefix: magic, version 1.0, header length, then the header's dictionary padded with
// spaces and ended by a line feed. `descr` is a dtype as Python writes it, such as "'<u2'".
std::string NpyPrefix(const std::string& descr, const std::vector<std::uint64_t>& shape);

class NpyWriter {
public:
    // Creates the file; each row has `row_shape` (empty for a 1-D array of records).
    NpyWriter(std::string path, std::string descr, std::vector<std::uint64_t> row_shape);

    void Append(std::span<const std::byte> rows) { m_file.Write(rows); }
    // Rewrites the header with the rows written, and closes the file.
    void Finish(std::uint64_t rows);
    void Remove() { m_file.Remove(); }

private:
    std::vector<std::uint64_t> ShapeOf(std::uint64_t rows) const;

    OutputFile m_file;
    std::string m_descr;
    std::vector<std::uint64_t> m_row_shape;
};

}  // namespace ovex::cli
