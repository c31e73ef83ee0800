// Reads back a .npy file of format 1.0 as the tests need it: its header checked byte by byte
// (magic, version, length, padding, the line feed, the data's alignment to 64), its dtype text,
// its shape and its data. Every defect is a std::runtime_error naming it.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace ovex::cli::testing {

struct NpyFile {
    std::string descr;  // as the header writes it, such as "'<u2'"
    std::vector<std::uint64_t> shape;
    std::size_t data_offset = 0;
    std::vector<std::byte> data;
};

NpyFile ReadNpy(const std::string& path);

}  // namespace ovex::cli::testing
