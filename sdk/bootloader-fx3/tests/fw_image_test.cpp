#include "ovex/fx3/fw_image.hpp"

#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdio>
#include <fstream>
#include <string>
#include <vector>

#include "image_maker.hpp"
#include "ovex/fx3/errors.hpp"

namespace ovex::fx3 {
namespace {

using testing::MakeImage;

std::error_code Parse(const std::vector<std::uint8_t>& bytes) {
    FwImage image;
    return FwImage::FromMemory(bytes, image);
}

std::vector<std::uint8_t> DataOf(const FwSection& section) {
    return {section.data.begin(), section.data.end()};
}

// One section that brings the image to `size` bytes; the rest of an image takes 24 of them.
std::vector<std::uint8_t> ImageOfSize(std::size_t size) {
    return MakeImage({{0x40000000, std::vector<std::uint32_t>((size - 24) / 4, 0x01020304)}});
}

TEST(FwImageParse, SectionsInFileOrderPointIntoTheImage) {
    FwImage image;
    ASSERT_FALSE(FwImage::FromMemory(MakeImage({{0x40000000, {0x04030201, 0x08070605}},
                                                {0x00000100, {0xDDCCBBAA}},
                                                {0x40010000, {1, 2, 3}}},
                                               0x40000010),
                                     image));
    EXPECT_EQ(image.EntryPoint(), 0x40000010u);
    ASSERT_EQ(image.Sections().size(), 3u);
    EXPECT_EQ(image.Sections()[0].address, 0x40000000u);
    EXPECT_EQ(DataOf(image.Sections()[0]), (std::vector<std::uint8_t>{1, 2, 3, 4, 5, 6, 7, 8}));
    EXPECT_EQ(image.Sections()[1].address, 0x100u);
    EXPECT_EQ(image.Sections()[2].data.size(), 12u);

    // The spans survive a move of the image that owns their bytes.
    const FwImage moved = std::move(image);
    EXPECT_EQ(DataOf(moved.Sections()[1]), (std::vector<std::uint8_t>{0xAA, 0xBB, 0xCC, 0xDD}));
}

TEST(FwImageParse, RefusedForTheirSize) {
    EXPECT_FALSE(Parse(ImageOfSize(524288)));
    EXPECT_EQ(Parse(ImageOfSize(524292)), FwImgError::kSize);
    EXPECT_EQ(Parse({}), FwImgError::kSize);
    auto ragged = ImageOfSize(64);
    ragged.push_back(0);
    EXPECT_EQ(Parse(ragged), FwImgError::kSize);

    // The header alone: parsing ends at 4, which isn't size - 4.
    EXPECT_EQ(Parse({'C', 'Y', 0x00, 0xB0}), FwImgError::kSize);
    // Sections up to the last byte and no terminator.
    EXPECT_EQ(Parse(MakeImage({{0x40000000, {1, 2, 3}}}, std::nullopt)), FwImgError::kSize);
    // A section whose length reaches past the file.
    auto overlong = MakeImage({{0x40000000, {1, 2}}});
    overlong[4] = 200;
    EXPECT_EQ(Parse(overlong), FwImgError::kSize);
    // A word behind the checksum.
    auto trailing = MakeImage({{0x40000000, {1, 2}}});
    trailing.insert(trailing.end(), {0, 0, 0, 0});
    EXPECT_EQ(Parse(trailing), FwImgError::kSize);
}

TEST(FwImageParse, TerminatorAloneIsAValidImageWithItsEntryPoint) {
    FwImage image;
    ASSERT_FALSE(FwImage::FromMemory(MakeImage({}, 0x40001234, 0), image));
    EXPECT_TRUE(image.Sections().empty());
    EXPECT_EQ(image.EntryPoint(), 0x40001234u);
}

TEST(FwImageParse, HeaderChecksRunSignatureThenCodeBitThenType) {
    const auto with_header = [](std::uint8_t c, std::uint8_t y, std::uint8_t ctl,
                                std::uint8_t type) {
        auto bytes = MakeImage({{0x40000000, {1}}});
        bytes[0] = c;
        bytes[1] = y;
        bytes[2] = ctl;
        bytes[3] = type;
        return Parse(bytes);
    };
    EXPECT_EQ(with_header('C', 'Y', 0x01, 0xB0), FwImgError::kNotExecutable);
    EXPECT_EQ(with_header('C', 'Y', 0x03, 0x00), FwImgError::kNotExecutable);
    EXPECT_FALSE(with_header('C', 'Y', 0xFE, 0xB0));  // only bit 0 counts
    EXPECT_EQ(with_header('C', 'Y', 0x00, 0xB1), FwImgError::kImageType);
    EXPECT_EQ(with_header('X', 'Y', 0x01, 0x00), FwImgError::kSignature);
    EXPECT_EQ(with_header('C', 'X', 0x01, 0x00), FwImgError::kSignature);
}

TEST(FwImageParse, ChecksumIsTheWrappingSumOfTheDataWordsOnly) {
    EXPECT_FALSE(Parse(MakeImage({{0x40000000, {0x00000001, 0xFFFFFFFF}}}, 0x40000000, 0)));
    EXPECT_FALSE(
        Parse(MakeImage({{0x40000000, {0x11111111}}, {0, {0x22222222}}}, 0x40000000, 0x33333333)));
    EXPECT_EQ(Parse(MakeImage({{0x40000000, {0x11111111, 0x22222222}}}, 0x40000000, 0x33333334)),
              FwImgError::kChecksum);

    const auto sound = MakeImage({{0x40000000, {0xCAFEF00D, 0x12345678}}});
    auto data_changed = sound;
    data_changed[16] ^= 0x40;
    EXPECT_EQ(Parse(data_changed), FwImgError::kChecksum);

    // Addresses and the entry point aren't summed.
    auto moved = sound;
    moved[10] ^= 0x01;
    moved[24] ^= 0xFF;
    FwImage image;
    ASSERT_FALSE(FwImage::FromMemory(moved, image));
    EXPECT_EQ(image.Sections()[0].address, 0x40010000u);
    EXPECT_EQ(image.EntryPoint(), 0x400030FFu);

    // A failure leaves no usable image behind.
    EXPECT_EQ(FwImage::FromMemory(data_changed, image), FwImgError::kChecksum);
    EXPECT_TRUE(image.Sections().empty());
    EXPECT_EQ(image.EntryPoint(), 0u);
}

TEST(FwImageFile, ReadsTheWholeFileInBinaryModeAndRefusesMissingOnes) {
    // Unique per process: ctest runs the cases of several builds side by side.
    const std::string path = ::testing::TempDir() + "fw_image_" + std::to_string(::getpid());
    const auto write = [&path](const std::vector<std::uint8_t>& bytes) {
        std::ofstream(path, std::ios::binary)
            .write(reinterpret_cast<const char*>(bytes.data()),
                   static_cast<std::streamsize>(bytes.size()));
        return path;
    };
    FwImage image;
    ASSERT_FALSE(
        FwImage::FromFile(write(MakeImage({{0x40000000, {0x0A0D0A0D, 0x1A000000}}})), image));
    ASSERT_EQ(image.Sections().size(), 1u);
    EXPECT_EQ(DataOf(image.Sections()[0]),
              (std::vector<std::uint8_t>{0x0D, 0x0A, 0x0D, 0x0A, 0x00, 0x00, 0x00, 0x1A}));
    EXPECT_EQ(FwImage::FromFile(write(ImageOfSize(524292)), image), FwImgError::kSize);
    std::remove(path.c_str());
    EXPECT_EQ(FwImage::FromFile(path, image), std::errc::no_such_file_or_directory);
}

}  // namespace
}  // namespace ovex::fx3
