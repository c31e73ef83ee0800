#pragma once

// The error categories of controller images ("fwimg") and of the boot loader ("bootloader").
// Corrupt images and failed verifications compare equal to std::errc::illegal_byte_sequence; an
// image of a wrong size only to itself.

#include <string>
#include <system_error>

namespace ovex::fx3 {

enum class FwImgError {
    kChecksum = 1,
    kNotExecutable = 2,
    kImageType = 3,
    kSize = 4,
    kSignature = 5,
};

enum class BootloaderError {
    kDataMismatch = 2,
};

class FwImgErrCategory final : public std::error_category {
public:
    const char* name() const noexcept override { return "fwimg"; }
    std::string message(int value) const override;
    bool equivalent(int value, const std::error_condition& condition) const noexcept override;
};

class BootloaderErrCategory final : public std::error_category {
public:
    const char* name() const noexcept override { return "bootloader"; }
    std::string message(int value) const override;
    bool equivalent(int value, const std::error_condition& condition) const noexcept override;
};

const std::error_category& FwImgCategory() noexcept;
const std::error_category& BootloaderCategory() noexcept;

std::error_code make_error_code(FwImgError error) noexcept;
std::error_code make_error_code(BootloaderError error) noexcept;

}  // namespace ovex::fx3

template <>
struct std::is_error_code_enum<ovex::fx3::FwImgError> : std::true_type {};
template <>
struct std::is_error_code_enum<ovex::fx3::BootloaderError> : std::true_type {};
