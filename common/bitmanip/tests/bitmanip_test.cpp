#include <gtest/gtest.h>

#include <array>
#include <cmath>
#include <cstdint>

#include "bitmanip/bitmanip.hpp"

namespace bm = ovex::bitmanip;

namespace {

TEST(Bitmanip, BytesOfWordsAndWordsOfBytes) {
    EXPECT_EQ(bm::get_byte_u32(0x11223344, 0), 0x44);
    EXPECT_EQ(bm::get_byte_u32(0x11223344, 3), 0x11);
    EXPECT_EQ(bm::get_byte_u32(0x11223344, 4), 0);
    EXPECT_EQ(bm::bytes_to_u16(0xAB, 0xCD), 0xABCD);
    EXPECT_EQ(bm::bytes_to_u32(0x11, 0x22, 0x33, 0x44), 0x11223344u);
    EXPECT_EQ(bm::u16_to_u32(0xDEAD, 0xBEEF), 0xDEADBEEFu);
    EXPECT_EQ(bm::lower_nibble(0xA5), 0x5);
    EXPECT_EQ(bm::upper_nibble(0xA5), 0xA);
}

TEST(Bitmanip, SpanReadersAndWritersInBothByteOrders) {
    std::array<std::uint8_t, 4> bytes{};
    bm::u32_to_span_le(0x11223344, bytes);
    EXPECT_EQ(bytes, (std::array<std::uint8_t, 4>{0x44, 0x33, 0x22, 0x11}));
    EXPECT_EQ(bm::u32_from_span_le(bytes), 0x11223344u);
    EXPECT_EQ(bm::u32_from_span_be(bytes), 0x44332211u);
    bm::i32_to_span_be(-2, bytes);
    EXPECT_EQ(bytes, (std::array<std::uint8_t, 4>{0xFF, 0xFF, 0xFF, 0xFE}));
    EXPECT_EQ(bm::i32_from_span_be(bytes), -2);
    bm::float_to_span_le(1.5f, bytes);
    EXPECT_EQ(bm::u32_from_span_le(bytes), 0x3FC00000u);
    EXPECT_EQ(bm::float_from_span_le(bytes), 1.5f);
    bm::float_to_span_be(-0.25f, bytes);
    EXPECT_EQ(bm::float_from_span_be(bytes), -0.25f);
}

TEST(Bitmanip, ShortSpansAreNeitherReadNorWritten) {
    std::array<std::uint8_t, 2> two{0xAA, 0xBB};
    EXPECT_TRUE(std::isnan(bm::float_from_span_be(two)));
    EXPECT_TRUE(std::isnan(bm::float_from_span_le(two)));
    EXPECT_EQ(bm::u32_from_span_le(two), 0u);
    EXPECT_EQ(bm::i32_from_span_be(two), 0);
    bm::u32_to_span_le(0x12345678, two);
    bm::float_to_span_be(3.0f, two);
    EXPECT_EQ(two, (std::array<std::uint8_t, 2>{0xAA, 0xBB}));
}

TEST(Bitmanip, BitReversal) {
    EXPECT_EQ(bm::bit_reverse_u8(1), 128);
    EXPECT_EQ(bm::bit_reverse_u8(0x0F), 0xF0);
    EXPECT_EQ(bm::bit_reverse_u16(0x0001), 0x8000);
    EXPECT_EQ(bm::bit_reverse_u16(0x00F0), 0x0F00);
    EXPECT_EQ(bm::bit_reverse_u32(0x00000001), 0x80000000u);
    EXPECT_EQ(bm::bit_reverse_u32(0x12345678), 0x1E6A2C48u);

    const std::array<std::uint8_t, 3> source{0x01, 0x02, 0x80};
    std::array<std::uint8_t, 3> destination{};
    bm::bit_reverse_span(source, destination);
    EXPECT_EQ(destination, (std::array<std::uint8_t, 3>{0x01, 0x40, 0x80}));

    std::array<std::uint8_t, 2> mismatched{0x55, 0x66};
    bm::bit_reverse_span(source, mismatched);
    EXPECT_EQ(mismatched, (std::array<std::uint8_t, 2>{0x55, 0x66}));
}

TEST(Bitmanip, SlicesShiftsAndSingleBits) {
    EXPECT_EQ(bm::get_bit_slice(0xF0, 7, 4), 15u);
    EXPECT_EQ(bm::get_bit_slice(0xDEADBEEF, 31, 0), 0xDEADBEEFu);
    EXPECT_EQ(bm::get_bit_slice(0x80000000, 31, 31), 1u);
    EXPECT_EQ(bm::set_bit_slice(0, 3, 1, 0), 3u);
    EXPECT_EQ(bm::set_bit_slice(0xFFFFFFFF, 0, 15, 8), 0xFFFF00FFu);
    EXPECT_EQ(bm::set_bit_slice(0, 0xFF, 3, 0), 0xFu) << "only the low bits of the slice";
    EXPECT_EQ(bm::set_bit_slice(0x1234, 0xF, 0, 4), 0x1234u) << "top below bottom changes nothing";
    EXPECT_EQ(bm::left_shift_bits(1, 33), 2u);
    EXPECT_EQ(bm::left_shift_bits(1, 31), 0x80000000u);
    EXPECT_TRUE(bm::get_bit(0x8, 3));
    EXPECT_FALSE(bm::get_bit(0x8, 2));
    EXPECT_FALSE(bm::get_bit(0xFFFFFFFF, 32));
    EXPECT_EQ(bm::write_bit(0, 31, true), 0x80000000u);
    EXPECT_EQ(bm::write_bit(0xFF, 0, false), 0xFEu);
}

}  // namespace
