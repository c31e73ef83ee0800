#include <gtest/gtest.h>

#include <array>
#include <cmath>
#include <cstring>
#include <limits>
#include <string>

#include "ovex/vendor_cmd/board_io.hpp"
#include "ovex/vendor_cmd/codec.hpp"
#include "ovex/vendor_cmd/items.hpp"

namespace {

using namespace ovex::usb::vendor_cmd;

TEST(CodecTest, IntegersAreLittleEndianAndShortFieldsReadAsZero) {
    const std::array<std::uint8_t, 4> field{0x78, 0x56, 0x34, 0x12};
    unsigned int word = 0;
    EXPECT_TRUE(impl::Decode(field, word));
    EXPECT_EQ(word, 0x12345678u);

    const std::array<std::uint8_t, 4> negative{0xFE, 0xFF, 0xFF, 0xFF};
    int value = 0;
    EXPECT_TRUE(impl::Decode(negative, value));
    EXPECT_EQ(value, -2);

    value = 7;
    EXPECT_TRUE(impl::Decode(std::span(field).first(3), value));
    EXPECT_EQ(value, 0);

    std::array<std::uint8_t, 4> encoded{};
    impl::Encode(encoded, -2);
    EXPECT_EQ(encoded, negative);
}

TEST(CodecTest, FloatsRoundTripAndNanOrShortFieldsFailToDecode) {
    std::array<std::uint8_t, 4> field{};
    impl::Encode(field, 1.5f);
    EXPECT_EQ(field, (std::array<std::uint8_t, 4>{0x00, 0x00, 0xC0, 0x3F}));
    float value = 0;
    EXPECT_TRUE(impl::Decode(field, value));
    EXPECT_EQ(value, 1.5f);

    EXPECT_FALSE(impl::Decode(std::span(field).first(2), value));
    EXPECT_TRUE(std::isnan(value));

    impl::Encode(field, std::numeric_limits<float>::quiet_NaN());
    EXPECT_FALSE(impl::Decode(field, value));
}

TEST(CodecTest, TextFieldIsCutAtItsLastByteAndAnEmptyTextFails) {
    std::array<std::uint8_t, kStringFieldSize> field{};
    std::memset(field.data(), 'A', field.size());  // no NUL anywhere
    std::string text;
    EXPECT_TRUE(impl::Decode(field, text));
    EXPECT_EQ(text, std::string(32, 'A'));

    field = {};
    std::memcpy(field.data(), "TPX3\0junk", 9);
    EXPECT_TRUE(impl::Decode(field, text));
    EXPECT_EQ(text, "TPX3");

    field = {};
    EXPECT_FALSE(impl::Decode(field, text));
    EXPECT_EQ(text, "");
}

TEST(CodecTest, RangesKeepMinAtOrBelowMaxAndFailOnNanBounds) {
    std::array<std::uint8_t, 8> field{};
    impl::Encode(std::span(field).first<4>(), 10);
    impl::Encode(std::span(field).last<4>(), -5);
    ovex::range::Range<int> limits;
    EXPECT_TRUE(impl::Decode(field, limits));
    EXPECT_EQ(limits.min(), 10);
    EXPECT_EQ(limits.max(), 10);

    impl::Encode(std::span(field).first<4>(), -1.0f);
    impl::Encode(std::span(field).last<4>(), 2.5f);
    ovex::range::Range<float> range;
    EXPECT_TRUE(impl::Decode(field, range));
    EXPECT_EQ(range, ovex::range::Range<float>(-1.0f, 2.5f));

    impl::Encode(std::span(field).last<4>(), std::numeric_limits<float>::quiet_NaN());
    EXPECT_FALSE(impl::Decode(field, range));
}

TEST(I2cAddressingTest, RegisterWidthIsOredInAfterTheReadBitIsTaken) {
    const auto seven_bit_read = impl::I2cAddress(0xA1, true);
    EXPECT_EQ(seven_bit_read.wIndex, 0x03A1);
    EXPECT_TRUE(seven_bit_read.read);

    const auto seven_bit_write = impl::I2cAddress(0xA0, false);
    EXPECT_EQ(seven_bit_write.wIndex, 0x01A0);
    EXPECT_FALSE(seven_bit_write.read);

    // 10-bit form: 11110 in bits 11 to 15, the read bit is bit 8, bit 0 is an address bit.
    const auto ten_bit_write = impl::I2cAddress(0xF0A5, false);
    EXPECT_FALSE(ten_bit_write.read);
    EXPECT_EQ(ten_bit_write.wIndex, 0xF1A5);
    EXPECT_TRUE(impl::I2cAddress(0xF1A4, true).read);
}

TEST(ItemLookupTest, FirstExactMatchWins) {
    const std::vector<std::string> names{"BIAS", "BIAS_EN", "BIAS", "bias"};
    EXPECT_EQ(impl::FindItem(names, "BIAS"), 0);
    EXPECT_EQ(impl::FindItem(names, "bias"), 3);
    EXPECT_EQ(impl::FindItem(names, "BIA"), std::nullopt);
    EXPECT_EQ(impl::FindItem(names, std::string_view("BIAS\0", 5)), std::nullopt);
    EXPECT_EQ(impl::FindItem({}, "BIAS"), std::nullopt);
}

}  // namespace
