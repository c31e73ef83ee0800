#include "ovex/fx3/errors.hpp"

#include <gtest/gtest.h>

namespace ovex::fx3 {
namespace {

TEST(Fx3ErrorCategories, NamesAndMessages) {
    EXPECT_STREQ(FwImgCategory().name(), "fwimg");
    EXPECT_STREQ(BootloaderCategory().name(), "bootloader");

    EXPECT_EQ(make_error_code(FwImgError::kChecksum).message(), "invalid image checksum");
    EXPECT_EQ(make_error_code(FwImgError::kNotExecutable).message(),
              "image doesn't contain executable code");
    EXPECT_EQ(make_error_code(FwImgError::kImageType).message(), "unknown/unsupported image type");
    EXPECT_EQ(make_error_code(FwImgError::kSize).message(), "invalid image size");
    EXPECT_EQ(make_error_code(FwImgError::kSignature).message(), "invalid image signature");
    EXPECT_EQ(make_error_code(BootloaderError::kDataMismatch).message(), "firmware data mismatch");

    for (const int other : {-1, 6, 1000}) {
        EXPECT_EQ(FwImgCategory().message(other), "unknown error");
    }
    for (const int other : {-1, 1, 3}) {
        EXPECT_EQ(BootloaderCategory().message(other), "unknown error");
    }
}

TEST(Fx3ErrorCategories, CorruptImagesAndMismatchesAreIllegalByteSequences) {
    for (const FwImgError corrupt : {FwImgError::kChecksum, FwImgError::kNotExecutable,
                                     FwImgError::kImageType, FwImgError::kSignature}) {
        const std::error_code code = corrupt;
        EXPECT_EQ(code, std::errc::illegal_byte_sequence) << code.message();
        EXPECT_NE(code, std::errc::invalid_argument) << code.message();
    }
    const std::error_code size = FwImgError::kSize;
    EXPECT_NE(size, std::errc::illegal_byte_sequence);
    EXPECT_EQ(size, std::error_condition(4, FwImgCategory()));
    EXPECT_NE(std::error_code(6, FwImgCategory()), std::errc::illegal_byte_sequence);

    EXPECT_EQ(std::error_code(BootloaderError::kDataMismatch), std::errc::illegal_byte_sequence);
    EXPECT_NE(std::error_code(1, BootloaderCategory()), std::errc::illegal_byte_sequence);

    // Same number, other category.
    EXPECT_NE(std::error_code(BootloaderError::kDataMismatch),
              std::error_code(FwImgError::kNotExecutable));
}

}  // namespace
}  // namespace ovex::fx3
