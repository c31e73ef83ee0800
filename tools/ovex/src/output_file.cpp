#include "output_file.hpp"

#include <cerrno>
#include <cstring>

#include "cli.hpp"

namespace ovex::cli {

OutputFile::OutputFile(std::string path) : m_path(std::move(path)) {
    m_file = std::fopen(m_path.c_str(), "wb");
    if (m_file == nullptr) {
        Fail("cannot create");
    }
    // Large writes in few system calls; the data callback never waits for them.
    std::setvbuf(m_file, nullptr, _IOFBF, 1 << 20);
}

OutputFile::~OutputFile() {
    if (m_file != nullptr) {
        std::fclose(m_file);
    }
}

void OutputFile::Write(std::span<const std::byte> bytes) {
    if (!bytes.empty() && std::fwrite(bytes.data(), 1, bytes.size(), m_file) != bytes.size()) {
        Fail("cannot write");
    }
}

void OutputFile::WriteAt(std::uint64_t offset, std::span<const std::byte> bytes) {
    if (std::fseek(m_file, static_cast<long>(offset), SEEK_SET) != 0) {
        Fail("cannot seek in");
    }
    Write(bytes);
    if (std::fseek(m_file, 0, SEEK_END) != 0) {
        Fail("cannot seek in");
    }
}

void OutputFile::Close() {
    if (m_file == nullptr) {
        return;
    }
    std::FILE* file = m_file;
    m_file = nullptr;
    if (std::fclose(file) != 0) {
        Fail("cannot write");
    }
}

void OutputFile::Remove() {
    if (m_file != nullptr) {
        std::fclose(m_file);
        m_file = nullptr;
    }
    std::remove(m_path.c_str());
}

void OutputFile::Fail(const char* what) const {
    throw CommandError(kExitFile, std::string(what) + " " + m_path + ": " + std::strerror(errno));
}

}  // namespace ovex::cli
