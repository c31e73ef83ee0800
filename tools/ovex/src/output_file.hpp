// A file the tool writes, created before the board is touched so that a path that can't be
// written ends the command with kExitFile at once. Every failure is a CommandError(kExitFile).
#pragma once

#include <cstdint>
#include <cstdio>
#include <span>
#include <string>

namespace ovex::cli {

class OutputFile {
public:
    explicit OutputFile(std::string path);
    ~OutputFile();
    OutputFile(const OutputFile&) = delete;
    OutputFile& operator=(const OutputFile&) = delete;

    void Write(std::span<const std::byte> bytes);
    // Writes at `offset` from the start, then goes on at the end.
    void WriteAt(std::uint64_t offset, std::span<const std::byte> bytes);
    // Flushes and closes; a failure to do so is a failure to write.
    void Close();
    // Closes and removes the file: what a run that never started leaves.
    void Remove();

    std::FILE* Stream() { return m_file; }
    const std::string& Path() const { return m_path; }
    // Throws the CommandError of a failed write to this file.
    [[noreturn]] void Fail(const char* what) const;

private:
    std::string m_path;
    std::FILE* m_file = nullptr;
};

}  // namespace ovex::cli
