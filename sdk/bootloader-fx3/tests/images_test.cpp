// The images the build makes for the controller: what the builder writes, and the four that the
// library embeds.

#include <gtest/gtest.h>

#include <algorithm>
#include <stdexcept>
#include <string>

#include "bitmanip/bitmanip.hpp"
#include "ovex/fx3/embedded_images.hpp"
#include "ovex/fx3/fw_image.hpp"
#include "ovex/fx3/app_descriptor.hpp"
#include "ovex/fx3img/image_builder.hpp"

namespace ovex::fx3 {
namespace {

using Layout = fx3img::AppDescriptorLayout;

std::string Text(std::span<const std::uint8_t> field) {
    const auto end = std::find(field.begin(), field.end(), 0);
    EXPECT_NE(end, field.end()) << "field without terminating zero";
    return {field.begin(), end};
}

std::uint32_t Word(std::span<const std::uint8_t> bytes, std::size_t offset) {
    return bitmanip::u32_from_span_le(bytes.subspan(offset, 4));
}

// The layout of every application image: the descriptor alone at the entry point, body sections
// of at most 64 KiB back to back from the body address, and a descriptor that covers that body.
void ExpectApplicationImage(std::span<const std::uint8_t> bytes, const fx3img::AppIdentity& id) {
    FwImage image;
    ASSERT_FALSE(FwImage::FromMemory(bytes, image)) << bytes.size();
    EXPECT_EQ(image.EntryPoint(), Layout::kEntryPoint);
    ASSERT_GE(image.Sections().size(), 2u);
    const FwSection& head = image.Sections().front();
    EXPECT_EQ(head.address, Layout::kEntryPoint);
    ASSERT_EQ(head.data.size(), Layout::kSize);
    const auto descriptor = head.data;
    EXPECT_TRUE(std::equal(Layout::kMagic.begin(), Layout::kMagic.end(), descriptor.begin()));
    EXPECT_EQ(Text(descriptor.subspan(Layout::kBoardIdOffset, Layout::kBoardIdSize)), id.board_id);
    EXPECT_EQ(Text(descriptor.subspan(Layout::kPcbVersionOffset, Layout::kPcbVersionSize)),
              id.pcb_version);
    EXPECT_EQ(
        Text(descriptor.subspan(Layout::kFirmwareVersionOffset, Layout::kFirmwareVersionSize)),
        id.firmware_version);

    std::uint32_t next = Layout::kBodyAddress;
    std::uint32_t sum = 0;
    for (std::size_t n = 1; n < image.Sections().size(); ++n) {
        const FwSection& section = image.Sections()[n];
        EXPECT_EQ(section.address, next) << "section " << n;
        EXPECT_LE(section.data.size(), 65536u) << "section " << n;
        for (std::size_t i = 0; i < section.data.size(); i += 4) {
            sum += Word(section.data, i);
        }
        next += static_cast<std::uint32_t>(section.data.size());
    }
    EXPECT_EQ(Word(descriptor, Layout::kBodyAddressOffset), Layout::kBodyAddress);
    EXPECT_EQ(Word(descriptor, Layout::kBodyBytesOffset), next - Layout::kBodyAddress);
    EXPECT_EQ(Word(descriptor, Layout::kBodySumOffset), sum);
}

TEST(ApplicationImageBuilder, ImagesOfEverySizeAreExactAndSound) {
    const fx3img::AppIdentity id{"TPX3EFE", "3.03", "0.24.3-TPX3"};
    // The smallest, sizes around the point where a second body section is needed, the largest.
    for (const std::size_t size : {132, 65660, 65664, 65668, 65672, 524288}) {
        const auto bytes = fx3img::BuildApplicationImage(id, size);
        EXPECT_EQ(bytes.size(), size);
        ExpectApplicationImage(bytes, id);
    }
    // The same identity gives the same bytes, another one another body.
    const auto body = fx3img::BuildApplicationImage(id, 4096);
    EXPECT_EQ(fx3img::BuildApplicationImage(id, 4096), body);
    const auto other = fx3img::BuildApplicationImage({"TPX3EFE", "3.03", "0.24.4-TPX3"}, 4096);
    EXPECT_FALSE(std::equal(body.end() - 64, body.end(), other.end() - 64));
}

TEST(ApplicationImageBuilder, RefusesSizesAndTextsThatDoNotFit) {
    for (const std::size_t size : {0, 128, 130, 133, 524292}) {
        EXPECT_THROW(fx3img::BuildApplicationImage({"NOBE", "3.00", "0.19.3"}, size),
                     std::invalid_argument)
            << size;
    }
    EXPECT_THROW(fx3img::BuildApplicationImage({std::string(32, 'X'), "3.00", "0.19.3"}, 4096),
                 std::invalid_argument);
    EXPECT_THROW(fx3img::BuildApplicationImage({"NOBE", "3.00.100", "0.19.3"}, 4096),
                 std::invalid_argument);
    EXPECT_NO_THROW(fx3img::BuildApplicationImage({std::string(31, 'X'), "3.00", "0.19.3"}, 4096));
}

TEST(EmbeddedImages, TheFourBoardImagesWithTheirSizesAndIdentities) {
    const struct {
        const char* file_name;
        fx3img::AppIdentity identity;
        std::size_t size;
    } table[] = {
        {"nobe-fw_v3_0_0.img", {"NOBE", "3.00", "0.19.3"}, 248180},
        {"ovbd-fw_v3_0_3.img", {"TPX3EFE", "3.03", "0.24.3-TPX3"}, 252448},
        {"ovbd-fw_v3_0_3_tpx2_cb.img", {"TPX2CB", "3.03", "1.6.3-TPX2CB"}, 262544},
        {"ovbd-fw_v3_0_3_tpx4_cb.img", {"TPX4CB", "3.03", "1.5.1-TPX4CB"}, 241648},
    };
    for (const auto& row : table) {
        SCOPED_TRACE(row.file_name);
        const auto bytes = EmbeddedImage(row.file_name);
        EXPECT_EQ(bytes.size(), row.size);
        ExpectApplicationImage(bytes, row.identity);
    }
    EXPECT_TRUE(EmbeddedImage("ovbd-fw_v3_0_4.img").empty());
    EXPECT_TRUE(EmbeddedImage("embedded: ovbd-fw_v3_0_3.img").empty());
}

}  // namespace
}  // namespace ovex::fx3
