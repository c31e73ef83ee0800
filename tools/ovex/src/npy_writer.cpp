#include "npy_writer.hpp"

#include "cli.hpp"

namespace ovex::cli {
namespace {

constexpr char kMagic[] = "\x93NUMPY";
constexpr std::size_t kMagicBytes = 6;
constexpr std::size_t kHeaderStart = kMagicBytes + 2 + 2;  // magic, version, header length

// "(3,)" for one dimension, "(2, 256, 256)" for more.
std::string TupleOf(const std::vector<std::uint64_t>& shape) {
    std::string text = "(";
    for (std::size_t i = 0; i < shape.size(); ++i) {
        text += (i == 0 ? "" : ", ") + std::to_string(shape[i]);
    }
    return text + (shape.size() == 1 ? ",)" : ")");
}

std::span<const std::byte> BytesOf(const std::string& text) {
    return std::as_bytes(std::span(text.data(), text.size()));
}

}  // namespace

std::string NpyPrefix(const std::string& descr, const std::vector<std::uint64_t>& shape) {
    std::string dictionary =
        "{'descr': " + descr + ", 'fortran_order': False, 'shape': " + TupleOf(shape) + ", }";
    if (dictionary.size() + 1 > kNpyPrefixBytes - kHeaderStart) {
        throw CommandError(kExitFailed, "a .npy header of " + std::to_string(dictionary.size()) +
                                            " bytes does not fit");
    }
    dictionary.resize(kNpyPrefixBytes - kHeaderStart - 1, ' ');
    dictionary += '\n';
    const auto length = static_cast<std::uint16_t>(dictionary.size());
    std::string prefix(kMagic, kMagicBytes);
    prefix += '\x01';
    prefix += '\x00';
    prefix += static_cast<char>(length & 0xFF);
    prefix += static_cast<char>(length >> 8);
    return prefix + dictionary;
}

NpyWriter::NpyWriter(std::string path, std::string descr, std::vector<std::uint64_t> row_shape)
    : m_file(std::move(path)), m_descr(std::move(descr)), m_row_shape(std::move(row_shape)) {
    m_file.Write(BytesOf(NpyPrefix(m_descr, ShapeOf(0))));
}

void NpyWriter::Finish(std::uint64_t rows) {
    m_file.WriteAt(0, BytesOf(NpyPrefix(m_descr, ShapeOf(rows))));
    m_file.Close();
}

std::vector<std::uint64_t> NpyWriter::ShapeOf(std::uint64_t rows) const {
    std::vector<std::uint64_t> shape{rows};
    shape.insert(shape.end(), m_row_shape.begin(), m_row_shape.end());
    return shape;
}

}  // namespace ovex::cli
