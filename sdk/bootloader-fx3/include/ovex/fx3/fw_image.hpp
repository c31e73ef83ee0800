#pragma once

// A boot image of the board's USB controller, parsed: the load address and data of every section
// in file order, and the entry point. The image owns a copy of the file; the sections point into
// it, so an image can be moved but not copied.

#include <cstdint>
#include <span>
#include <string>
#include <system_error>
#include <vector>

namespace ovex::fx3 {

struct FwSection {
    std::uint32_t address = 0;
    std::span<const std::uint8_t> data;  // the section's data alone
};

class FwImage {
public:
    // The largest image the controller takes.
    static constexpr std::size_t kMaxSize = 524288;

    FwImage() = default;
    FwImage(FwImage&&) noexcept = default;
    FwImage& operator=(FwImage&&) noexcept = default;
    FwImage(const FwImage&) = delete;
    FwImage& operator=(const FwImage&) = delete;

    // Copy and parse. On an error ("fwimg" codes) `image` is left empty.
    static std::error_code FromMemory(std::span<const std::uint8_t> bytes, FwImage& image);
    // std::errc::no_such_file_or_directory for a file that can't be opened.
    static std::error_code FromFile(const std::string& file_name, FwImage& image);

    const std::vector<FwSection>& Sections() const { return m_sections; }
    std::uint32_t EntryPoint() const { return m_entry_point; }

private:
    std::error_code Parse();

    std::vector<std::uint8_t> m_bytes;
    std::vector<FwSection> m_sections;
    std::uint32_t m_entry_point = 0;
};

}  // namespace ovex::fx3
