#include "ovex/fx3/errors.hpp"

namespace ovex::fx3 {
namespace {

bool IsCorruptImage(int value) {
    switch (static_cast<FwImgError>(value)) {
        case FwImgError::kChecksum:
        case FwImgError::kNotExecutable:
        case FwImgError::kImageType:
        case FwImgError::kSignature:
            return true;
        case FwImgError::kSize:
            return false;
    }
    return false;
}

}  // namespace

std::string FwImgErrCategory::message(int value) const {
    switch (static_cast<FwImgError>(value)) {
        case FwImgError::kChecksum:
            return "invalid image checksum";
        case FwImgError::kNotExecutable:
            return "image doesn't contain executable code";
        case FwImgError::kImageType:
            return "unknown/unsupported image type";
        case FwImgError::kSize:
            return "invalid image size";
        case FwImgError::kSignature:
            return "invalid image signature";
    }
    return "unknown error";
}

bool FwImgErrCategory::equivalent(int value, const std::error_condition& condition) const noexcept {
    if (IsCorruptImage(value) && condition == std::errc::illegal_byte_sequence) {
        return true;
    }
    return default_error_condition(value) == condition;
}

std::string BootloaderErrCategory::message(int value) const {
    return static_cast<BootloaderError>(value) == BootloaderError::kDataMismatch
               ? "firmware data mismatch"
               : "unknown error";
}

bool BootloaderErrCategory::equivalent(int value,
                                       const std::error_condition& condition) const noexcept {
    if (static_cast<BootloaderError>(value) == BootloaderError::kDataMismatch &&
        condition == std::errc::illegal_byte_sequence) {
        return true;
    }
    return default_error_condition(value) == condition;
}

const std::error_category& FwImgCategory() noexcept {
    static const FwImgErrCategory category;
    return category;
}

const std::error_category& BootloaderCategory() noexcept {
    static const BootloaderErrCategory category;
    return category;
}

std::error_code make_error_code(FwImgError error) noexcept {
    return {static_cast<int>(error), FwImgCategory()};
}

std::error_code make_error_code(BootloaderError error) noexcept {
    return {static_cast<int>(error), BootloaderCategory()};
}

}  // namespace ovex::fx3
