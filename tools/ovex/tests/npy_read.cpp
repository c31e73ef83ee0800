#include "npy_read.hpp"

#include <fstream>
#include <iterator>
#include <stdexcept>

namespace ovex::cli::testing {
namespace {

std::string Between(const std::string& text, const std::string& open, const std::string& close) {
    const std::size_t start = text.find(open);
    const std::size_t end = text.find(close, start + open.size());
    if (start == std::string::npos || end == std::string::npos) {
        throw std::runtime_error("no " + open + "..." + close + " in the header: " + text);
    }
    return text.substr(start + open.size(), end - start - open.size());
}

std::vector<std::uint64_t> ShapeOf(const std::string& tuple) {
    std::vector<std::uint64_t> shape;
    std::size_t at = 0;
    while (at < tuple.size()) {
        const std::size_t comma = tuple.find(',', at);
        const std::string item = tuple.substr(at, comma - at);
        if (item.find_first_not_of(' ') != std::string::npos) {
            shape.push_back(std::stoull(item));
        }
        at = comma == std::string::npos ? tuple.size() : comma + 1;
    }
    return shape;
}

}  // namespace

NpyFile ReadNpy(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    const std::string bytes((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    if (bytes.size() < 10 || bytes.compare(0, 8, std::string("\x93NUMPY\x01\x00", 8)) != 0) {
        throw std::runtime_error(path + " does not start as a .npy file of version 1.0");
    }
    const std::size_t length = static_cast<unsigned char>(bytes[8]) |
                               static_cast<std::size_t>(static_cast<unsigned char>(bytes[9])) << 8;
    NpyFile file;
    file.data_offset = 10 + length;
    if (file.data_offset > bytes.size() || file.data_offset % 64 != 0 ||
        bytes[file.data_offset - 1] != '\n') {
        throw std::runtime_error(path + ": the header of " + std::to_string(length) +
                                 " bytes does not end in a line feed at a multiple of 64");
    }
    const std::string header = bytes.substr(10, length - 1);
    if (header.find_last_not_of(' ') != header.rfind('}')) {
        throw std::runtime_error(path + ": the header is not padded with spaces: " + header);
    }
    if (header.find("'fortran_order': False") == std::string::npos) {
        throw std::runtime_error(path + ": not in C order: " + header);
    }
    const std::string descr = Between(header, "'descr': ", ", 'fortran_order'");
    file.descr = descr;
    file.shape = ShapeOf(Between(header, "'shape': (", ")"));
    const auto* data = reinterpret_cast<const std::byte*>(bytes.data()) + file.data_offset;
    file.data.assign(data, data + (bytes.size() - file.data_offset));
    return file;
}

}  // namespace ovex::cli::testing
